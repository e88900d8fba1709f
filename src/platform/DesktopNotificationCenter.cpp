#include "platform/DesktopNotificationCenter.h"

#include "core/DataLocations.h"

#include <QDBusPendingCallWatcher>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <unistd.h>

using namespace Qt::StringLiterals;
using Kind = NotificationCenter::Trigger::Kind;

namespace {

const QString notificationsService = u"org.freedesktop.Notifications"_s;
const QString notificationsPath = u"/org/freedesktop/Notifications"_s;
const QString notificationsInterface = u"org.freedesktop.Notifications"_s;
// The installed .desktop file and icon theme entry.
const QString appId = u"tovren"_s;

// Anything bigger was not written by us.
constexpr qint64 maxFileSize = 4 * 1024 * 1024;
constexpr int maxArmMilliseconds = 5 * 60 * 1000;

constexpr uint closedByUser = 2;
constexpr uint closedByCall = 3;

// Servers with body markup read "&" and "<" as markup; a meeting called "Q&A" must survive.
QString escapedMarkup(const QString &text)
{
    QString escaped;
    escaped.reserve(text.size());
    for (const QChar c : text) {
        if (c == u'&')
            escaped += u"&amp;"_s;
        else if (c == u'<')
            escaped += u"&lt;"_s;
        else if (c == u'>')
            escaped += u"&gt;"_s;
        else
            escaped += c;
    }
    return escaped;
}

QString dateText(const QDateTime &date)
{
    return date.toUTC().toString(Qt::ISODateWithMs);
}

std::optional<QDateTime> dateFrom(const QJsonValue &value)
{
    if (!value.isString())
        return std::nullopt;
    QDateTime date = QDateTime::fromString(value.toString(), Qt::ISODateWithMs);
    if (!date.isValid())
        return std::nullopt;
    return date.toUTC();
}

std::optional<QString> textFrom(const QJsonValue &value, bool allowEmpty = true)
{
    if (!value.isString() || (!allowEmpty && value.toString().isEmpty()))
        return std::nullopt;
    return value.toString();
}

std::optional<qint64> integerFrom(const QJsonValue &value, qint64 low, qint64 high)
{
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (!std::isfinite(number) || number != std::floor(number) || number < double(low) ||
        number > double(high))
        return std::nullopt;
    return qint64(number);
}

QString kindName(Kind kind)
{
    switch (kind) {
    case Kind::at:
        return u"at"_s;
    case Kind::afterInterval:
        return u"afterInterval"_s;
    case Kind::weekly:
        return u"weekly"_s;
    case Kind::immediately:
        break;
    }
    return u"immediately"_s;
}

std::optional<Kind> kindFrom(const QJsonValue &value)
{
    for (Kind kind : {Kind::at, Kind::afterInterval, Kind::weekly})
        if (value.isString() && value.toString() == kindName(kind))
            return kind;
    return std::nullopt;
}

QJsonObject requestJson(const NotificationCenter::Request &request)
{
    const NotificationCenter::Trigger &trigger = request.trigger;
    QJsonObject json{
        {u"identifier"_s, request.identifier},
        {u"title"_s, request.content.title},
        {u"body"_s, request.content.body},
        {u"category"_s, request.content.category},
        {u"userInfo"_s, QJsonObject::fromVariantMap(request.content.userInfo)},
        {u"kind"_s, kindName(trigger.kind)},
    };
    if (trigger.kind == Kind::weekly) {
        json.insert(u"weekday"_s, trigger.weekday);
        json.insert(u"hour"_s, trigger.hour);
        json.insert(u"minute"_s, trigger.minute);
    } else {
        json.insert(u"fireAt"_s, dateText(trigger.fireAt));
        json.insert(u"seconds"_s, double(trigger.seconds));
    }
    return json;
}

std::optional<NotificationCenter::Request> requestFrom(const QJsonValue &value)
{
    const QJsonObject json = value.toObject();
    const auto identifier = textFrom(json.value(u"identifier"_s), false);
    const auto title = textFrom(json.value(u"title"_s));
    const auto body = textFrom(json.value(u"body"_s));
    const auto category = textFrom(json.value(u"category"_s));
    const auto kind = kindFrom(json.value(u"kind"_s));
    if (!identifier || !title || !body || !category || !kind)
        return std::nullopt;
    NotificationCenter::Request request;
    request.identifier = *identifier;
    request.content = {*title, *body, *category,
                       json.value(u"userInfo"_s).toObject().toVariantMap()};
    request.trigger.kind = *kind;
    if (*kind == Kind::weekly) {
        const auto weekday = integerFrom(json.value(u"weekday"_s), 1, 7);
        const auto hour = integerFrom(json.value(u"hour"_s), 0, 23);
        const auto minute = integerFrom(json.value(u"minute"_s), 0, 59);
        if (!weekday || !hour || !minute)
            return std::nullopt;
        request.trigger =
            NotificationCenter::Trigger::everyWeek(int(*weekday), int(*hour), int(*minute));
    } else {
        const auto fireAt = dateFrom(json.value(u"fireAt"_s));
        const auto seconds =
            integerFrom(json.value(u"seconds"_s), 0, std::numeric_limits<int>::max());
        if (!fireAt || !seconds)
            return std::nullopt;
        request.trigger.fireAt = *fireAt;
        request.trigger.seconds = *seconds;
    }
    return request;
}

} // namespace

DesktopNotificationCenter::DesktopNotificationCenter(QObject *parent)
    : DesktopNotificationCenter(defaultPath(), parent)
{
}

DesktopNotificationCenter::DesktopNotificationCenter(const QString &path, QObject *parent)
    : NotificationCenter(parent)
    , m_path(path)
    , m_bus(QDBusConnection::sessionBus())
{
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &DesktopNotificationCenter::fireDue);

    load();
    // Signals are matched by path and interface only; the sender's unique name, kept with each
    // id, tells whose ids they are, and no other program can click our notifications for us.
    m_bus.connect(QString(), notificationsPath, notificationsInterface, u"ActionInvoked"_s, this,
                  SLOT(onActionInvoked(uint, QString, QDBusMessage)));
    m_bus.connect(QString(), notificationsPath, notificationsInterface, u"NotificationClosed"_s,
                  this, SLOT(onNotificationClosed(uint, uint, QDBusMessage)));
    askBusId();
    arm();
}

QString DesktopNotificationCenter::defaultPath()
{
    return DataLocations::dataRoot() + u"/Tovren/Notifications.json"_s;
}

void DesktopNotificationCenter::setCategories(const QHash<QString, QList<Action>> &categories)
{
    m_categories = categories;
    save();
}

void DesktopNotificationCenter::add(const Request &request)
{
    if (request.trigger.kind == Kind::immediately) {
        if (m_schedule.remove({request.identifier}))
            arm();
        deliver(request);
        return;
    }
    if (!m_schedule.add(request, Clock::now()))
        return;
    save();
    arm();
}

void DesktopNotificationCenter::removePending(const QStringList &identifiers)
{
    if (!m_schedule.remove(identifiers))
        return;
    save();
    arm();
}

QList<NotificationCenter::Request> DesktopNotificationCenter::pendingRequests() const
{
    return m_schedule.requests();
}

QCoro::Task<QList<NotificationCenter::Delivered>>
DesktopNotificationCenter::deliveredNotifications()
{
    QList<Delivered> result;
    result.reserve(m_delivered.size());
    for (const Logged &entry : std::as_const(m_delivered))
        result.append(entry.shown);
    co_return result;
}

void DesktopNotificationCenter::removeDelivered(const QStringList &identifiers)
{
    if (drop([&](const Logged &entry) { return identifiers.contains(entry.shown.identifier); }))
        save();
}

void DesktopNotificationCenter::fireDue()
{
    const qsizetype before = m_schedule.requests().size();
    const QList<Request> due = m_schedule.takeDue(Clock::now());
    if (m_schedule.requests().size() != before)
        save();
    for (const Request &request : due)
        deliver(request);
    arm();
}

void DesktopNotificationCenter::deliver(const Request &request)
{
    // A newer notification with the same identifier takes the place of the older one.
    drop([&](const Logged &entry) { return entry.shown.identifier == request.identifier; });
    Logged entry;
    entry.shown = {request.identifier, request.content.title, request.content.body, Clock::now()};
    entry.userInfo = request.content.userInfo;
    entry.serial = m_nextSerial++;
    m_delivered.append(entry);
    while (m_delivered.size() > maxDelivered)
        m_delivered.removeFirst();
    save();

    m_outbox.append({entry.serial, request.content});
    flush();
    emit presented(request.identifier);
}

bool DesktopNotificationCenter::drop(const std::function<bool(const Logged &)> &matches)
{
    QList<Logged> kept;
    bool dropped = false;
    for (Logged &entry : m_delivered) {
        if (!matches(entry)) {
            kept.append(std::move(entry));
            continue;
        }
        dropped = true;
        // Sent but not answered yet: the reply finds its entry gone and closes the banner then.
        if (entry.serverId != 0)
            close(entry.bus, entry.server, entry.serverId);
        m_outbox.removeIf([&](const Outgoing &waiting) { return waiting.serial == entry.serial; });
    }
    m_delivered = std::move(kept);
    return dropped;
}

void DesktopNotificationCenter::close(const QString &bus, const QString &server, uint serverId)
{
    if (!m_busId) {
        whenBusKnown([this, bus, server, serverId] { close(bus, server, serverId); });
        return;
    }
    // A unique name is never given twice on one bus, so the same bus and name mean the server
    // that gave this id; on another bus the id may be someone else's notification.
    if (bus.isEmpty() || bus != *m_busId || server.isEmpty())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        server, notificationsPath, notificationsInterface, u"CloseNotification"_s);
    call << serverId;
    m_bus.asyncCall(call);
}

qsizetype DesktopNotificationCenter::indexOfShown(uint serverId, const QString &server) const
{
    if (!m_busId || serverId == 0)
        return -1;
    for (qsizetype i = 0; i < m_delivered.size(); ++i) {
        const Logged &entry = m_delivered[i];
        if (entry.serverId == serverId && entry.server == server && entry.bus == *m_busId)
            return i;
    }
    return -1;
}

void DesktopNotificationCenter::onActionInvoked(uint id, const QString &actionKey,
                                                const QDBusMessage &message)
{
    if (!m_busId) {
        whenBusKnown([=, this] { onActionInvoked(id, actionKey, message); });
        return;
    }
    const qsizetype index = indexOfShown(id, message.service());
    if (index < 0)
        return;
    const Logged entry = m_delivered.takeAt(index);
    save();
    emit responded({entry.shown.identifier, actionKey, entry.userInfo});
}

void DesktopNotificationCenter::onNotificationClosed(uint id, uint reason,
                                                     const QDBusMessage &message)
{
    // An expired banner went to the desktop's list, where the user has yet to see it.
    if (reason != closedByUser && reason != closedByCall)
        return;
    if (!m_busId) {
        whenBusKnown([=, this] { onNotificationClosed(id, reason, message); });
        return;
    }
    const qsizetype index = indexOfShown(id, message.service());
    if (index < 0)
        return;
    m_delivered.removeAt(index);
    save();
}

// Signals and closes that come before the bus's id wait for it: only then do saved ids mean
// anything.
void DesktopNotificationCenter::whenBusKnown(std::function<void()> work)
{
    if (m_busId)
        work();
    else
        m_waitingForBus.append(std::move(work));
}

void DesktopNotificationCenter::askBusId()
{
    const QDBusMessage call =
        QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                       u"org.freedesktop.DBus"_s, u"GetId"_s);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher *answer) {
                answer->deleteLater();
                const QDBusMessage reply = answer->reply();
                m_busId = reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty()
                              ? reply.arguments().constFirst().toString()
                              : QString();
                for (const auto &work : std::exchange(m_waitingForBus, {}))
                    work();
                flush();
            });
}

void DesktopNotificationCenter::askCapabilities()
{
    m_capabilities = Capabilities::asking;
    const QDBusMessage call = QDBusMessage::createMethodCall(
        notificationsService, notificationsPath, notificationsInterface, u"GetCapabilities"_s);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(
        watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *answer) {
            answer->deleteLater();
            const QDBusMessage reply = answer->reply();
            const bool answered =
                reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty();
            // Without an answer the next notification asks again: a server may start later.
            m_capabilities = answered ? Capabilities::known : Capabilities::unknown;
            m_capabilitiesFrom = answered ? reply.service() : QString();
            m_bodyMarkup = answered &&
                           reply.arguments().constFirst().toStringList().contains(u"body-markup"_s);
            sendOutbox();
        });
}

void DesktopNotificationCenter::flush()
{
    if (!m_busId || m_outbox.isEmpty() || m_capabilities == Capabilities::asking)
        return;
    if (m_capabilities == Capabilities::unknown)
        askCapabilities();
    else
        sendOutbox();
}

void DesktopNotificationCenter::sendOutbox()
{
    for (const Outgoing &outgoing : std::exchange(m_outbox, {})) {
        const Content &content = outgoing.content;
        QStringList actions{NotificationCenter::defaultAction, u"Open"_s};
        for (const Action &action : m_categories.value(content.category))
            actions << action.identifier << action.title;
        const QVariantMap hints{
            {u"desktop-entry"_s, appId},
            {u"urgency"_s, QVariant::fromValue(uchar(1))},
        };
        QDBusMessage call = QDBusMessage::createMethodCall(notificationsService, notificationsPath,
                                                           notificationsInterface, u"Notify"_s);
        call << u"Tovren"_s << uint(0) << appId << content.title
             << (m_bodyMarkup ? escapedMarkup(content.body) : content.body) << actions << hints
             << int(-1);
        auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this, serial = outgoing.serial](QDBusPendingCallWatcher *answer) {
                    answer->deleteLater();
                    onNotifyReply(serial, answer->reply());
                });
    }
}

void DesktopNotificationCenter::onNotifyReply(quint64 serial, const QDBusMessage &reply)
{
    const bool answered = reply.type() == QDBusMessage::ReplyMessage &&
                          !reply.arguments().isEmpty() &&
                          reply.arguments().constFirst().canConvert<uint>();
    // Nobody showed it; it stays delivered, and the next notification asks who is there now.
    if (!answered || reply.service() != m_capabilitiesFrom)
        m_capabilities = Capabilities::unknown;
    if (!answered)
        return;
    const uint serverId = reply.arguments().constFirst().toUInt();
    const QString bus = m_busId.value_or(QString());
    for (Logged &entry : m_delivered) {
        if (entry.serial == serial) {
            entry.bus = bus;
            entry.server = reply.service();
            entry.serverId = serverId;
            save();
            return;
        }
    }
    // Removed before the server answered.
    close(bus, reply.service(), serverId);
}

void DesktopNotificationCenter::arm()
{
    const std::optional<QDateTime> next = m_schedule.nextDue();
    if (!next) {
        m_timer.stop();
        return;
    }
    // A timer doesn't count time spent suspended, and the clock may be set: look again every
    // few minutes rather than trust one long wait.
    const qint64 wait = std::clamp<qint64>(Clock::now().msecsTo(*next), 0, maxArmMilliseconds);
    m_timer.start(int(wait));
}

void DesktopNotificationCenter::load()
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > maxFileSize)
        return;
    // A damaged file, or one somebody else wrote, is read as far as it makes sense.
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();

    const QJsonObject categories = root.value(u"categories"_s).toObject();
    for (auto it = categories.begin(); it != categories.end(); ++it) {
        QList<Action> actions;
        for (const QJsonValue &value : it.value().toArray()) {
            const auto identifier = textFrom(value[u"identifier"_s], false);
            const auto title = textFrom(value[u"title"_s]);
            if (identifier && title)
                actions.append({*identifier, *title});
        }
        m_categories.insert(it.key(), actions);
    }

    for (const QJsonValue &value : root.value(u"delivered"_s).toArray()) {
        const auto identifier = textFrom(value[u"identifier"_s], false);
        const auto title = textFrom(value[u"title"_s]);
        const auto body = textFrom(value[u"body"_s]);
        const auto date = dateFrom(value[u"date"_s]);
        if (!identifier || !title || !body || !date)
            continue;
        Logged entry;
        entry.shown = {*identifier, *title, *body, *date};
        entry.userInfo = value[u"userInfo"_s].toObject().toVariantMap();
        const auto serverId =
            integerFrom(value[u"serverId"_s], 1, std::numeric_limits<uint>::max());
        const auto bus = textFrom(value[u"bus"_s], false);
        const auto server = textFrom(value[u"server"_s], false);
        if (serverId && bus && server) {
            entry.bus = *bus;
            entry.server = *server;
            entry.serverId = uint(*serverId);
        }
        m_delivered.append(entry);
    }
    if (m_delivered.size() > maxDelivered)
        m_delivered.remove(0, m_delivered.size() - maxDelivered);

    const QDateTime now = Clock::now();
    bool dropped = false;
    for (const QJsonValue &value : root.value(u"pending"_s).toArray()) {
        const auto request = requestFrom(value);
        if (!request || !m_schedule.restore(*request, now))
            dropped = true;
    }
    if (dropped)
        save();
}

void DesktopNotificationCenter::save()
{
    QJsonArray delivered;
    for (const Logged &entry : std::as_const(m_delivered)) {
        QJsonObject json{
            {u"identifier"_s, entry.shown.identifier},
            {u"title"_s, entry.shown.title},
            {u"body"_s, entry.shown.body},
            {u"date"_s, dateText(entry.shown.date)},
            {u"userInfo"_s, QJsonObject::fromVariantMap(entry.userInfo)},
        };
        if (entry.serverId != 0) {
            json.insert(u"bus"_s, entry.bus);
            json.insert(u"server"_s, entry.server);
            json.insert(u"serverId"_s, double(entry.serverId));
        }
        delivered.append(json);
    }
    QJsonArray pending;
    for (const Request &request : m_schedule.requests())
        pending.append(requestJson(request));
    QJsonObject categories;
    for (auto it = m_categories.cbegin(); it != m_categories.cend(); ++it) {
        QJsonArray actions;
        for (const Action &action : it.value())
            actions.append(
                QJsonObject{{u"identifier"_s, action.identifier}, {u"title"_s, action.title}});
        categories.insert(it.key(), actions);
    }
    const QByteArray bytes = QJsonDocument(QJsonObject{{u"delivered"_s, delivered},
                                                       {u"pending"_s, pending},
                                                       {u"categories"_s, categories}})
                                 .toJson(QJsonDocument::Compact);

    const QString folder = QFileInfo(m_path).absolutePath();
    if (!QFileInfo::exists(folder)) {
        if (!QDir().mkpath(folder))
            return;
        QFile::setPermissions(folder, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                          QFileDevice::ExeOwner);
    }
    QSaveFile file(m_path);
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    // A failed write keeps the last good file; the notifications themselves carry on in memory.
    if (file.write(bytes) == bytes.size() && file.flush() && ::fsync(file.handle()) == 0)
        file.commit();
}
