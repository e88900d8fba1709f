#pragma once

#include "TestSupport.h"

#include <QProcess>

#include <csignal>

// The real executable (TOVREN_BIN), started in a temporary data root the way a user or a
// harness starts it. A process still running when the object goes is killed.
class TovrenProcess {
public:
    explicit TovrenProcess(const TempDataDir &dir);
    ~TovrenProcess();
    TovrenProcess(const TovrenProcess &) = delete;
    TovrenProcess &operator=(const TovrenProcess &) = delete;

    static QString binary();
    // A loopback port nothing listens on right now.
    static quint16 freePort();

    // The preferences file as a person would write it by hand.
    bool writePreferences(const QByteArray &json) const;
    // With a port, the listener uses it (TOVREN_MCP_PORT).
    bool start(const QStringList &arguments, quint16 mcpPort = 0,
               QProcess::ProcessChannelMode channels = QProcess::ForwardedErrorChannel);
    // True once a connection to the port is accepted; false when Tovren ended or time ran out.
    bool waitUntilListening(quint16 port, int timeoutMs = 30000);
    // Sends the signal; true when the process ended within the time.
    bool stop(int signal = SIGTERM, int timeoutMs = 30000);

    QProcess &process() { return m_process; }

private:
    const TempDataDir &m_dir;
    QProcess m_process;
};
