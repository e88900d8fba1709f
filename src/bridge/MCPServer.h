#pragma once

#include "MCPProtocol.h"

#include <QByteArrayView>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class ModelContext;
class Preferences;
class QTcpServer;
class QTimer;

// The loopback listener through which assistants on this computer reach the journal:
// newline-delimited JSON-RPC on 127.0.0.1, everything on the main thread.
//
// Framing is deliberately stateless: one read of at most 64 KiB is one unit, split at every
// newline, empty pieces dropped, each piece answered by exactly one line (a bare newline when
// there is nothing to say). A line that arrives in two reads is two broken lines; nothing is
// kept between reads. A piece that begins like HTTP ends the connection on the spot, so that a
// web page cannot use the browser to smuggle a request in.
//
// Every line read is answered before its connection closes, even after the peer has closed its
// sending side. A connection whose answers back up is not read from until they drain, so a slow
// reader is held back by the kernel rather than cut off, and one that never reads costs a bounded
// amount of memory.
class MCPServer : public QObject {
    Q_OBJECT
public:
    using ContextProvider = std::function<ModelContext *()>;

    static constexpr quint16 defaultPort = 35468;
    static constexpr qint64 readSize = 65536;
    // While more than this of a connection's answers waits to be sent, nothing more of it is
    // read or served.
    static constexpr qint64 unsentAnswerBound = 1024 * 1024;
    // How long one turn of the event loop may spend answering lines. Past it, the remaining
    // lines wait for the next turn, taken in order of arrival, so that many busy assistants
    // cannot freeze the window.
    static constexpr int turnBudgetMs = 20;

    // TOVREN_MCP_PORT when it holds a port number (0 asks for any free port), else 35468.
    static quint16 configuredPort();

    explicit MCPServer(MCPProtocol protocol, quint16 port = configuredPort(),
                       QObject *parent = nullptr);
    ~MCPServer() override;

    // Listens, with provider giving the store context for each line. Does nothing at all while a
    // listener exists, even a failed one; a failure shows only in lastError().
    void start(ContextProvider provider);
    // Closes the listener and every connection; the provider is kept.
    void stop();
    // Closes every connection and zeroes the session count at once; the listener stays.
    void disconnectAll();
    // Keeps the listener running exactly while mcpServerEnabled is on: starts it now if so, and
    // starts or stops it on every tovren.mcpToggle notice.
    void followPreference(const Preferences &preferences, ContextProvider provider);

    bool isRunning() const { return m_running; }
    // The system's words for the last listener failure; never cleared.
    const std::optional<QString> &lastError() const { return m_lastError; }
    int activeSessionCount() const { return m_sessionCount; }
    // Lines holding "tools/call" since the process started.
    qint64 lifetimeToolCalls() const { return m_toolCalls; }
    // What Settings shows while the switch is on.
    QString statusLine() const;
    static QString statusLine(bool running, int sessions);
    // The port listened on while a listener exists, else 0.
    quint16 serverPort() const;

    // The framing, exposed for its tests.
    static QList<QByteArrayView> splitLines(QByteArrayView unit);
    static bool looksLikeHttp(QByteArrayView piece);

signals:
    void runningChanged(bool running);
    void lastErrorChanged(const QString &error);
    void activeSessionCountChanged(int count);
    void lifetimeToolCallsChanged(qint64 count);

private:
    class Connection;

    void accept(qintptr descriptor);
    void receive(Connection *connection);
    // Answers its unserved lines while the turn lasts and its answers fit.
    void serve(Connection *connection);
    void answer(Connection *connection, QByteArray bytes);
    void flush(Connection *connection);
    bool turnExhausted();
    void resumeWaiting();
    // Stops serving it; what it was already answered is still handed over before it closes.
    void cancel(Connection *connection);
    // Its work is done or it is gone: the descriptor closes and its end is reported.
    void end(Connection *connection);
    void settle(Connection *connection);
    void setRunning(bool running);
    void setLastError(const QString &error);
    void setSessionCount(int count);

    MCPProtocol m_protocol;
    quint16 m_port;
    std::unique_ptr<QTcpServer> m_listener;
    ContextProvider m_contextProvider;
    QList<Connection *> m_connections; // neither ended nor cancelled, in order of acceptance
    QList<Connection *> m_waiting;     // postponed to a later turn, first come first served
    QTimer *m_resumeTimer = nullptr;
    QElapsedTimer m_turn;
    bool m_turnOpen = false;
    bool m_running = false;
    std::optional<QString> m_lastError;
    int m_sessionCount = 0;
    qint64 m_toolCalls = 0;
};
