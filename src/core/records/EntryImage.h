#pragma once

#include "core/store/Entity.h"

#include <QDateTime>
#include <QUuid>

#include <optional>

class DailyEntry;

// An image attached to a page; the page's text names it with an {{img:UUID}} token.
class EntryImage final : public Record {
public:
    struct Loading {};
    explicit EntryImage(Loading) {}
    EntryImage(QByteArray imageData, std::optional<QString> caption,
               std::shared_ptr<DailyEntry> entry);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    ExternalBytes imageData; // kept out of the table, read when asked for
    std::optional<QString> caption;
    std::shared_ptr<DailyEntry> entry;
    QDateTime createdAt;
    std::optional<double> displayWidth;
    std::optional<double> displayHeight;
};
