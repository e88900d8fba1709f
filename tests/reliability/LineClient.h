#pragma once

#include <QByteArray>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTcpServer>

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// A plain blocking socket speaking newline-delimited JSON-RPC to a Tovren in another process,
// usable from any thread; the drivers need clients that Qt's event loop doesn't pace.
class LineClient {
public:
    explicit LineClient(quint16 port)
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_connected = ::connect(m_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    ~LineClient() { ::close(m_fd); }
    LineClient(const LineClient &) = delete;
    LineClient &operator=(const LineClient &) = delete;

    bool connected() const { return m_connected; }
    int fd() const { return m_fd; }

    // Writes all of it, or false when the connection is gone.
    bool send(const QByteArray &data)
    {
        QByteArrayView bytes(data);
        while (!bytes.isEmpty()) {
            const ssize_t sent = ::send(m_fd, bytes.data(), size_t(bytes.size()), MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR)
                continue;
            if (sent <= 0)
                return false;
            bytes = bytes.sliced(sent);
        }
        return true;
    }

    // The next line without its newline; nothing when the time runs out or the peer closed.
    std::optional<QByteArray> readLine(int timeoutMs = 10000)
    {
        const QDeadlineTimer deadline(timeoutMs);
        for (;;) {
            const qsizetype end = m_buffer.indexOf('\n');
            if (end >= 0) {
                QByteArray line = m_buffer.first(end);
                m_buffer.remove(0, end + 1);
                return line;
            }
            pollfd wait{m_fd, POLLIN, 0};
            const int ready = ::poll(&wait, 1, int(std::max<qint64>(deadline.remainingTime(), 0)));
            if (ready <= 0)
                return std::nullopt;
            char chunk[65536];
            const ssize_t got = ::recv(m_fd, chunk, sizeof chunk, 0);
            if (got <= 0)
                return std::nullopt;
            m_buffer.append(chunk, got);
        }
    }

    // Sends one request and reads one line back.
    std::optional<QJsonObject> call(const QByteArray &line, int timeoutMs = 10000)
    {
        if (!send(line + '\n'))
            return std::nullopt;
        const std::optional<QByteArray> answer = readLine(timeoutMs);
        if (!answer)
            return std::nullopt;
        return QJsonDocument::fromJson(*answer).object();
    }

private:
    int m_fd = -1;
    bool m_connected = false;
    QByteArray m_buffer;
};

namespace Reliability {

inline QByteArray toolCall(const QByteArray &id, const QByteArray &tool, const QJsonObject &args)
{
    return "{\"jsonrpc\":\"2.0\",\"id\":" + id +
           ",\"method\":\"tools/call\",\"params\":{\"name\":\"" + tool +
           "\",\"arguments\":" + QJsonDocument(args).toJson(QJsonDocument::Compact) + "}}";
}

// True for a tools/call answer that carries a result the tool did not flag as an error.
inline bool succeeded(const QJsonObject &answer)
{
    return answer.contains(QLatin1StringView("result")) &&
           !answer.value(QLatin1StringView("result"))
                .toObject()
                .value(QLatin1StringView("isError"))
                .toBool();
}

// Resident memory of a process in KiB, from /proc; 0 when it is gone.
inline qint64 residentKiB(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return 0;
}

// A free loopback port below the kernel's ephemeral range. Ports from that range (what
// TovrenProcess::freePort hands out) can be given to a test running beside this one in the
// moment between the check and tovren's own bind, and a driver would then talk to, or kill,
// someone else's process.
inline quint16 quietPort()
{
    for (;;) {
        const auto port = quint16(QRandomGenerator::system()->bounded(20000, 30000));
        QTcpServer probe;
        if (probe.listen(QHostAddress::LocalHost, port))
            return port;
    }
}

// A count from the environment for the long runs, else the short default CI uses.
inline int scaled(const char *variable, int fallback)
{
    bool ok = false;
    const int value = qEnvironmentVariableIntValue(variable, &ok);
    return ok && value > 0 ? value : fallback;
}

} // namespace Reliability
