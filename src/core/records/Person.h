#pragma once

#include "Enumerations.h"
#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

class Meeting;

// Someone the user works with.
class Person final : public Record {
public:
    struct Loading {};
    explicit Person(Loading) {}
    Person(QString name, QString role, RelationshipType relationship,
           std::optional<QString> email = std::nullopt);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString name;
    QString role;
    std::optional<QString> relationshipRaw;
    std::optional<QString> email;
    QDateTime createdAt;
    bool isPinned = false;
    std::optional<QString> emoji;

    // "Other" when unset or when the stored word is unknown.
    RelationshipType relationship() const;
    void setRelationship(RelationshipType relationship);

    // All their meetings, the scratchpad included; deleting the person deletes them.
    QList<std::shared_ptr<Meeting>> meetings() const;
};
