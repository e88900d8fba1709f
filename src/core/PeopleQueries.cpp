#include "PeopleQueries.h"

#include "core/records/ActionItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"

#include <QSet>

#include <algorithm>

namespace PeopleQueries {

QList<std::shared_ptr<Meeting>> realMeetings(const Person &person)
{
    QList<std::shared_ptr<Meeting>> meetings = person.meetings();
    meetings.removeIf([](const std::shared_ptr<Meeting> &meeting) {
        return meeting->isScratchpad && meeting->notes.trimmed().isEmpty() &&
               meeting->actionItems().isEmpty();
    });
    std::stable_sort(meetings.begin(), meetings.end(),
                     [](const auto &a, const auto &b) { return a->date > b->date; });
    return meetings;
}

qsizetype openActionCount(const Person &person)
{
    ModelContext *context = person.modelContext();
    if (!context)
        return 0;
    qsizetype count = 0;
    for (const auto &meeting : person.meetings()) {
        try {
            count += context->fetchCount<ActionItem>(
                {field(&ActionItem::meeting) == meeting && field(&ActionItem::isCompleted) == false,
                 {},
                 {}});
        } catch (const StoreError &) {
        }
    }
    return count;
}

QHash<QUuid, qsizetype> openActionCounts(ModelContext &context)
{
    QHash<QUuid, qsizetype> counts;
    for (const auto &item :
         context.tryFetch<ActionItem>({field(&ActionItem::isCompleted) == false, {}, {}})) {
        if (item->meeting && item->meeting->person)
            ++counts[item->meeting->person->id];
    }
    return counts;
}

QHash<QUuid, QDateTime> lastMeetingDates(ModelContext &context)
{
    QSet<QUuid> holdingItems;
    for (const auto &item : context.tryFetch<ActionItem>()) {
        if (item->meeting)
            holdingItems.insert(item->meeting->id);
    }
    QHash<QUuid, QDateTime> dates;
    for (const auto &meeting : context.tryFetch<Meeting>()) {
        if (!meeting->person || (meeting->isScratchpad && meeting->notes.trimmed().isEmpty() &&
                                 !holdingItems.contains(meeting->id)))
            continue;
        QDateTime &newest = dates[meeting->person->id];
        if (!newest.isValid() || meeting->date > newest)
            newest = meeting->date;
    }
    return dates;
}

} // namespace PeopleQueries
