#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <qcoro/qcorotask.h>

// The desktop's notification centre, reduced to the few operations Tovren asks of it: show a
// notification now or on a schedule, take scheduled ones back, list and remove the delivered
// ones the user has not dismissed, and hear which notification (or which of its buttons) the
// user clicked. The real one speaks to the desktop over D-Bus; tests use an in-memory one.
class NotificationCenter : public QObject {
    Q_OBJECT
public:
    // A button on a notification.
    struct Action {
        QString identifier; // e.g. "SNOOZE_ACTION"
        QString title;      // e.g. "Snooze"
    };

    struct Content {
        QString title;
        QString body;
        // Names a registered category; its actions become the notification's buttons.
        QString category;
        // Travels with the notification and comes back in the response.
        QVariantMap userInfo;
    };

    struct Trigger {
        enum class Kind {
            immediately,
            at,            // once, at `fireAt`
            afterInterval, // once, `seconds` after it was added
            weekly,        // every week at `weekday` (Sunday = 1), `hour`:`minute`, local time
        };
        Kind kind = Kind::immediately;
        QDateTime fireAt;
        qint64 seconds = 0;
        int weekday = 1;
        int hour = 0;
        int minute = 0;

        static Trigger now() { return {}; }
        static Trigger once(const QDateTime &when) { return {Kind::at, when, 0, 1, 0, 0}; }
        static Trigger after(qint64 seconds) { return {Kind::afterInterval, {}, seconds, 1, 0, 0}; }
        static Trigger everyWeek(int weekday, int hour, int minute)
        {
            return {Kind::weekly, {}, 0, weekday, hour, minute};
        }
    };

    // A request with the identifier of a pending one replaces it.
    struct Request {
        QString identifier;
        Content content;
        Trigger trigger;
    };

    // A notification that was shown and that the user has neither dismissed nor clicked.
    struct Delivered {
        QString identifier;
        QString title;
        QString body;
        QDateTime date;
    };

    // What the user did with a notification: clicked it (`defaultAction`) or one of its buttons.
    struct Response {
        QString identifier;
        QString actionIdentifier;
        QVariantMap userInfo;
    };
    static inline const QString defaultAction = QStringLiteral("default");

    using QObject::QObject;

    virtual void setCategories(const QHash<QString, QList<Action>> &categories) = 0;
    virtual void add(const Request &request) = 0;
    virtual void removePending(const QStringList &identifiers) = 0;
    virtual QList<Request> pendingRequests() const = 0;
    virtual QCoro::Task<QList<Delivered>> deliveredNotifications() = 0;
    virtual void removeDelivered(const QStringList &identifiers) = 0;

signals:
    // A notification was just shown (at once or when its time came).
    void presented(const QString &identifier);
    void responded(const NotificationCenter::Response &response);
};
