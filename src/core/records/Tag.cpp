#include "Tag.h"

#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

Tag::Tag(const QString &typedName)
    : name(typedName.toLower())
    , displayName(typedName)
    , createdAt(Clock::now())
{
}

const Entity &Tag::staticEntity()
{
    static const Entity entity =
        EntityBuilder<Tag>(u"Tag"_s)
            .attribute(u"name"_s, &Tag::name, RecordDefaults::newId)
            .attribute(u"displayName"_s, &Tag::displayName, RecordDefaults::emptyText)
            .attribute(u"createdAt"_s, &Tag::createdAt, RecordDefaults::now)
            .build();
    return entity;
}
