#pragma once

#include "Enumerations.h"
#include "core/store/Entity.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

#include <optional>

// One row of the inbox: something Tovren had to say, kept after its banner is gone.
class InboxItem final : public Record {
public:
    struct Loading {};
    explicit InboxItem(Loading) {}
    InboxItem(InboxItemKind kind, QString title, QString body,
              std::optional<QString> payload = std::nullopt,
              std::optional<QString> actionLabel = std::nullopt,
              std::optional<QString> actionRoute = std::nullopt);

    static const Entity &staticEntity();
    const Entity &entity() const override { return staticEntity(); }

    QUuid id;
    QString kindRaw;
    QString title;
    QString body;
    QDateTime createdAt;
    std::optional<QDateTime> readAt; // unread while absent
    std::optional<QString> payload;  // the poster's key against posting twice
    std::optional<QString> actionLabel;
    std::optional<QString> actionRoute; // e.g. "tab:library"

    // "system" for a word this version doesn't know.
    InboxItemKind kind() const { return enumFromRawOrFallback<InboxItemKind>(kindRaw); }
};
