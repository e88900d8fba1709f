#include "MeetingTimeline.h"

#include "core/Clock.h"
#include "core/records/ActionItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"

#include <QDate>

#include <algorithm>
#include <map>

using namespace Qt::StringLiterals;

namespace {

const QString separator = u"\n\n---\n\n"_s;

using Meetings = QList<std::shared_ptr<Meeting>>;

Meetings meetingsOf(const std::shared_ptr<Person> &person, ModelContext &context, bool scratchpads)
{
    Meetings meetings = context.fetch<Meeting>(
        {field(&Meeting::person) == person && field(&Meeting::isScratchpad) == scratchpads,
         {},
         {}});
    // The id settles ties, so that the same meeting survives however the rows come back.
    std::sort(meetings.begin(), meetings.end(), [](const auto &a, const auto &b) {
        if (a->date != b->date)
            return a->date < b->date;
        if (a->createdAt != b->createdAt)
            return a->createdAt < b->createdAt;
        return a->id < b->id;
    });
    return meetings;
}

// Folds `others` into `kept`: their non-empty notes after its own and their action items, before
// they are deleted.
void absorb(const std::shared_ptr<Meeting> &kept, const Meetings &others, ModelContext &context)
{
    QStringList parts;
    if (const QString own = kept->notes.trimmed(); !own.isEmpty())
        parts.append(own);
    bool carried = false;
    for (const auto &other : others) {
        if (const QString text = other->notes.trimmed(); !text.isEmpty()) {
            parts.append(text);
            carried = true;
        }
        // Moved before the delete, whose cascade follows the items' current meeting.
        const auto items =
            context.fetch<ActionItem>({field(&ActionItem::meeting) == other, {}, {}});
        for (const auto &item : items)
            item->meeting = kept;
        context.remove(other);
    }
    if (carried) {
        kept->notes = parts.join(separator);
        kept->updatedAt = Clock::now();
    }
}

} // namespace

namespace MeetingTimeline {

void consolidateSameDayMeetings(const std::shared_ptr<Person> &person, ModelContext &context)
{
    // Without a person the query would gather every meeting that has none.
    if (!person)
        return;
    const Calendar calendar = Calendar::current();
    std::map<QDate, Meetings> days;
    for (const auto &meeting : meetingsOf(person, context, false)) {
        // Without a date a meeting belongs to no day, so there is nothing to merge it with.
        if (meeting->date.isValid())
            days[calendar.day(meeting->date)].append(meeting);
    }
    for (const auto &[day, meetings] : days) {
        if (meetings.size() > 1)
            absorb(meetings.first(), meetings.sliced(1), context);
    }
}

void resolveScratchpad(const std::shared_ptr<Person> &person, ModelContext &context)
{
    if (!person)
        return;
    const Meetings scratchpads = meetingsOf(person, context, true);
    if (scratchpads.isEmpty()) {
        context.insert(
            std::make_shared<Meeting>(person, Meeting::distantFuture(), QString(), true));
        return;
    }
    if (scratchpads.size() > 1)
        absorb(scratchpads.first(), scratchpads.sliced(1), context);
}

void tidy(const std::shared_ptr<Person> &person, ModelContext &context)
{
    consolidateSameDayMeetings(person, context);
    resolveScratchpad(person, context);
}

} // namespace MeetingTimeline
