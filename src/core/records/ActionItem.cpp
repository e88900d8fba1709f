#include "ActionItem.h"

#include "Meeting.h"
#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

ActionItem::ActionItem(QString title_, std::shared_ptr<Meeting> meeting_,
                       std::optional<QDateTime> dueDate_)
    : id(QUuid::createUuid())
    , title(std::move(title_))
    , dueDate(std::move(dueDate_))
    , meeting(std::move(meeting_))
    , createdAt(Clock::now())
{
}

const Entity &ActionItem::staticEntity()
{
    static const Entity entity =
        EntityBuilder<ActionItem>(u"ActionItem"_s)
            .attribute(u"id"_s, &ActionItem::id, RecordDefaults::newId)
            .attribute(u"title"_s, &ActionItem::title, RecordDefaults::emptyText)
            .attribute(u"isCompleted"_s, &ActionItem::isCompleted, RecordDefaults::no)
            .attribute(u"dueDate"_s, &ActionItem::dueDate, RecordDefaults::absent)
            .attribute(u"meeting"_s, &ActionItem::meeting, RecordDefaults::absent)
            .attribute(u"createdAt"_s, &ActionItem::createdAt, RecordDefaults::now)
            .build();
    return entity;
}
