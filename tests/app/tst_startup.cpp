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
#include "ui/MainWindow.h"

#include <QAbstractButton>
#include <QDir>
#include <QHostAddress>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QDateTime launchTime(QDate(2026, 11, 15), QTime(12, 57, 30), Qt::UTC);
const QString stamp = u"2026-11-15T12-57-30Z"_s;

void writeFile(const QString &path, const QByteArray &contents)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(contents);
}

QStringList filesIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

LaunchSteps stepsWithNotices(std::optional<QString> legacy, std::optional<QString> restore,
                             QStringList *order = nullptr)
{
    LaunchSteps steps = LaunchSteps::standard();
    steps.legacyImport = [=] {
        if (order)
            order->append(u"legacy"_s);
        return legacy;
    };
    steps.pendingRestore = [=] {
        if (order)
            order->append(u"restore"_s);
        return restore;
    };
    steps.toolGroupDefaults = [=](Preferences &) {
        if (order)
            order->append(u"toolGroups"_s);
    };
    steps.openStore = [=](const ModelContainer::Configuration &configuration) {
        if (order)
            order->append(u"open"_s);
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
        QTest::addColumn<QStringList>("filesBefore");
        QTest::addColumn<bool>("dataRootIsAFile");
        QTest::addColumn<int>("state");
        QTest::addColumn<QStringList>("filesAfter");
        QTest::addColumn<QString>("noticeStart");

        const QString quarantined =
            u"Your local database was unreadable and has been quarantined."_s;
        QTest::newRow("healthy, first launch")
            << QStringList() << false << int(StoreLifecycle::State::normal)
            << QStringList{u"default.store"_s, u"default.store-shm"_s, u"default.store-wal"_s}
            << u"Imported"_s;
        QTest::newRow("damaged, with sidecars")
            << QStringList{u"default.store"_s, u"default.store-shm"_s, u"default.store-wal"_s}
            << false << int(StoreLifecycle::State::rebuilt)
            << QStringList{u"default.store"_s,
                           u"default.store-shm"_s,
                           u"default.store-shm.corrupt-"_s + stamp,
                           u"default.store-wal"_s,
                           u"default.store-wal.corrupt-"_s + stamp,
                           u"default.store.corrupt-"_s + stamp}
            << quarantined;
        QTest::newRow("damaged, main file only")
            << QStringList{u"default.store"_s} << false << int(StoreLifecycle::State::rebuilt)
            << QStringList{u"default.store"_s, u"default.store-shm"_s, u"default.store-wal"_s,
                           u"default.store.corrupt-"_s + stamp}
            << quarantined;
        QTest::newRow("cannot even rebuild")
            << QStringList() << true << int(StoreLifecycle::State::inMemory) << QStringList()
            << u"Couldn't open or rebuild your local database ("_s;
    }
    void openSequence()
    {
        QFETCH(QStringList, filesBefore);
        QFETCH(bool, dataRootIsAFile);
        QFETCH(int, state);
        QFETCH(QStringList, filesAfter);
        QFETCH(QString, noticeStart);

        TempDataDir dir;
        FixedClock clock(launchTime);
        for (const QString &name : filesBefore)
            writeFile(dir.dataRoot() + u'/' + name, QByteArray(5000, 'x'));
        if (dataRootIsAFile) {
            QDir(dir.dataRoot()).removeRecursively();
            writeFile(dir.dataRoot(), "not a folder");
        }

        TovrenApp app(stepsWithNotices(u"Imported your earlier journal."_s, std::nullopt));
        app.start();
        QCOMPARE(int(app.storeState()), state);
        QVERIFY2(app.recoveryNotice().value_or(QString()).startsWith(noticeStart),
                 qPrintable(app.recoveryNotice().value_or(u"(none)"_s)));
        if (!dataRootIsAFile)
            QCOMPARE(filesIn(dir.dataRoot()), filesAfter);
        if (app.storeState() == StoreLifecycle::State::rebuilt)
            QVERIFY(app.recoveryNotice()->contains(u"`.corrupt-"_s + stamp + u"` suffix"_s));
        if (app.storeState() == StoreLifecycle::State::inMemory)
            QVERIFY(app.recoveryNotice()->endsWith(
                u"). Running in memory, so changes won't persist until this is resolved."_s));

        // Whatever happened, the store works.
        ModelContext &context = app.mainContext();
        QCOMPARE(context.fetchCount<DailyEntry>(), 0);
        context.insert(std::make_shared<DailyEntry>(u"still works"_s, launchTime, false));
        context.save();
        QCOMPARE(context.fetch<DailyEntry>().value(0)->content, u"still works"_s);
    }

    void failedOpenWithNothingToMoveSaysRebuilt()
    {
        TempDataDir dir;
        LaunchSteps steps = LaunchSteps::standard();
        int attempts = 0;
        steps.openStore = [&](const ModelContainer::Configuration &configuration) {
            if (++attempts == 1)
                throw StoreError(u"disk I/O error"_s);
            return StoreLifecycle::openContainer(configuration);
        };
        TovrenApp app(steps);
        app.start();
        QCOMPARE(app.recoveryNotice(),
                 u"We rebuilt your local database after a corruption error."_s);
        QCOMPARE(filesIn(dir.dataRoot()).filter(u"corrupt"_s), QStringList());
    }

    void launchStepsRunInOrderAndRestoreWins_data()
    {
        QTest::addColumn<QString>("legacy");
        QTest::addColumn<QString>("restore");
        QTest::addColumn<QString>("notice");
        QTest::addColumn<QString>("title");
        QTest::newRow("restore replaces import")
            << u"Imported 12 entries."_s << u"Restored your journal from 14 Nov."_s
            << u"Restored your journal from 14 Nov."_s << u"Journal restored"_s;
        QTest::newRow("import alone") << u"Imported 12 entries."_s << QString()
                                      << u"Imported 12 entries."_s << u"Database recovered"_s;
        QTest::newRow("nothing to say") << QString() << QString() << QString() << QString();
    }
    void launchStepsRunInOrderAndRestoreWins()
    {
        QFETCH(QString, legacy);
        QFETCH(QString, restore);
        QFETCH(QString, notice);
        QFETCH(QString, title);
        TempDataDir dir;
        QStringList order;
        auto optional = [](const QString &s) {
            return s.isNull() ? std::nullopt : std::optional(s);
        };
        TovrenApp app(stepsWithNotices(optional(legacy), optional(restore), &order));
        app.start();
        QCOMPARE(order, QStringList({u"legacy"_s, u"restore"_s, u"toolGroups"_s, u"open"_s}));
        QCOMPARE(app.recoveryNotice().value_or(QString()), notice);
        app.shellDidAppear();
        const auto alert = app.firstPageDidAppear();
        QCOMPARE(alert.has_value(), !notice.isNull());
        if (alert) {
            QCOMPARE(alert->title, title);
            QCOMPARE(alert->text, notice);
        }
    }

    void recoveryNoticeBecomesAlertAndOneInboxRow()
    {
        TempDataDir dir;
        FixedClock clock(launchTime);
        writeFile(DataLocations::storePath(), QByteArray(5000, 'x'));
        TovrenApp app(LaunchSteps::standard());
        app.start();
        app.shellDidAppear();
        QCOMPARE(app.preferences().value(Prefs::pendingRecoveryNotice), app.recoveryNotice());

        const auto alert = app.firstPageDidAppear();
        QVERIFY(alert);
        QCOMPARE(alert->title, u"Database recovered"_s);
        QCOMPARE(alert->text, *app.recoveryNotice());
        QVERIFY(!app.preferences().contains(Prefs::pendingRecoveryNotice.name));
        QVERIFY(!app.firstPageDidAppear()); // read once, then gone

        const auto rows = app.mainContext().fetch<InboxItem>();
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows[0]->kind(), InboxItemKind::system);
        QCOMPARE(rows[0]->kindRaw, u"system"_s);
        QCOMPARE(rows[0]->title, u"Database recovered"_s);
        QCOMPARE(rows[0]->body, *app.recoveryNotice());
        QCOMPARE(rows[0]->createdAt, launchTime);
        QVERIFY(!rows[0]->readAt && !rows[0]->payload && !rows[0]->actionLabel &&
                !rows[0]->actionRoute);
    }

    // A launch that never shows the first page (no window, or stopped before the shell) keeps
    // the notice for the next one.
    void pendingNoticeWaitsForAFirstPage()
    {
        TempDataDir dir;
        writeFile(DataLocations::storePath(), QByteArray(5000, 'x'));
        QString notice;
        {
            TovrenApp headless(LaunchSteps::standard());
            headless.start();
            headless.shellDidAppear();
            notice = *headless.recoveryNotice();
        }
        TovrenApp next(LaunchSteps::standard());
        next.start();
        QVERIFY(!next.recoveryNotice());
        const auto alert = next.firstPageDidAppear();
        QVERIFY(alert);
        QCOMPARE(alert->text, notice);
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

    void eraseAllDataKeepsOnlyReviewsAndSettings()
    {
        TempDataDir dir;
        TovrenApp app(LaunchSteps::standard());
        app.start();
        ModelContext &context = app.mainContext();
        auto entry = std::make_shared<DailyEntry>(u"page #tag"_s, launchTime, true);
        auto image = std::make_shared<EntryImage>(QByteArray("png"), std::nullopt, entry);
        QVERIFY(ImageStorage::save(QByteArray("png"), image->id));
        auto person = std::make_shared<Person>(u"Ada"_s, u"Lead"_s, RelationshipType::manager);
        auto meeting = std::make_shared<Meeting>(person, launchTime, u"notes"_s);
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
        entry.reset(), image.reset(), person.reset(), meeting.reset(), goal.reset();
        app.preferences().set(Prefs::userProfileName, u"Ada"_s);
        app.preferences().set(Prefs::userProfileEmail, u"ada@example.com"_s);
        app.preferences().set(Prefs::userProfileAvatar, QByteArray("face"));
        app.preferences().set(Prefs::aiProvider, u"claude"_s);
        app.preferences().set(Prefs::dailyReminderHour, 8);

        QSignalSpy notices(&NoticeCenter::shared(), &NoticeCenter::posted);
        const int generation = DataGeneration::current();
        app.eraseAllData();

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
        QVERIFY(!app.preferences().contains(Prefs::userProfileName.name));
        QVERIFY(!app.preferences().contains(Prefs::userProfileEmail.name));
        QVERIFY(!app.preferences().contains(Prefs::userProfileAvatar.name));
        QCOMPARE(app.preferences().value(Prefs::aiProvider), u"claude"_s);
        QCOMPARE(app.preferences().value(Prefs::dailyReminderHour), 8);
    }

    void eraseAllDataDropsAssistantConnections()
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

        app.eraseAllData();
        QTRY_COMPARE(assistant.state(), QAbstractSocket::UnconnectedState);
        QCOMPARE(app.mcpServer().activeSessionCount(), 0);
        QVERIFY(app.mcpServer().isRunning()); // the listener itself stays on
    }

    void firstPageMirrorsTheProfile()
    {
        TempDataDir dir;
        TovrenApp app(LaunchSteps::standard());
        app.start();
        auto profile = std::make_shared<Document>(u"About me"_s, DocumentCategory::aboutMe, u""_s);
        profile->userName = u"Ada Lovelace"_s;
        profile->avatarData = QByteArray("picture");
        app.mainContext().insert(profile);
        app.mainContext().save();
        app.preferences().set(Prefs::userProfileAvatar, QByteArray("stale"));
        app.firstPageDidAppear();
        QCOMPARE(app.preferences().value(Prefs::userProfileName), u"Ada Lovelace"_s);
        QCOMPARE(app.preferences().value(Prefs::userProfileAvatar), QByteArray("picture"));
    }

    void mainWindowRaisesTheRecoveryAlert()
    {
        TempDataDir dir;
        writeFile(DataLocations::storePath(), QByteArray(5000, 'x'));
        TovrenApp app(LaunchSteps::standard());
        app.start();
        MainWindow window(app);
        window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(window.windowTitle(), u"Tovren"_s);
        QCOMPARE(window.size(), QSize(1240, 800));
        QVERIFY(window.recoveryAlert());
        QCOMPARE(window.recoveryAlert()->windowTitle(), u"Database recovered"_s);
        QCOMPARE(window.recoveryAlert()->text(), *app.recoveryNotice());
        QCOMPARE(app.mainContext().fetchCount<InboxItem>(), 1);
        window.recoveryAlert()->button(QMessageBox::Ok)->click();
        QTRY_VERIFY(!window.recoveryAlert());
    }
};

QTEST_MAIN(StartupTest)
#include "tst_startup.moc"
