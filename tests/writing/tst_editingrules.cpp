#include "TestSupport.h"
#include "WritingTestMain.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "writing/Completion.h"
#include "writing/EditingRules.h"
#include "writing/EditorLink.h"
#include "writing/EntryMarkup.h"
#include "writing/PasteNormalizer.h"
#include "writing/SlashMenu.h"
#include "writing/TableEditing.h"

#include <QSignalSpy>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextTable>

using namespace Qt::StringLiterals;
using EditingRules::InlineStyle;

namespace {

// A page in an editor: stored text in, the cursor placed, keys typed as a view forwards them.
struct Editor {
    QTextDocument document;
    QTextCursor cursor;

    explicit Editor(const QString &text)
        : cursor(&document)
    {
        EntryMarkup::loadFromMarkdown(text, document);
        cursor = QTextCursor(&document);
    }

    // Column -1 is the end of the line.
    Editor &at(int line, int column = -1)
    {
        const QTextBlock block = document.findBlockByNumber(line);
        cursor.setPosition(block.position() + (column < 0 ? block.length() - 1 : column));
        return *this;
    }

    Editor &select(int from, int to)
    {
        cursor.setPosition(from);
        cursor.setPosition(to, QTextCursor::KeepAnchor);
        return *this;
    }

    Editor &selectAll()
    {
        cursor.select(QTextCursor::Document);
        return *this;
    }

    // Each character runs through the hooks a view calls after a key.
    Editor &type(const QString &text)
    {
        for (QChar c : text) {
            cursor.insertText(QString(c));
            if (c == u' ')
                EditingRules::checkListShortcut(cursor);
            EditingRules::checkSmartSubstitutions(cursor);
        }
        return *this;
    }

    QString stored() const { return EntryMarkup::serializeToMarkdown(document); }
};

} // namespace

class TestEditingRules : public QObject {
    Q_OBJECT

private slots:
    void returnKey_data()
    {
        columns<QString, int, QString>("text", "line", "after");
        QTest::newRow("bullet continues") << u"- a"_s << 0 << u"- a\n- x"_s;
        QTest::newRow("checklist: unchecked") << u"- [x] done"_s << 0 << u"- [x] done\n- [ ] x"_s;
        QTest::newRow("number counts on") << u"9. nine"_s << 0 << u"9. nine\n10. x"_s;
        QTest::newRow("quote continues") << u"> q"_s << 0 << u"> q\n> x"_s;
        QTest::newRow("indentation kept") << u"    - deep"_s << 0 << u"    - deep\n    - x"_s;
        QTest::newRow("empty item leaves the list") << u"- a\n- "_s << 1 << u"- a\nx"_s;
        QTest::newRow("empty subitem outdents") << u"- a\n        - "_s << 1 << u"- a\n    - x"_s;
        QTest::newRow("empty quote ends") << u"> "_s << 0 << u"x"_s;
        QTest::newRow("heading is followed by text") << u"# Title"_s << 0 << u"# Title\nx"_s;
    }

    void returnKey()
    {
        auto [text, line, after] = fetch<QString, int, QString>("text", "line", "after");
        Editor editor(text);
        QVERIFY(EditingRules::handleReturn(editor.at(line).cursor));
        editor.type(u"x"_s);
        QCOMPARE(editor.stored(), after);
    }

    void returnIsLeftToTheViewElsewhere()
    {
        Editor body(u"plain"_s);
        QVERIFY(!EditingRules::handleReturn(body.at(0).cursor));
        Editor code(u"```\nx\n```"_s);
        QVERIFY(!EditingRules::handleReturn(code.at(1).cursor));
        Editor inMarker(u"- a"_s);
        QVERIFY(!EditingRules::handleReturn(inMarker.at(0, 1).cursor));
    }

    void backspaceInMarker_data()
    {
        columns<QString, int, bool, QString>("text", "column", "handled", "after");
        QTest::newRow("bullet") << u"- a"_s << 2 << true << u"a"_s;
        QTest::newRow("indented checklist") << u"  - [ ] a"_s << 4 << true << u"a"_s;
        QTest::newRow("numbered") << u"12. a"_s << 4 << true << u"a"_s;
        QTest::newRow("quote at start") << u"> a"_s << 0 << true << u"a"_s;
        QTest::newRow("heading at start") << u"## a"_s << 0 << true << u"a"_s;
        QTest::newRow("inside the text") << u"- ab"_s << 3 << false << u"- ab"_s;
    }

    void backspaceInMarker()
    {
        auto [text, column, handled, after] =
            fetch<QString, int, bool, QString>("text", "column", "handled", "after");
        Editor editor(text);
        QCOMPARE(EditingRules::handleBackspaceInMarker(editor.at(0, column).cursor), handled);
        QCOMPARE(editor.stored(), after);
    }

    void typedShortcuts_data()
    {
        columns<QString, QString, QString>("text", "typed", "after");
        QTest::newRow("dash") << QString() << u"- x"_s << u"- x"_s;
        QTest::newRow("star") << QString() << u"* x"_s << u"- x"_s;
        QTest::newRow("plus") << QString() << u"+ x"_s << u"- x"_s;
        QTest::newRow("number kept") << QString() << u"12. x"_s << u"12. x"_s;
        QTest::newRow("quote") << QString() << u"> x"_s << u"> x"_s;
        QTest::newRow("headings") << QString() << u"### x"_s << u"### x"_s;
        QTest::newRow("indented") << QString() << u"    - x"_s << u"    - x"_s;
        QTest::newRow("checklist from a bullet") << QString() << u"- [ ] x"_s << u"- [ ] x"_s;
        QTest::newRow("checked from a bullet") << QString() << u"- [x] x"_s << u"- [x] x"_s;
        QTest::newRow("not mid-line") << u"a"_s << u" - x"_s << u"a - x"_s;
        QTest::newRow("not in code") << u"```\n"_s << u"- x"_s << u"```\n- x"_s;
        QTest::newRow("arrows") << QString() << u"a -> b --> c => d <- e <-- f"_s
                                << u"a → b → c ⇒ d ← e ← f"_s;
        QTest::newRow("dash") << QString() << u"then--now"_s << u"then—now"_s;
        QTest::newRow("divider still typed") << QString() << u"---"_s << u"---"_s;
        QTest::newRow("no arrows in code") << u"```\n"_s << u"a->b"_s << u"```\na->b"_s;
        // An address keeps its characters, typed or already recognised; a blank ends it.
        QTest::newRow("typed address") << QString() << u"see http://a.example/x--y->z=>w"_s
                                       << u"see http://a.example/x--y->z=>w"_s;
        QTest::newRow("recognised address")
            << u"https://a.example/x"_s << u"--y -> z"_s << u"https://a.example/x--y → z"_s;
    }

    void typedShortcuts()
    {
        auto [text, typed, after] = fetch<QString, QString, QString>("text", "typed", "after");
        Editor editor(text);
        editor.at(editor.document.blockCount() - 1).type(typed);
        QCOMPARE(editor.stored(), after);
    }

    void noArrowsInInlineCodeOrLinks()
    {
        Editor editor(u"`ab` [cd](https://x.org)"_s);
        editor.at(0, 1).type(u"->"_s);
        editor.at(0, 6).type(u"=>"_s);
        QCOMPARE(editor.stored(), u"`a->b` [c=>d](https://x.org)"_s);
    }

    void tabIndentsListLines()
    {
        Editor editor(u"- a\n1. b\nplain\n- [ ] c"_s);
        QVERIFY(EditingRules::indentSelection(editor.selectAll().cursor, false));
        QCOMPARE(editor.stored(), u"    - a\n    1. b\nplain\n    - [ ] c"_s);
        QVERIFY(EditingRules::indentSelection(editor.selectAll().cursor, true));
        QVERIFY(EditingRules::indentSelection(editor.selectAll().cursor, true) == false);
        QCOMPARE(editor.stored(), u"- a\n1. b\nplain\n- [ ] c"_s);
        Editor tabbed(u"\t- a"_s);
        QVERIFY(EditingRules::indentSelection(tabbed.at(0).cursor, true));
        QCOMPARE(tabbed.stored(), u"- a"_s);
        Editor body(u"plain"_s);
        QVERIFY(!EditingRules::indentSelection(body.at(0).cursor, false));
    }

    void toggleInline_data()
    {
        columns<QString, int, int, int, QString>("text", "from", "to", "style", "after");
        QTest::newRow("bold a word")
            << u"one two"_s << 4 << 7 << int(InlineStyle::bold) << u"one **two**"_s;
        QTest::newRow("unbold") << u"one **two**"_s << 4 << 7 << int(InlineStyle::bold)
                                << u"one two"_s;
        QTest::newRow("partly bold becomes bold")
            << u"**on**e"_s << 0 << 3 << int(InlineStyle::bold) << u"**one**"_s;
        QTest::newRow("heading stays a heading")
            << u"## one"_s << 0 << 3 << int(InlineStyle::bold) << u"## **one**"_s;
        QTest::newRow("markers are not styled")
            << u"- a\n- b"_s << 0 << 7 << int(InlineStyle::italic) << u"- *a*\n- *b*"_s;
        QTest::newRow("code is left alone")
            << u"`c` d"_s << 0 << 3 << int(InlineStyle::strikethrough) << u"`c`~~ d~~"_s;
        QTest::newRow("underline")
            << u"ab"_s << 0 << 2 << int(InlineStyle::underline) << u"<u>ab</u>"_s;
    }

    void toggleInline()
    {
        auto [text, from, to, style, after] =
            fetch<QString, int, int, int, QString>("text", "from", "to", "style", "after");
        Editor editor(text);
        EditingRules::toggleInline(editor.select(from, to).cursor, InlineStyle(style));
        QCOMPARE(editor.stored(), after);
    }

    void toggleLineFormatting_data()
    {
        columns<QString, QString, QString>("text", "kind", "after");
        QTest::newRow("bullets") << u"a\nb"_s << u"bullet"_s << u"- a\n- b"_s;
        QTest::newRow("all bullets turn back") << u"- a\n- b"_s << u"bullet"_s << u"a\nb"_s;
        QTest::newRow("numbers count") << u"a\nb"_s << u"numbered"_s << u"1. a\n2. b"_s;
        QTest::newRow("list kind keeps indent") << u"  - a"_s << u"checklist"_s << u"  - [ ] a"_s;
        QTest::newRow("quote") << u"a\nb"_s << u"quote"_s << u"> a\n> b"_s;
        QTest::newRow("heading keeps marks") << u"**a**"_s << u"h2"_s << u"## **a**"_s;
        QTest::newRow("code is fenced") << u"a\nb"_s << u"code"_s << u"```\na\nb\n```"_s;
        QTest::newRow("code back to text") << u"```\nx\n```"_s << u"code"_s << u"\nx\n"_s;
        QTest::newRow("divider after text") << u"a"_s << u"divider"_s << u"a\n---\n"_s;
    }

    void toggleLineFormatting()
    {
        auto [text, kind, after] = fetch<QString, QString, QString>("text", "kind", "after");
        Editor editor(text);
        EditingRules::toggleLineFormatting(editor.selectAll().cursor, *lineFormattingFromRaw(kind));
        QCOMPARE(editor.stored(), after);
    }

    void links_data()
    {
        columns<QString, QString>("input", "url");
        QTest::newRow("bare host") << u" example.com/a "_s << u"https://example.com/a"_s;
        QTest::newRow("http kept") << u"http://x.org"_s << u"http://x.org"_s;
        QTest::newRow("other scheme kept") << u"ftp://x.org"_s << u"ftp://x.org"_s;
        QTest::newRow("nothing") << u"  "_s << QString();
    }

    void links()
    {
        auto [input, url] = fetch<QString, QString>("input", "url");
        QCOMPARE(EditingRules::normalizedLinkUrl(input), url);
    }

    void linkAndClear()
    {
        Editor editor(u"see docs now"_s);
        EditingRules::applyLink(editor.select(4, 8).cursor, u"x.org"_s);
        QCOMPARE(editor.stored(), u"see [docs](https://x.org) now"_s);
        EditingRules::applyLink(editor.select(4, 8).cursor, QString());
        QCOMPARE(editor.stored(), u"see docs now"_s);

        Editor marked(u"**a** ==b== `c` [d](https://x.org) =={blue}e=="_s);
        EditingRules::clearFormatting(marked.selectAll().cursor);
        QCOMPARE(marked.stored(), u"a b c d e"_s);
        EditingRules::setHighlight(marked.select(0, 1).cursor, u"green"_s);
        EditingRules::setHighlight(marked.select(2, 3).cursor, u"unknown"_s);
        QCOMPARE(marked.stored(), u"=={green}a== ==b== c d e"_s);
    }

    void checklistItemsToggle()
    {
        Editor editor(u"- [ ] a\n  - [x] b"_s);
        EditingRules::toggleChecklistItem(editor.document.findBlockByNumber(0));
        EditingRules::toggleChecklistItem(editor.document.findBlockByNumber(1));
        QCOMPARE(editor.stored(), u"- [x] a\n  - [ ] b"_s);
    }

    void tables()
    {
        Editor empty{QString()};
        TableEditing::insertTable(empty.cursor);
        empty.cursor.insertText(u"h"_s);
        QCOMPARE(empty.stored(), u"| h |  |\n| --- | --- |\n|  |"_s);

        Editor between(u"a\n\n## b"_s);
        TableEditing::insertTable(between.at(1).cursor);
        QCOMPARE(between.stored(), u"a\n|  |  |\n| --- | --- |\n|  |\n## b"_s);

        Editor edit(u"| a | b |\n| --- | --- |\n| 1 | 2 |"_s);
        QTextTable *table = nullptr;
        for (QTextBlock block = edit.document.begin(); block.isValid() && !table;
             block = block.next())
            table = QTextCursor(block).currentTable();
        QVERIFY(table);
        QTextCursor cell = table->cellAt(1, 0).firstCursorPosition();
        QVERIFY(TableEditing::insertRowBelow(cell));
        QVERIFY(TableEditing::insertColumnAfter(cell));
        QCOMPARE(edit.stored(), u"| a |  | b |\n| --- | --- | --- |\n| 1 |  | 2 |\n|  |"_s);
        cell = table->cellAt(0, 2).firstCursorPosition();
        QVERIFY(TableEditing::deleteColumn(cell));
        cell = table->cellAt(0, 0).firstCursorPosition();
        QVERIFY(TableEditing::insertRowAbove(cell));
        cell = table->cellAt(2, 0).firstCursorPosition();
        QVERIFY(TableEditing::deleteRow(cell));
        QCOMPARE(edit.stored(), u"|  |  |\n| --- | --- |\n| a |\n|  |"_s);
        for (int i = 0; i < 3; ++i) {
            cell = table->cellAt(0, 0).firstCursorPosition();
            QVERIFY(TableEditing::deleteRow(cell));
        }
        QCOMPARE(edit.stored(), QString());
        QVERIFY(!TableEditing::deleteRow(edit.at(0).cursor));
    }

    void slashMenu_data()
    {
        columns<int, QString>("action", "after");
        QTest::newRow("heading") << int(SlashMenu::Action::heading) << u"a\n# x"_s;
        QTest::newRow("subheading") << int(SlashMenu::Action::subheading) << u"a\n## x"_s;
        QTest::newRow("bullets") << int(SlashMenu::Action::bulletList) << u"a\n- x"_s;
        QTest::newRow("numbers") << int(SlashMenu::Action::numberedList) << u"a\n1. x"_s;
        QTest::newRow("checklist") << int(SlashMenu::Action::checklist) << u"a\n- [ ] x"_s;
        QTest::newRow("quote") << int(SlashMenu::Action::quote) << u"a\n> x"_s;
        QTest::newRow("code") << int(SlashMenu::Action::codeBlock) << u"a\n```\nx\n```"_s;
        QTest::newRow("divider") << int(SlashMenu::Action::divider) << u"a\n---\nx"_s;
        QTest::newRow("table") << int(SlashMenu::Action::table)
                               << u"a\n| x |  |\n| --- | --- |\n|  |"_s;
        QTest::newRow("image is left to the view") << int(SlashMenu::Action::image) << u"a\nx"_s;
    }

    void slashMenu()
    {
        auto [action, after] = fetch<int, QString>("action", "after");
        Editor editor(u"a\n"_s);
        editor.at(1).type(u"/"_s);
        QVERIFY(SlashMenu::shouldOpen(editor.cursor));
        SlashMenu::apply(editor.cursor, SlashMenu::Action(action));
        editor.cursor.insertText(u"x"_s);
        QCOMPARE(editor.stored(), after);
        QCOMPARE(SlashMenu::items().size(), 10);
        Editor written(u"a"_s);
        QVERIFY(!SlashMenu::shouldOpen(written.at(0).type(u"/"_s).cursor));
    }

    void completionQuery_data()
    {
        columns<QString, bool, bool, QString>("line", "active", "mention", "query");
        QTest::newRow("after a blank") << u"met @An"_s << true << true << u"An"_s;
        QTest::newRow("at the start") << u"@"_s << true << true << QString();
        QTest::newRow("with a blank") << u"@Ann L"_s << true << true << u"Ann L"_s;
        QTest::newRow("tag") << u"on #lau"_s << true << false << u"lau"_s;
        QTest::newRow("inside a word") << u"mail@host"_s << false << false << QString();
        QTest::newRow("other characters end it") << u"@a!b"_s << false << false << QString();
    }

    void completionQuery()
    {
        auto [line, active, mention, query] =
            fetch<QString, bool, bool, QString>("line", "active", "mention", "query");
        Editor editor(line);
        const auto found = Completion::activeQuery(editor.at(0).cursor);
        QCOMPARE(found.has_value(), active);
        if (!found)
            return;
        QCOMPARE(found->trigger == Completion::Trigger::mention, mention);
        QCOMPARE(found->text, query);
    }

    void completionCandidatesAndInsertion()
    {
        const QList<Completion::MentionSuggestion> people{
            {QUuid::createUuid(), u"zoë Ng"_s, {}, {}, false},
            {QUuid::createUuid(), u"Anna Ek"_s, {}, {}, false},
            {QUuid::createUuid(), u"Zed Nash"_s, {}, {}, true},
            {QUuid::createUuid(), u"Bob"_s, {}, {}, false},
        };
        QStringList names;
        for (const auto &person : Completion::mentionCandidates(u"N"_s, people))
            names.append(person.name);
        QCOMPARE(names, (QStringList{u"Zed Nash"_s, u"Anna Ek"_s, u"zoë Ng"_s}));
        QVERIFY(Completion::mentionCandidates(u"xyz"_s, people).isEmpty());
        QCOMPARE(Completion::tagCandidates(u"L"_s, {u"release"_s, u"Launch"_s, u"q3"_s}),
                 (QStringList{u"Launch"_s, u"release"_s}));

        Editor editor(u"met @an today"_s);
        const auto query = Completion::activeQuery(editor.at(0, 7).cursor);
        QVERIFY(query);
        Completion::insert(editor.cursor, *query, u"Anna Ek"_s);
        QCOMPARE(editor.stored(), u"met @Anna Ek  today"_s);

        CompletionList list;
        QCOMPARE(list.handleKey(CompletionList::Key::enter), CompletionList::Outcome::ignored);
        list.setCount(3);
        QCOMPARE(list.handleKey(CompletionList::Key::up), CompletionList::Outcome::moved);
        QCOMPARE(list.selected(), 2);
        list.handleKey(CompletionList::Key::down);
        QCOMPARE(list.selected(), 0);
        QCOMPARE(list.handleKey(CompletionList::Key::tab), CompletionList::Outcome::chosen);
        QCOMPARE(list.handleKey(CompletionList::Key::escape), CompletionList::Outcome::closed);
        QVERIFY(!list.isOpen());
    }

    void followingLinks()
    {
        QVERIFY(EditorLink::isInternal(QUrl(u"TOVREN://tag/x"_s)));
        QVERIFY(!EditorLink::isInternal(u"https://tovren.app"_s));
        QCOMPARE(EditorLink::url(QVariant(u"https://x.org"_s)), QUrl(u"https://x.org"_s));
        QCOMPARE(EditorLink::url(QVariant()), std::nullopt);

        TempDataDir dir;
        Preferences prefs(dir.configDir() + u"/preferences.json"_s);
        QSignalSpy notices(&NoticeCenter::shared(), &NoticeCenter::posted);
        QCOMPARE(EditorLink::follow(QUrl(u"tovren://person/ABC-1"_s), prefs),
                 EditorLink::Followed::person);
        QCOMPARE(prefs.value(Prefs::peopleSelectPersonId), u"ABC-1"_s);
        QCOMPARE(EditorLink::follow(EditorLink::tagLink(u"launch"_s), prefs),
                 EditorLink::Followed::tag);
        QCOMPARE(notices.size(), 2);
        QCOMPARE(notices.at(0).at(0).toString(), QString::fromLatin1(Notices::openTab));
        QCOMPARE(notices.at(1).at(1).toMap().value(u"query"_s).toString(), u"#launch"_s);
        QCOMPARE(EditorLink::follow(QUrl(u"https://x.org"_s), prefs),
                 EditorLink::Followed::external);
    }

    void pastedLists_data()
    {
        columns<QString, QString>("plain", "stored");
        QTest::newRow("bullet glyphs") << u"• one\n◦ two\n– three"_s << u"- one\n- two\n- three"_s;
        QTest::newRow("numbers") << u"1) one\n2. two\n3.no"_s << u"1. one\n2. two\n3.no"_s;
        QTest::newRow("tabbed prefixes")
            << u"•\tone\n\t•\ttwo\n\t\t1.\tthree"_s << u"- one\n    - two\n        1. three"_s;
        QTest::newRow("plain lines") << u"just text\r\nmore"_s << u"just text\nmore"_s;
    }

    void pastedLists()
    {
        auto [plain, stored] = fetch<QString, QString>("plain", "stored");
        QCOMPARE(PasteNormalizer::normalizePastedLists(plain), stored);
    }

    void pastedRichText()
    {
        QTextDocument rich;
        rich.setHtml(u"<p><b>bold</b> <span style='font-size:30px; color:red'>big</span> "
                     "<i>it</i> <u>under</u> <a href='https://x.org'>link</a></p>"
                     "<ul><li>one</li></ul><ol><li>first</li><li>second</li></ol>"_s);
        const QString stored = PasteNormalizer::prepareForPaste(rich);
        QCOMPARE(stored, u"**bold** big *it* under [link](https://x.org)\n- one\n1. first\n"
                         "2. second"_s);

        Editor editor(u"start end"_s);
        EntryMarkup::insertMarkdown(editor.at(0, 6).cursor, u"**a**\n- b\nc"_s);
        QCOMPARE(editor.stored(), u"start **a**\n- b\ncend"_s);
    }
};

WRITING_TEST_MAIN(TestEditingRules)
#include "tst_editingrules.moc"
