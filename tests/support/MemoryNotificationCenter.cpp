#include "MemoryNotificationCenter.h"

void MemoryNotificationCenter::add(const Request &request)
{
    added.append(request);
    if (request.trigger.kind == Trigger::Kind::immediately) {
        m_schedule.remove({request.identifier});
        deliver(request);
    } else {
        m_schedule.add(request, Clock::now());
    }
}

void MemoryNotificationCenter::removePending(const QStringList &identifiers)
{
    removePendingCalls.append(identifiers);
    m_schedule.remove(identifiers);
}

QCoro::Task<QList<NotificationCenter::Delivered>> MemoryNotificationCenter::deliveredNotifications()
{
    co_return delivered;
}

void MemoryNotificationCenter::removeDelivered(const QStringList &identifiers)
{
    removeDeliveredCalls.append(identifiers);
    delivered.removeIf(
        [&](const Delivered &shown) { return identifiers.contains(shown.identifier); });
}

void MemoryNotificationCenter::fireDue()
{
    for (const Request &request : m_schedule.takeDue(Clock::now()))
        deliver(request);
}

void MemoryNotificationCenter::respond(const QString &identifier, const QString &action,
                                       const std::optional<QVariantMap> &userInfo)
{
    delivered.removeIf([&](const Delivered &shown) { return shown.identifier == identifier; });
    emit responded({identifier, action, userInfo.value_or(m_userInfo.value(identifier))});
}

void MemoryNotificationCenter::deliver(const Request &request)
{
    delivered.removeIf(
        [&](const Delivered &shown) { return shown.identifier == request.identifier; });
    delivered.append(
        {request.identifier, request.content.title, request.content.body, Clock::now()});
    m_userInfo.insert(request.identifier, request.content.userInfo);
    emit presented(request.identifier);
}
