#pragma once

#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

// A to-do.
class TaskItem final : public Record {
public:
    struct Loading {};
    explicit TaskItem(Loading) {}
    TaskItem(QString title, int priority, std::optional<QDateTime> dueDate);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString title;
    bool isCompleted = false;
    std::optional<QDateTime> completedAt;
    int priority = 0;
    QDateTime createdAt;
    std::optional<QDateTime> dueDate;

    // Due on a day before today; a task due today is never overdue, whatever the hour.
    bool isOverdue() const;
};
