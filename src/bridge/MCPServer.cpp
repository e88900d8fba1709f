#include "MCPServer.h"

#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

#include <QHostAddress>
#include <QStringDecoder>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

// How long a closed connection may take to hand over its last replies before it is cut.
constexpr int closeGraceMs = 5000;

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

    auto listener = std::make_unique<QTcpServer>();
    if (!listener->listen(QHostAddress::LocalHost, m_port)) {
        setLastError(listener->errorString());
        setRunning(false);
        return;
    }
    connect(listener.get(), &QTcpServer::newConnection, this, &MCPServer::accept);
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
    const QList<QTcpSocket *> connections = std::exchange(m_connections, {});
    for (QTcpSocket *connection : connections)
        cancel(connection);
    setRunning(false);
}

void MCPServer::disconnectAll()
{
    const QList<QTcpSocket *> connections = std::exchange(m_connections, {});
    for (QTcpSocket *connection : connections)
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

void MCPServer::accept()
{
    while (m_listener && m_listener->hasPendingConnections()) {
        QTcpSocket *connection = m_listener->nextPendingConnection();
        // Owned here, so that closing the listener leaves the connections to stop() to end.
        connection->setParent(this);
        // Qt then takes at most one unit from the kernel between two reads of ours.
        connection->setReadBufferSize(readSize);
        m_connections.append(connection);
        setSessionCount(int(m_connections.size()));

        connect(connection, &QTcpSocket::stateChanged, this,
                [this, connection](QAbstractSocket::SocketState state) {
                    if (state == QAbstractSocket::UnconnectedState)
                        connectionEnded(connection);
                });
        connect(connection, &QTcpSocket::readyRead, this,
                [this, connection] { receive(connection); });
        receive(connection);
    }
}

void MCPServer::receive(QTcpSocket *connection)
{
    // Its postponed lines come first, in their turn.
    if (m_postponedLines.contains(connection))
        return;
    while (connection->bytesAvailable() > 0) {
        const QByteArray unit = connection->read(readSize);
        if (unit.isEmpty() || !serve(connection, unit))
            return;
    }
}

bool MCPServer::serve(QTcpSocket *connection, QByteArrayView unit)
{
    for (QByteArrayView piece : splitLines(unit)) {
        if (!m_connections.contains(connection))
            return false;
        if (turnExhausted()) {
            postpone(connection, unit.sliced(piece.data() - unit.data()).toByteArray());
            connection->flush();
            return false;
        }
        if (looksLikeHttp(piece)) {
            m_connections.removeAll(connection);
            setSessionCount(int(m_connections.size()));
            cancel(connection);
            return false;
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
        connection->write(response);
        // A client that only writes cannot make Tovren hold its answers without bound: what
        // the kernel won't take beyond the limit ends the connection.
        if (connection->bytesToWrite() > unreadAnswerLimit) {
            connection->flush();
            if (connection->bytesToWrite() > unreadAnswerLimit) {
                drop(connection);
                return false;
            }
        }
    }
    // Handed to the kernel now: Qt drops what it still holds when the peer closes its side,
    // and a client that ends with its last request still wants the answers.
    connection->flush();
    return m_connections.contains(connection);
}

bool MCPServer::turnExhausted()
{
    if (m_unbudgeted)
        return false;
    if (!m_turnOpen) {
        // A zero timer runs only once control is back in the event loop: the next turn.
        m_turnOpen = true;
        m_turn.start();
        QTimer::singleShot(0, this, [this] { m_turnOpen = false; });
        return false;
    }
    return m_turn.elapsed() >= turnBudgetMs;
}

void MCPServer::postpone(QTcpSocket *connection, QByteArray rest)
{
    m_postponedLines.insert(connection, std::move(rest));
    if (!m_waiting.contains(connection))
        m_waiting.append(connection);
    m_resumeTimer->start();
}

void MCPServer::resumeWaiting()
{
    QList<QTcpSocket *> waiting = std::exchange(m_waiting, {});
    m_turnOpen = false;
    for (qsizetype i = 0; i < waiting.size(); ++i) {
        // The first in line always moves on; the others while the turn lasts.
        if (i > 0 && turnExhausted()) {
            m_waiting = waiting.sliced(i) + m_waiting;
            break;
        }
        QTcpSocket *connection = waiting.at(i);
        const QByteArray rest = m_postponedLines.take(connection);
        if (m_connections.contains(connection) && serve(connection, rest))
            receive(connection);
    }
    if (!m_waiting.isEmpty())
        m_resumeTimer->start();
}

void MCPServer::forget(QTcpSocket *connection)
{
    m_waiting.removeAll(connection);
    m_postponedLines.remove(connection);
}

void MCPServer::cancel(QTcpSocket *connection)
{
    forget(connection);
    // Nothing more that arrives on it is handled; its end is still reported.
    disconnect(connection, &QTcpSocket::readyRead, this, nullptr);
    disconnect(connection, &QTcpSocket::bytesWritten, this, nullptr);
    QTimer::singleShot(closeGraceMs, connection, [connection] { connection->abort(); });
    connection->disconnectFromHost();
}

void MCPServer::drop(QTcpSocket *connection)
{
    forget(connection);
    m_connections.removeAll(connection);
    setSessionCount(int(m_connections.size()));
    disconnect(connection, &QTcpSocket::readyRead, this, nullptr);
    // Its pending answers are thrown away with it: waiting for them is what it was dropped for.
    connection->abort();
}

void MCPServer::connectionEnded(QTcpSocket *connection)
{
    // A peer that hung up after its last lines still has them served, all at once since the
    // connection goes now; the replies go nowhere.
    if (m_connections.contains(connection)) {
        m_unbudgeted = true;
        const QByteArray rest = m_postponedLines.take(connection);
        if (rest.isEmpty() || serve(connection, rest))
            receive(connection);
        m_unbudgeted = false;
    }
    forget(connection);
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
