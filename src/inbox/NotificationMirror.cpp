#include "NotificationMirror.h"

#include "core/records/InboxItem.h"
#include "core/store/ModelContext.h"
#include "platform/NotificationCenter.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace NotificationMirror {

bool mirror(const Snapshot &snapshot, ModelContext &context)
{
    const QString &identifier = snapshot.identifier;
    const QString payload =
        u"notif:"_s + identifier + u':' + QString::number(snapshot.date.toSecsSinceEpoch());
    qint64 existing = 0;
    try {
        existing = context.fetchCount<InboxItem>({field(&InboxItem::payload) == payload, {}, 1});
    } catch (const StoreError &) {
        return false;
    }
    if (existing > 0)
        return true;

    InboxItemKind kind = InboxItemKind::reminder;
    std::optional<QString> route = u"tab:journal"_s;
    if (identifier.startsWith(u"recap-ready"_s)) {
        kind = InboxItemKind::briefReady;
        route = u"tab:reviews"_s;
    } else if (identifier.startsWith(u"milestone"_s)) {
        kind = InboxItemKind::milestoneUnlocked;
        route.reset();
    } else if (identifier.startsWith(u"meeting-prep"_s)) {
        route = u"tab:people"_s;
    }
    auto item = std::make_shared<InboxItem>(kind, snapshot.title, snapshot.body, payload,
                                            std::nullopt, route);
    // The item dates from the banner, not from the moment it was copied.
    item->createdAt = snapshot.date;
    context.insert(item);
    context.trySave();
    return true;
}

QCoro::Task<> reconcile(NotificationCenter &center, ModelContext &context)
{
    const QPointer<NotificationCenter> alive(&center);
    const QList<NotificationCenter::Delivered> delivered = co_await center.deliveredNotifications();
    if (!alive)
        co_return;
    QStringList mirrored;
    for (const NotificationCenter::Delivered &notification : delivered) {
        if (mirror(
                {notification.identifier, notification.title, notification.body, notification.date},
                context))
            mirrored.append(notification.identifier);
    }
    if (!mirrored.isEmpty())
        center.removeDelivered(mirrored);
}

} // namespace NotificationMirror
