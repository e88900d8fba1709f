#include "FakeModelServer.h"
#include "TestSupport.h"

#include "ai/AIInstructionBuilder.h"
#include "app/TovrenApp.h"
#include "core/records/DailyEntry.h"
#include "core/store/ModelContext.h"
#include "generators/EntrySummaryGenerator.h"
#include "ui/journal/JournalScreen.h"
#include "ui/journal/JournalTextEdit.h"
#include "writing/JournalPageEditor.h"

#include <QLabel>
#include <QMenu>
#include <QRegularExpression>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Wednesday morning in Berlin.
const QDateTime now(QDate(2026, 11, 18), QTime(9, 30), Qt::UTC);

// A page long enough for a summary, told apart by its first word.
QString longPage(const QString &name)
{
    return name + u": shipped the importer rewrite and paired with Ana on the flaky login test. "
                  u"We traced it to a race in the session cache and agreed to move the cache "
                  u"behind a single owner, then reviewed two pull requests for billing."_s;
}

// The model server on this computer, as Tovren finds it when it starts.
struct ModelServerForTovren {
    FakeModelServer model;
    ModelServerForTovren() { qputenv("TOVREN_ONDEVICE_URL", model.url().toString().toUtf8()); }
    ~ModelServerForTovren() { qunsetenv("TOVREN_ONDEVICE_URL"); }
};

// A Tovren with its journal screen on a fresh data folder; the model summarises a page as
// "Summary {n} of {its first word}".
struct Journal {
    ModelServerForTovren server;
    TempDataDir dir;
    FixedClock clock{now, testCalendar()};
    TovrenApp app{LaunchSteps::standard()};
    std::unique_ptr<JournalScreen> screen;
    int answers = 0;

    explicit Journal(const QList<std::pair<int, QString>> &pages)
    {
        server.model.reply = [this](const FakeModelServer::Request &request) {
            const QString entry = FakeModelServer::prompt(request).section(u"Entry:\n"_s, 1);
            return u"Summary %1 of %2."_s.arg(++answers).arg(entry.section(u':', 0, 0));
        };
        app.start();
        for (const auto &[daysAgo, text] : pages)
            context().insert(std::make_shared<DailyEntry>(text, day(daysAgo), false));
        QVERIFY(context().trySave());
        screen = std::make_unique<JournalScreen>(app);
        screen->resize(1100, 760);
        screen->show();
        QVERIFY(QTest::qWaitForWindowActive(screen.get()));
    }

    ModelContext &context() { return app.mainContext(); }
    EntrySummaryGenerator *summaries() const { return screen->summaries(); }
    QLabel *label() const { return screen->findChild<QLabel *>(u"entrySummary"_s); }
    QList<FakeModelServer::Request> chats() const { return server.model.chats(); }

    QDateTime day(int daysAgo) const
    {
        const Calendar calendar = Calendar::current();
        return calendar.startOfDay(calendar.day(now).addDays(-daysAgo));
    }

    std::optional<QString> summary(int daysAgo)
    {
        const auto entries = JournalPageEditor::storedEntries(day(daysAgo), context());
        return entries.isEmpty() ? std::nullopt : entries.first()->summary;
    }

    QAction *regenerate() const
    {
        for (QMenu *menu : screen->findChildren<QMenu *>()) {
            for (QAction *action : menu->actions()) {
                if (action->text() == u"Regenerate summary"_s)
                    return action;
            }
        }
        return nullptr;
    }

    void waitForSummaries()
    {
        QTRY_VERIFY(!summaries()->isGenerating());
        QVERIFY(summaries()->pendingEntryIds().isEmpty());
    }
};

} // namespace

class TestJournalSummaries : public QObject {
    Q_OBJECT

private slots:
    void longDaysAreSummarisedWhenTheJournalOpens()
    {
        Journal journal({{1, longPage(u"Tuesday"_s)},
                         {2, longPage(u"Monday"_s)},
                         {3, longPage(u"Sunday"_s)},
                         {4, u"Saturday: a short note."_s}});
        QTRY_COMPARE(journal.chats().size(), 3);
        journal.waitForSummaries();
        QCOMPARE(journal.chats().size(), 3);

        const QString system = AIInstructionBuilder::systemInstruction(journal.app.preferences());
        const QMap<QString, QString> dates{{u"Tuesday"_s, u"2026-11-17"_s},
                                           {u"Monday"_s, u"2026-11-16"_s},
                                           {u"Sunday"_s, u"2026-11-15"_s}};
        QStringList days;
        for (const auto &request : journal.chats()) {
            QCOMPARE(FakeModelServer::system(request), system);
            const QString prompt = FakeModelServer::prompt(request);
            const QString name = prompt.section(u"Entry:\n"_s, 1).section(u':', 0, 0);
            days.append(name);
            // No profile yet: the today line, the request, the page.
            QCOMPARE(prompt, u"Today is "_s + dates.value(name) + u'.' +
                                 EntrySummaryGenerator::instruction + longPage(name));
        }
        days.sort();
        QCOMPARE(days, (QStringList{u"Monday"_s, u"Sunday"_s, u"Tuesday"_s}));
        QVERIFY(journal.summary(1)->endsWith(u"of Tuesday."_s));
        QCOMPARE(journal.summary(4), std::nullopt);

        // Today has no page yet, so nothing to sum up above it.
        QVERIFY(!journal.label()->isVisible());
        journal.screen->showDay(journal.day(1));
        QVERIFY(journal.label()->isVisible());
        QCOMPARE(journal.label()->text(), *journal.summary(1));
        // Above the page, not in it.
        QVERIFY(journal.label()->mapTo(journal.screen.get(), QPoint()).y() <
                journal.screen->editor()->mapTo(journal.screen.get(), QPoint()).y());
        journal.screen->showDay(journal.day(4));
        QVERIFY(!journal.label()->isVisible());
        journal.screen->showDay(journal.day(2));
        QVERIFY(journal.label()->text().endsWith(u"of Monday."_s));
    }

    void regenerateAsksForANewSummary()
    {
        Journal journal({{1, longPage(u"Tuesday"_s)}});
        QTRY_COMPARE(journal.chats().size(), 1);
        journal.waitForSummaries();
        QAction *regenerate = journal.regenerate();
        QVERIFY(regenerate);
        QVERIFY(!regenerate->isEnabled()); // today has no page

        journal.screen->showDay(journal.day(1));
        QVERIFY(regenerate->isEnabled());
        QCOMPARE(journal.label()->text(), u"Summary 1 of Tuesday."_s);
        regenerate->trigger();
        // The old summary goes at once; the page shows none until the new one is in.
        QCOMPARE(journal.summary(1), std::nullopt);
        QVERIFY(!journal.label()->isVisible());
        QTRY_VERIFY(journal.label()->isVisible());
        QCOMPARE(journal.label()->text(), u"Summary 2 of Tuesday."_s);
        QCOMPARE(journal.chats().size(), 2);
        QCOMPARE(FakeModelServer::prompt(journal.chats().last()).section(u"Entry:\n"_s, 1),
                 longPage(u"Tuesday"_s));
    }

    void savedPageGetsItsSummary()
    {
        Journal journal({{1, u"Tuesday: short."_s}});
        journal.waitForSummaries();
        QVERIFY(journal.chats().isEmpty());

        QTest::keyClicks(journal.screen->editor(), longPage(u"Wednesday"_s));
        journal.app.saveDebouncer().fire();
        QTRY_VERIFY(journal.label()->isVisible());
        QCOMPARE(journal.label()->text(), u"Summary 1 of Wednesday."_s);
        QCOMPARE(journal.chats().size(), 1);
    }
};

QTEST_MAIN(TestJournalSummaries)
#include "tst_journalsummaries.moc"
