#include "WritingTestMain.h"
#include "writing/EditingRules.h"
#include "writing/EntryMarkup.h"
#include "writing/MarkdownDialect.h"
#include "writing/SlashMenu.h"
#include "writing/TableEditing.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

using namespace Qt::StringLiterals;

namespace {

// Pieces that make every mark, line marker, table and image form, and the characters the
// editor treats specially, so that random texts hit the places where they interact.
const QStringList &pieces()
{
    // Blank-free pieces split at blanks, then those with blanks.
    static const QStringList list =
        u"* ** *** ~~ ` == =={green} =={x} [ ]( ) ] <u> </u> {{img: }} |w=10,h=20 | \n \n \n "
        u"--- ``` \t a b word #tag @Ann https://x.y/z \r \u2029 \uFFFC \uFDD0 é 😀 \u0000 \u2028 "
        u"tovren://person/1 • { }"_s.split(u' ') +
        QStringList{u"| --- |"_s, u"# "_s,     u"## "_s,    u"### "_s, u"- "_s,
                    u"* "_s,      u"- [ ] "_s, u"- [x] "_s, u"> "_s,   u"1. "_s,
                    u"    "_s,    u" "_s,      u" "_s,      u"✓ "_s,   QString(QChar(0xD800))};
    return list;
}

QString randomText(QRandomGenerator &random)
{
    const int count = random.bounded(random.bounded(8) == 0 ? 400 : 40);
    QString text;
    for (int i = 0; i < count; ++i)
        text += pieces().at(random.bounded(int(pieces().size())));
    return text;
}

QString shown(const QString &text)
{
    QString out;
    for (QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() > 0x7e)
            out += u"\\u"_s + QString::number(c.unicode(), 16).rightJustified(4, u'0');
        else
            out += c;
    }
    return out;
}

// One random thing a user can do in the editor.
void edit(QTextDocument &document, QRandomGenerator &random)
{
    QTextCursor cursor(&document);
    cursor.setPosition(random.bounded(document.characterCount()));
    const int action = random.bounded(15);
    if (QList{1, 2, 3, 6, 7, 8, 9, 14}.contains(action)) { // these act on a random selection
        const int a = random.bounded(document.characterCount());
        const int b = random.bounded(document.characterCount());
        cursor.setPosition(std::min(a, b));
        cursor.setPosition(std::max(a, b), QTextCursor::KeepAnchor);
    }
    switch (action) {
    case 0:
        cursor.insertText(pieces().at(random.bounded(int(pieces().size()))));
        break;
    case 1:
        cursor.removeSelectedText();
        break;
    case 2:
        EditingRules::toggleInline(cursor, EditingRules::InlineStyle(random.bounded(4)));
        break;
    case 3:
        EditingRules::toggleLineFormatting(cursor, LineFormatting(random.bounded(10)));
        break;
    case 4:
        cursor.movePosition(QTextCursor::EndOfBlock);
        if (!EditingRules::handleReturn(cursor))
            cursor.insertBlock();
        break;
    case 5:
        EditingRules::handleBackspaceInMarker(cursor);
        break;
    case 6:
        EditingRules::indentSelection(cursor, random.bounded(2) == 0);
        break;
    case 7:
        EditingRules::applyLink(cursor, random.bounded(2) ? u"x.org/*a*"_s : QString());
        break;
    case 8:
        EditingRules::setHighlight(cursor, u"green"_s);
        break;
    case 9:
        EditingRules::clearFormatting(cursor);
        break;
    case 10:
        TableEditing::insertTable(cursor);
        break;
    case 11:
        if (cursor.currentTable()) {
            TableEditing::deleteRow(cursor);
        } else {
            cursor.insertText(u"/"_s);
            SlashMenu::apply(cursor, SlashMenu::Action(random.bounded(10)));
        }
        break;
    case 12:
        EntryMarkup::insertMarkdown(cursor, randomText(random));
        break;
    case 13:
        EditingRules::toggleChecklistItem(cursor.block());
        break;
    case 14: { // copy and paste
        const QString copied = EntryMarkup::serializeSelection(cursor);
        cursor.setPosition(random.bounded(document.characterCount()));
        EntryMarkup::insertMarkdown(cursor, copied);
        break;
    }
    }
}

int budgetMs()
{
    bool ok = false;
    const int seconds = qEnvironmentVariableIntValue("TOVREN_FUZZ_SECONDS", &ok);
    return (ok ? seconds : 8) * 1000;
}

quint32 seed()
{
    bool ok = false;
    const uint value = qEnvironmentVariable("TOVREN_FUZZ_SEED").toUInt(&ok);
    return ok ? value : 20240601u;
}

} // namespace

class TestMarkupFuzz : public QObject {
    Q_OBJECT

private slots:
    // What is written from any text loads and saves as itself, in the editor and the format.
    void writtenTextIsAFixedPoint()
    {
        QRandomGenerator random(seed());
        EntryMarkup::LoadOptions options;
        options.people = {{QUuid::createUuid(), u"Ann"_s}};
        QElapsedTimer timer;
        timer.start();
        int cases = 0;
        while (timer.elapsed() < budgetMs()) {
            const QString text = randomText(random);
            const QString written = roundTrip(text, options);
            const QString again = roundTrip(written, options);
            // Normalising tables and marks can add a few characters, never copies of text.
            const bool bounded = written.size() <= 3 * text.size() + 16;
            if (again != written || MarkdownDialect::stabilized(text) != written || !bounded) {
                qWarning("input:   %s", qPrintable(shown(text)));
                qWarning("written: %s", qPrintable(shown(written)));
                qWarning("again:   %s", qPrintable(shown(again)));
                qWarning("format:  %s", qPrintable(shown(MarkdownDialect::stabilized(text))));
                QFAIL("not a fixed point");
            }
            ++cases;
        }
        qInfo("%d random texts, seed %u", cases, seed());
    }

    // The same after edits, since what users save comes from edits, not from loading alone.
    void editedTextIsAFixedPoint()
    {
        QRandomGenerator random(seed() + 1);
        QElapsedTimer timer;
        timer.start();
        int cases = 0;
        while (timer.elapsed() < budgetMs()) {
            QTextDocument document;
            const QString start = randomText(random);
            EntryMarkup::loadFromMarkdown(start, document);
            const int edits = 1 + random.bounded(8);
            for (int i = 0; i < edits; ++i)
                edit(document, random);
            const QString written = EntryMarkup::serializeToMarkdown(document);
            const QString again = roundTrip(written, {});
            QTextCursor all(&document);
            all.select(QTextCursor::Document);
            if (again != written ||
                (all.hasSelection() && EntryMarkup::serializeSelection(all) != written)) {
                qWarning("start:   %s", qPrintable(shown(start)));
                qWarning("written: %s", qPrintable(shown(written)));
                qWarning("again:   %s", qPrintable(shown(again)));
                QFAIL("not a fixed point after editing");
            }
            ++cases;
        }
        qInfo("%d edited documents, seed %u", cases, seed());
    }
};

WRITING_TEST_MAIN(TestMarkupFuzz)
#include "tst_markupfuzz.moc"
