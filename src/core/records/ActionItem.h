#pragma once

#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

class Meeting;

// Something to do that came out of a meeting.
class ActionItem final : public Record {
public:
    struct Loading {};
    explicit ActionItem(Loading) {}
    ActionItem(QString title, std::shared_ptr<Meeting> meeting,
               std::optional<QDateTime> dueDate = std::nullopt);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString title;
    bool isCompleted = false;
    std::optional<QDateTime> dueDate;
    std::shared_ptr<Meeting> meeting;
    QDateTime createdAt;
};
