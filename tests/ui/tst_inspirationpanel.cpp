#include "../writing/WritingTestMain.h"
#include "FakeHttpServer.h"
#include "TestSupport.h"
#include "TovrenProcess.h"

#include "app/TovrenApp.h"
#include "core/records/DailyEntry.h"
#include "core/records/Goal.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContext.h"
#include "ui/MainWindow.h"
#include "ui/journal/InspirationPanel.h"
#include "ui/journal/JournalScreen.h"
#include "ui/journal/JournalTextEdit.h"
#include "writing/JournalPageEditor.h"

#include <QAbstractButton>
#include <QApplication>
#include <QJsonArray>
#include <QLabel>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Wednesday morning in Berlin.
const QDateTime now(QDate(2026, 11, 18), QTime(9, 30), Qt::UTC);

const QString emptyWords = u"Completed tasks, today's meetings, and yesterday's plans show up "
                           u"here. Tap any to drop it into your writing."_s;

// The on-device model server, for task phrasing. Without a model it phrases nothing; with one,
// every request is answered with `phrases`.
struct ModelServer {
    FakeHttpServer server;

    ModelServer()
    {
        serve({});
        qputenv("TOVREN_ONDEVICE_URL", server.url().toString().toUtf8());
    }
    ~ModelServer() { qunsetenv("TOVREN_ONDEVICE_URL"); }

    void serve(const QString &phrases)
    {
        server.setHandler([phrases](const FakeHttpServer::Request &request) {
            if (request.path() == u"/api/tags"_s) {
                const QJsonArray models = phrases.isEmpty()
                                              ? QJsonArray()
                                              : QJsonArray{QJsonObject{{u"name"_s, u"m:1b"_s}}};
                return FakeHttpServer::Response{
                    200, QJsonDocument(QJsonObject{{u"models"_s, models}}).toJson()};
            }
            if (request.path() == u"/api/show"_s)
                return FakeHttpServer::Response{200, R"({"capabilities":["completion"]})"};
            const QJsonObject message{{u"role"_s, u"assistant"_s}, {u"content"_s, phrases}};
            return FakeHttpServer::Response{
                200, QJsonDocument(QJsonObject{{u"message"_s, message}}).toJson()};
        });
    }
};

// A Tovren on a fresh data folder whose today has a finished task and goal, a 1:1 and
// yesterday's plan; the journal screen is built as the other journal tests build it.
struct Journal {
    TempDataDir dir;
    FixedClock clock{now, testCalendar()};
    ModelServer model;
    TovrenApp app{LaunchSteps::standard()};
    std::unique_ptr<JournalScreen> screen;

    explicit Journal(bool withDay = true)
    {
        app.start();
        if (withDay)
            fillDay();
        QVERIFY(context().trySave());
    }

    void open()
    {
        screen = std::make_unique<JournalScreen>(app);
        screen->resize(1200, 760);
        screen->show();
        QVERIFY(QTest::qWaitForWindowActive(screen.get()));
    }

    void fillDay()
    {
        complete(u"ship the parser"_s, day(0).addSecs(8 * 3600));
        complete(u"Old task"_s, day(1).addSecs(15 * 3600));
        auto goal = std::make_shared<Goal>(u"Lead a project"_s, QString(), std::nullopt);
        goal->status = GoalStatus::completed;
        context().insert(goal);
        auto ana = std::make_shared<Person>(u"Ana"_s, u"EM"_s, RelationshipType::manager);
        context().insert(ana);
        context().insert(
            std::make_shared<Meeting>(ana, day(0).addSecs(10 * 3600), u"Talked roadmap\nmore"_s));
        context().insert(std::make_shared<DailyEntry>(
            u"## Plan\n- [ ] write the RFC\n- [x] book the room\n- call Ben"_s, day(1), false));
    }

    void complete(const QString &title, const QDateTime &when)
    {
        auto task = std::make_shared<TaskItem>(title, 0, std::nullopt);
        task->isCompleted = true;
        task->completedAt = when;
        context().insert(task);
    }

    ModelContext &context() { return app.mainContext(); }
    JournalTextEdit *editor() const { return screen->editor(); }
    InspirationPanel *tray() const { return screen->findChild<InspirationPanel *>(); }

    QDateTime day(int daysAgo) const
    {
        const Calendar calendar = Calendar::current();
        return calendar.startOfDay(calendar.day(now).addDays(-daysAgo));
    }

    // What the column shows, as a screen reader reads each card.
    QStringList offered() const
    {
        QStringList names;
        for (QAbstractButton *button : tray()->buttons())
            names.append(button->accessibleName());
        return names;
    }
    QAbstractButton *offer(const QString &name) const
    {
        for (QAbstractButton *button : tray()->buttons()) {
            if (button->accessibleName() == name)
                return button;
        }
        return nullptr;
    }

    QString stored(int daysAgo = 0)
    {
        return JournalPageEditor::joinedText(
            JournalPageEditor::storedEntries(day(daysAgo), context()));
    }
};

const QString taskOffer = u"Completed task: Ship the parser"_s;
const QString goalOffer = u"Goal completed: Goal completed: Lead a project"_s;
const QString meetingOffer = u"Meeting today: 1:1 with Ana: Talked roadmap"_s;
const QString rfcOffer = u"From yesterday's plan: write the RFC"_s;
const QString benOffer = u"From yesterday's plan: call Ben"_s;

} // namespace

class TestInspirationPanel : public QObject {
    Q_OBJECT

private slots:
    void offersTheDayInOrder()
    {
        Journal journal;
        journal.open();
        QTRY_COMPARE(journal.offered(),
                     (QStringList{taskOffer, goalOffer, meetingOffer, rfcOffer, benOffer}));
        QVERIFY(!journal.tray()->emptyLabel()->isVisible());
        QVERIFY(journal.tray()->buttons().first()->isVisible());

        // A task finished elsewhere (the Tasks tab, an assistant) joins once it is saved.
        journal.complete(u"review the RFC"_s, now);
        QVERIFY(journal.context().trySave());
        QTRY_COMPARE(journal.offered().mid(0, 2),
                     (QStringList{taskOffer, u"Completed task: Review the RFC"_s}));
    }

    void choosingAddsALineThatSavesAfterTheDebounce_data()
    {
        columns<QString, QString>("how", "offer");
        QTest::newRow("mouse") << u"mouse"_s << meetingOffer;
        QTest::newRow("Enter") << u"enter"_s << rfcOffer;
        QTest::newRow("Space") << u"space"_s << goalOffer;
    }

    void choosingAddsALineThatSavesAfterTheDebounce()
    {
        const auto [how, offer] = fetch<QString, QString>("how", "offer");
        Journal journal;
        journal.context().insert(
            std::make_shared<DailyEntry>(u"Morning notes"_s, journal.day(0), false));
        QVERIFY(journal.context().trySave());
        journal.open();
        QTRY_VERIFY(journal.offer(offer));
        QAbstractButton *button = journal.offer(offer);
        if (how == u"mouse"_s) {
            QTest::mouseClick(button, Qt::LeftButton);
        } else {
            button->setFocus(Qt::TabFocusReason);
            QVERIFY(button->hasFocus());
            QTest::keyClick(button, how == u"enter"_s ? Qt::Key_Return : Qt::Key_Space);
        }
        const QString line = offer.mid(offer.indexOf(u": "_s) + 2);
        QCOMPARE(journal.editor()->stored(), u"Morning notes\n- "_s + line);
        // It goes the way typing goes: after the pause, not at once.
        QVERIFY(journal.app.saveDebouncer().isPending());
        QCOMPARE(journal.stored(), u"Morning notes"_s);
        journal.app.saveDebouncer().fire();
        QCOMPARE(journal.stored(), u"Morning notes\n- "_s + line);

        QTRY_VERIFY(!journal.offered().contains(offer));
        QCOMPARE(journal.offered().size(), 4);
        QCOMPARE(QApplication::focusWidget(), journal.editor());
    }

    void aUsedOneStaysHiddenAcrossDays()
    {
        Journal journal;
        journal.open();
        QTRY_VERIFY(journal.offer(taskOffer));
        QTest::mouseClick(journal.offer(taskOffer), Qt::LeftButton);
        QTRY_VERIFY(!journal.offered().contains(taskOffer));

        journal.screen->showDay(journal.day(1));
        QTRY_COMPARE(journal.offered(), QStringList{u"Completed task: Old task"_s});
        journal.screen->showDay(journal.day(0));
        QTRY_COMPARE(journal.offered(), (QStringList{goalOffer, meetingOffer, rfcOffer, benOffer}));
        QCOMPARE(journal.stored(), u"- Ship the parser"_s);
    }

    void anEmptyDaySaysWhatWillShow()
    {
        Journal journal(false);
        journal.open();
        QTRY_VERIFY(journal.tray()->emptyLabel()->isVisible());
        QCOMPARE(journal.tray()->emptyLabel()->text(), emptyWords);
        QVERIFY(journal.tray()->buttons().isEmpty());
    }

    void aPhraseReplacesTheTitleWhenItArrives()
    {
        Journal journal;
        journal.model.serve(u"1. Shipped the parser"_s);
        journal.open();
        QTRY_COMPARE(journal.offered().value(0), u"Completed task: Shipped the parser"_s);
        QTest::mouseClick(journal.offer(u"Completed task: Shipped the parser"_s), Qt::LeftButton);
        QCOMPARE(journal.editor()->stored(), u"- Shipped the parser"_s);
    }

    // The page saves every pause in typing and the column reads the day again each time; a task
    // whose phrasing failed is not sent again with each of them.
    void aTaskIsSentToBePhrasedOnce()
    {
        Journal journal;
        journal.model.serve(u"1. Shipped the parser\n2. And more"_s); // one line too many
        journal.open();
        QTRY_COMPARE(journal.model.server.requestsTo(u"/api/chat"_s).size(), 1);
        QTest::keyClicks(journal.editor(), u"Notes"_s);
        journal.app.saveDebouncer().fire();
        journal.complete(u"review the RFC"_s, now);
        QVERIFY(journal.context().trySave());
        QTRY_COMPARE(journal.model.server.requestsTo(u"/api/chat"_s).size(), 2);
        const QByteArray second = journal.model.server.requestsTo(u"/api/chat"_s).last().body;
        QVERIFY(second.contains("review the RFC"));
        QVERIFY(!second.contains("ship the parser"));
        QCOMPARE(journal.offered().value(0), taskOffer);
    }

    // As Tovren's start opens the window, with the tray filled: the caret stays in the page.
    void thePageKeepsTheKeys()
    {
        Journal journal;
        qputenv("TOVREN_MCP_PORT", QByteArray::number(TovrenProcess::freePort()));
        MainWindow window(journal.app);
        window.bringToFront();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        auto *screen = window.findChild<JournalScreen *>();
        QVERIFY(screen);
        auto *tray = screen->findChild<InspirationPanel *>();
        QTRY_COMPARE(tray->buttons().size(), 5);
        QVERIFY(tray->isVisible());
        QCOMPARE(QApplication::focusWidget(), screen->editor());
        QTest::keyClicks(QApplication::focusWidget(), u"Hello"_s);
        QCOMPARE(screen->editor()->stored(), u"Hello"_s);
        qunsetenv("TOVREN_MCP_PORT");
    }
};

QTEST_MAIN(TestInspirationPanel)
#include "tst_inspirationpanel.moc"
