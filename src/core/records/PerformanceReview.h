#pragma once

#include "Enumerations.h"
#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

// A generated performance review draft.
class PerformanceReview final : public Record {
public:
    struct Loading {};
    explicit PerformanceReview(Loading) {}
    PerformanceReview(QDateTime periodStart, QDateTime periodEnd, QString rangeLabel,
                      PerformanceFormat format, QString title, QString content,
                      int sourceBriefCount, int entryCount);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QDateTime periodStart;
    QDateTime periodEnd;
    QString rangeLabel;
    QString formatRaw;
    QString title;
    QString content;
    int sourceBriefCount = 0;
    int entryCount = 0;
    QDateTime createdAt;
    QDateTime updatedAt;

    // STAR Impact for anything but "Competencies" and "Narrative".
    PerformanceFormat format() const { return enumFromRawOrFallback<PerformanceFormat>(formatRaw); }
};
