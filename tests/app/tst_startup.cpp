#include "TestSupport.h"

#include "app/TovrenApp.h"
#include "bridge/MCPServer.h"
#include "core/DataGeneration.h"
#include "core/DataLocations.h"
#include "core/ImageStorage.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/AIInteraction.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Document.h"
#include "core/records/EntryImage.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/PerformanceReview.h"
#include "core/records/Person.h"
#include "core/records/SavedStory.h"
#include "core/records/StoreSchema.h"
#include "core/records/Tag.h"
#include "core/records/TaskItem.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/Database.h"
#include "core/store/ModelContext.h"
#include "core/store/StoreError.h"
#include "platform/DesktopNotificationCenter.h"
#include "ui/MainWindow.h"

#include <QAbstractButton>
#include <QDir>
#include <QHostAddress>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QDateTime launchTime(QDate(2026, 11, 15), QTime(12, 57, 30), Qt::UTC);
const QString stamp = u"2026-11-15T12-57-30Z"_s;

QStringList filesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

// A real store left by a writer killed with pages in its log, then given bad pages: all of the
// main file past its header.
void killedAndDamagedStore(const QString &store)
{
    QCOMPARE(runStoreWriter(store, 3, u"clean"_s, false).size(), 3);
    QCOMPARE(runStoreWriter(store, 3, u"killed"_s).size(), 3);
    QVERIFY(QFileInfo(store + u"-wal"_s).size() > 0 && QFile::exists(store + u"-shm"_s));
    QFile file(store);
    QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(100));
    file.write(QByteArray(file.size() - 100, char(0xA5)));
}

qsizetype rowsTitled(TovrenApp &app, const QString &title)
{
    return app.mainContext().fetch<InboxItem>({field(&InboxItem::title) == title, {}, {}}).size();
}

// The launch steps with these notices, noting each step in `order`; the first `failingOpens`
// opens of the store fail.
LaunchSteps stepsWithNotices(std::optional<QString> legacy, std::optional<QString> restore,
                             QStringList *order = nullptr, int failingOpens = 0)
{
    const auto note = [order](const QString &step) {
        if (order)
            order->append(step);
    };
    LaunchSteps steps = LaunchSteps::standard();
    steps.legacyImport = [=](Preferences &) { return note(u"legacy"_s), legacy; };
    steps.pendingRestore = [=](Preferences &) { return note(u"restore"_s), restore; };
    steps.toolGroupDefaults = [=](Preferences &) { note(u"toolGroups"_s); };
    steps.openStore = [=, failures = std::make_shared<int>(failingOpens)](
                          const ModelContainer::Configuration &configuration) {
        note(u"open"_s);
        if ((*failures)-- > 0)
            throw StoreError(u"disk I/O error"_s);
        return StoreLifecycle::openContainer(configuration);
    };
    return steps;
}

} // namespace

class StartupTest : public QObject {
    Q_OBJECT

private slots:
    void openSequence_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<int>("state");
        QTest::addColumn<QStringList>("filesAfter");
        QTest::addColumn<QString>("notice"); // a pattern

        const QString quarantined = QRegularExpression::escape(
            u"Your local database was unreadable and has been quarantined. A fresh database has "
            "been created. The original files are preserved with a `.corrupt-"_s +
            stamp + u"` suffix in Tovren's data folder."_s);
        const QStringList all{u"default.store"_s, u"default.store-shm"_s, u"default.store-wal"_s};
        QStringList allSetAside = all;
        for (const QString &name : all)
            allSetAside.append(name + u".corrupt-"_s + stamp);
        allSetAside.sort();
        const auto rebuilt = int(StoreLifecycle::State::rebuilt);
        const auto normal = int(StoreLifecycle::State::normal);
        QTest::newRow("healthy, first launch")
            << u"nothing"_s << normal << all << u"Imported your earlier journal\\."_s;
        QTest::newRow("healthy, a restore after the import")
            << u"restore"_s << normal << all << u"Restored it\\."_s;
        QTest::newRow("healthy, nothing to say") << u"quiet"_s << normal << all << QString();
        QTest::newRow("garbage, with sidecars")
            << u"garbage"_s << rebuilt << allSetAside << quarantined;
        QTest::newRow("garbage, main file only")
            << u"garbage main"_s << rebuilt
            << all + QStringList{u"default.store.corrupt-"_s + stamp} << quarantined;
        QTest::newRow("killed with pages in its log, then damaged")
            << u"killed"_s << rebuilt << allSetAside << quarantined;
        QTest::newRow("open fails, nothing to move")
            << u"open fails once"_s << rebuilt << all
            << u"We rebuilt your local database after a corruption error\\."_s;
        QTest::newRow("cannot even rebuild")
            << u"data root is a file"_s << int(StoreLifecycle::State::inMemory) << QStringList()
            << u"Couldn't open or rebuild your local database \\(.+\\)\\. Running in memory, so "
               "changes won't persist until this is resolved\\."_s;
    }
    void openSequence()
    {
        QFETCH(QString, before);
        QFETCH(int, state);
        QFETCH(QStringList, filesAfter);
        QFETCH(QString, notice);

        TempDataDir dir;
        FixedClock clock(launchTime);
        const QString store = DataLocations::storePath();
        if (before.startsWith(u"garbage"_s)) {
            writeFile(store, QByteArray(5000, 'x'));
            if (before == u"garbage"_s) {
                writeFile(store + u"-shm"_s, QByteArray(32768, 's'));
                writeFile(store + u"-wal"_s, QByteArray(5000, 'w'));
            }
        } else if (before == u"killed"_s) {
            killedAndDamagedStore(store);
        } else if (before == u"data root is a file"_s) {
            QDir(dir.dataRoot()).removeRecursively();
            writeFile(dir.dataRoot(), "not a folder");
        }
        QHash<QString, QByteArray> original;
        for (const QString &name : filesIn(dir.dataRoot()))
            original.insert(name, fileContents(dir.dataRoot() + u'/' + name));

        QStringList order;
        TovrenApp app(stepsWithNotices(
            before == u"quiet"_s ? std::nullopt
                                 : std::optional(u"Imported your earlier journal."_s),
            before == u"restore"_s ? std::optional(u"Restored it."_s) : std::nullopt, &order,
            before == u"open fails once"_s ? 1 : 0));
        app.start();
        // The import, then the restore, which overwrites the store files and whose word wins;
        // both before the store opens.
        QCOMPARE(order.mid(0, 4),
                 QStringList({u"legacy"_s, u"restore"_s, u"toolGroups"_s, u"open"_s}));
        QCOMPARE(int(app.storeState()), state);
        const QString said = app.recoveryNotice().value_or(QString());
        QVERIFY2(QRegularExpression(u'^' + notice + u'$').match(said).hasMatch(), qPrintable(said));
        if (!filesAfter.isEmpty())
            QCOMPARE(filesIn(dir.dataRoot()), filesAfter);
        // Set aside exactly as they were, however far SQLite got with them.
        for (auto it = original.cbegin(); it != original.cend(); ++it)
            QVERIFY2(fileContents(dir.dataRoot() + u'/' + it.key() + u".corrupt-"_s + stamp) ==
                         it.value(),
                     qPrintable(it.key()));

        // Whatever happened, the store works.
        ModelContext &context = app.mainContext();
        QCOMPARE(context.fetchCount<DailyEntry>(), 0);
        context.insert(std::make_shared<DailyEntry>(u"still works"_s, launchTime, false));
        context.save();
        QCOMPARE(context.fetch<DailyEntry>().value(0)->content, u"still works"_s);
    }

    // A banner shown by an earlier process and never opened is in the inbox after the next
    // launch's deferred work, once; the log forgets it.
    void undismissedBannerReachesTheInboxAtTheNextLaunch()
    {
        TempDataDir dir;
        {
            DesktopNotificationCenter earlier;
            earlier.add({u"daily-log-reminder-2"_s,
                         {u"Reminder: Log your work"_s, u"What did you get done?"_s, {}, {}},
                         NotificationCenter::Trigger::now()});
        }
        for (int launch = 0; launch < 2; ++launch) {
            TovrenApp app(LaunchSteps::standard());
            app.start();
            app.shellDidAppear();
            QTRY_COMPARE(rowsTitled(app, u"Reminder: Log your work"_s), 1);
            QTRY_VERIFY(
                QCoro::waitFor(app.inbox().notifications().deliveredNotifications()).isEmpty());
        }
    }

    void libraryNudge_data()
    {
        QTest::addColumn<int>("entries");
        QTest::addColumn<QList<int>>("categories");
        QTest::addColumn<bool>("nudged");
        QTest::addColumn<bool>("flagSet");
        QTest::newRow("nine entries") << 9 << QList<int>() << false << false;
        QTest::newRow("ten entries, about me only")
            << 10 << QList<int>{int(DocumentCategory::aboutMe)} << true << true;
        QTest::newRow("ten entries, nothing in the library") << 10 << QList<int>() << true << true;
        QTest::newRow("ten entries, a leveling guide")
            << 10 << QList<int>{int(DocumentCategory::levelingGuide)} << false << true;
    }
    void libraryNudge()
    {
        QFETCH(int, entries);
        QFETCH(QList<int>, categories);
        QFETCH(bool, nudged);
        QFETCH(bool, flagSet);
        TempDataDir dir;
        TovrenApp app(LaunchSteps::standard());
        app.start();
        ModelContext &context = app.mainContext();
        for (int i = 0; i < entries; ++i)
            context.insert(std::make_shared<DailyEntry>(u"day"_s, launchTime.addDays(i), false));
        for (int category : categories)
            context.insert(
                std::make_shared<Document>(u"doc"_s, DocumentCategory(category), u"text"_s));
        context.save();

        app.postLibraryNudgeIfNeeded();
        app.postLibraryNudgeIfNeeded(); // guarded: never twice
        const auto rows = context.fetch<InboxItem>();
        QCOMPARE(rows.size(), nudged ? 1 : 0);
        QCOMPARE(app.preferences().value(Prefs::libraryNudgePosted), flagSet);
        if (nudged) {
            QCOMPARE(rows[0]->kindRaw, u"system"_s);
            QCOMPARE(rows[0]->title, u"Sharpen your recaps and reviews"_s);
            QCOMPARE(rows[0]->body,
                     u"Add a leveling guide, a past review, or your resume to Library. Every brief "
                     "and story is grounded in what Tovren knows. The more it knows about the bar "
                     "you're measured against, the sharper the drafts."_s);
            QCOMPARE(rows[0]->actionLabel, u"Open Library"_s);
            QCOMPARE(rows[0]->actionRoute, u"tab:library"_s);
        }
    }

    // An assistant that was connected is dropped; the listener itself stays on.
    void eraseAllDataKeepsOnlyReviewsAndSettings()
    {
        TempDataDir dir;
        qputenv("TOVREN_MCP_PORT", "0");
        TovrenApp app(LaunchSteps::standard());
        app.preferences().set(Prefs::mcpServerEnabled, true);
        app.start();
        qunsetenv("TOVREN_MCP_PORT");
        QTRY_VERIFY(app.mcpServer().isRunning());
        QTcpSocket assistant;
        assistant.connectToHost(QHostAddress::LocalHost, app.mcpServer().serverPort());
        QVERIFY(assistant.waitForConnected(5000));
        QTRY_COMPARE(app.mcpServer().activeSessionCount(), 1);
        ModelContext &context = app.mainContext();
        auto entry = std::make_shared<DailyEntry>(u"page #tag"_s, launchTime, true);
        auto image = std::make_shared<EntryImage>(QByteArray("png"), std::nullopt, entry);
        QVERIFY(ImageStorage::save(QByteArray("png"), image->id));
        auto meeting = std::make_shared<Meeting>(
            std::make_shared<Person>(u"Ada"_s, u"Lead"_s, RelationshipType::manager), launchTime,
            u"notes"_s);
        auto goal = std::make_shared<Goal>(u"Grow"_s, QString(), std::nullopt);
        for (const std::shared_ptr<Record> &record : std::initializer_list<std::shared_ptr<Record>>{
                 image, std::make_shared<ActionItem>(u"do"_s, meeting),
                 std::make_shared<GoalMilestone>(u"step"_s, 0, goal),
                 std::make_shared<TaskItem>(u"task"_s, 0, std::nullopt),
                 std::make_shared<Document>(u"cv"_s, DocumentCategory::other, u"text"_s),
                 std::make_shared<Tag>(u"tag"_s),
                 std::make_shared<InboxItem>(InboxItemKind::reminder, u"t"_s, u"b"_s),
                 std::make_shared<AIInteraction>(u"star_story"_s, u"p"_s, u"r"_s),
                 std::make_shared<WeeklyBrief>(launchTime, launchTime, u"c"_s, u"[]"_s, 1, 1),
                 std::make_shared<SavedStory>(u"t"_s, u"c"_s, u"s"_s),
                 std::make_shared<PerformanceReview>(launchTime, launchTime, u"2026"_s,
                                                     PerformanceFormat::narrative, u"t"_s, u"c"_s,
                                                     1, 1)})
            context.insert(record);
        context.save();
        entry.reset(), image.reset(), meeting.reset(), goal.reset();
        for (const auto &key : {Prefs::userProfileName, Prefs::userProfileEmail})
            app.preferences().set(key, u"Ada"_s);
        app.preferences().set(Prefs::userProfileAvatar, QByteArray("face"));
        app.preferences().set(Prefs::aiProvider, u"claude"_s);
        app.preferences().set(Prefs::dailyReminderHour, 8);

        QSignalSpy notices(&NoticeCenter::shared(), &NoticeCenter::posted);
        const int generation = DataGeneration::current();
        // The provider keys go as well, wherever they are kept.
        QVERIFY(QCoro::waitFor(app.eraseAllData()));

        QCOMPARE(DataGeneration::current(), generation + 1);
        QCOMPARE(notices.count(), 1);
        QCOMPARE(notices.at(0).at(0).toString(), u"tovren.data.erased"_s);
        QCOMPARE(filesIn(DataLocations::imagesDir()), QStringList());
        QVERIFY(!context.hasChanges());
        for (const Entity *entity : StoreSchema::current().entities) {
            const qint64 rows = app.container()
                                    .database()
                                    .scalar(u"SELECT count(*) FROM \""_s + entity->name + u'"')
                                    .toLongLong();
            QCOMPARE(rows, entity->name == u"PerformanceReview"_s ? 1 : 0);
        }
        for (const QString &key : {Prefs::userProfileName.name, Prefs::userProfileEmail.name,
                                   Prefs::userProfileAvatar.name})
            QVERIFY2(!app.preferences().contains(key), qPrintable(key));
        QCOMPARE(app.preferences().value(Prefs::aiProvider), u"claude"_s);
        QCOMPARE(app.preferences().value(Prefs::dailyReminderHour), 8);
        QTRY_COMPARE(assistant.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(app.mcpServer().activeSessionCount(), 0);
        QVERIFY(app.mcpServer().isRunning());
    }

    // Each showing of the window does the appearance work again: a notice pending since, the
    // profile as it is now, the deferred work. This launch's own notice is raised once.
    void everyShowingDoesTheAppearanceWork()
    {
        TempDataDir dir;
        FixedClock clock(launchTime);
        writeFile(DataLocations::storePath(), QByteArray(5000, 'x'));
        TovrenApp app(LaunchSteps::standard());
        app.preferences().set(Prefs::aiProvider, u"claude"_s); // no on-device model check
        app.start();
        MainWindow window(app);
        const auto showAgain = [&window] {
            window.hide();
            window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&window));
        };
        showAgain();
        QCOMPARE(window.windowTitle(), u"Tovren"_s);
        QCOMPARE(window.size(), QSize(1240, 800));
        QVERIFY(window.recoveryAlert());
        QCOMPARE(window.recoveryAlert()->windowTitle(), u"Database recovered"_s);
        QCOMPARE(window.recoveryAlert()->text(), *app.recoveryNotice());
        QVERIFY(!app.preferences().contains(Prefs::pendingRecoveryNotice.name));
        const auto rows = app.mainContext().fetch<InboxItem>();
        QCOMPARE(rows.size(), 1);
        QCOMPARE(QStringList({rows[0]->kindRaw, rows[0]->title, rows[0]->body}),
                 QStringList({u"system"_s, u"Database recovered"_s, *app.recoveryNotice()}));
        QCOMPARE(rows[0]->createdAt, launchTime);
        QVERIFY(!rows[0]->readAt && !rows[0]->payload && !rows[0]->actionLabel &&
                !rows[0]->actionRoute);
        window.recoveryAlert()->button(QMessageBox::Ok)->click();
        QTRY_VERIFY(!window.recoveryAlert());

        auto profile = std::make_shared<Document>(u"About me"_s, DocumentCategory::aboutMe, u""_s);
        profile->userName = u"Ada Lovelace"_s;
        profile->avatarData = QByteArray("picture");
        app.mainContext().insert(profile);
        for (int i = 0; i < 10; ++i)
            app.mainContext().insert(
                std::make_shared<DailyEntry>(u"day"_s, launchTime.addDays(-i), false));
        app.mainContext().save();
        app.preferences().set(Prefs::pendingRecoveryNotice, u"Restored your journal."_s);
        showAgain();
        QVERIFY(window.recoveryAlert());
        QCOMPARE(window.recoveryAlert()->windowTitle(), u"Journal restored"_s);
        QCOMPARE(app.preferences().value(Prefs::userProfileName), u"Ada Lovelace"_s);
        QCOMPARE(app.preferences().value(Prefs::userProfileAvatar), QByteArray("picture"));
        QTRY_COMPARE(rowsTitled(app, u"Sharpen your recaps and reviews"_s), 1);
        window.recoveryAlert()->button(QMessageBox::Ok)->click();

        showAgain();
        QTest::qWait(50);
        QVERIFY(!window.recoveryAlert());
        QCOMPARE(rowsTitled(app, u"Database recovered"_s), 1);
        QCOMPARE(rowsTitled(app, u"Journal restored"_s), 1);
        QCOMPARE(rowsTitled(app, u"Sharpen your recaps and reviews"_s), 1);
    }
};

QTEST_MAIN(StartupTest)
#include "tst_startup.moc"
