#pragma once

#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

class ActionItem;
class Person;

// A 1:1 meeting with a person, or, with isScratchpad set, the running note for the next one.
class Meeting final : public Record {
public:
    struct Loading {};
    explicit Meeting(Loading) {}
    Meeting(std::shared_ptr<Person> person, QDateTime date, QString notes,
            bool isScratchpad = false);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QDateTime date;
    QString notes;
    std::shared_ptr<Person> person;
    QDateTime createdAt;
    QDateTime updatedAt;
    bool isScratchpad = false;

    // Deleting the meeting deletes them.
    QList<std::shared_ptr<ActionItem>> actionItems() const;

    // The date of a scratchpad: far beyond real use, so it sorts after every real meeting.
    static QDateTime distantFuture();
};
