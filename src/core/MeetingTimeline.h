#pragma once

#include <memory>

class ModelContext;
class Person;

// The tidying a person's timeline gets before it is shown: one meeting per calendar day and
// exactly one scratchpad. Changes stay in the context for the caller to save. These raise
// StoreError when the meetings can't be read, rather than acting on a list that may be wrong.
namespace MeetingTimeline {

// Merges the meetings of each day into that day's earliest one: their notes in order, joined by a
// rule, and all of their action items.
void consolidateSameDayMeetings(const std::shared_ptr<Person> &person, ModelContext &context);
// Creates the scratchpad when there is none, and folds surplus ones into the oldest.
void resolveScratchpad(const std::shared_ptr<Person> &person, ModelContext &context);
// Both, in that order.
void tidy(const std::shared_ptr<Person> &person, ModelContext &context);

} // namespace MeetingTimeline
