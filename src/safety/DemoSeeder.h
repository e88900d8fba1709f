#pragma once

#include <QList>

#include <memory>

class ModelContext;
class Person;

// The sample journal of demo mode: a small cast of fictional colleagues and their 1:1s, pages on
// the weekdays just before today, tags, tasks, goals, recaps, stories, a library with a profile,
// and an inbox, so that every screen has something to show. Dates count back from today, so the
// journal looks current whenever it is opened. Nothing here saves; the caller does.
namespace DemoSeeder {

// All of it, in the order below.
void seed(ModelContext &context);

QList<std::shared_ptr<Person>> seedPeople(ModelContext &context);
void seedMeetings(ModelContext &context, const QList<std::shared_ptr<Person>> &people);
void seedEntries(ModelContext &context);
// The tags the pages use, through the same registry the page editor feeds.
void seedTags(ModelContext &context);
void seedTasks(ModelContext &context);
void seedGoals(ModelContext &context);
void seedRecaps(ModelContext &context);
void seedStories(ModelContext &context);
void seedDocuments(ModelContext &context);
void seedInbox(ModelContext &context);

} // namespace DemoSeeder
