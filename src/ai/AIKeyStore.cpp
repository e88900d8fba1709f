#include "ai/AIKeyStore.h"

#include "ai/AIProvider.h"
#include "core/DataLocations.h"
#include "platform/SecretStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

using namespace Qt::StringLiterals;

const QString AIKeyStore::service = u"com.tovren.ai-keys"_s;

AIKeyStore::AIKeyStore(SecretStore &secrets, QString fallbackPath)
    : m_secrets(&secrets)
    , m_fallbackPath(std::move(fallbackPath))
{
}

QString AIKeyStore::defaultFallbackPath()
{
    return DataLocations::configDir() + u"/ai-keys.json"_s;
}

QCoro::Task<std::optional<QString>> AIKeyStore::read(QString account)
{
    const SecretStore::ReadResult result = co_await m_secrets->read(account);
    switch (result.outcome) {
    case SecretStore::Outcome::done:
        m_usedFallback = false;
        co_return result.value;
    case SecretStore::Outcome::unavailable:
        m_usedFallback = true;
        co_return readFile(account);
    case SecretStore::Outcome::notFound:
        // A key kept in the file while the keyring was away is still the user's key.
        m_usedFallback = false;
        co_return readFile(account);
    case SecretStore::Outcome::failed:
        break;
    }
    co_return std::nullopt;
}

QCoro::Task<bool> AIKeyStore::write(QString value, QString account)
{
    const SecretStore::Outcome outcome = co_await m_secrets->write(account, value);
    if (outcome == SecretStore::Outcome::done) {
        m_usedFallback = false;
        // The keyring holds it now; no copy stays in the file.
        if (readFile(account))
            writeFile(account, std::nullopt);
        co_return true;
    }
    if (outcome == SecretStore::Outcome::unavailable) {
        m_usedFallback = true;
        co_return writeFile(account, value);
    }
    co_return false;
}

QCoro::Task<bool> AIKeyStore::remove(QString account)
{
    const SecretStore::Outcome outcome = co_await m_secrets->remove(account);
    m_usedFallback = outcome == SecretStore::Outcome::unavailable;
    // A keyring that refused still holds the key; the file's copy goes either way.
    const bool keyringClear = outcome != SecretStore::Outcome::failed;
    const bool fileClear = !readFile(account) || writeFile(account, std::nullopt);
    const bool removed = keyringClear && fileClear;
    co_return removed;
}

QCoro::Task<bool> AIKeyStore::removeAllProviderKeys()
{
    bool all = true;
    for (AIProvider provider :
         {AIProvider::claude, AIProvider::openai, AIProvider::gemini, AIProvider::custom}) {
        const bool removed = co_await remove(AIProviders::keyAccount(provider));
        all = all && removed;
    }
    co_return all;
}

QString AIKeyStore::fallbackNotice() const
{
    if (!m_usedFallback)
        return QString();
    return u"No keyring answered on this computer, so your AI keys are kept in a file only your "
           u"account can read: "_s +
           QDir::toNativeSeparators(m_fallbackPath) +
           u". Start your desktop's keyring (such as GNOME Keyring or KWallet) and save the key "
           u"again to keep it there instead."_s;
}

std::optional<QString> AIKeyStore::readFile(const QString &account) const
{
    QFile file(m_fallbackPath);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QJsonValue value = QJsonDocument::fromJson(file.readAll()).object().value(account);
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

bool AIKeyStore::writeFile(const QString &account, const std::optional<QString> &value) const
{
    QJsonObject keys;
    {
        QFile existing(m_fallbackPath);
        if (existing.open(QIODevice::ReadOnly))
            keys = QJsonDocument::fromJson(existing.readAll()).object();
    }
    if (value)
        keys.insert(account, *value);
    else
        keys.remove(account);

    if (!QDir().mkpath(QFileInfo(m_fallbackPath).absolutePath()))
        return false;
    QSaveFile file(m_fallbackPath);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    // Owner-only before the first byte is written, so no other account ever sees a key.
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    file.write(QJsonDocument(keys).toJson(QJsonDocument::Compact));
    if (!file.commit())
        return false;
    return QFile::setPermissions(m_fallbackPath, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}
