#include "StdioBridge.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace StdioBridge {

namespace {

// After standard input ends, the listener still answers what it was sent; it closes its side
// once done, but a listener that never does must not keep the assistant waiting.
constexpr int drainTimeoutMs = 5000;

bool writeAll(int fd, const char *data, ssize_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size_t(size));
        if (written < 0) {
            if (errno == EINTR)
                continue;
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

    char buffer[65536];
    bool inputOpen = true;
    int status = 0;
    for (;;) {
        pollfd fds[2] = {{socketFd, POLLIN, 0}, {inputOpen ? inputFd : -1, POLLIN, 0}};
        const int ready = ::poll(fds, 2, inputOpen ? -1 : drainTimeoutMs);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            status = 1;
            break;
        }
        if (ready == 0)
            break; // the listener kept its side open past the grace after input ended

        if (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) {
            const ssize_t got = ::read(socketFd, buffer, sizeof buffer);
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0) {
                std::fprintf(stderr, "tovren mcp: the connection to Tovren failed (%s).\n",
                             std::strerror(errno));
                status = 1;
                break;
            }
            if (got == 0 || !writeAll(outputFd, buffer, got))
                break;
        }
        if (inputOpen && (fds[1].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL))) {
            const ssize_t got = ::read(inputFd, buffer, sizeof buffer);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0) {
                // Tell the listener nothing more is coming, and take its last answers.
                inputOpen = false;
                ::shutdown(socketFd, SHUT_WR);
            } else if (!writeAll(socketFd, buffer, got)) {
                break;
            }
        }
    }
    ::close(socketFd);
    return status;
}

} // namespace StdioBridge
