#include "PerformanceReview.h"

#include "RecordDefaults.h"
#include "core/Clock.h"

using namespace Qt::StringLiterals;

PerformanceReview::PerformanceReview(QDateTime periodStart_, QDateTime periodEnd_,
                                     QString rangeLabel_, PerformanceFormat format_, QString title_,
                                     QString content_, int sourceBriefCount_, int entryCount_)
    : id(QUuid::createUuid())
    , periodStart(std::move(periodStart_))
    , periodEnd(std::move(periodEnd_))
    , rangeLabel(std::move(rangeLabel_))
    , formatRaw(rawValue(format_))
    , title(std::move(title_))
    , content(std::move(content_))
    , sourceBriefCount(sourceBriefCount_)
    , entryCount(entryCount_)
    , createdAt(Clock::now())
    , updatedAt(createdAt)
{
}

const Entity &PerformanceReview::staticEntity()
{
    static const Entity entity =
        EntityBuilder<PerformanceReview>(u"PerformanceReview"_s)
            .attribute(u"id"_s, &PerformanceReview::id, RecordDefaults::newId)
            .attribute(u"periodStart"_s, &PerformanceReview::periodStart, RecordDefaults::absent)
            .attribute(u"periodEnd"_s, &PerformanceReview::periodEnd, RecordDefaults::absent)
            .attribute(u"rangeLabel"_s, &PerformanceReview::rangeLabel, RecordDefaults::emptyText)
            .attribute(u"formatRaw"_s, &PerformanceReview::formatRaw, RecordDefaults::emptyText)
            .attribute(u"title"_s, &PerformanceReview::title, RecordDefaults::emptyText)
            .attribute(u"content"_s, &PerformanceReview::content, RecordDefaults::emptyText)
            .attribute(u"sourceBriefCount"_s, &PerformanceReview::sourceBriefCount,
                       RecordDefaults::zero)
            .attribute(u"entryCount"_s, &PerformanceReview::entryCount, RecordDefaults::zero)
            .attribute(u"createdAt"_s, &PerformanceReview::createdAt, RecordDefaults::now)
            .attribute(u"updatedAt"_s, &PerformanceReview::updatedAt, RecordDefaults::now)
            .build();
    return entity;
}
