#include "StdioBridge.h"

#include <QByteArray>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace StdioBridge {

namespace {

// Standard input read ahead of what Tovren has taken. Past it, input waits, so an assistant that
// writes faster than Tovren reads is held back by its pipe, and answers keep flowing meanwhile.
constexpr qsizetype inputAhead = 65536;

// Blocks on standard output while the assistant isn't reading: Tovren then holds its answers
// back, which is the assistant's own choice.
bool writeAll(int fd, const char *data, ssize_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size_t(size));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                pollfd wait{fd, POLLOUT, 0};
                ::poll(&wait, 1, -1);
                continue;
            }
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
}

int connectTo(quint16 port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    while (::connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        if (errno == EINTR)
            continue;
        ::close(fd);
        return -1;
    }
    return fd;
}

} // namespace

int run(quint16 port, int inputFd, int outputFd)
{
    // A client that went away shows as a failed write, not as a signal that kills us mid-line.
    std::signal(SIGPIPE, SIG_IGN);

    const int socketFd = connectTo(port);
    if (socketFd < 0) {
        std::fprintf(stderr,
                     "tovren mcp: nothing is listening on 127.0.0.1 port %u (%s). Start Tovren "
                     "and turn on its assistant bridge in Settings.\n",
                     unsigned(port), std::strerror(errno));
        return 1;
    }
    // Writing toward Tovren never blocks, so its answers are read even while it reads nothing.
    ::fcntl(socketFd, F_SETFL, ::fcntl(socketFd, F_GETFL) | O_NONBLOCK);

    char buffer[65536];
    QByteArray toTovren;
    qsizetype sentAt = 0;
    bool inputOpen = true;
    bool halfClosed = false;
    int status = 0;
    const auto failed = [&status](const char *what) {
        std::fprintf(stderr, "tovren mcp: the connection to Tovren failed (%s).\n", what);
        status = 1;
    };
    for (;;) {
        const bool sending = sentAt < toTovren.size();
        // Tovren closes its side once everything it was sent is answered: that is the end.
        if (!inputOpen && !sending && !halfClosed) {
            ::shutdown(socketFd, SHUT_WR);
            halfClosed = true;
        }
        pollfd fds[2] = {{socketFd, short(POLLIN | (sending ? POLLOUT : 0)), 0},
                         {inputOpen && toTovren.size() < inputAhead ? inputFd : -1, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            failed(std::strerror(errno));
            break;
        }

        if (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) {
            const ssize_t got = ::read(socketFd, buffer, sizeof buffer);
            if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK))
                continue;
            if (got < 0) {
                failed(std::strerror(errno));
                break;
            }
            if (got == 0 || !writeAll(outputFd, buffer, got))
                break;
        }
        if (sending && (fds[0].revents & POLLOUT)) {
            const ssize_t sent = ::send(socketFd, toTovren.constData() + sentAt,
                                        size_t(toTovren.size() - sentAt), MSG_NOSIGNAL);
            if (sent < 0 && errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
                failed(std::strerror(errno));
                break;
            }
            sentAt += std::max<ssize_t>(sent, 0);
            if (sentAt == toTovren.size()) {
                toTovren.clear();
                sentAt = 0;
            }
        }
        if (fds[1].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)) {
            const ssize_t got = ::read(inputFd, buffer, sizeof buffer);
            if (got < 0 && (errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK))
                continue;
            if (got <= 0)
                inputOpen = false; // what was read still goes out, then Tovren hears the end
            else
                toTovren.append(buffer, got);
        }
    }
    ::close(socketFd);
    return status;
}

} // namespace StdioBridge
