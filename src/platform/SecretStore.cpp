#include "platform/SecretStore.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <qcoro/qcorosignal.h>
#include <qt6keychain/keychain.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

const QString secretsName = u"org.freedesktop.secrets"_s;

QCoro::Task<QDBusMessage> busCall(QDBusConnection bus, QString method, QVariantList arguments)
{
    QDBusMessage message = QDBusMessage::createMethodCall(
        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, method);
    message.setArguments(arguments);
    auto watcher = std::make_unique<QDBusPendingCallWatcher>(bus.asyncCall(message, 5000));
    if (!watcher->isFinished())
        co_await qCoro(watcher.get(), &QDBusPendingCallWatcher::finished);
    co_return watcher->reply();
}

SecretStore::Outcome outcomeOf(QKeychain::Error error)
{
    switch (error) {
    case QKeychain::NoError:
        return SecretStore::Outcome::done;
    case QKeychain::EntryNotFound:
        return SecretStore::Outcome::notFound;
    case QKeychain::NoBackendAvailable:
    case QKeychain::NotImplemented:
        return SecretStore::Outcome::unavailable;
    default:
        return SecretStore::Outcome::failed;
    }
}

template<class Job>
QCoro::Task<SecretStore::Outcome> run(Job &job)
{
    job.setAutoDelete(false);
    job.start();
    co_await qCoro(&job, &QKeychain::Job::finished);
    co_return outcomeOf(job.error());
}

} // namespace

SecretServiceStore::SecretServiceStore(QString service)
    : m_service(std::move(service))
{
}

QCoro::Task<bool> SecretServiceStore::serviceReachable()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        co_return false;
    // Arguments built outside the co_await expressions: GCC 12 miscompiles temporaries there.
    const QString hasOwner = u"NameHasOwner"_s;
    const QString listActivatable = u"ListActivatableNames"_s;
    const QVariantList name{secretsName};
    const QVariantList none;
    const QDBusMessage owner = co_await busCall(bus, hasOwner, name);
    bool owned = owner.type() == QDBusMessage::ReplyMessage && !owner.arguments().isEmpty() &&
                 owner.arguments().constFirst().toBool();
    if (owned)
        co_return true;
    const QDBusMessage activatable = co_await busCall(bus, listActivatable, none);
    bool canStart = activatable.type() == QDBusMessage::ReplyMessage &&
                    !activatable.arguments().isEmpty() &&
                    activatable.arguments().constFirst().toStringList().contains(secretsName);
    co_return canStart;
}

QCoro::Task<SecretStore::ReadResult> SecretServiceStore::read(QString account)
{
    if (!co_await serviceReachable())
        co_return ReadResult{Outcome::unavailable, {}};
    QKeychain::ReadPasswordJob job(m_service);
    job.setKey(account);
    const Outcome outcome = co_await run(job);
    co_return ReadResult{outcome, outcome == Outcome::done ? job.textData() : QString()};
}

QCoro::Task<SecretStore::Outcome> SecretServiceStore::write(QString account, QString value)
{
    if (!co_await serviceReachable())
        co_return Outcome::unavailable;
    QKeychain::WritePasswordJob job(m_service);
    job.setKey(account);
    job.setTextData(value);
    co_return co_await run(job);
}

QCoro::Task<SecretStore::Outcome> SecretServiceStore::remove(QString account)
{
    if (!co_await serviceReachable())
        co_return Outcome::unavailable;
    QKeychain::DeletePasswordJob job(m_service);
    job.setKey(account);
    const Outcome outcome = co_await run(job);
    co_return outcome == Outcome::notFound ? Outcome::done : outcome;
}
