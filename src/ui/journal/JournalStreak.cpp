#include "JournalStreak.h"

#include "core/Clock.h"

#include <QSet>

namespace JournalStreak {

int workWeekStreak(const QList<QDateTime> &entryDates, const QDateTime &today,
                   const Calendar &calendar)
{
    QSet<QPair<int, int>> weeks;
    for (const QDateTime &date : entryDates) {
        if (!calendar.isWorkday(date))
            continue;
        const Calendar::WeekKey key = calendar.weekKey(date);
        weeks.insert({key.yearForWeekOfYear, key.weekOfYear});
    }
    if (weeks.isEmpty())
        return 0;
    QDateTime cursor = today;
    const auto holds = [&] {
        const Calendar::WeekKey key = calendar.weekKey(cursor);
        return weeks.contains({key.yearForWeekOfYear, key.weekOfYear});
    };
    if (!holds())
        cursor = calendar.addingDays(cursor, -7);
    int count = 0;
    while (holds()) {
        ++count;
        cursor = calendar.addingDays(cursor, -7);
    }
    return count;
}

} // namespace JournalStreak
