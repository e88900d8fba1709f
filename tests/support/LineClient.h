#pragma once

#include <QByteArray>
#include <QByteArrayList>
#include <QDate>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>

#include <functional>
#include <optional>

// One client for the listener, over a plain socket so that it can be rude where a test needs it
// (never read, send without waiting, close only its sending side). Waiting turns the event loop
// when called on the application's thread, so a listener in the same process keeps working;
// on other threads it simply blocks.
class LineClient {
public:
    explicit LineClient(quint16 port, const QHostAddress &address = QHostAddress::LocalHost);
    ~LineClient() { close(); }
    Q_DISABLE_COPY(LineClient)

    bool connected() const { return m_fd >= 0; }

    // Writes all of it, waiting for room; false when the connection is gone or time ran out.
    bool send(const QByteArray &data, int timeoutMs = 30000);
    // How much of it the kernel took at once, maybe nothing.
    qsizetype trySend(QByteArrayView bytes);
    // Tells the peer nothing more is coming; answers can still be read.
    void shutdownWrite();
    void close();

    // The next line without its newline; nothing when time ran out or the peer closed first.
    std::optional<QByteArray> readLine(int timeoutMs = 10000);
    std::optional<QJsonObject> call(const QByteArray &line, int timeoutMs = 10000);
    // Whatever has arrived, without waiting; read lines are not handed out twice.
    QByteArray tryReceive();
    // Every line up to the peer's close, or nothing when it did not close in time.
    std::optional<QByteArrayList> linesUntilClosed(int timeoutMs = 30000);
    bool waitForClose(int timeoutMs = 10000);
    bool peerClosed() const { return m_peerClosed; }

private:
    bool wait(short events, int timeoutMs);
    // Takes in what arrived; false when nothing came and nothing will.
    bool fill();

    int m_fd = -1;
    bool m_peerClosed = false;
    QByteArray m_buffer;
};

namespace Line {

// {"jsonrpc":"2.0","id":id,"method":method,"params":params}, leaving out a null id or params.
QByteArray request(const QByteArray &id, const QByteArray &method,
                   const QByteArray &params = QByteArray());
QByteArray call(const QByteArray &id, const QByteArray &tool, const QByteArray &arguments = "{}");
QByteArray call(const QByteArray &id, const QByteArray &tool, const QJsonObject &arguments);
// An answer with a result, not an error.
bool succeeded(const QJsonObject &answer);
// Adds a journal page for each of `days` days from `first`, `step` days apart, through a
// connection of its own; false as soon as one is not added.
bool addPages(quint16 port, QDate first, int days, int step,
              const std::function<QString(int)> &text);

} // namespace Line
