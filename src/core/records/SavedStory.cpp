#include "SavedStory.h"

#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

SavedStory::SavedStory(QString title_, QString competency_, QString content_)
    : id(QUuid::createUuid())
    , title(std::move(title_))
    , competency(std::move(competency_))
    , content(std::move(content_))
    , createdAt(Clock::now())
    , updatedAt(createdAt)
{
}

const Entity &SavedStory::staticEntity()
{
    static const Entity entity =
        EntityBuilder<SavedStory>(u"SavedStory"_s)
            .attribute(u"id"_s, &SavedStory::id, RecordDefaults::newId)
            .attribute(u"title"_s, &SavedStory::title, RecordDefaults::emptyText)
            .attribute(u"competency"_s, &SavedStory::competency, RecordDefaults::emptyText)
            .attribute(u"content"_s, &SavedStory::content, RecordDefaults::emptyText)
            .attribute(u"createdAt"_s, &SavedStory::createdAt, RecordDefaults::now)
            .attribute(u"updatedAt"_s, &SavedStory::updatedAt, RecordDefaults::now)
            .build();
    return entity;
}
