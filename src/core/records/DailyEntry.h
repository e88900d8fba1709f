#pragma once

#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

class EntryImage;

// One journal page: the stored text of one day.
class DailyEntry final : public Record {
public:
    struct Loading {};
    explicit DailyEntry(Loading) {}
    DailyEntry(QString content, QDateTime date, bool isWin);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QDateTime date;
    QString content;
    QString deviceId;
    bool isWin = false;
    std::optional<QString> summary;
    std::optional<QDateTime> summaryGeneratedAt;
    std::optional<qint64> summarizedContentHash;
    QDateTime createdAt;
    QDateTime updatedAt;

    // The page's images, through the context it belongs to; deleting the page deletes them.
    QList<std::shared_ptr<EntryImage>> images() const;

    // The summary no longer describes the text. The hash is seeded afresh in every process, so
    // after a relaunch every summary reads as stale and is refreshed at the first chance.
    bool isSummaryStale() const;
    static qint64 contentHash(const QString &content);
};
