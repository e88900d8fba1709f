#pragma once

#include "Enumerations.h"
#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

// A recap over any period, weekly or not.
class WeeklyBrief final : public Record {
public:
    struct Loading {};
    explicit WeeklyBrief(Loading) {}
    WeeklyBrief(QDateTime weekStart, QDateTime weekEnd, QString content, QString goalInsights,
                int entryCount, int daysLogged, BriefPeriod period = BriefPeriod::weekly);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QDateTime weekStart;
    QDateTime weekEnd;
    QString content;
    QString goalInsights; // JSON text
    int entryCount = 0;
    int daysLogged = 0;
    QString periodType;
    QDateTime createdAt;
    QDateTime updatedAt;

    // Weekly for anything but "Biweekly" and "Monthly".
    BriefPeriod period() const { return enumFromRawOrFallback<BriefPeriod>(periodType); }
};
