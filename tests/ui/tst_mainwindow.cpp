#include "TestSupport.h"
#include "TovrenProcess.h"

#include "app/TovrenApp.h"
#include "bridge/JournalTools.h"
#include "bridge/MCPServer.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/DailyEntry.h"
#include "core/store/ModelContext.h"
#include "ui/Dialogs.h"
#include "ui/MainWindow.h"
#include "ui/journal/JournalScreen.h"
#include "ui/journal/JournalTextEdit.h"
#include "ui/journal/PickerPopup.h"
#include "ui/settings/DataPane.h"
#include "ui/settings/MCPConnectorSection.h"
#include "ui/settings/SettingsWindow.h"
#include "writing/JournalPageEditor.h"

#include <QApplication>
#include <QCheckBox>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPushButton>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QDateTime now(QDate(2026, 11, 18), QTime(9, 30), Qt::UTC);

} // namespace

// The real main window, driven as a user would: typing, moving between days, an assistant
// writing at the same time, the listener switched on through its consent, everything erased.
class MainWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<TempDataDir> m_data;
    std::unique_ptr<FixedClock> m_clock;
    std::unique_ptr<TovrenApp> m_app;
    std::unique_ptr<MainWindow> m_window;

    JournalScreen *journal() const
    {
        return qobject_cast<JournalScreen *>(m_window->screen(SidebarItem::journal));
    }
    QDateTime day(int daysAgo) const
    {
        const Calendar calendar = Calendar::current();
        return calendar.startOfDay(calendar.day(now).addDays(-daysAgo));
    }
    QString stored(int daysAgo)
    {
        m_app->saveDebouncer().fire();
        return JournalPageEditor::joinedText(
            JournalPageEditor::storedEntries(day(daysAgo), m_app->mainContext()));
    }

    // One line to the listener and its answer, as an assistant sends them.
    QJsonObject call(QTcpSocket &socket, const QByteArray &line)
    {
        socket.write(line + '\n');
        QElapsedTimer waited;
        waited.start();
        while (!socket.canReadLine() && waited.elapsed() < 5000)
            QTest::qWait(10);
        return QJsonDocument::fromJson(socket.readLine()).object();
    }

private slots:
    void init()
    {
        m_data = std::make_unique<TempDataDir>();
        m_clock = std::make_unique<FixedClock>(now, testCalendar());
        qputenv("TOVREN_MCP_PORT", QByteArray::number(TovrenProcess::freePort()));
        m_app = std::make_unique<TovrenApp>();
        m_app->start();
        m_window = std::make_unique<MainWindow>(*m_app);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
    }

    void cleanup()
    {
        m_window.reset();
        m_app.reset();
        m_clock.reset();
        m_data.reset();
        qunsetenv("TOVREN_MCP_PORT");
    }

    void shell()
    {
        QCOMPARE(m_window->windowTitle(), u"Tovren"_s);
        QCOMPARE(m_window->size(), QSize(1240, 800));
        QCOMPARE(m_window->tabs(), QList<SidebarItem>{SidebarItem::journal});
        QCOMPARE(m_window->currentTab(), SidebarItem::journal);
        // A tab that has no screen yet is refused, and the selection stays.
        QVERIFY(!m_window->selectTab(SidebarItem::goals));
        NoticeCenter::shared().post(Notices::openTab, {{u"item"_s, u"goals"_s}});
        QCOMPARE(m_window->currentTab(), SidebarItem::journal);
        // Closing the window leaves the application running.
        m_window->close();
        QVERIFY(!m_window->isVisible());
        m_window->bringToFront();
        QVERIFY(m_window->isVisible());
    }

    void typeSwitchDaysAndBack()
    {
        JournalTextEdit *editor = journal()->editor();
        m_window->newEntry();
        QVERIFY(editor->hasFocus());
        QTest::keyClicks(editor, u"- shipped the importer"_s);
        QTest::keyClick(editor, Qt::Key_Return);
        QTest::keyClicks(editor, u"fixed "_s);
        QTest::keyClick(editor, Qt::Key_B, Qt::ControlModifier);
        QTest::keyClicks(editor, u"flaky"_s);
        QTest::keyClick(editor, Qt::Key_B, Qt::ControlModifier);
        QTest::keyClicks(editor, u" tests"_s);
        // Return on the empty item ends the list; the slash menu turns that line into a table,
        // filled cell by cell.
        QTest::keyClick(editor, Qt::Key_Return);
        QTest::keyClick(editor, Qt::Key_Return);
        QTest::keyClicks(editor, u"/"_s);
        PickerPopup *popup = editor->popup();
        QVERIFY(popup->isOpen());
        for (qsizetype i = 0; i < popup->rows().indexOf(u"Table"_s); ++i)
            QTest::keyClick(editor, Qt::Key_Down);
        QTest::keyClick(editor, Qt::Key_Return);
        for (const QString &cell : {u"Who"_s, u"What"_s, u"Ana"_s, u"Docs"_s}) {
            QTest::keyClicks(editor, cell);
            QTest::keyClick(editor, Qt::Key_Tab);
        }
        const QString typed = u"- shipped the importer\n- fixed **flaky** tests\n"
                              u"| Who | What |\n| --- | --- |\n| Ana | Docs |"_s;
        QCOMPARE(editor->stored(), typed);

        // Away to yesterday before the debounce fired, then back: nothing is lost.
        journal()->showDay(day(1));
        QCOMPARE(stored(0), typed);
        QTest::keyClicks(editor, u"Yesterday's line"_s);
        journal()->showDay(day(0));
        QCOMPARE(editor->stored(), typed);
        QCOMPARE(stored(1), u"Yesterday's line"_s);
    }

    // The listener goes on through its consent in Settings; an assistant then adds to today
    // while the user is typing, and both texts are kept.
    void assistantWritesWhileTyping()
    {
        SettingsWindow *settings = m_window->settingsWindow();
        auto *section = qobject_cast<MCPConnectorSection *>(settings->pane(u"Assistant"_s));
        Dialogs::queueAnswers({true});
        section->findChild<QCheckBox *>(u"assistantSwitch"_s)->click();
        QVERIFY(m_app->mcpServer().isRunning());

        JournalTextEdit *editor = journal()->editor();
        m_window->newEntry();
        QTest::keyClicks(editor, u"typing before the save"_s);
        QVERIFY(m_app->saveDebouncer().isPending());

        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_app->mcpServer().serverPort());
        QVERIFY(socket.waitForConnected(2000));
        call(socket, "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\",\"params\":{}}");
        const QJsonObject reply =
            call(socket, "{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"tools/call\",\"params\":"
                         "{\"name\":\"add_journal_entry\",\"arguments\":"
                         "{\"content\":\"assistant: reviewed the plan\"}}}");
        QVERIFY2(!reply.contains(u"error"_s), QJsonDocument(reply).toJson().constData());
        QTRY_VERIFY(editor->stored().contains(u"assistant: reviewed the plan"_s));
        QVERIFY(editor->stored().contains(u"typing before the save"_s));
        QTest::keyClicks(editor, u" and after"_s);
        const QString both = stored(0);
        QVERIFY2(both.contains(u"typing before the save"_s), qPrintable(both));
        QVERIFY2(both.contains(u"assistant: reviewed the plan"_s), qPrintable(both));
        QVERIFY2(both.contains(u" and after"_s), qPrintable(both));
    }

    void eraseAllDataEmptiesTheOpenPage()
    {
        JournalTextEdit *editor = journal()->editor();
        m_window->newEntry();
        QTest::keyClicks(editor, u"about to go"_s);
        auto *pane = qobject_cast<DataPane *>(m_window->settingsWindow()->pane(u"Data"_s));
        Dialogs::queueAnswers({true});
        pane->findChild<QPushButton *>(u"eraseAllData"_s)->click();
        QTRY_COMPARE(editor->stored(), QString());
        // The pending save of the erased typing must not bring the page back.
        QTest::qWait(200);
        m_app->saveDebouncer().fire();
        QCOMPARE(m_app->mainContext().fetchCount<DailyEntry>(), 0);
    }
};

QTEST_MAIN(MainWindowTest)
#include "tst_mainwindow.moc"
