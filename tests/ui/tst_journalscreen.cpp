#include "TestSupport.h"

#include "app/TovrenApp.h"
#include "core/ImageStorage.h"
#include "core/records/DailyEntry.h"
#include "core/records/EntryImage.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"
#include "ui/journal/JournalDayList.h"
#include "ui/journal/JournalScreen.h"
#include "ui/journal/JournalStreak.h"
#include "ui/journal/JournalTextEdit.h"
#include "ui/journal/PickerPopup.h"
#include "writing/JournalPageEditor.h"

#include <QApplication>
#include <QClipboard>
#include <QDialog>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTextBlock>
#include <QToolButton>

#include <functional>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Wednesday morning in Berlin.
const QDateTime now(QDate(2026, 11, 18), QTime(9, 30), Qt::UTC);

// A Tovren with its journal screen on a fresh data folder.
struct Journal {
    TempDataDir dir;
    FixedClock clock{now, testCalendar()};
    TovrenApp app{LaunchSteps::standard()};
    std::unique_ptr<JournalScreen> screen;

    explicit Journal(const QList<std::pair<int, QString>> &pages = {})
    {
        app.start();
        for (const auto &[daysAgo, text] : pages)
            write(daysAgo, text);
        screen = std::make_unique<JournalScreen>(app);
        screen->resize(1100, 760);
        screen->show();
        editor()->setFocus();
    }

    JournalTextEdit *editor() const { return screen->editor(); }
    ModelContext &context() { return app.mainContext(); }

    QDateTime day(int daysAgo) const
    {
        const Calendar calendar = Calendar::current();
        return calendar.startOfDay(calendar.day(now).addDays(-daysAgo));
    }

    void write(int daysAgo, const QString &text)
    {
        context().insert(std::make_shared<DailyEntry>(text, day(daysAgo), false));
        QVERIFY(context().trySave());
    }

    // What the store holds for the day, without waiting for the debounce.
    QString stored(int daysAgo = 0)
    {
        app.saveDebouncer().fire();
        return JournalPageEditor::joinedText(
            JournalPageEditor::storedEntries(day(daysAgo), context()));
    }

    void typeLines(const QStringList &lines)
    {
        for (qsizetype i = 0; i < lines.size(); ++i) {
            if (i > 0)
                QTest::keyClick(editor(), Qt::Key_Return);
            QTest::keyClicks(editor(), lines.at(i));
        }
    }

    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(editor(), key, modifiers);
    }
};

// Runs `answer` on the next modal dialog once it is up.
void answerNextDialog(std::function<void(QWidget *)> answer)
{
    auto *timer = new QTimer;
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, [timer, answer] {
        if (QWidget *modal = QApplication::activeModalWidget()) {
            timer->stop();
            timer->deleteLater();
            answer(modal);
        }
    });
    timer->start();
}

// Opens the page's context menu at `pos` and picks the action named `choice`.
void chooseFromContextMenu(JournalTextEdit *editor, const QPoint &pos, const QString &choice)
{
    QStringList offered;
    bool chosen = false;
    auto *timer = new QTimer;
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, [&, timer] {
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        if (!menu)
            return;
        timer->stop();
        timer->deleteLater();
        const auto actions = menu->actions();
        for (QAction *action : actions) {
            offered.append(action->text());
            if (action->text() == choice) {
                action->trigger();
                chosen = true;
            }
        }
        menu->close();
    });
    timer->start();
    QContextMenuEvent event(QContextMenuEvent::Mouse, pos, editor->viewport()->mapToGlobal(pos));
    QApplication::sendEvent(editor->viewport(), &event);
    QVERIFY2(chosen, qPrintable(offered.join(u", "_s)));
}

void clickButton(QWidget *dialog, const QString &text)
{
    const auto buttons = dialog->findChildren<QAbstractButton *>();
    for (QAbstractButton *button : buttons) {
        if (button->text().remove(u'&') == text) {
            button->click();
            return;
        }
    }
    QFAIL(qPrintable(u"No button "_s + text));
}

} // namespace

class TestJournalScreen : public QObject {
    Q_OBJECT

private slots:
    void typedPageIsStoredInTheDialect()
    {
        Journal journal;
        QCOMPARE(journal.editor()->stored(), QString());
        // Return on an empty item ends the list on that line; the next Return leaves a gap.
        journal.typeLines({u"Plan"_s, u"- ship the parser"_s, u"review #infra"_s, u""_s, u""_s,
                           u"- [ ] call Ana"_s, u""_s, u""_s, u"1. first"_s, u"second"_s, u""_s,
                           u""_s, u""_s});
        journal.key(Qt::Key_B, Qt::ControlModifier);
        QTest::keyClicks(journal.editor(), u"bold"_s);
        journal.key(Qt::Key_B, Qt::ControlModifier);
        QTest::keyClicks(journal.editor(), u" word -> done"_s);
        journal.key(Qt::Key_Return);

        // The slash menu makes the table; Tab walks its cells.
        QTest::keyClicks(journal.editor(), u"/"_s);
        PickerPopup *popup = journal.editor()->popup();
        QVERIFY2(popup->isOpen(), qPrintable(journal.editor()->stored()));
        const int tableRow = int(popup->rows().indexOf(u"Table"_s));
        QVERIFY(tableRow > 0);
        for (int i = 0; i < tableRow; ++i)
            journal.key(Qt::Key_Down);
        journal.key(Qt::Key_Return);
        QVERIFY(!popup->isOpen());
        QVERIFY(journal.editor()->textCursor().currentTable());
        for (const QString &cell : {u"Who"_s, u"What"_s, u"Ana"_s, u"Docs"_s}) {
            QTest::keyClicks(journal.editor(), cell);
            journal.key(Qt::Key_Tab);
        }

        QCOMPARE(journal.stored(), u"Plan\n- ship the parser\n- review #infra\n\n- [ ] call Ana\n\n"
                                   u"1. first\n2. second\n\n**bold** word → done\n"
                                   u"| Who | What |\n| --- | --- |\n| Ana | Docs |"_s);
    }

    void keyBindings_data()
    {
        QTest::addColumn<QString>("page");
        QTest::addColumn<bool>("selectAll");
        QTest::addColumn<int>("key");
        QTest::addColumn<int>("modifiers");
        QTest::addColumn<QString>("expected");

        const int ctrl = Qt::ControlModifier;
        const int ctrlShift = Qt::ControlModifier | Qt::ShiftModifier;
        const int ctrlAlt = Qt::ControlModifier | Qt::AltModifier;
        const QString words = u"alpha beta"_s;
        QTest::newRow("bold") << words << true << int(Qt::Key_B) << ctrl << u"**alpha beta**"_s;
        QTest::newRow("bold off") << u"**alpha beta**"_s << true << int(Qt::Key_B) << ctrl << words;
        QTest::newRow("italic") << words << true << int(Qt::Key_I) << ctrl << u"*alpha beta*"_s;
        QTest::newRow("underline")
            << words << true << int(Qt::Key_U) << ctrl << u"<u>alpha beta</u>"_s;
        QTest::newRow("strikethrough")
            << words << true << int(Qt::Key_X) << ctrlShift << u"~~alpha beta~~"_s;
        QTest::newRow("clear formatting")
            << u"**alpha** *beta*"_s << true << int(Qt::Key_Backslash) << ctrl << words;
        QTest::newRow("heading") << words << false << int(Qt::Key_1) << ctrlAlt
                                 << u"# alpha beta"_s;
        QTest::newRow("subheading")
            << words << false << int(Qt::Key_2) << ctrlAlt << u"## alpha beta"_s;
        QTest::newRow("small heading")
            << words << false << int(Qt::Key_3) << ctrlAlt << u"### alpha beta"_s;
        QTest::newRow("heading to body")
            << u"## alpha beta"_s << false << int(Qt::Key_0) << ctrlAlt << words;
        QTest::newRow("bullets") << u"alpha\nbeta"_s << true << int(Qt::Key_8) << ctrlShift
                                 << u"- alpha\n- beta"_s;
        QTest::newRow("bullets by symbol") << u"alpha\nbeta"_s << true << int(Qt::Key_Asterisk)
                                           << ctrlShift << u"- alpha\n- beta"_s;
        QTest::newRow("numbers") << u"alpha\nbeta"_s << true << int(Qt::Key_7) << ctrlShift
                                 << u"1. alpha\n2. beta"_s;
        QTest::newRow("checklist")
            << words << false << int(Qt::Key_9) << ctrlShift << u"- [ ] alpha beta"_s;
        QTest::newRow("quote") << words << false << int(Qt::Key_Period) << ctrlShift
                               << u"> alpha beta"_s;
        QTest::newRow("code") << words << false << int(Qt::Key_C) << ctrlAlt
                              << u"```\nalpha beta\n```"_s;
        QTest::newRow("indent") << u"- alpha"_s << false << int(Qt::Key_Tab) << 0
                                << u"    - alpha"_s;
        QTest::newRow("outdent") << u"    - alpha"_s << false << int(Qt::Key_Backtab)
                                 << int(Qt::ShiftModifier) << u"- alpha"_s;
        QTest::newRow("tab leaves body alone")
            << words << false << int(Qt::Key_Tab) << 0 << u"alpha beta\t"_s;
    }

    void keyBindings()
    {
        QFETCH(QString, page);
        QFETCH(bool, selectAll);
        QFETCH(int, key);
        QFETCH(int, modifiers);
        QFETCH(QString, expected);

        Journal journal({{0, page}});
        QCOMPARE(journal.editor()->stored(), page);
        if (selectAll)
            journal.editor()->selectAll();
        else
            journal.editor()->moveCursor(QTextCursor::End);
        journal.key(Qt::Key(key), Qt::KeyboardModifiers(modifiers));
        QCOMPARE(journal.stored(), expected);
    }

    void linkPromptLinksTheSelection_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("expected");
        QTest::newRow("address without scheme")
            << u"example.com/a"_s << u"see [docs](https://example.com/a)"_s;
        QTest::newRow("cancel") << QString() << u"see docs"_s;
    }

    void linkPromptLinksTheSelection()
    {
        QFETCH(QString, answer);
        QFETCH(QString, expected);
        Journal journal({{0, u"see docs"_s}});
        QTextCursor cursor = journal.editor()->textCursor();
        cursor.setPosition(4);
        cursor.setPosition(8, QTextCursor::KeepAnchor);
        journal.editor()->setTextCursor(cursor);
        answerNextDialog([answer](QWidget *dialog) {
            if (answer.isNull()) {
                static_cast<QDialog *>(dialog)->reject();
                return;
            }
            auto *field = dialog->findChild<QLineEdit *>();
            QVERIFY(field);
            field->setText(answer);
            static_cast<QDialog *>(dialog)->accept();
        });
        journal.key(Qt::Key_K, Qt::ControlModifier);
        QCOMPARE(journal.stored(), expected);
    }

    void switchingDaysLosesNothing()
    {
        Journal journal({{1, u"Tuesday notes"_s}});
        JournalDayList *days = journal.screen->dayList();
        QTest::keyClicks(journal.editor(), u"Wednesday words"_s);

        days->setCurrentRow(days->rowOf(journal.day(1)));
        QCOMPARE(journal.editor()->stored(), u"Tuesday notes"_s);
        // Leaving the page saved it at once, without the debounce.
        QCOMPARE(JournalPageEditor::joinedText(
                     JournalPageEditor::storedEntries(journal.day(0), journal.context())),
                 u"Wednesday words"_s);

        journal.editor()->moveCursor(QTextCursor::End);
        QTest::keyClicks(journal.editor(), u" and more"_s);
        days->setCurrentRow(days->rowOf(journal.day(0)));
        QCOMPARE(journal.editor()->stored(), u"Wednesday words"_s);
        QCOMPARE(journal.stored(1), u"Tuesday notes and more"_s);

        // The list shows both days with their words, today first.
        QCOMPARE(days->rowOf(journal.day(0)), 0);
        QVERIFY(days->rowOf(journal.day(1)) > 0);
        QTRY_COMPARE(days->item(days->rowOf(journal.day(1)))->data(Qt::UserRole + 1).toString(),
                     u"Tuesday notes and more"_s);
    }

    void assistantAdditionWhileTyping()
    {
        Journal journal({{0, u"- planning"_s}});
        journal.editor()->moveCursor(QTextCursor::End);
        journal.key(Qt::Key_Return);
        QTest::keyClicks(journal.editor(), u"review"_s);

        // The assistant's tool writes while the typing waits for its save.
        journal.app.mcpTools().invoke(u"add_journal_entry"_s,
                                      {{"content"_L1, u"- deployed the fix"_s}}, journal.context(),
                                      journal.app.preferences());
        const QString shown = journal.editor()->stored();
        QVERIFY2(shown.contains(u"- review"_s) && shown.contains(u"- deployed the fix"_s),
                 qPrintable(shown));
        // The caret stays on the line being typed.
        QCOMPARE(journal.editor()->textCursor().block().text(), u"• review"_s);
        QTest::keyClicks(journal.editor(), u"ed"_s);
        const QString stored = journal.stored();
        QVERIFY2(stored.contains(u"- planning\n- reviewed"_s), qPrintable(stored));
        QVERIFY2(stored.contains(u"- deployed the fix"_s), qPrintable(stored));
        QCOMPARE(stored.count(u"deployed"_s), 1);
    }

    void clickingTheBoxTogglesTheItem()
    {
        Journal journal({{0, u"- [ ] call Ana\n- [x] done"_s}});
        QTest::qWait(10);
        QTextDocument *document = journal.editor()->document();
        const auto clickBox = [&](int line) {
            const QRect box = journal.editor()->checkboxRect(document->findBlockByNumber(line));
            QVERIFY(!box.isEmpty());
            QTest::mouseClick(journal.editor()->viewport(), Qt::LeftButton, {}, box.center());
        };
        clickBox(0);
        QCOMPARE(journal.stored(), u"- [x] call Ana\n- [x] done"_s);
        clickBox(1);
        QCOMPARE(journal.stored(), u"- [x] call Ana\n- [ ] done"_s);

        // A click on the words places the caret and toggles nothing.
        const QTextBlock first = document->findBlockByNumber(0);
        const QRect box = journal.editor()->checkboxRect(first);
        QTest::mouseClick(journal.editor()->viewport(), Qt::LeftButton, {},
                          box.center() + QPoint(80, 0));
        QCOMPARE(journal.stored(), u"- [x] call Ana\n- [ ] done"_s);
    }

    void deletingADayAsksFirst_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("deleted");
        QTest::newRow("delete") << u"Delete"_s << true;
        QTest::newRow("cancel") << u"Cancel"_s << false;
    }

    void deletingADayAsksFirst()
    {
        QFETCH(QString, answer);
        QFETCH(bool, deleted);
        Journal journal({{2, u"Monday page"_s}, {0, u"today"_s}});
        JournalDayList *days = journal.screen->dayList();
        days->setCurrentRow(days->rowOf(journal.day(2)));
        QCOMPARE(journal.editor()->stored(), u"Monday page"_s);

        QString question;
        answerNextDialog([&](QWidget *dialog) {
            auto *box = qobject_cast<QMessageBox *>(dialog);
            QVERIFY(box);
            question = box->text();
            clickButton(box, answer);
        });
        journal.screen->deleteDay(journal.day(2));
        QVERIFY(question.contains(u"can't be undone"_s));
        QCOMPARE(JournalPageEditor::storedEntries(journal.day(2), journal.context()).isEmpty(),
                 deleted);
        QCOMPARE(days->rowOf(journal.day(2)) < 0, deleted);
        // After a deletion the page moves on to today; otherwise the day stays.
        QCOMPARE(journal.editor()->stored(), deleted ? u"today"_s : u"Monday page"_s);
        QCOMPARE(journal.stored(0), u"today"_s);
    }

    void mentionCompletion()
    {
        Journal journal;
        journal.context().insert(
            std::make_shared<Person>(u"Ana Lopez"_s, u"Designer"_s, RelationshipType::peer));
        journal.context().insert(
            std::make_shared<Person>(u"Bo Chen"_s, u"Engineer"_s, RelationshipType::peer));
        QVERIFY(journal.context().trySave());
        QTest::keyClicks(journal.editor(), u"met @lo"_s);
        PickerPopup *popup = journal.editor()->popup();
        QVERIFY(popup->isOpen());
        QCOMPARE(popup->rows(), QStringList{u"Ana Lopez"_s});
        journal.key(Qt::Key_Return);
        QVERIFY(!popup->isOpen());
        QTest::keyClicks(journal.editor(), u"today"_s);
        QCOMPARE(journal.stored(), u"met @Ana Lopez today"_s);

        // Escape closes the list and leaves the text as typed.
        journal.key(Qt::Key_Return);
        QTest::keyClicks(journal.editor(), u"@b"_s);
        QVERIFY(popup->isOpen());
        journal.key(Qt::Key_Escape);
        QVERIFY(!popup->isOpen());
        QCOMPARE(journal.stored(), u"met @Ana Lopez today\n@b"_s);
    }

    void pastedImageIsKeptWithThePage()
    {
        Journal journal;
        QTest::keyClicks(journal.editor(), u"Sketch"_s);
        journal.key(Qt::Key_Return);
        QImage picture(40, 30, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QApplication::clipboard()->setImage(picture);
        journal.key(Qt::Key_V, Qt::ControlModifier);

        const QString stored = journal.stored();
        static const QRegularExpression token(u"^Sketch\n\\{\\{img:([0-9A-Fa-f-]{36})\\}\\}$"_s);
        const QRegularExpressionMatch match = token.match(stored);
        QVERIFY2(match.hasMatch(), qPrintable(stored));
        const auto file = ImageStorage::load(match.captured(1));
        QVERIFY(file);
        QCOMPARE(QImage::fromData(*file).size(), picture.size());
        const auto images = journal.context().tryFetch<EntryImage>();
        QCOMPARE(images.size(), 1);
        QCOMPARE(images.first()->id, QUuid::fromString(match.captured(1)));
    }

    void contextMenuCommands_data()
    {
        QTest::addColumn<QString>("page");
        QTest::addColumn<QString>("clickAt");
        QTest::addColumn<QString>("choice");
        QTest::addColumn<QString>("expected");
        const QString table = u"| a | b |\n| --- | --- |\n| c | d |"_s;
        QTest::newRow("row below") << table << u"c"_s << u"Insert Row Below"_s
                                   << u"| a | b |\n| --- | --- |\n| c | d |\n|  |"_s;
        QTest::newRow("column after") << table << u"a"_s << u"Insert Column After"_s
                                      << u"| a |  | b |\n| --- | --- | --- |\n| c |  | d |"_s;
        QTest::newRow("delete row")
            << table << u"c"_s << u"Delete Row"_s << u"| a | b |\n| --- | --- |"_s;
        QTest::newRow("delete column")
            << table << u"b"_s << u"Delete Column"_s << u"| a |\n| --- |\n| c |"_s;
    }

    void contextMenuCommands()
    {
        QFETCH(QString, page);
        QFETCH(QString, clickAt);
        QFETCH(QString, choice);
        QFETCH(QString, expected);
        Journal journal({{0, page}});
        const QTextCursor found = journal.editor()->document()->find(clickAt);
        QVERIFY(!found.isNull());
        QTextCursor at(journal.editor()->document());
        at.setPosition(found.selectionStart());
        chooseFromContextMenu(journal.editor(), journal.editor()->cursorRect(at).center(), choice);
        QCOMPARE(journal.stored(), expected);
    }

    void imagesResizeFromTheMenu()
    {
        Journal journal;
        QImage picture(300, 150, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QApplication::clipboard()->setImage(picture);
        journal.key(Qt::Key_V, Qt::ControlModifier);
        const QString pasted = journal.stored();
        const QString id = pasted.mid(6, 36);
        QVERIFY(!QUuid::fromString(id).isNull());
        QCOMPARE(pasted, u"{{img:"_s + id + u"}}"_s);

        QTextCursor at(journal.editor()->document());
        const QRect image = journal.editor()->cursorRect(at);
        const QPoint inside(image.left() + 20, image.center().y());
        chooseFromContextMenu(journal.editor(), inside, u"Small"_s);
        QCOMPARE(journal.stored(), u"{{img:"_s + id + u"|w=240,h=120}}"_s);
        chooseFromContextMenu(journal.editor(), inside, u"Original Size"_s);
        QCOMPARE(journal.stored(), u"{{img:"_s + id + u"}}"_s);
    }

    void streakCountsWorkWeeks_data()
    {
        QTest::addColumn<QList<int>>("daysAgo");
        QTest::addColumn<int>("weeks");
        // Today is a Wednesday; weeks start on Sunday.
        QTest::newRow("nothing") << QList<int>{} << 0;
        QTest::newRow("this week and last") << QList<int>{2, 8} << 2;
        QTest::newRow("week in progress still empty") << QList<int>{8, 14} << 2;
        QTest::newRow("a gap ends the run") << QList<int>{0, 8, 21} << 2;
        QTest::newRow("weekends count for nothing") << QList<int>{3, 4, 8} << 1;
        QTest::newRow("two weeks back is too late") << QList<int>{14} << 0;
    }

    void streakCountsWorkWeeks()
    {
        QFETCH(QList<int>, daysAgo);
        QFETCH(int, weeks);
        FixedClock clock(now, testCalendar());
        const Calendar calendar = Calendar::current();
        QList<QDateTime> dates;
        for (int ago : std::as_const(daysAgo))
            dates.append(calendar.at(calendar.day(now).addDays(-ago), 10, 0));
        QCOMPARE(JournalStreak::workWeekStreak(dates, now, calendar), weeks);
    }

    void winMarksTheWrittenDay()
    {
        Journal journal;
        QToolButton *win = journal.screen->winButton();
        win->click();
        QVERIFY(!win->isChecked()); // nothing written yet
        QTest::keyClicks(journal.editor(), u"Shipped it"_s);
        win->click();
        QVERIFY(win->isChecked());
        const auto entries = JournalPageEditor::storedEntries(journal.day(0), journal.context());
        QCOMPARE(entries.size(), 1);
        QVERIFY(entries.first()->isWin);
        QCOMPARE(entries.first()->content, u"Shipped it"_s);
    }
};

int main(int argc, char *argv[])
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    TestJournalScreen test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "tst_journalscreen.moc"
