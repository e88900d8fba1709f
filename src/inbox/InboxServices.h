#pragma once

#include <QObject>

#include <functional>
#include <memory>

class ModelContext;
class NotificationCenter;

// The inbox's long-lived pieces. The desktop notification centre is made on first use, so that
// reaching the session bus never delays the first page.
class InboxServices : public QObject {
    Q_OBJECT
public:
    using CenterFactory = std::function<std::unique_ptr<NotificationCenter>()>;

    explicit InboxServices(CenterFactory makeCenter, QObject *parent = nullptr);
    ~InboxServices() override;

    NotificationCenter &notifications();

    // Copies the banners the user never opened into the inbox; runs after the first page and
    // at every activation.
    void reconcileNotifications(ModelContext &context);

private:
    CenterFactory m_makeCenter;
    std::unique_ptr<NotificationCenter> m_center;
};
