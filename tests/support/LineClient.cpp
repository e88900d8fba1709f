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

namespace {

int left(const QDeadlineTimer &deadline)
{
    return int(std::max<qint64>(deadline.remainingTime(), 0));
}

bool wouldBlock()
{
    return errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK;
}

} // namespace

LineClient::LineClient(quint16 port, const QHostAddress &address)
{
    sockaddr_in6 in6{AF_INET6, htons(port), 0, {}, 0};
    sockaddr_in in4{AF_INET, htons(port), {htonl(address.toIPv4Address())}, {}};
    const bool v6 = address.protocol() == QAbstractSocket::IPv6Protocol;
    if (v6) {
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::memcpy(&in6.sin6_addr, &bytes, sizeof bytes);
    }
    m_fd = ::socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // Loopback connects at once, even to a listener on this thread that hasn't accepted yet.
    const auto *target =
        v6 ? reinterpret_cast<sockaddr *>(&in6) : reinterpret_cast<sockaddr *>(&in4);
    if (m_fd >= 0 && ::connect(m_fd, target, v6 ? sizeof in6 : sizeof in4) != 0)
        close();
    if (m_fd >= 0)
        ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
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
        const int got = ::poll(&ready, 1, turnLoop ? std::min(left(deadline), 1) : left(deadline));
        if (got > 0)
            return true;
        if ((got < 0 && errno != EINTR) || deadline.hasExpired())
            return false;
    }
}

bool LineClient::send(const QByteArray &data, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    for (QByteArrayView bytes(data); !bytes.isEmpty();) {
        if (const ssize_t sent = trySend(bytes); sent > 0)
            bytes = bytes.sliced(sent);
        else if (!wouldBlock() || !wait(POLLOUT, left(deadline)))
            return false;
    }
    return true;
}

qsizetype LineClient::trySend(QByteArrayView bytes)
{
    errno = 0;
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
        } else if (got < 0 && errno == EINTR) {
            continue;
        } else {
            m_peerClosed = got == 0 || !wouldBlock();
            return any || !m_peerClosed;
        }
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
        if (m_fd < 0 || m_peerClosed || !wait(POLLIN, left(deadline)) || !fill())
            return std::nullopt;
    }
}

std::optional<QJsonObject> LineClient::call(const QByteArray &line, int timeoutMs)
{
    if (!send(line + '\n', timeoutMs))
        return std::nullopt;
    const std::optional<QByteArray> answer = readLine(timeoutMs);
    return answer ? std::optional(QJsonDocument::fromJson(*answer).object()) : std::nullopt;
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
        if (!wait(POLLIN, left(deadline)))
            return false;
        fill();
    }
    return m_peerClosed;
}

namespace Line {

QByteArray request(const QByteArray &id, const QByteArray &method, const QByteArray &params)
{
    return R"({"jsonrpc":"2.0",)" + (id.isNull() ? QByteArray() : R"("id":)" + id + ',') +
           R"("method":")" + method + '"' +
           (params.isNull() ? QByteArray() : R"(,"params":)" + params) + '}';
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

bool addPages(quint16 port, QDate first, int days, int step,
              const std::function<QString(int)> &text)
{
    LineClient writer(port);
    for (int day = 0; day < days; ++day) {
        const auto answer = writer.call(call(
            QByteArray::number(day), "add_journal_entry",
            QJsonObject{{u"content"_s, text(day)},
                        {u"date"_s, first.addDays(qint64(step) * day).toString(Qt::ISODate)}}));
        if (!answer || !succeeded(*answer))
            return false;
    }
    return true;
}

} // namespace Line
