#include "TestSupport.h"

#include "MemoryNotificationCenter.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/InboxItem.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "inbox/InboxRouter.h"
#include "inbox/InboxService.h"
#include "inbox/NotificationMirror.h"

#include <QSignalSpy>
#include <QTest>

#include <qcoro/qcorotask.h>

using namespace Qt::StringLiterals;

namespace {

// Wednesday 11 March 2026, noon in Berlin.
const QDateTime wednesday(QDate(2026, 3, 11), QTime(11, 0), Qt::UTC);

using Items = QList<std::shared_ptr<InboxItem>>;

Items allItems(ModelContext &context)
{
    return context.fetch<InboxItem>({{}, {field(&InboxItem::createdAt).ascending()}, {}});
}

std::shared_ptr<InboxItem> itemAt(ModelContext &context, const QDateTime &createdAt,
                                  bool read = false, InboxItemKind kind = InboxItemKind::reminder,
                                  std::optional<QString> payload = std::nullopt)
{
    auto item = std::make_shared<InboxItem>(kind, u"title"_s, u"body"_s, std::move(payload));
    item->createdAt = createdAt;
    if (read)
        item->readAt = createdAt;
    context.insert(item);
    return item;
}

} // namespace

class InboxTest : public QObject {
    Q_OBJECT

    TempDataDir m_dir;
    std::unique_ptr<ModelContainer> m_store;

    ModelContext &context() { return m_store->mainContext(); }

private slots:
    void init()
    {
        m_store = std::make_unique<ModelContainer>(
            StoreSchema::current(),
            ModelContainer::Configuration::atPath(m_dir.dataRoot() + u"/default.store"_s));
        for (const auto &item : context().fetch<InboxItem>())
            context().remove(item);
        context().save();
    }

    void posting_data()
    {
        // Two posts of the same event; the second comes `gap` seconds after the first.
        QTest::addColumn<qint64>("gap");
        QTest::addColumn<std::optional<qint64>>("window");
        QTest::addColumn<QString>("secondPayload");
        QTest::addColumn<int>("items");

        const QString same = u"brief:2026-W10"_s;
        QTest::newRow("59 minutes inside an hour")
            << 59 * 60LL << std::optional<qint64>(3600) << same << 1;
        QTest::newRow("61 minutes outside an hour")
            << 61 * 60LL << std::optional<qint64>(3600) << same << 2;
        QTest::newRow("exactly at the window's edge")
            << 3600LL << std::optional<qint64>(3600) << same << 1;
        QTest::newRow("window 0 finds nothing older")
            << 1LL << std::optional<qint64>(0) << same << 2;
        QTest::newRow("no window, no check") << 0LL << std::optional<qint64>() << same << 2;
        QTest::newRow("another payload")
            << 0LL << std::optional<qint64>(3600) << u"brief:other"_s << 2;
    }
    void posting()
    {
        QFETCH(qint64, gap);
        QFETCH(std::optional<qint64>, window);
        QFETCH(QString, secondPayload);
        QFETCH(int, items);

        FixedClock clock(wednesday, testCalendar());
        const auto first =
            InboxService::post(context(), InboxItemKind::briefReady, u"Your recap is ready"_s,
                               u"b"_s, u"brief:2026-W10"_s, u"Open"_s, u"tab:recaps"_s, window);
        QVERIFY(first);
        clock.advance(gap * 1000);
        // The rule looks at the payload alone: title, body and kind differ here.
        InboxService::post(context(), InboxItemKind::system, u"other"_s, u"other"_s, secondPayload,
                           std::nullopt, std::nullopt, window);

        // Saved at once, with every field as posted.
        ModelContainer reopened(StoreSchema::current(), m_store->configuration());
        const Items stored = allItems(reopened.mainContext());
        QCOMPARE(stored.size(), items);
        QCOMPARE(stored.first()->kindRaw, u"brief_ready"_s);
        QCOMPARE(stored.first()->createdAt, wednesday);
        QVERIFY(!stored.first()->readAt);
        QCOMPARE(stored.first()->actionLabel, u"Open"_s);
        QCOMPARE(stored.first()->actionRoute, u"tab:recaps"_s);
    }

    void pruning_data()
    {
        QTest::addColumn<int>("ageDays");
        QTest::addColumn<bool>("read");
        QTest::addColumn<bool>("kept");

        QTest::newRow("unread of any age") << 400 << false << true;
        QTest::newRow("read, 29 days") << 29 << true << true;
        QTest::newRow("read, exactly 30 days") << 30 << true << true;
        QTest::newRow("read, 31 days") << 31 << true << false;
    }
    void pruning()
    {
        QFETCH(int, ageDays);
        QFETCH(bool, read);
        QFETCH(bool, kept);

        // Calendar days: the spring clock change lies between, so 30 days are not 720 hours.
        FixedClock clock(QDateTime(QDate(2026, 4, 10), QTime(10, 0), Qt::UTC), testCalendar());
        itemAt(context(), Calendar::current().addingDays(Clock::now(), -ageDays), read);
        context().save();

        InboxService::pruneOld(context(), 30);
        QCOMPARE(allItems(context()).size(), kept ? 1 : 0);
    }

    void purgeOfRetiredFeature_data()
    {
        QTest::addColumn<InboxItemKind>("kind");
        QTest::addColumn<std::optional<QString>>("payload");
        QTest::addColumn<bool>("kept");

        using P = std::optional<QString>;
        QTest::newRow("retired suggestion")
            << InboxItemKind::aiSuggestion << P(u"goal:42"_s) << false;
        QTest::newRow("goal coaching")
            << InboxItemKind::aiSuggestion << P(u"goal-coach-42"_s) << true;
        QTest::newRow("another kind") << InboxItemKind::reminder << P(u"goal:42"_s) << true;
        QTest::newRow("no payload") << InboxItemKind::aiSuggestion << P() << true;
    }
    void purgeOfRetiredFeature()
    {
        QFETCH(InboxItemKind, kind);
        QFETCH(std::optional<QString>, payload);
        QFETCH(bool, kept);

        Preferences preferences(m_dir.configDir() + u"/purge.json"_s);
        preferences.remove(Prefs::inboxRetiredFeaturesPurged.name);
        itemAt(context(), Clock::now(), false, kind, payload);
        context().save();

        InboxService::purgeRetiredFeatures(context(), preferences);
        QCOMPARE(allItems(context()).size(), kept ? 1 : 0);
        QVERIFY(preferences.value(Prefs::inboxRetiredFeaturesPurged));

        // Once only: what arrives later under the old key is left alone.
        itemAt(context(), Clock::now(), false, InboxItemKind::aiSuggestion, u"goal:7"_s);
        context().save();
        InboxService::purgeRetiredFeatures(context(), preferences);
        QCOMPARE(allItems(context()).size(), kept ? 2 : 1);
    }

    void markAllReadSharesOneInstantAndKeepsOlderReads()
    {
        FixedClock clock(wednesday, testCalendar());
        const QDateTime earlier = wednesday.addDays(-2);
        itemAt(context(), earlier, true);
        itemAt(context(), wednesday.addSecs(-60));
        itemAt(context(), wednesday.addSecs(-30));
        context().save();
        QCOMPARE(InboxService::unreadCount(context()), qint64(2));

        clock.advance(5000);
        InboxService::markAllRead(context());
        const Items items = allItems(context());
        QCOMPARE(items.at(0)->readAt, earlier);
        QCOMPARE(items.at(1)->readAt, wednesday.addSecs(5));
        QCOMPARE(items.at(2)->readAt, wednesday.addSecs(5));
        QCOMPARE(InboxService::unreadCount(context()), qint64(0));
        QVERIFY(!context().hasChanges());
    }

    void unknownKindShowsAsSystemAndSurvivesASave()
    {
        auto item = itemAt(context(), Clock::now());
        item->kindRaw = u"celebration"_s;
        context().save();
        item->title = u"changed"_s;
        context().save();

        ModelContainer reopened(StoreSchema::current(), m_store->configuration());
        const auto stored = allItems(reopened.mainContext()).first();
        QCOMPARE(stored->kindRaw, u"celebration"_s);
        QCOMPARE(stored->kind(), InboxItemKind::system);
        QCOMPARE(InboxService::iconName(stored->kind()), u"info.circle"_s);
        QCOMPARE(InboxService::kindLabel(stored->kind()), u"System"_s);
    }

    void grouping_data()
    {
        // Items `hoursAgo` before `now`; the sections that show, each with its count.
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<int>("firstWeekday");
        QTest::addColumn<QList<int>>("hoursAgo");
        QTest::addColumn<QStringList>("sections");

        // Berlin: Wednesday 11 March 2026, 12:00; midnight was 12 hours ago.
        const QDateTime wednesdayNoon = wednesday;
        QTest::newRow("all four, weeks from Sunday")
            << wednesdayNoon << 1 << QList{1, 11, 13, 35, 37, 60, 83, 85, 200}
            << QStringList{u"Today 2"_s, u"Yesterday 2"_s, u"Earlier this week 3"_s,
                           u"Earlier 2"_s};
        QTest::newRow("weeks from Monday move Sunday to earlier")
            << wednesdayNoon << 2 << QList{59, 61}
            << QStringList{u"Earlier this week 1"_s, u"Earlier 1"_s};
        QTest::newRow("empty sections left out")
            << wednesdayNoon << 1 << QList{300} << QStringList{u"Earlier 1"_s};
        // Monday 9 March, 12:00 Berlin, in a week that starts on Monday: Sunday is yesterday.
        QTest::newRow("Monday, first day of the week")
            << QDateTime(QDate(2026, 3, 9), QTime(11, 0), Qt::UTC) << 2 << QList{2, 20, 30, 40}
            << QStringList{u"Today 1"_s, u"Yesterday 2"_s, u"Earlier 1"_s};
    }
    void grouping()
    {
        QFETCH(QDateTime, now);
        QFETCH(int, firstWeekday);
        QFETCH(QList<int>, hoursAgo);
        QFETCH(QStringList, sections);

        FixedClock clock(now, Calendar(QTimeZone("Europe/Berlin"), firstWeekday, 4));
        Items items;
        // Given oldest first: the sections must come out newest first regardless.
        for (auto it = hoursAgo.crbegin(); it != hoursAgo.crend(); ++it) {
            items.append(std::make_shared<InboxItem>(InboxItemKind::system, QString(), QString()));
            items.last()->createdAt = now.addSecs(-3600LL * *it);
        }
        QStringList shown;
        QDateTime previous = now;
        for (const InboxService::Section &section : InboxService::group(items, now)) {
            shown.append(section.title + u' ' + QString::number(section.items.size()));
            for (const auto &item : section.items) {
                QVERIFY(item->createdAt <= previous);
                previous = item->createdAt;
            }
        }
        QCOMPARE(shown, sections);
    }

    void mirroredKindAndRoute_data()
    {
        QTest::addColumn<QString>("identifier");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<std::optional<QString>>("route");

        using R = std::optional<QString>;
        QTest::newRow("recap") << u"recap-ready-2026-W10"_s << u"brief_ready"_s
                               << R(u"tab:reviews"_s);
        QTest::newRow("milestone") << u"milestone-10"_s << u"milestone_unlocked"_s << R();
        QTest::newRow("prep") << u"meeting-prep-9"_s << u"reminder"_s << R(u"tab:people"_s);
        QTest::newRow("daily reminder")
            << u"daily-log-reminder-2"_s << u"reminder"_s << R(u"tab:journal"_s);
    }
    void mirroredKindAndRoute()
    {
        QFETCH(QString, identifier);
        QFETCH(QString, kind);
        QFETCH(std::optional<QString>, route);

        FixedClock clock(wednesday, testCalendar());
        const QDateTime delivered = wednesday.addSecs(-7200).addMSecs(750);
        QVERIFY(
            NotificationMirror::mirror({identifier, u"Title"_s, u"Body"_s, delivered}, context()));
        const auto item = allItems(context()).first();
        QCOMPARE(item->kindRaw, kind);
        QCOMPARE(item->actionRoute, route);
        QVERIFY(!item->actionLabel);
        QVERIFY(!item->readAt);
        // Dated by the banner, keyed by its whole seconds.
        QCOMPARE(item->createdAt, delivered);
        QCOMPARE(item->payload,
                 u"notif:"_s + identifier + u':' + QString::number(delivered.toSecsSinceEpoch()));
        QVERIFY(!context().hasChanges());
    }

    void reconcileCopiesEachDeliveryOnce()
    {
        MemoryNotificationCenter center;
        const QDateTime at(QDate(2026, 3, 10), QTime(17, 0), Qt::UTC);
        const QList<NotificationCenter::Delivered> shown{
            {u"daily-log-reminder-3"_s, u"Reminder: Log your work"_s, u"b"_s, at},
            // The same request delivered again a week later is another item.
            {u"daily-log-reminder-3"_s, u"Reminder: Log your work"_s, u"b"_s, at.addDays(7)},
            {u"recap-ready-w10"_s, u"Recap"_s, u"r"_s, at.addSecs(30)},
        };
        center.delivered = shown;
        QCoro::waitFor(NotificationMirror::reconcile(center, context()));
        QCOMPARE(allItems(context()).size(), 3);
        const QList<QStringList> removed{
            {u"daily-log-reminder-3"_s, u"daily-log-reminder-3"_s, u"recap-ready-w10"_s}};
        QCOMPARE(center.removeDeliveredCalls, removed);
        QVERIFY(center.delivered.isEmpty());

        // A centre that didn't forget them: nothing new, and it's told again to forget.
        center.delivered = shown;
        QCoro::waitFor(NotificationMirror::reconcile(center, context()));
        QCOMPARE(allItems(context()).size(), 3);
        QCOMPARE(center.removeDeliveredCalls.size(), 2);

        // Nothing delivered: the centre isn't asked to remove anything.
        QCoro::waitFor(NotificationMirror::reconcile(center, context()));
        QCOMPARE(center.removeDeliveredCalls.size(), 2);
    }

    void routes_data()
    {
        QTest::addColumn<QString>("route");
        QTest::addColumn<InboxRouter::Effect>("effect");
        QTest::addColumn<QString>("target");

        using E = InboxRouter::Effect;
        QTest::newRow("people, with a suffix")
            << u"tab:people/1234"_s << E::openTab << u"meetings"_s;
        QTest::newRow("meetings") << u"tab:meetings"_s << E::openTab << u"meetings"_s;
        QTest::newRow("reviews open recaps") << u"tab:reviews"_s << E::openTab << u"recaps"_s;
        QTest::newRow("recaps") << u"tab:recaps"_s << E::openTab << u"recaps"_s;
        QTest::newRow("goals") << u"tab:goals"_s << E::openTab << u"goals"_s;
        QTest::newRow("journal") << u"tab:journal"_s << E::openTab << u"journal"_s;
        QTest::newRow("library") << u"tab:library"_s << E::openTab << u"knowledge"_s;
        QTest::newRow("unknown tab") << u"tab:tasks"_s << E::none << QString();
        QTest::newRow("update, exactly") << u"update:download"_s << E::downloadUpdate << QString();
        QTest::newRow("update with a suffix") << u"update:downloads"_s << E::none << QString();
        QTest::newRow("secure address") << u"url:https://example.org/review?x=1"_s << E::openUrl
                                        << u"https://example.org/review?x=1"_s;
        QTest::newRow("plain address") << u"url:http://example.org"_s << E::none << QString();
        QTest::newRow("scheme in capitals") << u"url:HTTPS://example.org"_s << E::none << QString();
        QTest::newRow("a file") << u"url:file:///etc/passwd"_s << E::none << QString();
        QTest::newRow("a tovren link") << u"url:tovren://open"_s << E::none << QString();
        QTest::newRow("unparsable") << u"url:https://exa mple.org:99999"_s << E::none << QString();
        QTest::newRow("empty") << QString() << E::none << QString();
        QTest::newRow("case matters") << u"TAB:people"_s << E::none << QString();
    }
    void routes()
    {
        QFETCH(QString, route);
        QFETCH(InboxRouter::Effect, effect);
        QFETCH(QString, target);

        QList<QUrl> opened;
        InboxRouter::setBrowser([&](const QUrl &url) { opened.append(url); });
        QSignalSpy notices(&NoticeCenter::shared(), &NoticeCenter::posted);

        auto item = itemAt(context(), Clock::now());
        item->actionRoute = route;
        context().save();
        InboxRouter::activate(*item, context());

        QVERIFY(item->readAt);
        QVERIFY(!context().hasChanges());
        QCOMPARE(opened.size(), effect == InboxRouter::Effect::openUrl ? 1 : 0);
        if (!opened.isEmpty())
            QCOMPARE(opened.first().toString(), target);
        QStringList posted;
        for (const QList<QVariant> &notice : notices)
            posted.append(notice.at(0).toString() + u' ' +
                          notice.at(1).toMap().value(u"item"_s).toString());
        QStringList expected;
        if (effect == InboxRouter::Effect::openTab)
            expected.append(QLatin1StringView(Notices::openTab) + u' ' + target);
        if (effect == InboxRouter::Effect::downloadUpdate)
            expected.append(QLatin1StringView(Notices::downloadUpdate) + u' ');
        QCOMPARE(posted, expected);
        InboxRouter::setBrowser([](const QUrl &) {});
    }
};

QTEST_GUILESS_MAIN(InboxTest)
#include "tst_inbox.moc"
