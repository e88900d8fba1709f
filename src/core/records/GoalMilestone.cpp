#include "GoalMilestone.h"

#include "Goal.h"
#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

GoalMilestone::GoalMilestone(QString title_, int orderIndex_, std::shared_ptr<Goal> goal_)
    : id(QUuid::createUuid())
    , title(std::move(title_))
    , createdAt(Clock::now())
    , orderIndex(orderIndex_)
    , goal(std::move(goal_))
{
}

const Entity &GoalMilestone::staticEntity()
{
    static const Entity entity =
        EntityBuilder<GoalMilestone>(u"GoalMilestone"_s)
            .attribute(u"id"_s, &GoalMilestone::id, RecordDefaults::newId)
            .attribute(u"title"_s, &GoalMilestone::title, RecordDefaults::emptyText)
            .attribute(u"isCompleted"_s, &GoalMilestone::isCompleted, RecordDefaults::no)
            .attribute(u"completedAt"_s, &GoalMilestone::completedAt, RecordDefaults::absent)
            .attribute(u"createdAt"_s, &GoalMilestone::createdAt, RecordDefaults::now)
            .attribute(u"orderIndex"_s, &GoalMilestone::orderIndex, RecordDefaults::zero)
            .attribute(u"goal"_s, &GoalMilestone::goal, RecordDefaults::absent)
            .build();
    return entity;
}
