#pragma once

#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

class Goal;

// A step towards a goal; readers sort them by orderIndex.
class GoalMilestone final : public Record {
public:
    struct Loading {};
    explicit GoalMilestone(Loading) {}
    GoalMilestone(QString title, int orderIndex, std::shared_ptr<Goal> goal);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString title;
    bool isCompleted = false;
    std::optional<QDateTime> completedAt;
    QDateTime createdAt;
    int orderIndex = 0;
    std::shared_ptr<Goal> goal;
};
