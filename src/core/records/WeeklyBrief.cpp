#include "WeeklyBrief.h"

#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

WeeklyBrief::WeeklyBrief(QDateTime weekStart_, QDateTime weekEnd_, QString content_,
                         QString goalInsights_, int entryCount_, int daysLogged_,
                         BriefPeriod period_)
    : id(QUuid::createUuid())
    , weekStart(std::move(weekStart_))
    , weekEnd(std::move(weekEnd_))
    , content(std::move(content_))
    , goalInsights(std::move(goalInsights_))
    , entryCount(entryCount_)
    , daysLogged(daysLogged_)
    , periodType(rawValue(period_))
    , createdAt(Clock::now())
    , updatedAt(createdAt)
{
}

const Entity &WeeklyBrief::staticEntity()
{
    static const Entity entity =
        EntityBuilder<WeeklyBrief>(u"WeeklyBrief"_s)
            .attribute(u"id"_s, &WeeklyBrief::id, RecordDefaults::newId)
            .attribute(u"weekStart"_s, &WeeklyBrief::weekStart, RecordDefaults::absent)
            .attribute(u"weekEnd"_s, &WeeklyBrief::weekEnd, RecordDefaults::absent)
            .attribute(u"content"_s, &WeeklyBrief::content, RecordDefaults::emptyText)
            .attribute(u"goalInsights"_s, &WeeklyBrief::goalInsights, RecordDefaults::emptyText)
            .attribute(u"entryCount"_s, &WeeklyBrief::entryCount, RecordDefaults::zero)
            .attribute(u"daysLogged"_s, &WeeklyBrief::daysLogged, RecordDefaults::zero)
            .attribute(u"periodType"_s, &WeeklyBrief::periodType, RecordDefaults::text("Weekly"))
            .attribute(u"createdAt"_s, &WeeklyBrief::createdAt, RecordDefaults::now)
            .attribute(u"updatedAt"_s, &WeeklyBrief::updatedAt, RecordDefaults::now)
            .build();
    return entity;
}
