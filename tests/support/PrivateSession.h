#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

// A desktop session of the test's own: a private D-Bus session bus, with gnome-keyring on it as
// the Secret Service when asked, and HOME and the XDG folders in a temporary directory, so that no
// test touches the user's keyring or settings. Start it before anything in the process opens the
// session bus.
class PrivateSession {
public:
    PrivateSession();
    ~PrivateSession();
    PrivateSession(const PrivateSession &) = delete;
    PrivateSession &operator=(const PrivateSession &) = delete;

    // Empty on success; otherwise what went wrong, in words for QFAIL. start() is the bus and
    // then the keyring.
    QString startBus();
    QString start();
    // The keyring goes away, the bus stays: a session without any Secret Service.
    bool stopKeyring();
    static bool offered();

    QString path(const QString &relative) const { return m_home.filePath(relative); }

private:
    QTemporaryDir m_home;
    QProcess m_bus;
    QProcess m_keyring;
};
