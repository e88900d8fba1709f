#pragma once

#include "platform/NotificationCenter.h"
#include "platform/NotificationSchedule.h"

#include <optional>

// A notification centre in memory. Tests see every request added, fill and read the delivered
// list, play the user's click with respond(), and run the schedule with fireDue() under the
// settable clock, which fires at the same instants as the desktop centre.
class MemoryNotificationCenter final : public NotificationCenter {
public:
    using NotificationCenter::NotificationCenter;

    QHash<QString, QList<Action>> categories;
    QList<Request> added;
    QList<Delivered> delivered;
    QList<QStringList> removeDeliveredCalls;
    QList<QStringList> removePendingCalls;

    void setCategories(const QHash<QString, QList<Action>> &value) override { categories = value; }
    void add(const Request &request) override;
    void removePending(const QStringList &identifiers) override;
    QList<Request> pendingRequests() const override { return m_schedule.requests(); }
    QCoro::Task<QList<Delivered>> deliveredNotifications() override;
    void removeDelivered(const QStringList &identifiers) override;

    // Delivers what is due at Clock::now().
    void fireDue();
    // The user clicks the notification (or one of its buttons). The userInfo, unless given, is
    // that of the last request delivered under the identifier.
    void respond(const QString &identifier, const QString &action = defaultAction,
                 const std::optional<QVariantMap> &userInfo = std::nullopt);

private:
    void deliver(const Request &request);

    NotificationSchedule m_schedule;
    QHash<QString, QVariantMap> m_userInfo;
};
