#pragma once

#include "Enumerations.h"
#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

class GoalMilestone;

// A career goal.
class Goal final : public Record {
public:
    struct Loading {};
    explicit Goal(Loading) {}
    Goal(QString title, QString notes, std::optional<QDateTime> targetDate);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString title;
    QString notes;
    GoalStatus status = GoalStatus::notStarted;
    std::optional<QDateTime> targetDate;
    QDateTime createdAt;
    QDateTime updatedAt;
    std::optional<QString> coachingMarkdown;
    std::optional<QDateTime> coachingGeneratedAt;
    bool isPinned = false;
    std::optional<QString> emoji;

    // In their order; deleting the goal deletes them.
    QList<std::shared_ptr<GoalMilestone>> milestones() const;
};
