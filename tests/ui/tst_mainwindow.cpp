#include "TestSupport.h"
#include "TovrenProcess.h"

#include "app/TovrenApp.h"
#include "bridge/MCPServer.h"
#include "core/Notices.h"
#include "core/records/DailyEntry.h"
#include "core/store/ModelContext.h"
#include "ui/Dialogs.h"
#include "ui/MainWindow.h"
#include "ui/Theme.h"
#include "ui/journal/JournalDayList.h"
#include "ui/journal/JournalScreen.h"
#include "ui/journal/JournalTextEdit.h"
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
#include <QTextBlock>

using namespace Qt::StringLiterals;

namespace {

const QDateTime now(QDate(2026, 11, 18), QTime(9, 30), Qt::UTC);

} // namespace

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

    // As Tovren's start opens it, without any focus set by the test.
    void openWindow()
    {
        m_window = std::make_unique<MainWindow>(*m_app);
        m_window->bringToFront();
        QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
    }

    // One line to the listener and its answer, as an assistant sends them.
    QJsonObject call(QTcpSocket &socket, const QByteArray &line)
    {
        socket.write(line + '\n');
        (void)QTest::qWaitFor([&socket] { return socket.canReadLine(); }, 5000);
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
        openWindow();
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
        QCOMPARE(m_window->tabs(), (QList<SidebarItem>{SidebarItem::journal, SidebarItem::tasks,
                                                       SidebarItem::inbox, SidebarItem::meetings}));
        QCOMPARE(m_window->currentTab(), SidebarItem::journal);
        // A tab that has no screen yet is refused, and the selection stays.
        QVERIFY(!m_window->selectTab(SidebarItem::goals));
        NoticeCenter::shared().post(Notices::openTab, {{u"item"_s, u"goals"_s}});
        QCOMPARE(m_window->currentTab(), SidebarItem::journal);
    }

    // The desktop's dark answer arrives after the window is built: styled parts follow it too.
    void darkDesktopReachesStyledWidgets()
    {
        const auto background = [this](const char *name) {
            auto *widget = m_window->findChild<QWidget *>(QLatin1StringView(name));
            return widget->grab().toImage().pixelColor(2, 2).lightness();
        };
        const QPalette light = QApplication::palette();
        QVERIFY(background("sidebar") > 128);
        Theme::applyPalette(Theme::darkPalette());
        const int dark = background("sidebar");
        Theme::applyPalette(light);
        QVERIFY2(dark < 128, qPrintable(QString::number(dark)));
        QVERIFY(background("sidebar") > 128);
    }

    // However the window comes up, today's page has the keys with the caret at its end: typing
    // lands there, and neither Ctrl+End nor Backspace and Delete reach the list of days.
    void openedWindowTypesIntoToday_data()
    {
        QTest::addColumn<QString>("opening");
        QTest::newRow("start") << u"start"_s;
        QTest::newRow("tray Open or --show after closing on an old day") << u"reopen"_s;
        QTest::newRow("New Entry over the day list") << u"new entry"_s;
    }

    void openedWindowTypesIntoToday()
    {
        QFETCH(QString, opening);
        m_window.reset();
        m_app.reset();
        m_app = std::make_unique<TovrenApp>();
        m_app->start();
        for (const auto &[daysAgo, text] : {std::pair{0, u"Morning"_s}, {3, u"Old page"_s}})
            m_app->mainContext().insert(std::make_shared<DailyEntry>(text, day(daysAgo), false));
        QVERIFY(m_app->mainContext().trySave());
        openWindow();
        if (opening != u"start"_s) {
            JournalDayList *days = journal()->dayList();
            const QRect row = days->visualItemRect(days->item(days->rowOf(day(3))));
            QTest::mouseClick(days->viewport(), Qt::LeftButton, {}, row.center());
            QCOMPARE(journal()->shownDay(), day(3));
            if (opening == u"reopen"_s)
                m_window->close();
            opening == u"new entry"_s ? m_window->newEntry() : m_window->bringToFront();
            QVERIFY(QTest::qWaitForWindowActive(m_window.get()));
        }

        int questions = 0;
        QTimer dismiss;
        connect(&dismiss, &QTimer::timeout, this, [&questions] {
            if (QWidget *modal = QApplication::activeModalWidget()) {
                ++questions;
                modal->close();
            }
        });
        dismiss.start(20);
        QVERIFY2(QApplication::focusWidget(), "nothing has the keys");
        const auto type = [](const QString &text, Qt::Key key, Qt::KeyboardModifiers mods = {}) {
            QTest::keyClicks(QApplication::focusWidget(), text);
            QTest::keyClick(QApplication::focusWidget(), key, mods);
        };
        type(u" more"_s, Qt::Key_End, Qt::ControlModifier);
        type(u"!xy"_s, Qt::Key_Backspace);
        QCOMPARE(questions, 0);
        type({}, Qt::Key_Left);
        type({}, Qt::Key_Delete);
        QCOMPARE(questions, 0);
        QCOMPARE(journal()->shownDay(), day(0));
        QCOMPARE(stored(0), u"Morning more!"_s);
        QCOMPARE(stored(3), u"Old page"_s);
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
        QTest::keyClicks(editor, u"- planning"_s);
        QTest::keyClick(editor, Qt::Key_Return);
        QTest::keyClicks(editor, u"review"_s);
        QVERIFY(m_app->saveDebouncer().isPending());

        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_app->mcpServer().serverPort());
        QVERIFY(socket.waitForConnected(2000));
        call(socket, "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"initialize\",\"params\":{}}");
        const QJsonObject reply =
            call(socket, "{\"jsonrpc\":\"2.0\",\"id\":2,\"method\":\"tools/call\",\"params\":"
                         "{\"name\":\"add_journal_entry\",\"arguments\":"
                         "{\"content\":\"- deployed the fix\"}}}");
        QVERIFY2(!reply.contains(u"error"_s), QJsonDocument(reply).toJson().constData());
        QTRY_VERIFY(editor->stored().contains(u"- deployed the fix"_s));
        // The caret stays on the line being typed, and both sides' lines stand, once.
        QCOMPARE(editor->textCursor().block().text(), u"• review"_s);
        QTest::keyClicks(editor, u"ed"_s);
        const QString both = stored(0);
        QVERIFY2(both.contains(u"- planning\n- reviewed"_s) && both.count(u"deployed"_s) == 1,
                 qPrintable(both));
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
