#include "TovrenProcess.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;

TovrenProcess::TovrenProcess(const TempDataDir &dir)
    : m_dir(dir)
{
}

TovrenProcess::~TovrenProcess()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

QString TovrenProcess::binary()
{
    return qEnvironmentVariable("TOVREN_BIN");
}

quint16 TovrenProcess::freePort()
{
    // The kernel soon hands a port it picked for port 0 out again, to the next test or to an
    // outgoing connection; a random one below its ephemeral range (32768 and up) rarely is.
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const auto port = quint16(QRandomGenerator::system()->bounded(20000, 30000));
        QTcpServer probe;
        if (probe.listen(QHostAddress::LocalHost, port))
            return port;
    }
    return 0;
}

bool TovrenProcess::writePreferences(const QByteArray &json) const
{
    QFile preferences(m_dir.configDir() + u"/preferences.json"_s);
    return preferences.open(QIODevice::WriteOnly) && preferences.write(json) == json.size();
}

bool TovrenProcess::start(const QStringList &arguments, quint16 mcpPort,
                          QProcess::ProcessChannelMode channels)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"TOVREN_DATA_DIR"_s, m_dir.dataRoot());
    environment.insert(u"TOVREN_CONFIG_DIR"_s, m_dir.configDir());
    environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
    if (mcpPort != 0)
        environment.insert(u"TOVREN_MCP_PORT"_s, QString::number(mcpPort));
    m_process.setProcessEnvironment(environment);
    m_process.setProcessChannelMode(channels);
    m_process.start(binary(), arguments);
    return m_process.waitForStarted();
}

bool TovrenProcess::waitUntilListening(quint16 port, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired() && m_process.state() == QProcess::Running) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, port);
        if (socket.waitForConnected(1000))
            return true;
        QTest::qWait(100);
    }
    return false;
}

bool TovrenProcess::stop(int signal, int timeoutMs)
{
    ::kill(pid_t(m_process.processId()), signal);
    return m_process.waitForFinished(timeoutMs);
}
