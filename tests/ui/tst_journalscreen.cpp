#include "../writing/WritingTestMain.h"
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
#include <QDesktopServices>
#include <QDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTextBlock>
#include <QToolButton>
#include <QToolTip>

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
            context().insert(std::make_shared<DailyEntry>(text, day(daysAgo), false));
        QVERIFY(context().trySave());
        screen = std::make_unique<JournalScreen>(app);
        screen->resize(1100, 760);
        screen->show();
        QVERIFY(QTest::qWaitForWindowActive(screen.get()));
    }

    JournalTextEdit *editor() const { return screen->editor(); }
    ModelContext &context() { return app.mainContext(); }

    QDateTime day(int daysAgo) const
    {
        const Calendar calendar = Calendar::current();
        return calendar.startOfDay(calendar.day(now).addDays(-daysAgo));
    }

    // What the store holds for the day, without waiting for the debounce.
    QString stored(int daysAgo = 0)
    {
        app.saveDebouncer().fire();
        return JournalPageEditor::joinedText(
            JournalPageEditor::storedEntries(day(daysAgo), context()));
    }

    // Line feeds and tabs as the Return and Tab keys.
    void type(const QString &text)
    {
        for (QChar c : text) {
            if (c == u'\n' || c == u'\t')
                key(c == u'\n' ? Qt::Key_Return : Qt::Key_Tab);
            else
                QTest::keyClicks(editor(), QString(c));
        }
    }

    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QTest::keyClick(editor(), key, modifiers);
    }
};

// Opens the page's context menu at `pos` and picks the action named `choice`.
void chooseFromContextMenu(JournalTextEdit *editor, const QPoint &pos, const QString &choice)
{
    bool chosen = false;
    whenUp(&QApplication::activePopupWidget, [&](QWidget *menu) {
        for (QAction *action : menu->actions()) {
            if (action->text() == choice) {
                action->trigger();
                chosen = true;
            }
        }
        menu->close();
    });
    QContextMenuEvent event(QContextMenuEvent::Mouse, pos, editor->viewport()->mapToGlobal(pos));
    QApplication::sendEvent(editor->viewport(), &event);
    QVERIFY2(chosen, qPrintable(choice));
}

} // namespace

// Stands in for the browser.
class OpenedLinks : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public slots:
    void open(const QUrl &url) { urls.append(url); }
};

class TestJournalScreen : public QObject {
    Q_OBJECT

private slots:
    void typedPageIsStoredInTheDialect()
    {
        Journal journal;
        JournalTextEdit *editor = journal.editor();
        // Return on an empty item ends the list on that line; the next Return leaves a gap.
        journal.type(u"Plan\n- ship the parser\nreview #infra\n\n\n- [ ] call Ana\n\n\n"
                     u"1. first\nsecond\n\n\n"_s);
        journal.key(Qt::Key_B, Qt::ControlModifier);
        QTest::keyClicks(editor, u"bold"_s);
        journal.key(Qt::Key_B, Qt::ControlModifier);
        journal.type(u" word -> done\n/"_s);
        // The slash menu makes the table; Tab walks its cells.
        for (qsizetype i = 0; i < editor->popup()->rows().indexOf(u"Table"_s); ++i)
            journal.key(Qt::Key_Down);
        journal.key(Qt::Key_Return);
        journal.type(u"Who\tWhat\tAna\tDocs\t"_s);
        QCOMPARE(journal.stored(), u"Plan\n- ship the parser\n- review #infra\n\n- [ ] call Ana\n\n"
                                   u"1. first\n2. second\n\n**bold** word → done\n"
                                   u"| Who | What |\n| --- | --- |\n| Ana | Docs |"_s);
    }

    void keyBindings_data()
    {
        columns<QString, bool, int, int, QString>("page", "selectAll", "key", "modifiers",
                                                  "expected");
        const auto row = [](const char *name, const QString &page, bool all, int key, int mods,
                            const QString &expected) {
            QTest::newRow(name) << page << all << key << mods << expected;
        };
        const int ctrl = Qt::ControlModifier;
        const int shift = Qt::ControlModifier | Qt::ShiftModifier;
        const int alt = Qt::ControlModifier | Qt::AltModifier;
        const QString w = u"alpha beta"_s;
        const QString two = u"alpha\nbeta"_s;
        row("bold", w, true, Qt::Key_B, ctrl, u"**alpha beta**"_s);
        row("bold off", u"**alpha beta**"_s, true, Qt::Key_B, ctrl, w);
        row("italic", w, true, Qt::Key_I, ctrl, u"*alpha beta*"_s);
        row("underline", w, true, Qt::Key_U, ctrl, u"<u>alpha beta</u>"_s);
        row("strikethrough", w, true, Qt::Key_X, shift, u"~~alpha beta~~"_s);
        row("clear formatting", u"**alpha** *beta*"_s, true, Qt::Key_Backslash, ctrl, w);
        row("heading", w, false, Qt::Key_1, alt, u"# alpha beta"_s);
        row("subheading", w, false, Qt::Key_2, alt, u"## alpha beta"_s);
        row("heading to body", u"## alpha beta"_s, false, Qt::Key_0, alt, w);
        row("bullets", two, true, Qt::Key_8, shift, u"- alpha\n- beta"_s);
        row("bullets by symbol", two, true, Qt::Key_Asterisk, shift, u"- alpha\n- beta"_s);
        row("numbers", two, true, Qt::Key_7, shift, u"1. alpha\n2. beta"_s);
        row("checklist", w, false, Qt::Key_9, shift, u"- [ ] alpha beta"_s);
        row("quote", w, false, Qt::Key_Period, shift, u"> alpha beta"_s);
        row("code", w, false, Qt::Key_C, alt, u"```\nalpha beta\n```"_s);
        row("indent", u"- alpha"_s, false, Qt::Key_Tab, 0, u"    - alpha"_s);
        row("outdent", u"    - alpha"_s, false, Qt::Key_Backtab, Qt::ShiftModifier, u"- alpha"_s);
        row("tab leaves body alone", w, false, Qt::Key_Tab, 0, u"alpha beta\t"_s);
    }

    void keyBindings()
    {
        auto [page, selectAll, key, modifiers, expected] = fetch<QString, bool, int, int, QString>(
            "page", "selectAll", "key", "modifiers", "expected");

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
        columns<QString, QString>("answer", "expected");
        QTest::newRow("address without scheme")
            << u"example.com/a"_s << u"see [docs](https://example.com/a)"_s;
        QTest::newRow("cancel") << QString() << u"see docs"_s;
    }

    void linkPromptLinksTheSelection()
    {
        auto [answer, expected] = fetch<QString, QString>("answer", "expected");
        Journal journal({{0, u"see docs"_s}});
        journal.editor()->setTextCursor(journal.editor()->document()->find(u"docs"_s));
        whenUp(&QApplication::activeModalWidget, [answer](QWidget *dialog) {
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
        days->setCurrentRow(days->rowOf(journal.day(0)));
        QCOMPARE(journal.editor()->stored(), u"Wednesday words"_s);

        QCOMPARE(days->rowOf(journal.day(0)), 0);
        QTRY_COMPARE(days->item(0)->data(Qt::UserRole + 1).toString(), u"Wednesday words"_s);
    }

    void deletingADayAsksFirst_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::newRow("delete") << u"Delete"_s;
        QTest::newRow("cancel") << u"Cancel"_s;
    }

    void deletingADayAsksFirst()
    {
        QFETCH(QString, answer);
        const bool deleted = answer == u"Delete"_s;
        Journal journal({{2, u"Monday page"_s}, {0, u"today"_s}});
        JournalDayList *days = journal.screen->dayList();
        const QRect row = days->visualItemRect(days->item(days->rowOf(journal.day(2))));
        QTest::mouseClick(days->viewport(), Qt::LeftButton, {}, row.center());
        QCOMPARE(journal.editor()->stored(), u"Monday page"_s);

        QString question;
        whenUp(&QApplication::activeModalWidget, [&](QWidget *dialog) {
            auto *box = qobject_cast<QMessageBox *>(dialog);
            QVERIFY(box);
            question = box->text();
            for (QAbstractButton *button : box->buttons()) {
                if (button->text().remove(u'&') == answer)
                    button->click();
            }
        });
        // Backspace is a key for the page: only Delete, in the focused list, asks.
        QTest::keyClick(days, Qt::Key_Backspace);
        QVERIFY(question.isEmpty());
        QTest::keyClick(days, Qt::Key_Delete);
        QTRY_VERIFY(question.contains(u"can't be undone"_s));
        QCOMPARE(JournalPageEditor::storedEntries(journal.day(2), journal.context()).isEmpty(),
                 deleted);
        QCOMPARE(days->rowOf(journal.day(2)) < 0, deleted);
        // After a deletion the page moves on to today; otherwise the day stays.
        QCOMPARE(journal.editor()->stored(), deleted ? u"today"_s : u"Monday page"_s);
        QCOMPARE(journal.stored(0), u"today"_s);
    }

    // A copy inside Tovren carries the page's own text; other programs get plain text and HTML.
    void copyAndPasteKeepTheDialect_data()
    {
        // `from` is where the selection starts; all of the page when empty.
        columns<QString, QString, QString>("page", "from", "copied");
        const auto whole = [](const char *name, const QString &page) {
            QTest::newRow(name) << page << QString() << page;
        };
        whole("headings and quote", u"# Plan\n## Week\n### Day\n> quoted"_s);
        whole("marks",
              u"==hi== =={green}go== ~~old~~ <u>u</u> `a*b` **b** *i* [l](https://x.org)"_s);
        whole("table and missing image",
              u"intro\n| a | b |\n| --- | --- |\n| c | d |\n"
              u"{{img:0F8E3C2A-7B4D-4E1F-9A6B-5C3D2E1F0A9B|w=40,h=30}}"_s);
        whole("table alone", u"| a | b |\n| --- | --- |\n| c | d |"_s);
        whole("lists, divider, code",
              u"- [ ] call Ana\n- [x] done\n1. one\n    - nested\n---\n```\nlet x = 1\n```"_s);
        const QString page = u"- [ ] call Ana\n## Plans\n**next** up"_s;
        QTest::newRow("from mid-line") << page << u"Ana"_s << u"Ana\n## Plans\n**next** up"_s;
        QTest::newRow("from an item's text") << page << u"call"_s << page;
    }

    void copyAndPasteKeepTheDialect()
    {
        auto [page, from, copied] = fetch<QString, QString, QString>("page", "from", "copied");
        Journal journal({{0, page}, {2, u"before\n\nafter"_s}});
        QCOMPARE(journal.editor()->stored(), page);
        QTextCursor selection = journal.editor()->textCursor();
        QTextDocument *document = journal.editor()->document();
        selection.setPosition(from.isEmpty() ? 0 : document->find(from).selectionStart());
        selection.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
        journal.editor()->setTextCursor(selection);
        journal.key(Qt::Key_C, Qt::ControlModifier);
        QVERIFY(QApplication::clipboard()->mimeData()->hasHtml());

        // Into an empty page, and onto the empty line between two others.
        journal.screen->showDay(journal.day(1));
        journal.key(Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(journal.stored(1), copied);
        journal.screen->showDay(journal.day(2));
        journal.key(Qt::Key_Up);
        journal.key(Qt::Key_V, Qt::ControlModifier);
        QCOMPARE(journal.stored(2), u"before\n"_s + copied + u"\nafter"_s);
    }

    // A plain click on a link places the caret; Ctrl+click opens it, as its tooltip and hand say.
    void clicksOnThePage()
    {
        const QString links = u"see [the docs](https://docs.example/a) or https://b.example/c"_s;
        Journal journal({{0, u"- [ ] call Ana\n- [x] done\n"_s + links}});
        JournalTextEdit *editor = journal.editor();
        QWidget *viewport = editor->viewport();
        const auto box = [&](int line) {
            return editor->checkboxRect(editor->document()->findBlockByNumber(line)).center();
        };
        QTest::mouseClick(viewport, Qt::LeftButton, {}, box(0));
        QTest::mouseClick(viewport, Qt::LeftButton, {}, box(1));
        QTest::mouseClick(viewport, Qt::LeftButton, {}, box(0) + QPoint(80, 0));
        QCOMPARE(journal.stored(), u"- [x] call Ana\n- [ ] done\n"_s + links);

        OpenedLinks opened;
        QDesktopServices::setUrlHandler(u"https"_s, &opened, "open");
        for (const auto &[word, url] : {std::pair{u"docs"_s, u"https://docs.example/a"_s},
                                        {u"b.example"_s, u"https://b.example/c"_s}}) {
            QTextCursor on(editor->document());
            on.setPosition(editor->document()->find(word).selectionStart() + 1);
            const QPoint at = editor->cursorRect(on).center();
            QMouseEvent move(QEvent::MouseMove, at, viewport->mapToGlobal(at), Qt::NoButton, {},
                             {});
            QApplication::sendEvent(viewport, &move);
            QTest::keyPress(editor, Qt::Key_Control);
            QCOMPARE(viewport->cursor().shape(), Qt::PointingHandCursor);
            QTest::keyRelease(editor, Qt::Key_Control);
            QCOMPARE(viewport->cursor().shape(), Qt::IBeamCursor);
            QHelpEvent tip(QEvent::ToolTip, at, viewport->mapToGlobal(at));
            QApplication::sendEvent(viewport, &tip);
            QTRY_COMPARE(QToolTip::text(), u"Ctrl+click to open"_s);

            QTest::mouseClick(viewport, Qt::LeftButton, {}, at);
            QVERIFY(opened.urls.isEmpty());
            QVERIFY(std::abs(editor->textCursor().position() - on.position()) <= 1);
            QTest::mouseClick(viewport, Qt::LeftButton, Qt::ControlModifier, at);
            QCOMPARE(opened.urls, QList<QUrl>{QUrl(url)});
            opened.urls.clear();
        }
        QDesktopServices::unsetUrlHandler(u"https"_s);
    }

    void mentionCompletion()
    {
        Journal journal;
        for (const QString &name : {u"Ana Lopez"_s, u"Bo Chen"_s})
            journal.context().insert(
                std::make_shared<Person>(name, u"Designer"_s, RelationshipType::peer));
        QVERIFY(journal.context().trySave());
        QTest::keyClicks(journal.editor(), u"met @lo"_s);
        PickerPopup *popup = journal.editor()->popup();
        QVERIFY(popup->isOpen());
        QCOMPARE(popup->rows(), QStringList{u"Ana Lopez"_s});
        journal.key(Qt::Key_Return);
        QVERIFY(!popup->isOpen());
        QTest::keyClicks(journal.editor(), u"today"_s);
        QCOMPARE(journal.stored(), u"met @Ana Lopez today"_s);
    }

    void contextMenuCommands_data()
    {
        columns<QString, QString, QString, QString>("page", "clickAt", "choice", "expected");
        const QString table = u"| a | b |\n| --- | --- |\n| c | d |"_s;
        QTest::newRow("row below") << table << u"c"_s << u"Insert Row Below"_s
                                   << u"| a | b |\n| --- | --- |\n| c | d |\n|  |"_s;
        QTest::newRow("column after") << table << u"a"_s << u"Insert Column After"_s
                                      << u"| a |  | b |\n| --- | --- | --- |\n| c |  | d |"_s;
    }

    void contextMenuCommands()
    {
        auto [page, clickAt, choice, expected] =
            fetch<QString, QString, QString, QString>("page", "clickAt", "choice", "expected");
        Journal journal({{0, page}});
        QTextCursor at = journal.editor()->document()->find(clickAt);
        at.setPosition(at.selectionStart());
        chooseFromContextMenu(journal.editor(), journal.editor()->cursorRect(at).center(), choice);
        QCOMPARE(journal.stored(), expected);
    }

    void pastedImageIsKeptAndResized()
    {
        Journal journal;
        QImage picture(300, 150, QImage::Format_RGB32);
        picture.fill(Qt::darkCyan);
        QApplication::clipboard()->setImage(picture);
        journal.key(Qt::Key_V, Qt::ControlModifier);
        const QString pasted = journal.stored();
        const QString id = pasted.mid(6, 36);
        QCOMPARE(pasted, u"{{img:"_s + id + u"}}"_s);
        const auto file = ImageStorage::load(id);
        QVERIFY(file);
        QCOMPARE(QImage::fromData(*file).size(), picture.size());
        const auto images = journal.context().tryFetch<EntryImage>();
        QCOMPARE(images.size(), 1);
        QCOMPARE(images.first()->id, QUuid::fromString(id));

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
        columns<QList<int>, int>("daysAgo", "weeks");
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
        auto [daysAgo, weeks] = fetch<QList<int>, int>("daysAgo", "weeks");
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

QTEST_MAIN(TestJournalScreen)
#include "tst_journalscreen.moc"
