#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <csignal>

TempDataDir::TempDataDir()
{
    m_hadData = qEnvironmentVariableIsSet("TOVREN_DATA_DIR");
    m_hadConfig = qEnvironmentVariableIsSet("TOVREN_CONFIG_DIR");
    m_oldData = qgetenv("TOVREN_DATA_DIR");
    m_oldConfig = qgetenv("TOVREN_CONFIG_DIR");
    QDir().mkpath(dataRoot());
    QDir().mkpath(configDir());
    qputenv("TOVREN_DATA_DIR", dataRoot().toLocal8Bit());
    qputenv("TOVREN_CONFIG_DIR", configDir().toLocal8Bit());
    // Pages written by a test must never reach a model server that happens to run on the
    // machine: unless the test brings its own, the on-device model is a port nobody answers.
    if (!qEnvironmentVariableIsSet("TOVREN_ONDEVICE_URL")) {
        qputenv("TOVREN_ONDEVICE_URL", "http://127.0.0.1:9");
        m_setModelServer = true;
    }
}

TempDataDir::~TempDataDir()
{
    if (m_hadData)
        qputenv("TOVREN_DATA_DIR", m_oldData);
    else
        qunsetenv("TOVREN_DATA_DIR");
    if (m_hadConfig)
        qputenv("TOVREN_CONFIG_DIR", m_oldConfig);
    else
        qunsetenv("TOVREN_CONFIG_DIR");
    if (m_setModelServer)
        qunsetenv("TOVREN_ONDEVICE_URL");
}

QString TempDataDir::dataRoot() const
{
    return m_dir.filePath(QStringLiteral("data"));
}

QString TempDataDir::configDir() const
{
    return m_dir.filePath(QStringLiteral("config"));
}

FixedClock::FixedClock(const QDateTime &now, std::optional<Calendar> calendar)
{
    Clock::setNow(now);
    if (calendar)
        Clock::setCalendar(calendar);
}

FixedClock::~FixedClock()
{
    Clock::setNow(std::nullopt);
    Clock::setCalendar(std::nullopt);
}

Calendar testCalendar(const char *zoneId)
{
    return Calendar(QTimeZone(QByteArray(zoneId)), 1, 1);
}

QList<int> runStoreWriter(const QString &store, int saves, const QString &prefix, bool kill)
{
    QProcess process;
    process.start(qEnvironmentVariable("TOVREN_TEST_HELPERS") + QStringLiteral("/store_writer"),
                  {store, QString::number(kill ? 100000 : saves), prefix});
    QList<int> acknowledged;
    if (!process.waitForStarted())
        return acknowledged;
    QByteArray pending;
    while (acknowledged.size() < saves &&
           (process.state() == QProcess::Running || process.bytesAvailable() > 0)) {
        if (!process.bytesAvailable())
            process.waitForReadyRead(5000);
        pending += process.readAllStandardOutput();
        qsizetype newline;
        while ((newline = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(newline);
            pending.remove(0, newline + 1);
            if (line.startsWith("saved "))
                acknowledged.append(line.mid(6).toInt());
        }
    }
    if (kill)
        ::kill(pid_t(process.processId()), SIGKILL);
    process.waitForFinished();
    return acknowledged;
}

QString storeWriterContent(const QString &prefix, int i)
{
    // Big enough that a page spans more than one database page.
    return prefix + QStringLiteral(" entry %1 ").arg(i) + QString(6000, QChar(u'a' + i % 26));
}

QByteArray fileContents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
                 file.write(bytes) == bytes.size(),
             qPrintable(path));
}
