#pragma once

#include "platform/NotificationCenter.h"
#include "platform/NotificationSchedule.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QTimer>

#include <functional>
#include <optional>

// The notification centre over org.freedesktop.Notifications on the session bus. Every call is
// asynchronous and a missing service only means nobody sees the banner: the notification still
// counts as delivered. That service keeps no list we could ask for, so the delivered ones and
// the scheduled requests live in a file of our own in the data folder.
class DesktopNotificationCenter final : public NotificationCenter {
    Q_OBJECT
public:
    // Reads the file at `path`, by default in the data folder.
    explicit DesktopNotificationCenter(QObject *parent = nullptr);
    DesktopNotificationCenter(const QString &path, QObject *parent);

    static QString defaultPath();
    // Enough for weeks of banners nobody opened; the oldest go first.
    static constexpr qsizetype maxDelivered = 200;

    void setCategories(const QHash<QString, QList<Action>> &categories) override;
    void add(const Request &request) override;
    void removePending(const QStringList &identifiers) override;
    QList<Request> pendingRequests() const override;
    QCoro::Task<QList<Delivered>> deliveredNotifications() override;
    void removeDelivered(const QStringList &identifiers) override;

    // Shows every scheduled request that is due at Clock::now() and sets the timer for the next.
    void fireDue();

private slots:
    void onActionInvoked(uint id, const QString &actionKey, const QDBusMessage &message);
    void onNotificationClosed(uint id, uint reason, const QDBusMessage &message);

private:
    // A delivered notification, with what it takes to find it again on the server: the bus it
    // was shown on, the unique name of the server that answered and the id it gave.
    struct Logged {
        Delivered shown;
        QVariantMap userInfo;
        QString bus;
        QString server;
        uint serverId = 0;
        quint64 serial = 0; // this process only: matches the reply to its entry
    };
    struct Outgoing {
        quint64 serial;
        Content content;
    };

    void deliver(const Request &request);
    void load();
    void save();
    void arm();
    void askBusId();
    void askCapabilities();
    void flush();
    void sendOutbox();
    void onNotifyReply(quint64 serial, const QDBusMessage &reply);
    // Drops the entries that match and closes their banners where this bus still has them.
    bool drop(const std::function<bool(const Logged &)> &matches);
    void close(const QString &bus, const QString &server, uint serverId);
    qsizetype indexOfShown(uint serverId, const QString &server) const;
    void whenBusKnown(std::function<void()> work);

    QString m_path;
    QDBusConnection m_bus;
    QHash<QString, QList<Action>> m_categories;
    QList<Logged> m_delivered;
    NotificationSchedule m_schedule;
    QTimer m_timer;

    quint64 m_nextSerial = 1;
    // The bus's own id tells whether a saved server name still means the same server.
    std::optional<QString> m_busId;
    QList<std::function<void()>> m_waitingForBus;
    // Notify waits for the server's capabilities: with body markup, the body must be escaped.
    enum class Capabilities { unknown, asking, known };
    Capabilities m_capabilities = Capabilities::unknown;
    QString m_capabilitiesFrom;
    bool m_bodyMarkup = false;
    QList<Outgoing> m_outbox;
};
