#include "DailyEntry.h"

#include "EntryImage.h"
#include "RecordDefaults.h"
#include "core/Clock.h"
#include "core/store/ModelContext.h"

#include <QHash>

using namespace Qt::StringLiterals;

DailyEntry::DailyEntry(QString content_, QDateTime date_, bool isWin_)
    : id(QUuid::createUuid())
    , date(std::move(date_))
    , content(std::move(content_))
    , deviceId(RecordDefaults::localDeviceName())
    , isWin(isWin_)
    , createdAt(Clock::now())
    , updatedAt(createdAt)
{
}

const Entity &DailyEntry::staticEntity()
{
    static const Entity entity =
        EntityBuilder<DailyEntry>(u"DailyEntry"_s)
            .attribute(u"id"_s, &DailyEntry::id, RecordDefaults::newId)
            .attribute(u"date"_s, &DailyEntry::date, RecordDefaults::absent, true)
            .attribute(u"content"_s, &DailyEntry::content, RecordDefaults::emptyText)
            .attribute(u"deviceId"_s, &DailyEntry::deviceId, RecordDefaults::deviceName)
            .attribute(u"isWin"_s, &DailyEntry::isWin, RecordDefaults::no)
            .attribute(u"summary"_s, &DailyEntry::summary, RecordDefaults::absent)
            .attribute(u"summaryGeneratedAt"_s, &DailyEntry::summaryGeneratedAt,
                       RecordDefaults::absent)
            .attribute(u"summarizedContentHash"_s, &DailyEntry::summarizedContentHash,
                       RecordDefaults::absent)
            .attribute(u"createdAt"_s, &DailyEntry::createdAt, RecordDefaults::now)
            .attribute(u"updatedAt"_s, &DailyEntry::updatedAt, RecordDefaults::now)
            .cascade<EntryImage>(u"images"_s, u"entry"_s)
            .build();
    return entity;
}

QList<std::shared_ptr<EntryImage>> DailyEntry::images() const
{
    if (!modelContext())
        return {};
    return modelContext()->tryFetch<EntryImage>(
        {field(&EntryImage::entry) == this, {field(&EntryImage::createdAt).ascending()}, {}});
}

qint64 DailyEntry::contentHash(const QString &text)
{
    // Salted with the process's random seed (qHash alone is unseeded), so a stored hash only
    // matches in the process that wrote it.
    const size_t h = qHash(text, QHashSeed::globalSeed());
    return static_cast<qint64>(static_cast<quint64>(h));
}

bool DailyEntry::isSummaryStale() const
{
    if (!summaryGeneratedAt)
        return true;
    if (!summarizedContentHash)
        return true;
    return *summarizedContentHash != contentHash(content.trimmed());
}
