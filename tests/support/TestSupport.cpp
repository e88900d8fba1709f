#include "TestSupport.h"

#include <QDir>

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
