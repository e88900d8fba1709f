#include "AppCalendar.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

AppCalendar::AppCalendar(QObject *parent)
    : AppCalendar({u"/etc/localtime"_s, u"/etc/timezone"_s}, parent)
{
}

AppCalendar::AppCalendar(const QStringList &zoneFiles, QObject *parent)
    : QObject(parent)
    , m_calendar(Calendar::current())
    , m_today(m_calendar.startOfDay(Clock::now()))
    , m_zoneFiles(zoneFiles)
{
    m_midnightTimer.setSingleShot(true);
    m_midnightTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_midnightTimer, &QTimer::timeout, this, &AppCalendar::update);
    armMidnightTimer();

    // QTimer counts on a clock that stops during suspend, so after waking the midnight timer
    // is late by however long the machine slept.
    m_pollTimer.setTimerType(Qt::VeryCoarseTimer);
    connect(&m_pollTimer, &QTimer::timeout, this, &AppCalendar::update);
    m_pollTimer.start(std::chrono::minutes(1));

    // Changing the zone replaces these files (or re-points the /etc/localtime link) rather than
    // writing into them, which only their folder hears about.
    QStringList folders;
    for (const QString &path : std::as_const(m_zoneFiles)) {
        const QString folder = QFileInfo(path).absolutePath();
        if (!folders.contains(folder) && QFileInfo(folder).isDir())
            folders.append(folder);
    }
    if (!folders.isEmpty())
        m_zoneWatcher.addPaths(folders);
    watchZoneFiles();
    auto onZoneChange = [this] {
        watchZoneFiles();
        update();
    };
    connect(&m_zoneWatcher, &QFileSystemWatcher::fileChanged, this, onZoneChange);
    connect(&m_zoneWatcher, &QFileSystemWatcher::directoryChanged, this, onZoneChange);
}

void AppCalendar::update()
{
    const Calendar calendar = Calendar::current();
    const QDateTime today = calendar.startOfDay(Clock::now());
    const bool same = calendar == m_calendar && today == m_today;
    m_calendar = calendar;
    m_today = today;
    armMidnightTimer();
    if (!same)
        emit changed();
}

void AppCalendar::armMidnightTimer()
{
    const QDateTime now = Clock::now();
    const QDateTime next = m_calendar.startOfDay(m_calendar.day(now).addDays(1));
    m_midnightTimer.start(std::chrono::milliseconds(qMax<qint64>(now.msecsTo(next), 1)));
}

void AppCalendar::watchZoneFiles()
{
    // A replaced file drops out of the watch, so add back whichever is there now.
    const QStringList watched = m_zoneWatcher.files();
    for (const QString &path : std::as_const(m_zoneFiles)) {
        if (!watched.contains(path) && QFileInfo::exists(path))
            m_zoneWatcher.addPath(path);
    }
}
