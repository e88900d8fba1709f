#include "EntryImage.h"

#include "DailyEntry.h"
#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

EntryImage::EntryImage(QByteArray imageData_, std::optional<QString> caption_,
                       std::shared_ptr<DailyEntry> entry_)
    : id(QUuid::createUuid())
    , imageData(std::move(imageData_))
    , caption(std::move(caption_))
    , entry(std::move(entry_))
    , createdAt(Clock::now())
{
}

const Entity &EntryImage::staticEntity()
{
    static const Entity entity =
        EntityBuilder<EntryImage>(u"EntryImage"_s)
            .attribute(u"id"_s, &EntryImage::id, RecordDefaults::newId)
            .attribute(u"imageData"_s, &EntryImage::imageData, RecordDefaults::absent)
            .attribute(u"caption"_s, &EntryImage::caption, RecordDefaults::absent)
            .attribute(u"entry"_s, &EntryImage::entry, RecordDefaults::absent)
            .attribute(u"createdAt"_s, &EntryImage::createdAt, RecordDefaults::now)
            .attribute(u"displayWidth"_s, &EntryImage::displayWidth, RecordDefaults::absent)
            .attribute(u"displayHeight"_s, &EntryImage::displayHeight, RecordDefaults::absent)
            .build();
    return entity;
}
