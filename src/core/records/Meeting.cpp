#include "Meeting.h"

#include "ActionItem.h"
#include "Person.h"
#include "RecordDefaults.h"
#include "core/Clock.h"
#include "core/store/ModelContext.h"

using namespace Qt::StringLiterals;

Meeting::Meeting(std::shared_ptr<Person> person_, QDateTime date_, QString notes_,
                 bool isScratchpad_)
    : id(QUuid::createUuid())
    , date(std::move(date_))
    , notes(std::move(notes_))
    , person(std::move(person_))
    , createdAt(Clock::now())
    , updatedAt(createdAt)
    , isScratchpad(isScratchpad_)
{
}

const Entity &Meeting::staticEntity()
{
    static const Entity entity =
        EntityBuilder<Meeting>(u"Meeting"_s)
            .attribute(u"id"_s, &Meeting::id, RecordDefaults::newId)
            .attribute(u"date"_s, &Meeting::date, RecordDefaults::absent, true)
            .attribute(u"notes"_s, &Meeting::notes, RecordDefaults::emptyText)
            .attribute(u"person"_s, &Meeting::person, RecordDefaults::absent)
            .attribute(u"createdAt"_s, &Meeting::createdAt, RecordDefaults::now)
            .attribute(u"updatedAt"_s, &Meeting::updatedAt, RecordDefaults::now)
            .attribute(u"isScratchpad"_s, &Meeting::isScratchpad, RecordDefaults::no)
            .cascade<ActionItem>(u"actionItems"_s, u"meeting"_s)
            .build();
    return entity;
}

QList<std::shared_ptr<ActionItem>> Meeting::actionItems() const
{
    if (!modelContext())
        return {};
    return modelContext()->tryFetch<ActionItem>(
        {field(&ActionItem::meeting) == this, {field(&ActionItem::createdAt).ascending()}, {}});
}

QDateTime Meeting::distantFuture()
{
    return QDateTime(QDate(4001, 1, 1), QTime(0, 0), Qt::UTC);
}
