#include "Goal.h"

#include "GoalMilestone.h"
#include "RecordDefaults.h"
#include "core/Clock.h"
#include "core/store/ModelContext.h"

using namespace Qt::StringLiterals;

Goal::Goal(QString title_, QString notes_, std::optional<QDateTime> targetDate_)
    : id(QUuid::createUuid())
    , title(std::move(title_))
    , notes(std::move(notes_))
    , targetDate(std::move(targetDate_))
    , createdAt(Clock::now())
    , updatedAt(createdAt)
{
}

const Entity &Goal::staticEntity()
{
    static const Entity entity =
        EntityBuilder<Goal>(u"Goal"_s)
            .attribute(u"id"_s, &Goal::id, RecordDefaults::newId)
            .attribute(u"title"_s, &Goal::title, RecordDefaults::emptyText)
            .attribute(u"notes"_s, &Goal::notes, RecordDefaults::emptyText)
            .attribute(u"status"_s, &Goal::status, RecordDefaults::text("Not Started"))
            .attribute(u"targetDate"_s, &Goal::targetDate, RecordDefaults::absent)
            .attribute(u"createdAt"_s, &Goal::createdAt, RecordDefaults::now)
            .attribute(u"updatedAt"_s, &Goal::updatedAt, RecordDefaults::now)
            .attribute(u"coachingMarkdown"_s, &Goal::coachingMarkdown, RecordDefaults::absent)
            .attribute(u"coachingGeneratedAt"_s, &Goal::coachingGeneratedAt, RecordDefaults::absent)
            .attribute(u"isPinned"_s, &Goal::isPinned, RecordDefaults::no)
            .attribute(u"emoji"_s, &Goal::emoji, RecordDefaults::absent)
            .cascade<GoalMilestone>(u"milestones"_s, u"goal"_s)
            .build();
    return entity;
}

QList<std::shared_ptr<GoalMilestone>> Goal::milestones() const
{
    if (!modelContext())
        return {};
    return modelContext()->tryFetch<GoalMilestone>(
        {field(&GoalMilestone::goal) == this, {field(&GoalMilestone::orderIndex).ascending()}, {}});
}
