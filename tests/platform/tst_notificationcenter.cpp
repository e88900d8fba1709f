#include "PrivateSession.h"
#include "TestSupport.h"
#include "platform/DesktopNotificationCenter.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <qcoro/qcorotask.h>

#include <memory>

using namespace Qt::StringLiterals;
using Trigger = NotificationCenter::Trigger;
Q_DECLARE_METATYPE(NotificationCenter::Trigger)

namespace {

const QString serviceName = u"org.freedesktop.Notifications"_s;
const QString objectPath = u"/org/freedesktop/Notifications"_s;
const QString dailyReminder = u"DAILY_REMINDER"_s;

QDateTime berlin(int year, int month, int day, int hour, int minute)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute), QTimeZone("Europe/Berlin"));
}

NotificationCenter::Request request(const QString &identifier, Trigger trigger = Trigger::now(),
                                    const QString &category = {}, const QVariantMap &userInfo = {},
                                    const QString &body = u"Open Tovren to capture it."_s)
{
    return {identifier, {u"Title of "_s + identifier, body, category, userInfo}, trigger};
}

QStringList identifiers(const QList<NotificationCenter::Delivered> &delivered)
{
    QStringList result;
    for (const auto &shown : delivered)
        result.append(shown.identifier);
    return result;
}

QStringList identifiers(const QList<NotificationCenter::Request> &requests)
{
    QStringList result;
    for (const auto &request : requests)
        result.append(request.identifier);
    return result;
}

QList<NotificationCenter::Delivered> deliveredBy(NotificationCenter &center)
{
    return QCoro::waitFor(center.deliveredNotifications());
}

QString busId()
{
    const QDBusMessage reply = QDBusConnection::sessionBus().call(
        QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s,
                                       u"org.freedesktop.DBus"_s, u"GetId"_s));
    return reply.arguments().value(0).toString();
}

} // namespace

// A notification server of the test's own, on its own connection to the private bus.
class FakeNotifications : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    struct Shown {
        uint id;
        QString appName;
        uint replacesId;
        QString icon;
        QString summary;
        QString body;
        QStringList actions;
        QVariantMap hints;
        int timeout;
    };
    QList<Shown> shown;
    QList<uint> closeCalls;
    QStringList capabilities;
    std::optional<QDBusConnection> bus;

    void reset()
    {
        shown.clear();
        closeCalls.clear();
        capabilities = {u"actions"_s, u"body"_s};
    }
    uint idOf(const QString &summary) const
    {
        for (const Shown &notice : shown)
            if (notice.summary == summary)
                return notice.id;
        return 0;
    }
    void emitSignal(const QString &name, const QVariantList &arguments,
                    std::optional<QDBusConnection> from = std::nullopt)
    {
        QDBusMessage signal = QDBusMessage::createSignal(objectPath, serviceName, name);
        signal.setArguments(arguments);
        QVERIFY(from.value_or(*bus).send(signal));
    }

public slots:
    QStringList GetCapabilities() { return capabilities; }
    uint Notify(const QString &appName, uint replacesId, const QString &icon,
                const QString &summary, const QString &body, const QStringList &actions,
                const QVariantMap &hints, int timeout)
    {
        shown.append({m_nextId, appName, replacesId, icon, summary, body, actions, hints, timeout});
        return m_nextId++;
    }
    void CloseNotification(uint id)
    {
        closeCalls.append(id);
        emitSignal(u"NotificationClosed"_s, {id, 3u});
    }

private:
    uint m_nextId = 1;
};

class NotificationCenterTest : public QObject {
    Q_OBJECT

private:
    PrivateSession m_session;
    FakeNotifications m_server;
    std::optional<QDBusConnection> m_spoofer;
    std::optional<TempDataDir> m_data;

    std::unique_ptr<DesktopNotificationCenter> newCenter()
    {
        return std::make_unique<DesktopNotificationCenter>();
    }
    QString logPath() const { return m_data->dataRoot() + u"/Tovren/Notifications.json"_s; }

    // Round trips through the bus on every connection, so that what was sent before has been
    // answered and handled; each round lets the centre take one more step of a chain of calls.
    void settle()
    {
        for (int round = 0; round < 4; ++round) {
            for (QDBusConnection bus : {*m_server.bus, *m_spoofer, QDBusConnection::sessionBus()})
                bus.call(QDBusMessage::createMethodCall(u"org.freedesktop.DBus"_s,
                                                        u"/org/freedesktop/DBus"_s,
                                                        u"org.freedesktop.DBus"_s, u"GetId"_s));
            QCoreApplication::processEvents();
        }
    }

private slots:
    void initTestCase()
    {
        if (const QString failed = m_session.startBus(); !failed.isEmpty())
            QFAIL(qPrintable(failed));
        const QString address = qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS");
        m_server.bus = QDBusConnection::connectToBus(address, u"notifications"_s);
        m_spoofer = QDBusConnection::connectToBus(address, u"spoofer"_s);
        QVERIFY(m_server.bus->isConnected() && m_spoofer->isConnected());
        QVERIFY(
            m_server.bus->registerObject(objectPath, &m_server, QDBusConnection::ExportAllSlots));
    }
    void init()
    {
        m_data.emplace();
        m_server.reset();
        if (!m_server.bus->interface()->isServiceRegistered(serviceName))
            QVERIFY(m_server.bus->registerService(serviceName));
    }
    void cleanup() { m_data.reset(); }

    void notifyCarriesTheNotice_data()
    {
        QTest::addColumn<QString>("category");
        QTest::addColumn<QStringList>("capabilities");
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("sentBody");
        QTest::addColumn<QStringList>("actions");
        const QStringList plain{u"actions"_s, u"body"_s};
        const QStringList markup{u"actions"_s, u"body"_s, u"body-markup"_s};
        const QString words = u"What did you work on today? Open Tovren to capture it."_s;
        const QStringList open{u"default"_s, u"Open"_s};
        QTest::newRow("category with a button")
            << dailyReminder << plain << words << words
            << open + QStringList{u"SNOOZE_ACTION"_s, u"Snooze"_s};
        QTest::newRow("no category") << QString() << plain << words << words << open;
        QTest::newRow("unregistered category") << u"LATER"_s << plain << words << words << open;
        QTest::newRow("server with body markup")
            << QString() << markup << u"Wrapped up around 3:00 PM, Q&A <draft>."_s
            << u"Wrapped up around 3:00 PM, Q&amp;A &lt;draft&gt;."_s << open;
        QTest::newRow("server without markup")
            << QString() << plain << u"Q&A <draft>"_s << u"Q&A <draft>"_s << open;
    }
    void notifyCarriesTheNotice()
    {
        QFETCH(QString, category);
        QFETCH(QStringList, capabilities);
        QFETCH(QString, body);
        QFETCH(QString, sentBody);
        QFETCH(QStringList, actions);
        m_server.capabilities = capabilities;
        const FixedClock clock(berlin(2024, 3, 5, 17, 0).addMSecs(250), testCalendar());
        auto center = newCenter();
        center->setCategories({{dailyReminder, {{u"SNOOZE_ACTION"_s, u"Snooze"_s}}}});
        QStringList presented;
        connect(center.get(), &NotificationCenter::presented, this,
                [&](const QString &identifier) { presented.append(identifier); });

        center->add(request(u"daily-log-reminder-3"_s, Trigger::now(), category,
                            {{u"snoozeMinutes"_s, 15}}, body));
        QCOMPARE(presented, QStringList{u"daily-log-reminder-3"_s});
        QTRY_COMPARE(m_server.shown.size(), 1);
        const FakeNotifications::Shown &shown = m_server.shown.constFirst();
        QCOMPARE(shown.appName, u"Tovren"_s);
        QCOMPARE(shown.icon, u"tovren"_s);
        QCOMPARE(shown.summary, u"Title of daily-log-reminder-3"_s);
        QCOMPARE(shown.body, sentBody);
        QCOMPARE(shown.actions, actions);
        QCOMPARE(shown.hints.value(u"desktop-entry"_s), QVariant(u"tovren"_s));
        // Urgency is a byte on the wire; servers ignore it in any other type.
        QCOMPARE(shown.hints.value(u"urgency"_s).metaType(), QMetaType::fromType<uchar>());
        QCOMPARE(shown.hints.value(u"urgency"_s).toInt(), 1);
        QCOMPARE(shown.timeout, -1);
        QCOMPARE(shown.replacesId, 0u);

        const auto delivered = deliveredBy(*center);
        QCOMPARE(delivered.size(), 1);
        QCOMPARE(delivered[0].identifier, u"daily-log-reminder-3"_s);
        QCOMPARE(delivered[0].body, body);
        QCOMPARE(delivered[0].date, Clock::now());
    }

    void actionsComeBack_data()
    {
        QTest::addColumn<QString>("action");
        QTest::addColumn<bool>("fromServer");
        QTest::newRow("snooze button") << u"SNOOZE_ACTION"_s << true;
        QTest::newRow("click on the body") << u"default"_s << true;
        QTest::newRow("another program's signal") << u"default"_s << false;
    }
    void actionsComeBack()
    {
        QFETCH(QString, action);
        QFETCH(bool, fromServer);
        auto center = newCenter();
        center->setCategories({{dailyReminder, {{u"SNOOZE_ACTION"_s, u"Snooze"_s}}}});
        QList<NotificationCenter::Response> responses;
        connect(center.get(), &NotificationCenter::responded, this,
                [&](const NotificationCenter::Response &response) { responses.append(response); });
        center->add(request(u"daily-log-snooze"_s, Trigger::now(), dailyReminder,
                            {{u"snoozeMinutes"_s, 10}}));
        center->add(
            request(u"daily-plan-reminder-2"_s, Trigger::now(), {}, {{u"route"_s, u"plan"_s}}));
        QTRY_COMPARE(m_server.shown.size(), 2);

        const uint id = m_server.idOf(u"Title of daily-log-snooze"_s);
        if (!fromServer) {
            m_server.emitSignal(u"ActionInvoked"_s, {id, action}, m_spoofer);
            settle();
            QVERIFY(responses.isEmpty());
            QCOMPARE(identifiers(deliveredBy(*center)),
                     QStringList({u"daily-log-snooze"_s, u"daily-plan-reminder-2"_s}));
            return;
        }
        m_server.emitSignal(u"ActionInvoked"_s, {id, action});
        QTRY_COMPARE(responses.size(), 1);
        QCOMPARE(responses[0].identifier, u"daily-log-snooze"_s);
        QCOMPARE(responses[0].actionIdentifier, action);
        QCOMPARE(responses[0].userInfo.value(u"snoozeMinutes"_s).toInt(), 10);
        // Opened, so not a notification the user missed.
        QCOMPARE(identifiers(deliveredBy(*center)), QStringList{u"daily-plan-reminder-2"_s});
    }

    void closedByTheServer_data()
    {
        QTest::addColumn<uint>("reason");
        QTest::addColumn<bool>("stays");
        QTest::newRow("expired") << 1u << true;
        QTest::newRow("dismissed by the user") << 2u << false;
        QTest::newRow("closed by a call") << 3u << false;
        QTest::newRow("undefined reason") << 4u << true;
    }
    void closedByTheServer()
    {
        QFETCH(uint, reason);
        QFETCH(bool, stays);
        auto center = newCenter();
        center->add(request(u"milestone-first-week"_s));
        QTRY_COMPARE(m_server.shown.size(), 1);
        m_server.emitSignal(u"NotificationClosed"_s, {m_server.shown[0].id, reason});
        settle();
        QCOMPARE(deliveredBy(*center).size(), stays ? 1 : 0);
    }

    void undismissedSurviveARelaunch()
    {
        FixedClock clock(berlin(2024, 3, 5, 17, 0).addMSecs(123), testCalendar());
        const QDateTime first = Clock::now();
        {
            auto center = newCenter();
            center->add(request(u"daily-log-reminder-3"_s));
            clock.advance(1000);
            center->add(
                request(u"daily-plan-reminder-3"_s, Trigger::now(), {}, {{u"route"_s, u"plan"_s}}));
            center->add(request(u"milestone-ten-entries"_s));
            QTRY_COMPARE(m_server.shown.size(), 3);
            m_server.emitSignal(u"NotificationClosed"_s,
                                {m_server.idOf(u"Title of milestone-ten-entries"_s), 2u});
            settle();
        }

        auto center = newCenter();
        const auto delivered = deliveredBy(*center);
        QCOMPARE(identifiers(delivered),
                 QStringList({u"daily-log-reminder-3"_s, u"daily-plan-reminder-3"_s}));
        QCOMPARE(delivered[0].title, u"Title of daily-log-reminder-3"_s);
        QCOMPARE(delivered[0].body, u"Open Tovren to capture it."_s);
        QCOMPARE(delivered[0].date, first);
        QCOMPARE(delivered[1].date, first.addMSecs(1000));

        // The same server still shows them: a click reaches the new process with its userInfo.
        QList<NotificationCenter::Response> responses;
        connect(center.get(), &NotificationCenter::responded, this,
                [&](const NotificationCenter::Response &response) { responses.append(response); });
        m_server.emitSignal(u"ActionInvoked"_s,
                            {m_server.idOf(u"Title of daily-plan-reminder-3"_s), u"default"_s});
        QTRY_COMPARE(responses.size(), 1);
        QCOMPARE(responses[0].identifier, u"daily-plan-reminder-3"_s);
        QCOMPARE(responses[0].userInfo.value(u"route"_s), QVariant(u"plan"_s));

        center->removeDelivered({u"daily-log-reminder-3"_s});
        QVERIFY(deliveredBy(*center).isEmpty());
        QTRY_COMPARE(m_server.closeCalls,
                     QList<uint>{m_server.idOf(u"Title of daily-log-reminder-3"_s)});
        center.reset();
        QVERIFY(deliveredBy(*newCenter()).isEmpty());
    }

    // Ids saved with another bus may belong to anybody's notification by now.
    void onlyTheServersOwnIdsAreClosed_data()
    {
        QTest::addColumn<QString>("bus");
        QTest::addColumn<bool>("closed");
        QTest::newRow("this bus") << busId() << true;
        QTest::newRow("an earlier bus") << u"0123456789abcdef0123456789abcdef"_s << false;
        QTest::newRow("no bus") << QString() << false;
    }
    void onlyTheServersOwnIdsAreClosed()
    {
        QFETCH(QString, bus);
        QFETCH(bool, closed);
        QJsonObject entry{{u"identifier"_s, u"recap-ready-2024w10"_s},
                          {u"title"_s, u"Your recap is ready"_s},
                          {u"body"_s, u"Seven days"_s},
                          {u"date"_s, u"2024-03-08T16:00:00.000Z"_s},
                          {u"server"_s, m_server.bus->baseService()},
                          {u"serverId"_s, 7777}};
        if (!bus.isEmpty())
            entry.insert(u"bus"_s, bus);
        writeFile(logPath(),
                  QJsonDocument(QJsonObject{{u"delivered"_s, QJsonArray{entry}}}).toJson());
        auto center = newCenter();
        QCOMPARE(identifiers(deliveredBy(*center)), QStringList{u"recap-ready-2024w10"_s});
        center->removeDelivered({u"recap-ready-2024w10"_s});
        settle();
        QVERIFY(deliveredBy(*center).isEmpty());
        QCOMPARE(m_server.closeCalls, closed ? QList<uint>{7777} : QList<uint>{});
    }

    void withoutAServiceNothingIsLost()
    {
        QVERIFY(m_server.bus->unregisterService(serviceName));
        auto center = newCenter();
        QStringList presented;
        connect(center.get(), &NotificationCenter::presented, this,
                [&](const QString &identifier) { presented.append(identifier); });
        center->add(request(u"recap-ready-2024w10"_s));
        QCOMPARE(presented, QStringList{u"recap-ready-2024w10"_s});
        settle();
        QCOMPARE(identifiers(deliveredBy(*center)), QStringList{u"recap-ready-2024w10"_s});

        // A server that starts later gets the next notification.
        QVERIFY(m_server.bus->registerService(serviceName));
        center->add(request(u"milestone-first-week"_s));
        QTRY_VERIFY(m_server.idOf(u"Title of milestone-first-week"_s) != 0);
        QCOMPARE(identifiers(deliveredBy(*center)),
                 QStringList({u"recap-ready-2024w10"_s, u"milestone-first-week"_s}));
    }

    void scheduledFireOnTime_data()
    {
        QTest::addColumn<Trigger>("trigger");
        QTest::addColumn<QDateTime>("addedAt");
        QTest::addColumn<QList<QDateTime>>("firesAt");
        QTest::addColumn<bool>("repeats");
        QTest::newRow("at an instant")
            << Trigger::once(berlin(2024, 3, 5, 17, 0)) << berlin(2024, 3, 5, 9, 0)
            << QList{berlin(2024, 3, 5, 17, 0)} << false;
        QTest::newRow("after an interval") << Trigger::after(900) << berlin(2024, 3, 5, 12, 0)
                                           << QList{berlin(2024, 3, 5, 12, 15)} << false;
        QTest::newRow("weekly, Monday")
            << Trigger::everyWeek(2, 9, 0) << berlin(2024, 3, 5, 10, 0)
            << QList{berlin(2024, 3, 11, 9, 0), berlin(2024, 3, 18, 9, 0)} << true;
        QTest::newRow("weekly, later the same day")
            << Trigger::everyWeek(3, 9, 0) << berlin(2024, 3, 5, 8, 0)
            << QList{berlin(2024, 3, 5, 9, 0), berlin(2024, 3, 12, 9, 0)} << true;
        QTest::newRow("weekly, into summer time")
            << Trigger::everyWeek(1, 9, 0) << berlin(2024, 3, 24, 10, 0)
            << QList{berlin(2024, 3, 31, 9, 0), berlin(2024, 4, 7, 9, 0)} << true;
        QTest::newRow("weekly, into winter time")
            << Trigger::everyWeek(1, 9, 0) << berlin(2024, 10, 21, 10, 0)
            << QList{berlin(2024, 10, 27, 9, 0), berlin(2024, 11, 3, 9, 0)} << true;
        // 02:30 doesn't exist on the last Sunday of March; it comes at 03:30 summer time.
        QTest::newRow("weekly, in the hour clocks skip")
            << Trigger::everyWeek(1, 2, 30) << berlin(2024, 3, 25, 10, 0)
            << QList{berlin(2024, 3, 31, 3, 30), berlin(2024, 4, 7, 2, 30)} << true;
    }
    void scheduledFireOnTime()
    {
        QFETCH(Trigger, trigger);
        QFETCH(QDateTime, addedAt);
        QFETCH(QList<QDateTime>, firesAt);
        QFETCH(bool, repeats);
        FixedClock clock(addedAt, testCalendar());
        auto center = newCenter();
        QStringList presented;
        connect(center.get(), &NotificationCenter::presented, this,
                [&](const QString &identifier) { presented.append(identifier); });
        center->add(request(u"scheduled"_s, trigger));

        qsizetype expected = 0;
        for (const QDateTime &instant : std::as_const(firesAt)) {
            clock.set(instant.addSecs(-1));
            center->fireDue();
            QCOMPARE(presented.size(), expected);
            clock.set(instant);
            center->fireDue();
            QCOMPARE(presented.size(), ++expected);
        }
        QCOMPARE(center->pendingRequests().size(), repeats ? 1 : 0);
        QCOMPARE(deliveredBy(*center).size(), 1);
    }

    // Nobody calls fireDue here: the timer does.
    void timerFiresWhatIsDue()
    {
        const FixedClock clock(berlin(2024, 3, 5, 12, 0), testCalendar());
        auto center = newCenter();
        QStringList presented;
        connect(center.get(), &NotificationCenter::presented, this,
                [&](const QString &identifier) { presented.append(identifier); });
        center->add(request(u"daily-log-snooze"_s, Trigger::after(0)));
        QTRY_COMPARE(presented, QStringList{u"daily-log-snooze"_s});
        QVERIFY(center->pendingRequests().isEmpty());
    }

    void lateChecks_data()
    {
        QTest::addColumn<Trigger>("trigger");
        QTest::addColumn<int>("minutesLate");
        QTest::addColumn<bool>("shown");
        QTest::addColumn<bool>("repeats");
        const Trigger at = Trigger::once(berlin(2024, 3, 11, 9, 0));
        const Trigger weekly = Trigger::everyWeek(2, 9, 0);
        QTest::newRow("one-shot, 40 minutes late") << at << 40 << true << false;
        QTest::newRow("one-shot, 61 minutes late") << at << 61 << false << false;
        QTest::newRow("weekly, 40 minutes late") << weekly << 40 << true << true;
        QTest::newRow("weekly, three hours late") << weekly << 180 << false << true;
    }
    // The machine slept through the time: a little late still helps, hours late is noise.
    void lateChecks()
    {
        QFETCH(Trigger, trigger);
        QFETCH(int, minutesLate);
        QFETCH(bool, shown);
        QFETCH(bool, repeats);
        FixedClock clock(berlin(2024, 3, 11, 8, 0), testCalendar());
        auto center = newCenter();
        QStringList presented;
        connect(center.get(), &NotificationCenter::presented, this,
                [&](const QString &identifier) { presented.append(identifier); });
        center->add(request(u"reminder"_s, trigger));
        clock.set(berlin(2024, 3, 11, 9, minutesLate % 60).addSecs(minutesLate / 60 * 3600));
        center->fireDue();
        QCOMPARE(presented.size(), shown ? 1 : 0);
        QCOMPARE(center->pendingRequests().size(), repeats ? 1 : 0);
        if (repeats) {
            clock.set(berlin(2024, 3, 18, 9, 0));
            center->fireDue();
            QCOMPARE(presented.size(), shown ? 2 : 1);
        }
    }

    void replacingAndRemovingPending()
    {
        FixedClock clock(berlin(2024, 3, 4, 8, 0), testCalendar());
        auto center = newCenter();
        QStringList presented;
        connect(center.get(), &NotificationCenter::presented, this,
                [&](const QString &identifier) { presented.append(identifier); });
        center->add(request(u"daily-log-reminder-2"_s, Trigger::everyWeek(2, 9, 0)));
        center->add(request(u"daily-log-reminder-2"_s, Trigger::everyWeek(2, 10, 0)));
        center->add(
            request(u"streak-at-risk-1709506800.0"_s, Trigger::once(berlin(2024, 3, 4, 17, 0))));
        center->add(request(u"daily-log-snooze"_s, Trigger::after(600)));
        QCOMPARE(center->pendingRequests().size(), 3);
        QCOMPARE(center->pendingRequests()[0].trigger.hour, 10);

        center->removePending({u"streak-at-risk-1709506800.0"_s, u"not-pending"_s});
        // Shown at once, it takes the place of the pending snooze.
        center->add(request(u"daily-log-snooze"_s));
        QCOMPARE(identifiers(center->pendingRequests()), QStringList{u"daily-log-reminder-2"_s});
        QCOMPARE(presented, QStringList{u"daily-log-snooze"_s});

        clock.set(berlin(2024, 3, 4, 9, 0));
        center->fireDue();
        QCOMPARE(presented.size(), 1);
        clock.set(berlin(2024, 3, 4, 10, 0));
        center->fireDue();
        QCOMPARE(presented.last(), u"daily-log-reminder-2"_s);

        center->removePending({u"daily-log-reminder-2"_s});
        clock.set(berlin(2024, 3, 4, 17, 0));
        center->fireDue();
        clock.set(berlin(2024, 3, 11, 10, 0));
        center->fireDue();
        QCOMPARE(presented.size(), 2);
        QVERIFY(center->pendingRequests().isEmpty());
    }

    void pendingSurviveARelaunch()
    {
        FixedClock clock(berlin(2024, 3, 5, 12, 0), testCalendar());
        const QVariantMap snooze{{u"snoozeMinutes"_s, 15}};
        {
            auto center = newCenter();
            center->setCategories({{dailyReminder, {{u"SNOOZE_ACTION"_s, u"Snooze"_s}}}});
            center->add(request(u"daily-log-reminder-2"_s, Trigger::everyWeek(2, 9, 0),
                                dailyReminder, snooze));
            center->add(request(u"streak-at-risk-1709593200.0"_s,
                                Trigger::once(berlin(2024, 3, 5, 17, 0))));
            center->add(
                request(u"daily-log-snooze"_s, Trigger::after(3600), dailyReminder, snooze));
        }
        const QFile::Permissions others =
            QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
        QCOMPARE(QFile::permissions(logPath()) & others, QFile::Permissions());

        clock.set(berlin(2024, 3, 5, 12, 30));
        {
            auto center = newCenter();
            const auto pending = center->pendingRequests();
            QCOMPARE(identifiers(pending),
                     QStringList({u"daily-log-reminder-2"_s, u"streak-at-risk-1709593200.0"_s,
                                  u"daily-log-snooze"_s}));
            QCOMPARE(pending[0].trigger.kind, Trigger::Kind::weekly);
            QCOMPARE(pending[0].trigger.weekday, 2);
            QCOMPARE(pending[0].trigger.hour, 9);
            QCOMPARE(pending[0].content.category, dailyReminder);
            QCOMPARE(pending[0].content.userInfo.value(u"snoozeMinutes"_s).toInt(), 15);
            QCOMPARE(pending[1].trigger.fireAt, berlin(2024, 3, 5, 17, 0));
            // The interval counts from when it was added, not from the relaunch.
            clock.set(berlin(2024, 3, 5, 12, 59));
            center->fireDue();
            QCOMPARE(center->pendingRequests().size(), 3);
            clock.set(berlin(2024, 3, 5, 13, 0));
            center->fireDue();
            QCOMPARE(center->pendingRequests().size(), 2);
        }

        // Tovren wasn't running at 17:00 on Tuesday nor at 9:00 on Monday: both pass silently.
        clock.set(berlin(2024, 3, 11, 10, 0));
        auto center = newCenter();
        QStringList presented;
        connect(center.get(), &NotificationCenter::presented, this,
                [&](const QString &identifier) { presented.append(identifier); });
        QCOMPARE(identifiers(center->pendingRequests()), QStringList{u"daily-log-reminder-2"_s});
        center->fireDue();
        QVERIFY(presented.isEmpty());
        clock.set(berlin(2024, 3, 18, 9, 0));
        center->fireDue();
        QCOMPARE(presented, QStringList{u"daily-log-reminder-2"_s});
        // The buttons of the category registered by the earlier process.
        QTRY_VERIFY(!m_server.shown.isEmpty() &&
                    m_server.shown.last().summary == u"Title of daily-log-reminder-2"_s);
        QVERIFY(m_server.shown.last().actions.contains(u"SNOOZE_ACTION"_s));
    }

    void hostileFiles_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QStringList>("delivered");
        QTest::addColumn<QStringList>("pending");
        QTest::newRow("not JSON") << QByteArray("\x00\xff{{{\"delivered\":[", 18) << QStringList()
                                  << QStringList();
        QTest::newRow("array at the top")
            << QByteArray("[[[1,2,3]]]") << QStringList() << QStringList();
        QTest::newRow("wrong shapes")
            << QByteArray(R"({"delivered":"x","pending":{"a":1},"categories":[7]})")
            << QStringList() << QStringList();
        QTest::newRow("bad entries beside good ones")
            << QByteArray(R"({"delivered":[1,null,[],
                 {"identifier":5,"title":"T","body":"B","date":"2024-03-05T10:00:00.000Z"},
                 {"identifier":"","title":"T","body":"B","date":"2024-03-05T10:00:00.000Z"},
                 {"identifier":"when","title":"T","body":"B","date":"yesterday"},
                 {"identifier":"ok","title":"T","body":"B","date":"2024-03-05T10:00:00.000Z",
                  "userInfo":"not a map","serverId":-4,"server":{"a":1}}],
               "pending":[{"identifier":"w","title":"","body":"","category":"","kind":"weekly",
                           "weekday":9,"hour":9,"minute":0},
                          {"identifier":"h","title":"","body":"","category":"","kind":"weekly",
                           "weekday":2,"hour":1e300,"minute":0},
                          {"identifier":"x","title":"","body":"","category":"","kind":"yearly",
                           "fireAt":"2030-01-01T00:00:00.000Z","seconds":0},
                          {"identifier":"fine","title":"","body":"","category":"",
                           "kind":"weekly","weekday":2,"hour":9,"minute":0}]})")
            << QStringList{u"ok"_s} << QStringList{u"fine"_s};
        QJsonArray many;
        QStringList newest;
        for (int i = 0; i < 250; ++i) {
            const QString name = u"n"_s + QString::number(i);
            many.append(QJsonObject{{u"identifier"_s, name},
                                    {u"title"_s, name},
                                    {u"body"_s, name},
                                    {u"date"_s, u"2024-03-05T10:00:00.000Z"_s}});
            if (i >= 50)
                newest.append(name);
        }
        QTest::newRow("more than the log keeps")
            << QJsonDocument(QJsonObject{{u"delivered"_s, many}}).toJson() << newest
            << QStringList();
        QByteArray huge = QJsonDocument(QJsonObject{{u"delivered"_s, many}}).toJson();
        huge.insert(huge.size() - 2, QByteArray(5 * 1024 * 1024, ' '));
        QTest::newRow("too big to be ours") << huge << QStringList() << QStringList();
    }
    void hostileFiles()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QStringList, delivered);
        QFETCH(QStringList, pending);
        const FixedClock clock(berlin(2024, 3, 5, 12, 0), testCalendar());
        writeFile(logPath(), bytes);
        {
            auto center = newCenter();
            QCOMPARE(identifiers(deliveredBy(*center)), delivered);
            QCOMPARE(identifiers(center->pendingRequests()), pending);
            center->add(request(u"recap-ready-2024w10"_s));
        }
        // The next write replaces the damage with a file the next process reads whole.
        delivered.append(u"recap-ready-2024w10"_s);
        if (delivered.size() > DesktopNotificationCenter::maxDelivered)
            delivered.removeFirst();
        auto center = newCenter();
        QCOMPARE(identifiers(deliveredBy(*center)), delivered);
        QCOMPARE(identifiers(center->pendingRequests()), pending);
    }
};

QTEST_GUILESS_MAIN(NotificationCenterTest)
#include "tst_notificationcenter.moc"
