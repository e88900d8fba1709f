#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>

class QLocalServer;
class QLocalSocket;

// One Tovren per journal. The first process to start on a data root holds an instance lock
// (an flock in the per-user runtime folder, released by the kernel even on a crash) and listens
// on a local socket beside it; a later start hands its arguments over that socket and ends.
// Both names carry a hash of the data root, so a test with its own TOVREN_DATA_DIR never meets
// the user's running Tovren.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    enum class Role {
        primary,   // this process holds the lock: it runs the journal
        secondary, // another process holds it: forward and end
        unguarded, // no usable runtime folder: run, but without the guarantee
    };

    struct Answer {
        bool accepted = false;
        // What to tell the user when the running Tovren refused or could not be reached.
        QString message;
    };

    explicit SingleInstance(const QString &dataRoot, QObject *parent = nullptr);
    ~SingleInstance() override;

    // Takes the lock when it is free. Needs no application object, so the choice of face can
    // wait for it. A process started by relaunch() first waits for the one that started it to
    // let go of the lock.
    Role claim();
    // Why the role is unguarded, in plain words.
    const QString &problem() const { return m_problem; }

    // As the primary, takes forwarded arguments from now on (needs the application object).
    // A socket file left by a crashed Tovren is removed first: the lock proves it is dead.
    bool listen();
    // While not empty, every forwarded request is answered with this refusal and not received.
    void setRefusal(const QString &message) { m_refusal = message; }
    // A forwarded request whose first argument is `word` goes to the handler, whatever the
    // refusal, and its answer is sent back; it is not received.
    using Command = std::function<Answer(const QStringList &rest)>;
    void setCommand(const QString &word, Command handler) { m_commands[word] = std::move(handler); }

    // As a secondary, hands the arguments to the running Tovren and waits for its answer.
    Answer forward(const QStringList &arguments, int timeoutMs = 20000);

    // Words for a start that is refused: another Tovren already keeps this journal open, or
    // the running one has no window to show.
    static QString alreadyRunningMessage(const QString &dataRoot);
    static QString windowlessMessage(const QString &dataRoot);

    QString lockPath() const;
    QString socketPath() const;

    // $XDG_RUNTIME_DIR, or a private folder in the temporary folder when that is unset or
    // unusable; empty (with the reason in problem) when neither can be had safely.
    static QString runtimeDir(QString *problem = nullptr);

    // Starts this program again with the same arguments, as a process that waits in claim()
    // until this one has ended. False when it could not be started.
    static bool relaunch();

signals:
    // Arguments of a later start, as it was given them (without the program name).
    void received(const QStringList &arguments);

private:
    void serve(QLocalSocket *socket);

    QString m_dataRoot;
    QString m_runtimeDir;
    QString m_key;
    QString m_problem;
    QString m_refusal;
    std::map<QString, Command> m_commands;
    int m_lockFd = -1;
    QLocalServer *m_server = nullptr;
};
