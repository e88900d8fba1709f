#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QUuid>

#include <memory>

class Meeting;
class ModelContext;
class Person;

// What the people list and the assistant's people tools say about someone: the meetings that
// took place and what is still owed. Reads only; a failed read counts as nothing found.
namespace PeopleQueries {

// The person's meetings newest first, leaving out a scratchpad that holds nothing yet: one counts
// once its notes have text or it carries an action item.
QList<std::shared_ptr<Meeting>> realMeetings(const Person &person);

// Open action items over all of the person's meetings, the scratchpad's included.
qsizetype openActionCount(const Person &person);

// openActionCount for everyone at once, keyed by the person's id; someone with none is absent.
// One read of the store, for a list that shows every person.
QHash<QUuid, qsizetype> openActionCounts(ModelContext &context);

// The date of each person's newest meeting of realMeetings, keyed by the person's id; someone
// with none is absent. Two reads of the store, for a list that shows every person.
QHash<QUuid, QDateTime> lastMeetingDates(ModelContext &context);

} // namespace PeopleQueries
