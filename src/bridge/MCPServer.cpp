#include "MCPServer.h"

#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

#include <QHostAddress>
#include <QSocketNotifier>
#include <QStringDecoder>
#include <QTcpServer>
#include <QTimer>

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// How long a cancelled connection may take to hand over its last replies before it is cut.
constexpr int closeGraceMs = 5000;
// At most this many reads from one connection per wake-up, whatever the turn's clock says.
constexpr int maxReadsPerTurn = 64;

// The descriptor of each accepted connection comes straight here, so that reading, writing and
// the two halves of closing are this class's own: a socket class would end the connection at
// the peer's end of input and throw away answers still to be written.
class Listener : public QTcpServer {
public:
    explicit Listener(std::function<void(qintptr)> accept)
        : m_accept(std::move(accept))
    {
    }

protected:
    void incomingConnection(qintptr descriptor) override { m_accept(descriptor); }

private:
    std::function<void(qintptr)> m_accept;
};

bool startsWithHeader(QByteArrayView piece, QByteArrayView name)
{
    return piece.size() >= name.size() &&
           piece.first(name.size()).compare(name, Qt::CaseInsensitive) == 0;
}

// METHOD SP target SP "HTTP/", whatever the method.
bool isRequestLine(QByteArrayView piece)
{
    qsizetype i = 0;
    while (i < piece.size() && piece[i] >= 'A' && piece[i] <= 'Z')
        ++i;
    if (i == 0 || i >= piece.size() || piece[i] != ' ')
        return false;
    const qsizetype target = ++i;
    while (i < piece.size() && piece[i] > ' ' && piece[i] < 0x7f)
        ++i;
    return i > target && piece.sliced(i).startsWith(" HTTP/");
}

bool isValidUtf8(QByteArrayView bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    [[maybe_unused]] const QString decoded = decoder(bytes);
    return !decoder.hasError();
}

} // namespace

class MCPServer::Connection : public QObject {
public:
    Connection(int descriptor, QObject *parent)
        : QObject(parent)
        , fd(descriptor)
        , readable(descriptor, QSocketNotifier::Read)
        , writable(descriptor, QSocketNotifier::Write)
    {
        writable.setEnabled(false);
    }
    ~Connection() override { close(); }

    void close()
    {
        if (fd < 0)
            return;
        readable.setEnabled(false);
        writable.setEnabled(false);
        ::close(fd);
        fd = -1;
    }
    qsizetype unsentSize() const { return unsent.size() - unsentAt; }
    // Nothing of the last read is left to serve and its answers don't back up.
    bool mayRead() const
    {
        return fd >= 0 && !cancelled && !inputEnded && pending.isEmpty() &&
               unsentSize() <= unsentAnswerBound;
    }

    int fd;
    QSocketNotifier readable;
    QSocketNotifier writable;
    QByteArray pending; // the unserved rest of the last read
    qsizetype pendingAt = 0;
    QByteArray unsent; // answers the kernel has not taken yet
    qsizetype unsentAt = 0;
    bool inputEnded = false; // the peer has sent its last byte
    bool cancelled = false;
    bool shutDown = false;
};

quint16 MCPServer::configuredPort()
{
    bool ok = false;
    const uint port = qEnvironmentVariable("TOVREN_MCP_PORT").toUInt(&ok);
    return ok && port <= 65535 ? quint16(port) : defaultPort;
}

MCPServer::MCPServer(MCPProtocol protocol, quint16 port, QObject *parent)
    : QObject(parent)
    , m_protocol(std::move(protocol))
    , m_port(port)
    , m_resumeTimer(new QTimer(this))
{
    m_resumeTimer->setSingleShot(true);
    m_resumeTimer->setInterval(0);
    connect(m_resumeTimer, &QTimer::timeout, this, &MCPServer::resumeWaiting);
}

MCPServer::~MCPServer() = default;

void MCPServer::start(ContextProvider provider)
{
    if (m_listener)
        return;
    m_contextProvider = std::move(provider);

    auto listener = std::make_unique<Listener>([this](qintptr fd) { accept(fd); });
    if (!listener->listen(QHostAddress::LocalHost, m_port)) {
        setLastError(listener->errorString());
        setRunning(false);
        return;
    }
    // Accepting pauses after a failure that isn't temporary (out of descriptors, for one); the
    // listener stays, so switching the bridge off and on again is the way back.
    connect(listener.get(), &QTcpServer::acceptError, this, [this] {
        setLastError(m_listener->errorString());
        setRunning(false);
    });
    m_listener = std::move(listener);
    setRunning(true);
}

void MCPServer::stop()
{
    m_listener.reset();
    const QList<Connection *> connections = std::exchange(m_connections, {});
    for (Connection *connection : connections)
        cancel(connection);
    setRunning(false);
}

void MCPServer::disconnectAll()
{
    const QList<Connection *> connections = std::exchange(m_connections, {});
    for (Connection *connection : connections)
        cancel(connection);
    setSessionCount(0);
}

void MCPServer::followPreference(const Preferences &preferences, ContextProvider provider)
{
    auto apply = [this, &preferences, provider = std::move(provider)] {
        if (preferences.value(Prefs::mcpServerEnabled))
            start(provider);
        else
            stop();
    };
    connect(&NoticeCenter::shared(), &NoticeCenter::posted, this, [apply](const QString &name) {
        if (name == QLatin1StringView(Notices::mcpToggle))
            apply();
    });
    apply();
}

QString MCPServer::statusLine() const
{
    return statusLine(m_running, m_sessionCount);
}

QString MCPServer::statusLine(bool running, int sessions)
{
    if (!running)
        return u"Starting\u2026"_s;
    if (sessions == 0)
        return u"On, nothing connected right now"_s;
    if (sessions == 1)
        return u"On, 1 app connected"_s;
    return u"On, "_s + QString::number(sessions) + u" apps connected"_s;
}

quint16 MCPServer::serverPort() const
{
    return m_listener ? m_listener->serverPort() : 0;
}

QList<QByteArrayView> MCPServer::splitLines(QByteArrayView unit)
{
    QList<QByteArrayView> pieces;
    qsizetype start = 0;
    while (start < unit.size()) {
        qsizetype end = unit.indexOf('\n', start);
        if (end < 0)
            end = unit.size();
        if (end > start)
            pieces.append(unit.sliced(start, end - start));
        start = end + 1;
    }
    return pieces;
}

bool MCPServer::looksLikeHttp(QByteArrayView piece)
{
    static constexpr QByteArrayView methods[] = {"GET ",   "POST ",         "PUT ",  "DELETE ",
                                                 "PATCH ", "OPTIONS ",      "HEAD ", "CONNECT ",
                                                 "TRACE ", "PRI * HTTP/2.0"};
    for (QByteArrayView method : methods) {
        if (piece.startsWith(method))
            return true;
    }
    return startsWithHeader(piece, "Host:") || startsWithHeader(piece, "Origin:") ||
           isRequestLine(piece);
}

void MCPServer::accept(qintptr descriptor)
{
    const int fd = int(descriptor);
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    ::fcntl(fd, F_SETFD, ::fcntl(fd, F_GETFD) | FD_CLOEXEC);
    auto *connection = new Connection(fd, this);
    m_connections.append(connection);
    setSessionCount(int(m_connections.size()));
    connect(&connection->readable, &QSocketNotifier::activated, this,
            [this, connection] { receive(connection); });
    connect(&connection->writable, &QSocketNotifier::activated, this,
            [this, connection] { flush(connection); });
    receive(connection);
}

void MCPServer::receive(Connection *connection)
{
    // A flood, even of empty lines, yields to the others once the turn is spent; the notifier
    // brings it back on the next turn.
    for (int reads = 0; connection->fd >= 0 && reads < maxReadsPerTurn; ++reads) {
        if (!connection->cancelled && !connection->mayRead())
            break;
        if (reads > 0 && turnExhausted())
            break;
        QByteArray unit(readSize, Qt::Uninitialized);
        const ssize_t got = ::recv(connection->fd, unit.data(), size_t(readSize), 0);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        if (got < 0 || (got == 0 && connection->cancelled)) {
            // Reset, or a cancelled peer done: no answer can reach it any more.
            end(connection);
            return;
        }
        if (got == 0) {
            connection->inputEnded = true;
            break;
        }
        if (connection->cancelled)
            continue; // read only to be thrown away, until the peer closes
        unit.truncate(got);
        connection->pending = std::move(unit);
        connection->pendingAt = 0;
        serve(connection);
    }
    settle(connection);
}

void MCPServer::serve(Connection *connection)
{
    while (connection->fd >= 0 && !connection->cancelled) {
        const QByteArray &pending = connection->pending;
        while (connection->pendingAt < pending.size() && pending.at(connection->pendingAt) == '\n')
            ++connection->pendingAt;
        if (connection->pendingAt >= pending.size()) {
            connection->pending.clear();
            connection->pendingAt = 0;
            return;
        }
        // Backed up: the rest of the read waits, held, until flush() has room again.
        if (connection->unsentSize() > unsentAnswerBound)
            return;
        if (!m_waiting.isEmpty() || turnExhausted()) {
            if (!m_waiting.contains(connection))
                m_waiting.append(connection);
            m_resumeTimer->start();
            return;
        }
        QByteArrayView piece = QByteArrayView(pending).sliced(connection->pendingAt);
        if (const qsizetype newline = piece.indexOf('\n'); newline >= 0)
            piece = piece.first(newline);
        connection->pendingAt += piece.size();

        if (looksLikeHttp(piece)) {
            m_connections.removeAll(connection);
            setSessionCount(int(m_connections.size()));
            cancel(connection);
            return;
        }
        if (!m_contextProvider)
            continue;
        ModelContext *context = m_contextProvider();
        if (!context)
            continue;
        if (piece.contains(R"("tools/call")") && isValidUtf8(piece)) {
            ++m_toolCalls;
            emit lifetimeToolCallsChanged(m_toolCalls);
        }
        QByteArray response = m_protocol.handle(piece, *context);
        response.append('\n');
        answer(connection, std::move(response));
    }
}

void MCPServer::answer(Connection *connection, QByteArray bytes)
{
    if (connection->unsentSize() > 0) {
        connection->unsent.append(bytes);
        return;
    }
    const ssize_t sent = ::send(connection->fd, bytes.constData(), size_t(bytes.size()),
                                MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) {
        end(connection);
        return;
    }
    if (sent == bytes.size())
        return;
    connection->unsent = std::move(bytes);
    connection->unsentAt = std::max<qsizetype>(sent, 0);
    connection->writable.setEnabled(true);
}

void MCPServer::flush(Connection *connection)
{
    QByteArray &unsent = connection->unsent;
    while (connection->unsentAt < unsent.size()) {
        const ssize_t sent =
            ::send(connection->fd, unsent.constData() + connection->unsentAt,
                   size_t(unsent.size() - connection->unsentAt), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            connection->unsentAt += sent;
        } else if (sent < 0 && errno == EINTR) {
            continue;
        } else if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            break;
        } else {
            end(connection);
            return;
        }
    }
    if (connection->unsentAt == unsent.size()) {
        unsent.clear();
        connection->unsentAt = 0;
    } else if (connection->unsentAt > unsent.size() / 2) {
        unsent.remove(0, connection->unsentAt);
        connection->unsentAt = 0;
    }
    if (!connection->cancelled && connection->unsentSize() <= unsentAnswerBound &&
        !connection->pending.isEmpty())
        serve(connection);
    if (connection->mayRead())
        receive(connection);
    else
        settle(connection);
}

bool MCPServer::turnExhausted()
{
    if (!m_turnOpen) {
        // A zero timer runs only once control is back in the event loop: the next turn.
        m_turnOpen = true;
        m_turn.start();
        QTimer::singleShot(0, this, [this] { m_turnOpen = false; });
        return false;
    }
    return m_turn.elapsed() >= turnBudgetMs;
}

void MCPServer::resumeWaiting()
{
    QList<Connection *> waiting = std::exchange(m_waiting, {});
    m_turnOpen = false;
    for (qsizetype i = 0; i < waiting.size(); ++i) {
        // The first in line always moves on; the others while the turn lasts.
        if (i > 0 && turnExhausted()) {
            m_waiting = waiting.sliced(i) + m_waiting;
            break;
        }
        Connection *connection = waiting.at(i);
        serve(connection);
        if (connection->mayRead())
            receive(connection);
        else
            settle(connection);
    }
    if (!m_waiting.isEmpty())
        m_resumeTimer->start();
}

void MCPServer::cancel(Connection *connection)
{
    connection->cancelled = true;
    connection->pending.clear();
    connection->pendingAt = 0;
    m_waiting.removeAll(connection);
    // What it was answered goes out first; a peer that neither reads nor closes is cut.
    QTimer::singleShot(closeGraceMs, connection, [this, connection] { end(connection); });
    settle(connection);
}

void MCPServer::settle(Connection *connection)
{
    if (connection->fd < 0)
        return;
    const bool drained = connection->unsentSize() == 0;
    if (connection->cancelled) {
        if (drained && !connection->shutDown) {
            ::shutdown(connection->fd, SHUT_WR);
            connection->shutDown = true;
            // Its end is reported now, on the next turn; the descriptor stays open only to take
            // in what the peer still sends, since closing on unread input would reset the
            // connection and could destroy the answers on their way.
            QTimer::singleShot(0, this, [this] { setSessionCount(int(m_connections.size())); });
        }
        connection->readable.setEnabled(true);
    } else if (connection->inputEnded && connection->pending.isEmpty() && drained) {
        // Everything it sent is answered and handed over: the connection has done its work.
        end(connection);
        return;
    } else {
        connection->readable.setEnabled(connection->mayRead());
    }
    connection->writable.setEnabled(!drained);
}

void MCPServer::end(Connection *connection)
{
    if (connection->fd < 0)
        return;
    connection->close();
    m_waiting.removeAll(connection);
    m_connections.removeAll(connection);
    setSessionCount(int(m_connections.size()));
    connection->deleteLater();
}

void MCPServer::setRunning(bool running)
{
    if (m_running == running)
        return;
    m_running = running;
    emit runningChanged(running);
}

void MCPServer::setLastError(const QString &error)
{
    m_lastError = error;
    emit lastErrorChanged(error);
}

void MCPServer::setSessionCount(int count)
{
    if (m_sessionCount == count)
        return;
    m_sessionCount = count;
    emit activeSessionCountChanged(count);
}
