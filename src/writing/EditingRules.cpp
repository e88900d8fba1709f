#include "EditingRules.h"

#include "EntryMarkup.h"
#include "HighlightPalette.h"

#include <QFont>
#include <QRegularExpression>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextTable>

#include <limits>

using namespace Qt::StringLiterals;
using EntryMarkup::ListMarker;

namespace EditingRules {

namespace {

bool isHeading(LineFormatting kind)
{
    return kind == LineFormatting::h1 || kind == LineFormatting::h2 || kind == LineFormatting::h3;
}

int positionInBlock(const QTextCursor &cursor)
{
    return cursor.position() - cursor.block().position();
}

QTextCursor rangeCursor(const QTextBlock &block, int from, int to)
{
    QTextCursor cursor(block);
    cursor.setPosition(block.position() + from);
    cursor.setPosition(block.position() + to, QTextCursor::KeepAnchor);
    return cursor;
}

bool inTable(const QTextBlock &block)
{
    return QTextCursor(block).currentTable() != nullptr;
}

QString nextNumber(const QString &number)
{
    bool ok = false;
    const qlonglong value = number.toLongLong(&ok);
    if (!ok || value == std::numeric_limits<qlonglong>::max())
        return number.isEmpty() ? u"1"_s : number;
    return QString::number(value + 1);
}

bool removeIndentLevel(const QTextBlock &block)
{
    const QString text = block.text();
    int count = 0;
    if (text.startsWith(u'\t')) {
        count = 1;
    } else {
        while (count < 4 && count < text.size() && text[count] == u' ')
            ++count;
    }
    if (count == 0)
        return false;
    rangeCursor(block, 0, count).removeSelectedText();
    return true;
}

// Changes a line's kind with its marker: list to list keeps the indentation, leaving a list
// drops it.
void convertBlock(const QTextBlock &block, LineFormatting to, const QString &number = {},
                  bool checked = false)
{
    const LineFormatting from = EntryMarkup::lineFormatting(block);
    const ListMarker marker = EntryMarkup::listMarker(block);
    const bool listToList = isListFormatting(from) && isListFormatting(to);
    if (isListFormatting(from)) {
        const int start = listToList ? marker.indentLength : 0;
        const int length = listToList ? marker.markerLength : marker.textStart();
        if (length > 0)
            rangeCursor(block, start, start + length).removeSelectedText();
    }
    EntryMarkup::setLineFormatting(QTextCursor(block), to);
    if (isListFormatting(to)) {
        QTextCursor insert(block);
        insert.setPosition(block.position() + (listToList ? marker.indentLength : 0));
        insert.insertText(EntryMarkup::glyph(to, checked, number), EntryMarkup::baseCharFormat(to));
    }
}

struct Piece {
    int start = 0;
    int end = 0;
    QTextCharFormat format;
    LineFormatting kind = LineFormatting::body;
};

// The selection cut at fragment borders, on text lines only and after list markers.
QList<Piece> pieces(const QTextCursor &cursor, bool includeCode)
{
    QList<Piece> result;
    const int selectionStart = cursor.selectionStart();
    const int selectionEnd = cursor.selectionEnd();
    const QTextDocument *document = cursor.document();
    for (QTextBlock block = document->findBlock(selectionStart);
         block.isValid() && block.position() <= selectionEnd; block = block.next()) {
        const LineFormatting kind = EntryMarkup::lineFormatting(block);
        if (kind == LineFormatting::code || inTable(block))
            continue;
        const int textStart =
            block.position() +
            (isListFormatting(kind) ? EntryMarkup::listMarker(block).textStart() : 0);
        const int from = std::max(selectionStart, textStart);
        const int to = std::min(selectionEnd, block.position() + block.length() - 1);
        for (auto it = block.begin(); !it.atEnd() && from < to; ++it) {
            const QTextFragment fragment = it.fragment();
            const int start = std::max(from, fragment.position());
            const int end = std::min(to, fragment.position() + fragment.length());
            if (start >= end)
                continue;
            const QTextCharFormat format = fragment.charFormat();
            if (format.isImageFormat() ||
                (!includeCode && format.boolProperty(EntryMarkup::InlineCodeProperty)))
                continue;
            result.append({start, end, format, kind});
        }
    }
    return result;
}

void applyPieces(QTextDocument *document, const QList<Piece> &list)
{
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    for (const Piece &piece : list) {
        cursor.setPosition(piece.start);
        cursor.setPosition(piece.end, QTextCursor::KeepAnchor);
        cursor.setCharFormat(piece.format);
    }
    cursor.endEditBlock();
}

bool hasStyle(const QTextCharFormat &format, InlineStyle style)
{
    switch (style) {
    case InlineStyle::bold:
        return EntryMarkup::isBold(format);
    case InlineStyle::italic:
        return format.fontItalic();
    case InlineStyle::underline:
        return format.fontUnderline();
    case InlineStyle::strikethrough:
        return format.fontStrikeOut();
    }
    return false;
}

void setStyle(QTextCharFormat &format, InlineStyle style, bool on, LineFormatting kind)
{
    switch (style) {
    case InlineStyle::bold:
        format.setFontWeight(on ? QFont::Bold : isHeading(kind) ? QFont::DemiBold : QFont::Normal);
        break;
    case InlineStyle::italic:
        format.setFontItalic(on);
        break;
    case InlineStyle::underline:
        format.setFontUnderline(on);
        break;
    case InlineStyle::strikethrough:
        format.setFontStrikeOut(on);
        break;
    }
}

void replaceBefore(QTextCursor &cursor, int count, const QString &with)
{
    const QTextCharFormat format = cursor.charFormat();
    QTextCursor replace(cursor);
    replace.setPosition(cursor.position() - count, QTextCursor::KeepAnchor);
    replace.insertText(with, format);
}

// Whether the word being typed is a web address, where "--" and "->" are part of a path.
bool endsInAddress(QStringView before)
{
    qsizetype start = before.size();
    while (start > 0 && !before.at(start - 1).isSpace())
        --start;
    const QStringView word = before.mid(start);
    return word.contains(u"://") || word.startsWith(u"www.", Qt::CaseInsensitive);
}

} // namespace

bool handleReturn(QTextCursor &cursor)
{
    if (cursor.hasSelection())
        return false;
    const QTextBlock block = cursor.block();
    if (inTable(block))
        return false;
    if (block.blockFormat().boolProperty(EntryMarkup::SpacerProperty)) {
        // A line is being made where only the place beside a table was.
        QTextBlockFormat format = block.blockFormat();
        format.clearProperty(EntryMarkup::SpacerProperty);
        cursor.setBlockFormat(format);
        return false;
    }
    const LineFormatting kind = EntryMarkup::lineFormatting(block);
    if (isHeading(kind) && cursor.atBlockEnd()) {
        cursor.insertBlock();
        EntryMarkup::setLineFormatting(cursor, LineFormatting::body);
        cursor.setCharFormat(EntryMarkup::baseCharFormat(LineFormatting::body));
        return true;
    }
    if (!isListFormatting(kind) && kind != LineFormatting::quote)
        return false;

    const ListMarker marker = EntryMarkup::listMarker(block);
    if (positionInBlock(cursor) < marker.textStart())
        return false;
    cursor.beginEditBlock();
    if (block.text().size() == marker.textStart()) {
        if (marker.indentLength > 0)
            removeIndentLevel(block);
        else
            convertBlock(block, LineFormatting::body);
        cursor.endEditBlock();
        return true;
    }
    cursor.insertBlock();
    const QString number = kind == LineFormatting::numbered
                               ? nextNumber(marker.number.isEmpty() ? u"0"_s : marker.number)
                               : QString();
    const QTextCharFormat base = EntryMarkup::baseCharFormat(kind);
    QTextCursor start(cursor.block());
    start.insertText(marker.indent + EntryMarkup::glyph(kind, false, number), base);
    cursor.setCharFormat(base);
    cursor.endEditBlock();
    return true;
}

bool handleBackspaceInMarker(QTextCursor &cursor)
{
    if (cursor.hasSelection())
        return false;
    const QTextBlock block = cursor.block();
    const LineFormatting kind = EntryMarkup::lineFormatting(block);
    const int position = positionInBlock(cursor);
    if (isListFormatting(kind)) {
        const ListMarker marker = EntryMarkup::listMarker(block);
        if (marker.markerLength == 0 || position != marker.textStart())
            return false;
        cursor.beginEditBlock();
        convertBlock(block, LineFormatting::body);
        cursor.endEditBlock();
        return true;
    }
    if ((kind == LineFormatting::quote || isHeading(kind)) && position == 0) {
        EntryMarkup::setLineFormatting(cursor, LineFormatting::body);
        return true;
    }
    return false;
}

bool checkListShortcut(QTextCursor &cursor)
{
    if (cursor.hasSelection())
        return false;
    const QTextBlock block = cursor.block();
    if (inTable(block))
        return false;
    const LineFormatting kind = EntryMarkup::lineFormatting(block);
    const int position = positionInBlock(cursor);
    const QString typed = block.text().left(position);

    if (kind == LineFormatting::bullet) {
        const ListMarker marker = EntryMarkup::listMarker(block);
        const QString after = typed.mid(marker.textStart());
        const bool checked = after == u"[x] " || after == u"[X] ";
        if (marker.markerLength == 0 || !(checked || after == u"[ ] " || after == u"[] "))
            return false;
        cursor.beginEditBlock();
        rangeCursor(block, marker.textStart(), position).removeSelectedText();
        convertBlock(block, LineFormatting::checklist, {}, checked);
        cursor.endEditBlock();
        return true;
    }
    if (kind != LineFormatting::body)
        return false;

    static const QRegularExpression bullet(u"^([ \\t]*)[-*+] $"_s);
    static const QRegularExpression numbered(u"^([ \\t]*)(\\d+)\\.\\s$"_s);
    std::optional<LineFormatting> to;
    QString indent;
    QString number;
    if (const auto match = bullet.match(typed); match.hasMatch()) {
        to = LineFormatting::bullet;
        indent = match.captured(1);
    } else if (const auto found = numbered.match(typed); found.hasMatch()) {
        to = LineFormatting::numbered;
        indent = found.captured(1);
        number = found.captured(2);
    } else if (typed == u"> ") {
        to = LineFormatting::quote;
    } else if (typed == u"# ") {
        to = LineFormatting::h1;
    } else if (typed == u"## ") {
        to = LineFormatting::h2;
    } else if (typed == u"### ") {
        to = LineFormatting::h3;
    }
    if (!to)
        return false;
    cursor.beginEditBlock();
    rangeCursor(block, 0, position).removeSelectedText();
    convertBlock(block, *to, number);
    if (!indent.isEmpty())
        QTextCursor(block).insertText(indent, EntryMarkup::baseCharFormat(*to));
    cursor.endEditBlock();
    return true;
}

bool checkSmartSubstitutions(QTextCursor &cursor)
{
    if (cursor.hasSelection())
        return false;
    const QTextBlock block = cursor.block();
    if (EntryMarkup::lineFormatting(block) == LineFormatting::code)
        return false;
    const QTextCharFormat format = cursor.charFormat();
    if (format.boolProperty(EntryMarkup::InlineCodeProperty) ||
        (format.isAnchor() && !format.boolProperty(EntryMarkup::DerivedLinkProperty)))
        return false;
    const QString before = block.text().left(positionInBlock(cursor));
    if (endsInAddress(before))
        return false;
    if (before.endsWith(u"-->")) {
        replaceBefore(cursor, 3, u"→"_s);
    } else if (before.endsWith(u"—>") || before.endsWith(u"->")) {
        replaceBefore(cursor, 2, u"→"_s);
    } else if (before.endsWith(u"=>")) {
        replaceBefore(cursor, 2, u"⇒"_s);
    } else if (before.endsWith(u"←-") || before.endsWith(u"<-")) {
        replaceBefore(cursor, 2, u"←"_s);
    } else if (before.endsWith(u"--")) {
        // Hyphens alone at the start of a line are on their way to a divider.
        if (std::all_of(before.cbegin(), before.cend(), [](QChar c) { return c == u'-'; }))
            return false;
        replaceBefore(cursor, 2, u"—"_s);
    } else {
        return false;
    }
    return true;
}

bool indentSelection(QTextCursor &cursor, bool outdent)
{
    QTextDocument *document = cursor.document();
    QList<QTextBlock> lines;
    for (QTextBlock block = document->findBlock(cursor.selectionStart());
         block.isValid() && block.position() <= cursor.selectionEnd(); block = block.next()) {
        if (isListFormatting(EntryMarkup::lineFormatting(block)) && !inTable(block))
            lines.append(block);
    }
    bool changed = false;
    cursor.beginEditBlock();
    for (const QTextBlock &block : std::as_const(lines)) {
        if (outdent) {
            changed |= removeIndentLevel(block);
        } else {
            QTextCursor(block).insertText(
                u"    "_s, EntryMarkup::baseCharFormat(EntryMarkup::lineFormatting(block)));
            changed = true;
        }
    }
    cursor.endEditBlock();
    return changed;
}

QList<std::pair<int, int>> styleableRanges(const QTextCursor &cursor)
{
    QList<std::pair<int, int>> ranges;
    for (const Piece &piece : pieces(cursor, false)) {
        if (!ranges.isEmpty() && ranges.last().second == piece.start)
            ranges.last().second = piece.end;
        else
            ranges.append({piece.start, piece.end});
    }
    return ranges;
}

QTextCharFormat toggleInline(QTextCursor &cursor, InlineStyle style)
{
    if (!cursor.hasSelection()) {
        QTextCharFormat format = cursor.charFormat();
        setStyle(format, style, !hasStyle(format, style),
                 EntryMarkup::lineFormatting(cursor.block()));
        cursor.setCharFormat(format);
        return format;
    }
    QList<Piece> list = pieces(cursor, false);
    const bool all = std::all_of(list.cbegin(), list.cend(),
                                 [&](const Piece &piece) { return hasStyle(piece.format, style); });
    for (Piece &piece : list)
        setStyle(piece.format, style, !all, piece.kind);
    applyPieces(cursor.document(), list);
    return cursor.charFormat();
}

void setHighlight(QTextCursor &cursor, const std::optional<QString> &paletteName)
{
    QList<Piece> list = pieces(cursor, false);
    for (Piece &piece : list) {
        if (paletteName) {
            const QString name = HighlightPalette::canonicalName(*paletteName);
            piece.format.setProperty(EntryMarkup::HighlightProperty, name);
            piece.format.setBackground(HighlightPalette::color(name));
        } else {
            piece.format.clearProperty(EntryMarkup::HighlightProperty);
            piece.format.clearBackground();
        }
    }
    applyPieces(cursor.document(), list);
}

void clearFormatting(QTextCursor &cursor)
{
    if (!cursor.hasSelection()) {
        cursor.setCharFormat(
            EntryMarkup::baseCharFormat(EntryMarkup::lineFormatting(cursor.block())));
        return;
    }
    QList<Piece> list = pieces(cursor, true);
    for (Piece &piece : list)
        piece.format = EntryMarkup::baseCharFormat(piece.kind);
    applyPieces(cursor.document(), list);
}

QString normalizedLinkUrl(const QString &input)
{
    const QString url = input.trimmed();
    if (url.isEmpty() || url.contains(u"http"_s) || url.contains(u"://"_s))
        return url;
    return u"https://"_s + url;
}

void applyLink(QTextCursor &cursor, const QString &input)
{
    const QString url = normalizedLinkUrl(input);
    QList<Piece> list = pieces(cursor, false);
    for (Piece &piece : list) {
        if (url.isEmpty()) {
            if (piece.format.boolProperty(EntryMarkup::DerivedLinkProperty))
                continue;
            piece.format.clearProperty(QTextFormat::AnchorHref);
            piece.format.clearProperty(QTextFormat::IsAnchor);
        } else {
            piece.format.clearProperty(EntryMarkup::DerivedLinkProperty);
            piece.format.clearForeground();
            piece.format.setAnchor(true);
            piece.format.setAnchorHref(url);
        }
    }
    applyPieces(cursor.document(), list);
}

void toggleChecklistItem(const QTextBlock &block)
{
    if (EntryMarkup::lineFormatting(block) != LineFormatting::checklist)
        return;
    const ListMarker marker = EntryMarkup::listMarker(block);
    if (marker.markerLength == 0)
        return;
    QTextCursor cursor =
        rangeCursor(block, marker.indentLength, marker.indentLength + marker.markerLength);
    cursor.insertText(marker.checked ? EntryMarkup::uncheckedGlyph : EntryMarkup::checkedGlyph,
                      EntryMarkup::baseCharFormat(LineFormatting::checklist));
}

void toggleLineFormatting(QTextCursor &cursor, LineFormatting kind)
{
    QTextDocument *document = cursor.document();
    QList<QTextBlock> blocks;
    for (QTextBlock block = document->findBlock(cursor.selectionStart());
         block.isValid() && block.position() <= cursor.selectionEnd(); block = block.next()) {
        if (!inTable(block))
            blocks.append(block);
    }
    if (blocks.isEmpty())
        return;
    const bool all = std::all_of(blocks.cbegin(), blocks.cend(), [&](const QTextBlock &block) {
        return EntryMarkup::lineFormatting(block) == kind;
    });
    const LineFormatting target = all ? LineFormatting::body : kind;

    cursor.beginEditBlock();
    if (target == LineFormatting::divider) {
        // A rule holds no text: on a line with words it goes after the line.
        QTextBlock block = blocks.last();
        if (!block.text().isEmpty()) {
            QTextCursor after(block);
            after.movePosition(QTextCursor::EndOfBlock);
            after.insertBlock();
            block = after.block();
        }
        convertBlock(block, LineFormatting::divider);
        QTextCursor next(block);
        next.movePosition(QTextCursor::EndOfBlock);
        next.insertBlock();
        convertBlock(next.block(), LineFormatting::body);
        cursor.setPosition(next.position());
        cursor.endEditBlock();
        return;
    }

    QString number;
    if (target == LineFormatting::numbered) {
        const QTextBlock previous = blocks.first().previous();
        const bool continues =
            previous.isValid() && EntryMarkup::lineFormatting(previous) == LineFormatting::numbered;
        number = continues ? nextNumber(EntryMarkup::listMarker(previous).number) : u"1"_s;
    }
    for (const QTextBlock &block : std::as_const(blocks)) {
        const bool isFence = EntryMarkup::lineFormatting(block) == LineFormatting::code &&
                             block.text().startsWith(u"```");
        if (target != LineFormatting::code && isFence) {
            QTextCursor fence(block);
            fence.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
            fence.removeSelectedText();
        }
        convertBlock(block, target, number);
        if (target == LineFormatting::numbered)
            number = nextNumber(number);
    }
    if (target == LineFormatting::code) {
        // Fences make the lines a code block that reads back the same. The one below goes
        // first: splitting the first line for the one above moves its text to a new block.
        const bool fencedAbove =
            blocks.first().previous().isValid() &&
            EntryMarkup::lineFormatting(blocks.first().previous()) == LineFormatting::code;
        const bool fencedBelow =
            blocks.last().next().isValid() &&
            EntryMarkup::lineFormatting(blocks.last().next()) == LineFormatting::code;
        const auto place = [](const QTextCursor &c, int at) {
            const QTextBlock block = c.document()->findBlock(at);
            return std::pair{block.blockNumber(), at - block.position()};
        };
        const auto anchor = place(cursor, cursor.anchor());
        const auto position = place(cursor, cursor.position());
        if (!fencedBelow) {
            QTextCursor below(blocks.last());
            below.movePosition(QTextCursor::EndOfBlock);
            below.insertBlock();
            below.insertText(u"```"_s);
        }
        if (!fencedAbove) {
            QTextCursor above(blocks.first());
            above.insertText(u"```"_s);
            above.insertBlock();
        }
        // The fence above pushed the lines down by one; the caret stays on its text.
        const int shift = fencedAbove ? 0 : 1;
        const auto restore = [&](std::pair<int, int> at) {
            const QTextBlock block = document->findBlockByNumber(at.first + shift);
            return block.position() + std::min(at.second, block.length() - 1);
        };
        cursor.setPosition(restore(anchor));
        cursor.setPosition(restore(position), QTextCursor::KeepAnchor);
    }
    cursor.endEditBlock();
}

} // namespace EditingRules
