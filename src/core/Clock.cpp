#include "Clock.h"

#include <QElapsedTimer>
#include <QLocale>

namespace {

std::optional<QDateTime> &fixedNow()
{
    static std::optional<QDateTime> value;
    return value;
}

std::optional<Calendar> &fixedCalendar()
{
    static std::optional<Calendar> value;
    return value;
}

int localeFirstWeekday()
{
    // Qt numbers Monday = 1 .. Sunday = 7; the calendar numbers Sunday = 1 .. Saturday = 7.
    const int qtDay = QLocale::system().firstDayOfWeek();
    return qtDay % 7 + 1;
}

} // namespace

Calendar::Calendar()
    : m_zone(QTimeZone::systemTimeZone())
    , m_firstWeekday(localeFirstWeekday())
    // Locales that start the week on Monday count weeks the ISO way.
    , m_minimumDaysInFirstWeek(m_firstWeekday == 2 ? 4 : 1)
{
}

Calendar::Calendar(QTimeZone zone, int firstWeekday, int minimumDaysInFirstWeek)
    : m_zone(std::move(zone))
    , m_firstWeekday(qBound(1, firstWeekday, 7))
    , m_minimumDaysInFirstWeek(qBound(1, minimumDaysInFirstWeek, 7))
{
}

Calendar Calendar::current()
{
    if (fixedCalendar())
        return *fixedCalendar();
    // Finding the system zone reads /etc/localtime and the locale each time, which a reply
    // listing a year of days would do hundreds of times. An answer up to a second old is fresh
    // enough: a change of zone still shows within a second.
    thread_local std::optional<Calendar> cached;
    thread_local QElapsedTimer age;
    if (!cached || age.hasExpired(1000)) {
        cached = Calendar();
        age.start();
    }
    return *cached;
}

QDate Calendar::day(const QDateTime &instant) const
{
    return instant.toTimeZone(m_zone).date();
}

QDateTime Calendar::startOfDay(const QDateTime &instant) const
{
    return startOfDay(day(instant));
}

QDateTime Calendar::startOfDay(QDate date) const
{
    return date.startOfDay(m_zone);
}

bool Calendar::isSameDay(const QDateTime &a, const QDateTime &b) const
{
    return day(a) == day(b);
}

int Calendar::weekday(QDate date)
{
    return date.dayOfWeek() % 7 + 1;
}

int Calendar::weekday(const QDateTime &instant) const
{
    return weekday(day(instant));
}

bool Calendar::isWorkday(const QDateTime &instant) const
{
    const int w = weekday(instant);
    return w >= 2 && w <= 6;
}

QDateTime Calendar::at(QDate date, int hour, int minute, int second) const
{
    return QDateTime(date, QTime(hour, minute, second), m_zone);
}

QDateTime Calendar::addingDays(const QDateTime &instant, int days) const
{
    const QDateTime local = instant.toTimeZone(m_zone);
    return QDateTime(local.date().addDays(days), local.time(), m_zone);
}

Calendar::WeekKey Calendar::weekKey(const QDateTime &instant) const
{
    return weekKey(day(instant), m_firstWeekday, m_minimumDaysInFirstWeek);
}

Calendar::WeekKey Calendar::weekKey(QDate date, int firstWeekday, int minimumDaysInFirstWeek)
{
    // Week 1 of a year is the first week (starting on firstWeekday) that holds at least
    // minimumDaysInFirstWeek days of that year.
    auto startOfWeekOne = [&](int year) {
        const QDate jan1(year, 1, 1);
        const int offset = (weekday(jan1) - firstWeekday + 7) % 7; // days of jan1's week before it
        QDate weekStart = jan1.addDays(-offset);
        if (7 - offset < minimumDaysInFirstWeek)
            weekStart = weekStart.addDays(7);
        return weekStart;
    };
    int year = date.year();
    QDate start = startOfWeekOne(year + 1);
    if (date >= start) {
        year += 1;
    } else {
        start = startOfWeekOne(year);
        if (date < start) {
            year -= 1;
            start = startOfWeekOne(year);
        }
    }
    return WeekKey{year, int(start.daysTo(date) / 7) + 1};
}

bool Calendar::operator==(const Calendar &other) const
{
    return m_zone == other.m_zone && m_firstWeekday == other.m_firstWeekday &&
           m_minimumDaysInFirstWeek == other.m_minimumDaysInFirstWeek;
}

namespace Clock {

QDateTime now()
{
    if (fixedNow())
        return *fixedNow();
    return QDateTime::currentDateTimeUtc();
}

void setNow(std::optional<QDateTime> fixed)
{
    fixedNow() = fixed ? std::optional(fixed->toUTC()) : std::nullopt;
}

void advance(qint64 milliseconds)
{
    if (fixedNow())
        *fixedNow() = fixedNow()->addMSecs(milliseconds);
}

void setCalendar(std::optional<Calendar> calendar)
{
    fixedCalendar() = std::move(calendar);
}

} // namespace Clock
