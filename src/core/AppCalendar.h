#pragma once

#include "core/Clock.h"

#include <QDateTime>
#include <QFileSystemWatcher>
#include <QObject>
#include <QStringList>
#include <QTimer>

// Tovren's idea of "today": the start of the current day in the user's current calendar.
// Everything that must move on with the date listens to changed(), which fires once per new
// day or new calendar and never when neither changed.
class AppCalendar : public QObject {
    Q_OBJECT
public:
    explicit AppCalendar(QObject *parent = nullptr);
    // Watches the given files for a change of time zone instead of the system's.
    explicit AppCalendar(const QStringList &zoneFiles, QObject *parent = nullptr);

    QDateTime today() const { return m_today; }
    Calendar calendar() const { return m_calendar; }

    // Recomputes both values from the clock; called by the timers and the time-zone watch, and
    // by anyone who knows the date may have moved (waking from suspend, activation).
    void update();

signals:
    void changed();

private:
    void armMidnightTimer();
    void watchZoneFiles();

    Calendar m_calendar;
    QDateTime m_today;
    QStringList m_zoneFiles;
    QTimer m_midnightTimer;
    QTimer m_pollTimer;
    QFileSystemWatcher m_zoneWatcher;
};
