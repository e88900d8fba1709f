#include "SignalWatcher.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};

void onSignal(int signal)
{
    // Only async-signal-safe work here: hand the number to the event loop.
    const unsigned char number = static_cast<unsigned char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[0], &number, 1);
}

} // namespace

SignalWatcher::SignalWatcher(QObject *parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0)
        return;
    m_notifier = new QSocketNotifier(signalPipe[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SignalWatcher::readSignal);

    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

SignalWatcher::~SignalWatcher()
{
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    delete m_notifier;
    for (int &fd : signalPipe) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void SignalWatcher::readSignal()
{
    unsigned char number = 0;
    if (::read(signalPipe[1], &number, 1) == 1)
        emit terminationRequested(number);
}
