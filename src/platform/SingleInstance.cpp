#include "SingleInstance.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A request is one line of JSON; anything longer than this is not Tovren talking.
constexpr qsizetype maxRequestSize = 64 * 1024;
// A client that connects and says nothing is dropped after this long.
constexpr int requestTimeoutMs = 10000;
// A relaunched process waits this long at most for the one that started it to end; that one
// saves and closes its store first.
constexpr int relaunchWaitMs = 20000;
// Set for a relaunched process: the id of the process that started it.
constexpr char relaunchedFromVariable[] = "TOVREN_RELAUNCHED_FROM";

QString keyFor(const QString &dataRoot)
{
    const QFileInfo info(dataRoot);
    QString path = info.canonicalFilePath();
    if (path.isEmpty())
        path = QDir::cleanPath(info.absoluteFilePath());
    return QString::fromLatin1(
        QCryptographicHash::hash(path.toUtf8(), QCryptographicHash::Sha256).toHex().left(16));
}

QByteArray line(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace

SingleInstance::SingleInstance(const QString &dataRoot, QObject *parent)
    : QObject(parent)
    , m_dataRoot(dataRoot)
    , m_runtimeDir(runtimeDir(&m_problem))
    , m_key(keyFor(dataRoot))
{
}

SingleInstance::~SingleInstance()
{
    if (m_server)
        m_server->close();
    if (m_lockFd >= 0)
        ::close(m_lockFd);
}

QString SingleInstance::alreadyRunningMessage(const QString &dataRoot)
{
    return u"Tovren is already running for the journal in "_s + dataRoot +
           u". Two copies can't share one journal: stop the other one first."_s;
}

QString SingleInstance::windowlessMessage(const QString &dataRoot)
{
    return u"Tovren is running without a window (tovren --headless) for the journal in "_s +
           dataRoot + u", so there is no window to show. Stop it first, then start Tovren again."_s;
}

QString SingleInstance::lockPath() const
{
    return m_runtimeDir + u"/tovren-"_s + m_key + u".lock"_s;
}

QString SingleInstance::socketPath() const
{
    return m_runtimeDir + u"/tovren-"_s + m_key + u".socket"_s;
}

QString SingleInstance::runtimeDir(QString *problem)
{
    const QString given = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QFileInfo givenInfo(given);
    if (!given.isEmpty() && givenInfo.isAbsolute() && givenInfo.isDir() && givenInfo.isWritable())
        return QDir::cleanPath(given);

    // Without a runtime folder, a private one of our own: only its owner may enter it, or a
    // stranger could stand in for the running Tovren.
    const QString fallback = QDir::tempPath() + u"/tovren-"_s + QString::number(::getuid());
    const QByteArray native = QFile::encodeName(fallback);
    ::mkdir(native.constData(), 0700);
    struct stat status {};
    if (::lstat(native.constData(), &status) == 0 && S_ISDIR(status.st_mode) &&
        status.st_uid == ::getuid() && (status.st_mode & 077) == 0)
        return fallback;
    if (problem)
        *problem = u"Tovren found no private folder for its running copy (XDG_RUNTIME_DIR is "
                   u"not set and "_s +
                   fallback +
                   u" can't be used), so a second start opens a second window instead of "
                   u"bringing this one forward."_s;
    return {};
}

SingleInstance::Role SingleInstance::claim()
{
    if (m_lockFd >= 0)
        return Role::primary;
    if (m_runtimeDir.isEmpty())
        return Role::unguarded;
    const QByteArray path = QFile::encodeName(lockPath());
    // Close-on-exec: a program Tovren starts must not keep the journal locked after it ends.
    const int fd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        m_problem = u"Tovren can't create its instance lock "_s + lockPath() + u" ("_s +
                    QString::fromLocal8Bit(std::strerror(errno)) +
                    u"), so a second start isn't kept from opening the same journal."_s;
        return Role::unguarded;
    }
    // Taken out at once, so that the programs this one starts aren't taken for a relaunch.
    const qint64 predecessor = qEnvironmentVariableIntValue(relaunchedFromVariable);
    qunsetenv(relaunchedFromVariable);
    const QDeadlineTimer relaunchDeadline(relaunchWaitMs);
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const bool predecessorRuns =
            predecessor > 0 && (::kill(pid_t(predecessor), 0) == 0 || errno == EPERM);
        if (!predecessorRuns || relaunchDeadline.hasExpired()) {
            ::close(fd);
            return Role::secondary;
        }
        QThread::msleep(50);
    }
    m_lockFd = fd;
    // The owner's process id, for a person (or a test) looking at the file; Tovren never reads it.
    const QByteArray pid = QByteArray::number(qint64(::getpid())) + '\n';
    if (::ftruncate(fd, 0) == 0 && ::write(fd, pid.constData(), size_t(pid.size())) < 0) {
        // Only informative: the lock is what counts.
    }
    return Role::primary;
}

bool SingleInstance::listen()
{
    if (m_lockFd < 0)
        return false;
    if (m_server)
        return m_server->isListening();
    // We hold the lock, so whatever socket file is there belongs to a Tovren that has died.
    QLocalServer::removeServer(socketPath());
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(socketPath())) {
        m_problem = u"Tovren can't listen on "_s + socketPath() + u" ("_s +
                    m_server->errorString() + u"), so a second start can't reach it."_s;
        return false;
    }
    connect(m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket *socket = m_server->nextPendingConnection())
            serve(socket);
    });
    return true;
}

void SingleInstance::serve(QLocalSocket *socket)
{
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    QTimer::singleShot(requestTimeoutMs, socket, [socket] { socket->abort(); });
    auto buffer = std::make_shared<QByteArray>();
    connect(socket, &QLocalSocket::readyRead, this, [this, socket, buffer] {
        buffer->append(socket->readAll());
        const qsizetype end = buffer->indexOf('\n');
        if (end < 0) {
            if (buffer->size() > maxRequestSize)
                socket->abort();
            return;
        }
        const QJsonObject request = QJsonDocument::fromJson(buffer->left(end)).object();
        buffer->clear();
        QStringList arguments;
        for (const QJsonValue &argument : request.value(u"arguments"_s).toArray())
            arguments.append(argument.toString());

        const auto command =
            arguments.isEmpty() ? m_commands.end() : m_commands.find(arguments.first());
        const bool isCommand = command != m_commands.end();
        const Answer handled = isCommand ? command->second(arguments.mid(1)) : Answer{};
        const bool accepted = isCommand ? handled.accepted : m_refusal.isEmpty();
        QJsonObject answer{{u"accepted"_s, accepted}};
        const QString message = isCommand ? handled.message : m_refusal;
        if (!message.isEmpty())
            answer.insert(u"message"_s, message);
        socket->write(line(answer));
        socket->flush();
        socket->disconnectFromServer();
        if (accepted && !isCommand)
            emit received(arguments);
    });
}

SingleInstance::Answer SingleInstance::forward(const QStringList &arguments, int timeoutMs)
{
    const QString notAnswering =
        u"Tovren is already running for this journal but didn't answer. If it seems stuck, "
        u"end it and start Tovren again."_s;
    if (m_runtimeDir.isEmpty())
        return {false, m_problem};

    // The running Tovren may still be starting up, before it listens: try again until the time
    // is up.
    const QDeadlineTimer deadline(timeoutMs);
    QLocalSocket socket;
    for (;;) {
        socket.connectToServer(socketPath());
        if (socket.waitForConnected(int(qMin<qint64>(1000, deadline.remainingTime()))))
            break;
        socket.abort();
        if (deadline.hasExpired())
            return {false, notAnswering};
        QThread::msleep(100);
    }

    QJsonArray list;
    for (const QString &argument : arguments)
        list.append(argument);
    socket.write(line(QJsonObject{{u"arguments"_s, list}}));
    if (!socket.waitForBytesWritten(int(deadline.remainingTime())))
        return {false, notAnswering};

    QByteArray reply;
    while (!reply.contains('\n') && !deadline.hasExpired()) {
        const bool more = socket.waitForReadyRead(int(deadline.remainingTime()));
        reply.append(socket.readAll());
        if (!more)
            break;
    }
    if (!reply.contains('\n'))
        return {false, notAnswering};
    const QJsonObject answer = QJsonDocument::fromJson(reply.left(reply.indexOf('\n'))).object();
    return {answer.value(u"accepted"_s).toBool(), answer.value(u"message"_s).toString()};
}

bool SingleInstance::relaunch()
{
    QProcess process;
    process.setProgram(QCoreApplication::applicationFilePath());
    process.setArguments(QCoreApplication::arguments().mid(1));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QString::fromLatin1(relaunchedFromVariable),
                       QString::number(QCoreApplication::applicationPid()));
    process.setProcessEnvironment(environment);
    return process.startDetached();
}
