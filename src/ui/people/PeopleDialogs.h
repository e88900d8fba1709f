#pragma once

#include "core/records/Enumerations.h"

#include <QDate>
#include <QString>

#include <optional>

class QWidget;

// The small forms of the People tab. Each returns nothing when the user cancelled. The fields
// carry object names ("name", "role", "relationship", "email", "emoji", "pinned", "title",
// "hasDue", "due", "date") so that tests can fill them in.
namespace PeopleDialogs {

struct PersonValues {
    QString name;
    QString role;
    RelationshipType relationship = RelationshipType::other;
    QString email;
    QString emoji;
    bool isPinned = false;
};
std::optional<PersonValues> editPerson(QWidget *parent, const QString &title,
                                       const PersonValues &initial);

struct ActionValues {
    QString title;
    std::optional<QDate> due;
};
std::optional<ActionValues> editAction(QWidget *parent, const ActionValues &initial);

// The day of a 1:1 note.
std::optional<QDate> pickDate(QWidget *parent, const QDate &initial);

} // namespace PeopleDialogs
