#include "MemorySecretStore.h"
#include "PrivateSession.h"
#include "ai/AIKeyStore.h"
#include "ai/AIProvider.h"
#include "platform/SecretStore.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

int modeOf(const QString &path)
{
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return -1;
    return int(info.st_mode & 07777);
}

QJsonObject fileKeys(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

using QCoro::waitFor;

} // namespace

class TestSecretStore : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        const QString failure = m_service.start();
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }
    void roundTrip_data();
    void roundTrip();
    void removal();
    void refusedRemovalIsReported();
    void keyringComingBackTakesTheKeyOutOfTheFile();
    // Runs last: it stops the keyring.
    void fallbackFileWhenNoSecretServiceAnswers();

private:
    QString fallback() const { return m_service.path(u"config/tovren/ai-keys.json"_s); }
    PrivateSession m_service;
};

void TestSecretStore::roundTrip_data()
{
    QTest::addColumn<QString>("account");
    QTest::addColumn<QStringList>("values"); // written in turn; the last one must be read
    QTest::newRow("replaced") << u"ai-key-openai"_s << QStringList{u"sk-old"_s, u"sk-new"_s};
    QTest::newRow("utf-8 and spaces")
        << u"ai-key-custom"_s << QStringList{u"clé secrète ключ 🔑 "_s};
    QTest::newRow("long") << u"ai-key-gemini"_s << QStringList{QString(4096, u'k')};
}

void TestSecretStore::roundTrip()
{
    QFETCH(QString, account);
    QFETCH(QStringList, values);
    SecretServiceStore secrets(AIKeyStore::service);
    AIKeyStore keys(secrets, fallback());
    for (const QString &value : values)
        QVERIFY(waitFor(keys.write(value, account)));
    QVERIFY(keys.fallbackNotice().isEmpty());
    // The keyring daemon keeps it in its own file, and nothing of ours lands in the config.
    QVERIFY(QFile::exists(m_service.path(u"data/keyrings/login.keyring"_s)));
    QVERIFY(QDir(m_service.path(u"config"_s)).isEmpty());

    // A second store reads what the keyring kept, not a copy in memory.
    SecretServiceStore again(AIKeyStore::service);
    const auto read = waitFor(again.read(account));
    QCOMPARE(int(read.outcome), int(SecretStore::Outcome::done));
    QCOMPARE(read.value, values.last());
    // Another service's item with the same account is a different secret.
    SecretServiceStore other(u"com.tovren.passcode"_s);
    QCOMPARE(int(waitFor(other.read(account)).outcome), int(SecretStore::Outcome::notFound));
}

void TestSecretStore::removal()
{
    SecretServiceStore secrets(AIKeyStore::service);
    AIKeyStore keys(secrets, fallback());
    QCOMPARE(waitFor(keys.read(u"ai-key-nobody"_s)), std::nullopt);
    QVERIFY(waitFor(keys.remove(u"ai-key-nobody"_s)));
    for (AIProvider provider : AIProviders::all)
        QVERIFY(waitFor(keys.write(u"key-"_s + AIProviders::rawValue(provider),
                                   AIProviders::keyAccount(provider))));
    QVERIFY(waitFor(keys.removeAllProviderKeys()));
    for (AIProvider provider : AIProviders::all) {
        const bool onDevice = provider == AIProvider::appleFoundation;
        // Only the four providers with keys are erased.
        QCOMPARE(waitFor(keys.read(AIProviders::keyAccount(provider))).has_value(), onDevice);
    }
    QVERIFY(waitFor(keys.remove(u"ai-key-appleFoundation"_s)));
}

void TestSecretStore::refusedRemovalIsReported()
{
    QTemporaryDir dir;
    MemorySecretStore secrets;
    AIKeyStore keys(secrets, dir.filePath(u"ai-keys.json"_s));
    QVERIFY(waitFor(keys.write(u"sk-1"_s, u"ai-key-openai"_s)));
    secrets.refuses = true;
    QVERIFY(!waitFor(keys.remove(u"ai-key-openai"_s)));
    QVERIFY(!waitFor(keys.removeAllProviderKeys()));
    QCOMPARE(secrets.items.value(u"ai-key-openai"_s), u"sk-1"_s);
}

void TestSecretStore::keyringComingBackTakesTheKeyOutOfTheFile()
{
    QTemporaryDir dir;
    const QString file = dir.filePath(u"tovren/ai-keys.json"_s);
    MemorySecretStore secrets;
    secrets.reachable = false;
    AIKeyStore keys(secrets, file);
    QVERIFY(waitFor(keys.write(u"sk-1"_s, u"ai-key-openai"_s)));
    QVERIFY(waitFor(keys.write(u"sk-2"_s, u"ai-key-claude"_s)));
    QVERIFY(keys.usesFallbackFile());

    secrets.reachable = true;
    // Still found while it only lives in the file.
    QCOMPARE(waitFor(keys.read(u"ai-key-openai"_s)), std::optional(u"sk-1"_s));
    QVERIFY(waitFor(keys.write(u"sk-1b"_s, u"ai-key-openai"_s)));
    QVERIFY(!keys.usesFallbackFile());
    QCOMPARE(secrets.items.value(u"ai-key-openai"_s), u"sk-1b"_s);
    QCOMPARE(fileKeys(file), QJsonObject({{u"ai-key-claude"_s, u"sk-2"_s}}));
    QCOMPARE(modeOf(file), 0600);
}

void TestSecretStore::fallbackFileWhenNoSecretServiceAnswers()
{
    QVERIFY(m_service.stopKeyring());
    QVERIFY(!waitFor(SecretServiceStore::serviceReachable()));
    SecretServiceStore secrets(AIKeyStore::service);
    AIKeyStore keys(secrets, fallback());
    QVERIFY(waitFor(keys.write(u"sk-ant-file"_s, u"ai-key-claude"_s)));
    QVERIFY(keys.usesFallbackFile());
    QCOMPARE(modeOf(fallback()), 0600);
    QCOMPARE(fileKeys(fallback()).value(u"ai-key-claude"_s).toString(), u"sk-ant-file"_s);
    QVERIFY(keys.fallbackNotice().startsWith(u"No keyring answered on this computer"_s));
    QVERIFY(keys.fallbackNotice().contains(fallback()));

    AIKeyStore fresh(secrets, fallback());
    QCOMPARE(waitFor(fresh.read(u"ai-key-claude"_s)), std::optional(u"sk-ant-file"_s));
    QVERIFY(waitFor(fresh.removeAllProviderKeys()));
    QVERIFY(fileKeys(fallback()).isEmpty());
    QCOMPARE(modeOf(fallback()), 0600);
}

QTEST_GUILESS_MAIN(TestSecretStore)
#include "tst_secretstore.moc"
