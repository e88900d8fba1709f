#include "Person.h"

#include "Meeting.h"
#include "RecordDefaults.h"
#include "core/Clock.h"
#include "core/store/ModelContext.h"

using namespace Qt::StringLiterals;

Person::Person(QString name_, QString role_, RelationshipType relationship_,
               std::optional<QString> email_)
    : id(QUuid::createUuid())
    , name(std::move(name_))
    , role(std::move(role_))
    , relationshipRaw(rawValue(relationship_))
    , email(email_ ? std::optional(email_->toLower()) : std::nullopt)
    , createdAt(Clock::now())
{
}

const Entity &Person::staticEntity()
{
    static const Entity entity =
        EntityBuilder<Person>(u"Person"_s)
            .attribute(u"id"_s, &Person::id, RecordDefaults::newId)
            .attribute(u"name"_s, &Person::name, RecordDefaults::emptyText)
            .attribute(u"role"_s, &Person::role, RecordDefaults::emptyText)
            .attribute(u"relationshipRaw"_s, &Person::relationshipRaw, RecordDefaults::absent)
            .attribute(u"email"_s, &Person::email, RecordDefaults::absent)
            .attribute(u"createdAt"_s, &Person::createdAt, RecordDefaults::now)
            .attribute(u"isPinned"_s, &Person::isPinned, RecordDefaults::no)
            .attribute(u"emoji"_s, &Person::emoji, RecordDefaults::absent)
            .cascade<Meeting>(u"meetings"_s, u"person"_s)
            .build();
    return entity;
}

RelationshipType Person::relationship() const
{
    return enumFromRawOrFallback<RelationshipType>(relationshipRaw.value_or(u"Other"_s));
}

void Person::setRelationship(RelationshipType value)
{
    relationshipRaw = rawValue(value);
}

QList<std::shared_ptr<Meeting>> Person::meetings() const
{
    if (!modelContext())
        return {};
    return modelContext()->tryFetch<Meeting>(
        {field(&Meeting::person) == this, {field(&Meeting::date).ascending()}, {}});
}
