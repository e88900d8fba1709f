#include "TaskItem.h"

#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

TaskItem::TaskItem(QString title_, int priority_, std::optional<QDateTime> dueDate_)
    : id(QUuid::createUuid())
    , title(std::move(title_))
    , priority(priority_)
    , createdAt(Clock::now())
    , dueDate(std::move(dueDate_))
{
}

const Entity &TaskItem::staticEntity()
{
    static const Entity entity =
        EntityBuilder<TaskItem>(u"TaskItem"_s)
            .attribute(u"id"_s, &TaskItem::id, RecordDefaults::newId)
            .attribute(u"title"_s, &TaskItem::title, RecordDefaults::emptyText)
            .attribute(u"isCompleted"_s, &TaskItem::isCompleted, RecordDefaults::no, true)
            .attribute(u"completedAt"_s, &TaskItem::completedAt, RecordDefaults::absent)
            .attribute(u"priority"_s, &TaskItem::priority, RecordDefaults::zero)
            .attribute(u"createdAt"_s, &TaskItem::createdAt, RecordDefaults::now)
            .attribute(u"dueDate"_s, &TaskItem::dueDate, RecordDefaults::absent, true)
            .build();
    return entity;
}

bool TaskItem::isOverdue() const
{
    if (isCompleted || !dueDate)
        return false;
    const Calendar calendar = Calendar::current();
    return calendar.startOfDay(*dueDate) < calendar.startOfDay(Clock::now());
}
