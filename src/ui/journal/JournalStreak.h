#pragma once

#include <QDateTime>
#include <QList>

class Calendar;

// The streak beside the greeting: weeks in a row with an entry on a workday.
namespace JournalStreak {

// The week in progress may still be empty without breaking the run; weekend pages count for
// nothing.
int workWeekStreak(const QList<QDateTime> &entryDates, const QDateTime &today,
                   const Calendar &calendar);

} // namespace JournalStreak
