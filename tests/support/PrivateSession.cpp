#include "PrivateSession.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

PrivateSession::PrivateSession() = default;

PrivateSession::~PrivateSession()
{
    for (QProcess *process : {&m_keyring, &m_bus}) {
        if (process->state() == QProcess::NotRunning)
            continue;
        process->terminate();
        if (!process->waitForFinished(3000))
            process->kill();
        process->waitForFinished(3000);
    }
}

bool PrivateSession::offered()
{
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(
        u"org.freedesktop.secrets"_s);
}

QString PrivateSession::startBus()
{
    if (!m_home.isValid())
        return u"no temporary folder"_s;
    const QString home = m_home.path();
    for (const char *sub : {"data", "config", "runtime", "cache"})
        QDir(home).mkpath(QString::fromLatin1(sub));
    QFile::setPermissions(home + u"/runtime"_s,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("HOME", home.toUtf8());
    for (const auto &[name, sub] : {std::pair{"XDG_DATA_HOME", "/data"},
                                    {"XDG_CONFIG_HOME", "/config"},
                                    {"XDG_RUNTIME_DIR", "/runtime"},
                                    {"XDG_CACHE_HOME", "/cache"}})
        qputenv(name, (home + QString::fromLatin1(sub)).toUtf8());
    for (const char *name :
         {"XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "KDE_FULL_SESSION", "DISPLAY"})
        qunsetenv(name);

    // No service files on this bus, so nothing is started behind the test's back.
    QFile config(home + u"/bus.conf"_s);
    if (!config.open(QIODevice::WriteOnly))
        return u"cannot write the bus configuration"_s;
    config.write(
        "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
        "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
        "<busconfig><type>session</type><listen>unix:dir=" +
        (home + u"/runtime"_s).toUtf8() +
        "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
        "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
        "<allow own=\"*\"/></policy></busconfig>\n");
    config.close();
    m_bus.start(u"dbus-daemon"_s,
                {u"--config-file="_s + config.fileName(), u"--nofork"_s, u"--print-address=1"_s});
    if (!m_bus.waitForStarted(5000))
        return u"could not start dbus-daemon (package dbus-daemon)"_s;
    QByteArray address;
    const QDeadlineTimer busDeadline(10000);
    while (!address.contains('\n') && !busDeadline.hasExpired() && m_bus.waitForReadyRead(1000))
        address += m_bus.readAllStandardOutput();
    address = address.trimmed();
    if (address.isEmpty())
        return u"dbus-daemon printed no address: "_s +
               QString::fromLocal8Bit(m_bus.readAllStandardError());
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);
    if (!QDBusConnection::sessionBus().isConnected())
        return u"could not join the private bus"_s;

    return QString();
}

QString PrivateSession::start()
{
    if (QString failed = startBus(); !failed.isEmpty())
        return failed;
    m_keyring.setProcessChannelMode(QProcess::MergedChannels);
    m_keyring.start(u"gnome-keyring-daemon"_s,
                    {u"--foreground"_s, u"--unlock"_s, u"--components=secrets"_s});
    if (!m_keyring.waitForStarted(5000))
        return u"could not start gnome-keyring-daemon (package gnome-keyring)"_s;
    // The login keyring's password; end of input unlocks or creates it.
    m_keyring.write("test-password");
    m_keyring.closeWriteChannel();
    const QDeadlineTimer deadline(15000);
    while (!offered() && !deadline.hasExpired() && m_keyring.state() == QProcess::Running)
        QTest::qWait(100);
    if (!offered())
        return u"gnome-keyring-daemon never offered the Secret Service: "_s +
               QString::fromLocal8Bit(m_keyring.readAll());
    return QString();
}

bool PrivateSession::stopKeyring()
{
    m_keyring.terminate();
    if (!m_keyring.waitForFinished(5000))
        return false;
    const QDeadlineTimer deadline(5000);
    while (offered() && !deadline.hasExpired())
        QTest::qWait(50);
    return !offered();
}
