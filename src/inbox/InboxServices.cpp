#include "InboxServices.h"

#include "NotificationMirror.h"
#include "platform/NotificationCenter.h"

InboxServices::InboxServices(CenterFactory makeCenter, QObject *parent)
    : QObject(parent)
    , m_makeCenter(std::move(makeCenter))
{
}

InboxServices::~InboxServices() = default;

NotificationCenter &InboxServices::notifications()
{
    if (!m_center)
        m_center = m_makeCenter();
    return *m_center;
}

void InboxServices::reconcileNotifications(ModelContext &context)
{
    NotificationMirror::reconcile(notifications(), context);
}
