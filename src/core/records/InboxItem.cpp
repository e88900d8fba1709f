#include "InboxItem.h"

#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

InboxItem::InboxItem(InboxItemKind kind_, QString title_, QString body_,
                     std::optional<QString> payload_, std::optional<QString> actionLabel_,
                     std::optional<QString> actionRoute_)
    : id(QUuid::createUuid())
    , kindRaw(rawValue(kind_))
    , title(std::move(title_))
    , body(std::move(body_))
    , createdAt(Clock::now())
    , payload(std::move(payload_))
    , actionLabel(std::move(actionLabel_))
    , actionRoute(std::move(actionRoute_))
{
}

const Entity &InboxItem::staticEntity()
{
    static const Entity entity =
        EntityBuilder<InboxItem>(u"InboxItem"_s)
            .attribute(u"id"_s, &InboxItem::id, RecordDefaults::newId)
            .attribute(u"kindRaw"_s, &InboxItem::kindRaw, RecordDefaults::text("system"))
            .attribute(u"title"_s, &InboxItem::title, RecordDefaults::emptyText)
            .attribute(u"body"_s, &InboxItem::body, RecordDefaults::emptyText)
            .attribute(u"createdAt"_s, &InboxItem::createdAt, RecordDefaults::now, true)
            .attribute(u"readAt"_s, &InboxItem::readAt, RecordDefaults::absent, true)
            .attribute(u"payload"_s, &InboxItem::payload, RecordDefaults::absent, true)
            .attribute(u"actionLabel"_s, &InboxItem::actionLabel, RecordDefaults::absent)
            .attribute(u"actionRoute"_s, &InboxItem::actionRoute, RecordDefaults::absent)
            .build();
    return entity;
}
