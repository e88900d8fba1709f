#pragma once

#include <QDateTime>
#include <QTimeZone>

#include <optional>

// Every "now" and every calendar question in Tovren goes through here, so that tests can set
// the time and the time zone and get the same answers on every machine.

// The user's calendar: Gregorian days in a time zone, weeks as the user's locale counts them.
// Weekdays are numbered from Sunday = 1 to Saturday = 7.
class Calendar {
public:
    // The system time zone and the system locale's first day of the week.
    Calendar();
    Calendar(QTimeZone zone, int firstWeekday, int minimumDaysInFirstWeek);

    // Sunday = 1 numbering; the system's calendar unless a test set one.
    static Calendar current();

    const QTimeZone &timeZone() const { return m_zone; }
    int firstWeekday() const { return m_firstWeekday; }
    int minimumDaysInFirstWeek() const { return m_minimumDaysInFirstWeek; }

    // The calendar day an instant falls on in this calendar's time zone.
    QDate day(const QDateTime &instant) const;
    // Midnight at the start of the instant's day; the day boundary has no offset.
    QDateTime startOfDay(const QDateTime &instant) const;
    QDateTime startOfDay(QDate day) const;
    bool isSameDay(const QDateTime &a, const QDateTime &b) const;
    int weekday(const QDateTime &instant) const;
    static int weekday(QDate day);
    // Monday to Friday.
    bool isWorkday(const QDateTime &instant) const;
    // Wall-clock time on a day, e.g. today at 17:00:00.
    QDateTime at(QDate day, int hour, int minute, int second = 0) const;
    QDateTime addingDays(const QDateTime &instant, int days) const;

    struct WeekKey {
        int yearForWeekOfYear = 0;
        int weekOfYear = 0;
        bool operator==(const WeekKey &) const = default;
        auto operator<=>(const WeekKey &) const = default;
    };
    // The week a day belongs to, counted with this calendar's first weekday and the minimum
    // number of days the first week of a year must have.
    WeekKey weekKey(const QDateTime &instant) const;
    static WeekKey weekKey(QDate day, int firstWeekday, int minimumDaysInFirstWeek);

    bool operator==(const Calendar &other) const;

private:
    QTimeZone m_zone;
    int m_firstWeekday = 1;
    int m_minimumDaysInFirstWeek = 1;
};

namespace Clock {

// The current instant (UTC).
QDateTime now();

// Test seams. A set time stays fixed until it is changed or cleared; a set calendar replaces
// the system's for Calendar::current().
void setNow(std::optional<QDateTime> fixed);
void advance(qint64 milliseconds);
void setCalendar(std::optional<Calendar> calendar);

} // namespace Clock
