// Demo mode as the user meets it in the window: the banner and the menu command, every tab
// made anew over the sample and back over the journal, the assistant following along, and an
// erase that takes only the sample.

#include "TestSupport.h"
#include "TovrenProcess.h"

#include "app/TovrenApp.h"
#include "bridge/MCPServer.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/DailyEntry.h"
#include "core/store/ModelContext.h"
#include "safety/DataSafety.h"
#include "ui/Dialogs.h"
#include "ui/MainWindow.h"
#include "ui/inbox/InboxListModel.h"
#include "ui/inbox/InboxScreen.h"
#include "ui/journal/JournalDayList.h"
#include "ui/journal/JournalScreen.h"
#include "ui/journal/JournalTextEdit.h"
#include "ui/people/PeopleListModel.h"
#include "ui/people/PeopleScreen.h"
#include "ui/settings/DataPane.h"
#include "ui/settings/SettingsWindow.h"
#include "ui/tasks/TaskListModel.h"
#include "ui/tasks/TasksScreen.h"

#include <QAction>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPushButton>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// A Wednesday; the user's own page is on the Sunday before, where the sample has none, and the
// sample's latest page is on the Tuesday, where the user has none.
const QDateTime now(QDate(2026, 11, 18), QTime(9, 30), Qt::UTC);
const QDate sunday(2026, 11, 15);
const QDate tuesday(2026, 11, 17);
const QString ownWords = u"Sunday planning in my own words"_s;

} // namespace

class DemoModeUiTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TempDataDir> m_data;
    std::unique_ptr<FixedClock> m_clock;
    std::unique_ptr<TovrenApp> m_app;
    std::unique_ptr<MainWindow> m_window;

    void launch()
    {
        m_window.reset();
        m_app.reset();
        m_app = std::make_unique<TovrenApp>();
        m_app->start();
        m_window = std::make_unique<MainWindow>(*m_app);
        m_window->bringToFront();
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    }
    template<class S>
    S *screen(SidebarItem item) const
    {
        return qobject_cast<S *>(m_window->screen(item));
    }
    bool journalLists(QDate day) const
    {
        return screen<JournalScreen>(SidebarItem::journal)
                   ->dayList()
                   ->rowOf(Calendar::current().startOfDay(day)) >= 0;
    }
    // Rows of the tabs other than the journal, each as the user sees it on opening the tab.
    QList<int> listRows() const
    {
        const std::optional<SidebarItem> shown = m_window->currentTab();
        QList<int> rows;
        m_window->selectTab(SidebarItem::tasks);
        rows.append(screen<TasksScreen>(SidebarItem::tasks)->model()->rowCount());
        m_window->selectTab(SidebarItem::inbox);
        rows.append(screen<InboxScreen>(SidebarItem::inbox)->model()->rowCount());
        m_window->selectTab(SidebarItem::meetings);
        rows.append(screen<PeopleScreen>(SidebarItem::meetings)->model()->rowCount());
        m_window->selectTab(*shown);
        return rows;
    }
    QStringList bannerTexts() const
    {
        QStringList texts;
        for (const QLabel *label : m_window->demoBanner()->findChildren<QLabel *>())
            texts.append(label->text());
        return texts;
    }
    QString ownJournal()
    {
        m_app->saveDebouncer().fire();
        QStringList texts;
        for (const auto &entry : m_app->realContext().fetch<DailyEntry>())
            texts.append(entry->content);
        return texts.join(u'\n');
    }

private slots:
    void init()
    {
        m_data = std::make_unique<TempDataDir>();
        m_clock = std::make_unique<FixedClock>(now, testCalendar());
        qputenv("TOVREN_MCP_PORT", QByteArray::number(TovrenProcess::freePort()));
        launch();
        m_app->realContext().insert(
            std::make_shared<DailyEntry>(ownWords, Calendar::current().startOfDay(sunday), false));
        m_app->realContext().save();
        launch();
    }

    void cleanup()
    {
        m_window.reset();
        m_app.reset();
        m_clock.reset();
        m_data.reset();
        qunsetenv("TOVREN_MCP_PORT");
    }

    // Whichever tab is showing, the menu command brings the sample under every tab and the
    // banner's Exit brings the journal back, with nothing typed in between reaching it.
    void enterAndExitSwapEveryTab_data()
    {
        QTest::addColumn<int>("tab");
        QTest::newRow("from the journal, typing") << int(SidebarItem::journal);
        QTest::newRow("from tasks") << int(SidebarItem::tasks);
        QTest::newRow("from the inbox") << int(SidebarItem::inbox);
        QTest::newRow("from people") << int(SidebarItem::meetings);
    }
    void enterAndExitSwapEveryTab()
    {
        QFETCH(int, tab);
        const auto shown = SidebarItem(tab);
        QVERIFY(m_window->demoBanner()->isHidden());
        QCOMPARE(m_window->demoAction()->text(), u"Enter Demo Mode"_s);
        const QList<int> ownRows = listRows();
        QVERIFY(journalLists(sunday) && !journalLists(tuesday));
        if (shown == SidebarItem::journal) {
            m_window->newEntry();
            QTest::keyClicks(screen<JournalScreen>(shown)->editor(), u"half a thought"_s);
            QVERIFY(m_app->saveDebouncer().isPending());
        }
        m_window->selectTab(shown);

        m_window->demoAction()->trigger();
        QVERIFY(m_app->isDemoActive());
        QVERIFY(m_window->demoBanner()->isVisible());
        const QStringList texts = bannerTexts();
        QVERIFY2(texts.contains(u"Demo mode"_s) && texts.contains(u"Nothing here is saved"_s) &&
                     texts.contains(u"A filled-in Tovren, here to explore. Your own journal is "
                                    "untouched."_s),
                 qPrintable(texts.join(u" | "_s)));
        // Along the bottom, under the tab rather than over any of it.
        const auto bannerBelowTab = [this, shown] {
            const QRect banner = m_window->demoBanner()->geometry();
            const QWidget *page = m_window->screen(shown);
            const QRect tabArea(page->mapTo(m_window->centralWidget(), QPoint()), page->size());
            const QRect area = m_window->centralWidget()->rect();
            return banner.bottom() == area.bottom() && banner.right() == area.right() &&
                   !banner.intersects(tabArea) && tabArea.bottom() + 1 == banner.top();
        };
        QTRY_VERIFY(bannerBelowTab());
        QCOMPARE(m_window->demoAction()->text(), u"Exit Demo Mode"_s);
        QCOMPARE(m_window->currentTab(), shown);
        QVERIFY(journalLists(tuesday) && !journalLists(sunday));
        const QList<int> sampleRows = listRows();
        for (qsizetype i = 0; i < ownRows.size(); ++i)
            QVERIFY2(sampleRows.at(i) > ownRows.at(i), qPrintable(QString::number(i)));

        auto *journal = screen<JournalScreen>(SidebarItem::journal);
        journal->focusToday();
        QTest::keyClicks(journal->editor(), u"exploring the sample"_s);
        auto *exit = m_window->demoBanner()->findChild<QPushButton *>(u"exitDemo"_s);
        QCOMPARE(exit->text(), u"Exit"_s);
        QTest::mouseClick(exit, Qt::LeftButton);

        QVERIFY(!m_app->isDemoActive());
        QVERIFY(m_window->demoBanner()->isHidden());
        QCOMPARE(m_window->demoAction()->text(), u"Enter Demo Mode"_s);
        QCOMPARE(m_window->currentTab(), shown);
        QVERIFY(journalLists(sunday) && !journalLists(tuesday));
        QCOMPARE(listRows(), ownRows);
        QCOMPARE(ownJournal(), ownWords);
        QVERIFY(!m_app->preferences().value(Prefs::demoModeActive));
    }

    // Quit in demo mode, start again: the window opens on a fresh sample, and none of the work
    // that waits for the journal's first showing runs over it.
    void relaunchOpensOnTheSample()
    {
        m_window->demoAction()->trigger();
        launch();
        QVERIFY(m_app->isDemoActive());
        QVERIFY(m_window->demoBanner()->isVisible());
        QVERIFY(journalLists(tuesday) && !journalLists(sunday));
        // The library nudge would find the sample's ten pages and its documents.
        QTest::qWait(0);
        QVERIFY(!m_app->preferences().value(Prefs::libraryNudgePosted));
        m_window->demoAction()->trigger();
        QVERIFY(journalLists(sunday));
        // Straight back in, while the last sample is still being retired.
        m_window->demoAction()->trigger();
        QVERIFY(journalLists(tuesday) && !journalLists(sunday));
    }

    // An assistant reads the store the window shows.
    void assistantFollowsTheShell()
    {
        m_app->preferences().set(Prefs::mcpServerEnabled, true);
        NoticeCenter::shared().post(Notices::mcpToggle);
        QTRY_VERIFY(m_app->mcpServer().isRunning());
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_app->mcpServer().serverPort());
        QVERIFY(socket.waitForConnected(2000));
        int id = 0;
        const auto call = [&](const QByteArray &method, const QJsonObject &params) {
            const QJsonObject request{{u"jsonrpc"_s, u"2.0"_s},
                                      {u"id"_s, ++id},
                                      {u"method"_s, QString::fromLatin1(method)},
                                      {u"params"_s, params}};
            socket.write(QJsonDocument(request).toJson(QJsonDocument::Compact) + '\n');
            (void)QTest::qWaitFor([&socket] { return socket.canReadLine(); }, 5000);
            return QString::fromUtf8(socket.readLine());
        };
        const auto entries = [&] {
            return call("tools/call", {{u"name"_s, u"get_entries"_s}, {u"arguments"_s, {}}});
        };
        call("initialize", {});
        QVERIFY(entries().contains(ownWords));
        m_window->demoAction()->trigger();
        const QString sample = entries();
        QVERIFY2(sample.contains(u"cutover runbook"_s) && !sample.contains(ownWords),
                 qPrintable(sample));
        m_window->demoAction()->trigger();
        QVERIFY(entries().contains(ownWords));
    }

    // Erase All Data in demo mode empties the sample and leaves the journal and the profile be.
    void eraseInDemoTakesOnlyTheSample()
    {
        m_app->preferences().set(Prefs::userProfileName, u"Sam Okoro"_s);
        m_window->demoAction()->trigger();
        auto *pane = qobject_cast<DataPane *>(m_window->settingsWindow()->pane(u"Data"_s));
        Dialogs::queueAnswers({true});
        pane->findChild<QPushButton *>(u"eraseAllData"_s)->click();
        QTRY_COMPARE(m_app->mainContext().fetchCount<DailyEntry>(), 0);
        QTRY_VERIFY(!journalLists(tuesday));
        QCOMPARE(m_app->preferences().value(Prefs::userProfileName), u"Sam Okoro"_s);
        m_window->demoAction()->trigger();
        QCOMPARE(ownJournal(), ownWords);
        QVERIFY(journalLists(sunday));
    }
};

QTEST_MAIN(DemoModeUiTest)
#include "tst_demomode_ui.moc"
