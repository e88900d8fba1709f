#include "LineClient.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QThread>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

LineClient::LineClient(quint16 port, const QHostAddress &address)
{
    sockaddr_storage storage{};
    socklen_t length = 0;
    if (address.protocol() == QAbstractSocket::IPv6Protocol) {
        auto *in6 = reinterpret_cast<sockaddr_in6 *>(&storage);
        in6->sin6_family = AF_INET6;
        in6->sin6_port = htons(port);
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::memcpy(&in6->sin6_addr, &bytes, sizeof bytes);
        length = sizeof *in6;
    } else {
        auto *in4 = reinterpret_cast<sockaddr_in *>(&storage);
        in4->sin_family = AF_INET;
        in4->sin_port = htons(port);
        in4->sin_addr.s_addr = htonl(address.toIPv4Address());
        length = sizeof *in4;
    }
    m_fd = ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // Loopback connects at once, even to a listener on this thread that hasn't accepted yet.
    if (m_fd >= 0 && ::connect(m_fd, reinterpret_cast<sockaddr *>(&storage), length) != 0)
        close();
    if (m_fd >= 0)
        ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
}

LineClient::~LineClient()
{
    close();
}

void LineClient::close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

bool LineClient::wait(short events, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    const bool turnLoop = QCoreApplication::instance() &&
                          QThread::currentThread() == QCoreApplication::instance()->thread();
    for (;;) {
        if (turnLoop)
            QCoreApplication::processEvents(QEventLoop::AllEvents);
        pollfd ready{m_fd, events, 0};
        const auto left = int(std::max<qint64>(deadline.remainingTime(), 0));
        const int got = ::poll(&ready, 1, turnLoop ? std::min(left, 1) : left);
        if (got > 0)
            return true;
        if (got < 0 && errno != EINTR)
            return false;
        if (deadline.hasExpired())
            return false;
    }
}

bool LineClient::send(const QByteArray &data, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    QByteArrayView bytes(data);
    while (!bytes.isEmpty()) {
        const ssize_t sent = ::send(m_fd, bytes.data(), size_t(bytes.size()), MSG_NOSIGNAL);
        if (sent > 0) {
            bytes = bytes.sliced(sent);
            continue;
        }
        if (sent < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK)
            return false;
        if (!wait(POLLOUT, int(std::max<qint64>(deadline.remainingTime(), 0))))
            return false;
    }
    return true;
}

qsizetype LineClient::trySend(QByteArrayView bytes)
{
    const ssize_t sent = ::send(m_fd, bytes.data(), size_t(bytes.size()), MSG_NOSIGNAL);
    return sent < 0 ? 0 : qsizetype(sent);
}

void LineClient::shutdownWrite()
{
    ::shutdown(m_fd, SHUT_WR);
}

bool LineClient::fill()
{
    char chunk[65536];
    bool any = false;
    for (;;) {
        const ssize_t got = ::recv(m_fd, chunk, sizeof chunk, 0);
        if (got > 0) {
            m_buffer.append(chunk, got);
            any = true;
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK))
            m_peerClosed = true;
        return any || !m_peerClosed;
    }
}

std::optional<QByteArray> LineClient::readLine(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    for (;;) {
        if (const qsizetype end = m_buffer.indexOf('\n'); end >= 0) {
            QByteArray line = m_buffer.first(end);
            m_buffer.remove(0, end + 1);
            return line;
        }
        if (m_fd < 0 || m_peerClosed ||
            !wait(POLLIN, int(std::max<qint64>(deadline.remainingTime(), 0))) || !fill())
            return std::nullopt;
    }
}

std::optional<QJsonObject> LineClient::call(const QByteArray &line, int timeoutMs)
{
    if (!send(line + '\n', timeoutMs))
        return std::nullopt;
    const std::optional<QByteArray> answer = readLine(timeoutMs);
    if (!answer)
        return std::nullopt;
    return QJsonDocument::fromJson(*answer).object();
}

QByteArray LineClient::tryReceive()
{
    if (m_fd >= 0 && !m_peerClosed)
        fill();
    return std::exchange(m_buffer, {});
}

std::optional<QByteArrayList> LineClient::linesUntilClosed(int timeoutMs)
{
    if (!waitForClose(timeoutMs))
        return std::nullopt;
    QByteArrayList lines = std::exchange(m_buffer, {}).split('\n');
    // What follows the last newline: empty unless the peer stopped mid-line.
    if (lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

bool LineClient::waitForClose(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (m_fd >= 0 && !m_peerClosed) {
        if (!wait(POLLIN, int(std::max<qint64>(deadline.remainingTime(), 0))))
            return false;
        fill();
    }
    return m_peerClosed;
}

namespace Line {

QByteArray request(const QByteArray &id, const QByteArray &method, const QByteArray &params)
{
    QByteArray line = R"({"jsonrpc":"2.0",)";
    if (!id.isNull())
        line += R"("id":)" + id + ',';
    line += R"("method":")" + method + '"';
    if (!params.isNull())
        line += R"(,"params":)" + params;
    return line + '}';
}

QByteArray call(const QByteArray &id, const QByteArray &tool, const QByteArray &arguments)
{
    return request(id, "tools/call", R"({"name":")" + tool + R"(","arguments":)" + arguments + '}');
}

QByteArray call(const QByteArray &id, const QByteArray &tool, const QJsonObject &arguments)
{
    return call(id, tool, QJsonDocument(arguments).toJson(QJsonDocument::Compact));
}

bool succeeded(const QJsonObject &answer)
{
    return answer.contains("result"_L1) &&
           !answer.value("result"_L1).toObject().value("isError"_L1).toBool();
}

} // namespace Line
