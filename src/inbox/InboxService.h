#pragma once

#include "core/records/Enumerations.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <memory>
#include <optional>

class InboxItem;
class ModelContext;
class Preferences;

// The rules every part of Tovren follows when it leaves something in the inbox, and the inbox's
// own housekeeping. Nothing here reports an error: a failed fetch or save only means a nudge is
// not stored, and the caller goes on.
namespace InboxService {

// Every producer posts through here. With a `window`, posting stops when an item with the same
// payload was made within that many seconds. Returns the new item, or none for a duplicate.
std::shared_ptr<InboxItem> post(ModelContext &context, InboxItemKind kind, const QString &title,
                                const QString &body,
                                const std::optional<QString> &payload = std::nullopt,
                                const std::optional<QString> &actionLabel = std::nullopt,
                                const std::optional<QString> &actionRoute = std::nullopt,
                                std::optional<qint64> window = std::nullopt);

// An item with exactly this payload made at or after now minus `within` seconds. A store that
// can't answer says no: a storage error never silences a nudge.
bool isDuplicate(const QString &payload, qint64 within, ModelContext &context);

// Removes read items made more than `olderThan` calendar days ago; unread ones stay for ever.
void pruneOld(ModelContext &context, int olderThan);
void markAllRead(ModelContext &context);
// Once per store: drops the items of a feature that no longer exists.
void purgeRetiredFeatures(ModelContext &context, Preferences &preferences);

qint64 unreadCount(ModelContext &context);

// The words and icons of the kinds, in the order of InboxItemKind.
QString kindLabel(InboxItemKind kind);     // "Reminder", "Review", …
QString iconName(InboxItemKind kind);      // the symbol name: "bell", "doc.text", …
QString themeIconName(InboxItemKind kind); // the desktop icon theme's name for it

// The list as the inbox shows it: newest first, in up to four sections.
struct Section {
    QString title; // "Today", "Yesterday", "Earlier this week", "Earlier"
    QList<std::shared_ptr<InboxItem>> items;
};
QList<Section> group(QList<std::shared_ptr<InboxItem>> items, const QDateTime &now);

} // namespace InboxService
