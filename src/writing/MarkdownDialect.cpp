#include "MarkdownDialect.h"

using namespace Qt::StringLiterals;

namespace MarkdownDialect {

namespace {

constexpr int maxStabilizingPasses = 16;

bool isFence(QStringView line)
{
    return line.startsWith(u"```");
}

Line codeLine(QStringView line)
{
    Line result;
    result.kind = LineFormatting::code;
    result.verbatim = line.toString();
    return result;
}

Line textLine(LineFormatting kind, QStringView body)
{
    Line result;
    result.kind = kind;
    result.spans = InlineMarkup::parse(body);
    return result;
}

bool isAsciiSpace(QChar c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\v' || c == u'\f' || c == u'\r';
}

QString cleanCell(QString text)
{
    text.replace(u'\n', u' ');
    text.replace(QChar::LineSeparator, u' ');
    return text;
}

QStringList rowPieces(const QStringList &cells)
{
    // A cell holding "|" reads back as several cells; write it as those cells.
    QStringList pieces;
    for (const QString &cell : cells) {
        for (const QString &piece : cleanCell(cell).split(u'|'))
            pieces.append(piece.trimmed());
    }
    return pieces;
}

QString tableRow(const QStringList &cells)
{
    return u"| "_s + cells.join(u" | "_s) + u" |"_s;
}

} // namespace

QString sanitized(const QString &text)
{
    const auto special = [](QChar c) {
        return c == u'\r' || c == QChar::ParagraphSeparator || c.unicode() == 0xFDD0 ||
               c.unicode() == 0xFDD1 || c == QChar::ObjectReplacementCharacter || c.isSurrogate();
    };
    if (std::none_of(text.cbegin(), text.cend(), special))
        return text;

    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (!special(c)) {
            out += c;
        } else if (c == u'\r') {
            if (i + 1 >= text.size() || text[i + 1] != u'\n')
                out += u'\n';
        } else if (c == QChar::ParagraphSeparator) {
            out += u'\n';
        } else if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            out += c;
            out += text[++i];
        } else {
            out += QChar::ReplacementCharacter;
        }
    }
    return out;
}

std::optional<Line> nestedListLine(QStringView line)
{
    qsizetype at = 0;
    while (at < line.size() && (line[at] == u' ' || line[at] == u'\t'))
        ++at;
    const QStringView rest = line.mid(at);
    Line result;
    result.indent = line.left(at).toString();
    QStringView body;
    if (rest.startsWith(u"- [x] ") || rest.startsWith(u"- [X] ")) {
        result.kind = LineFormatting::checklist;
        result.checked = true;
        body = rest.mid(6);
        // Writers that strike a done item through have it shown plainly; the tick says it.
        if (body.size() >= 4 && body.startsWith(u"~~") && body.endsWith(u"~~"))
            body = body.mid(2, body.size() - 4);
    } else if (rest.startsWith(u"- [ ] ")) {
        result.kind = LineFormatting::checklist;
        body = rest.mid(6);
    } else if (rest.startsWith(u"- ") || rest.startsWith(u"* ")) {
        result.kind = LineFormatting::bullet;
        body = rest.mid(2);
    } else {
        qsizetype digits = 0;
        while (digits < rest.size() && rest[digits] >= u'0' && rest[digits] <= u'9')
            ++digits;
        if (digits == 0 || !rest.mid(digits).startsWith(u". "))
            return std::nullopt;
        result.kind = LineFormatting::numbered;
        result.number = rest.left(digits).toString();
        body = rest.mid(digits + 2);
    }
    result.spans = InlineMarkup::parse(body);
    return result;
}

bool isTableLine(QStringView line)
{
    return line.size() >= 2 && line.startsWith(u'|') && line.endsWith(u'|');
}

bool isTableSeparator(QStringView line)
{
    if (!isTableLine(line))
        return false;
    bool dash = false;
    for (QChar c : line.mid(1, line.size() - 2)) {
        if (c == u'-')
            dash = true;
        else if (c != u':' && c != u'|' && !isAsciiSpace(c))
            return false;
    }
    return dash;
}

QStringList tableCells(QStringView line)
{
    QStringList cells;
    for (QStringView piece : line.split(u'|'))
        cells.append(piece.trimmed().toString());
    if (!cells.isEmpty() && cells.first().isEmpty())
        cells.removeFirst();
    if (!cells.isEmpty() && cells.last().isEmpty())
        cells.removeLast();
    return cells;
}

QList<QStringList> parseMarkdownTable(const QList<QStringView> &lines)
{
    QList<QStringList> rows;
    bool separator = false;
    qsizetype width = 0;
    for (QStringView line : lines) {
        if (isTableSeparator(line)) {
            separator = true;
            continue;
        }
        rows.append(tableCells(line));
        width = std::max(width, rows.last().size());
    }
    if (!separator)
        return {};
    for (QStringList &row : rows) {
        while (row.size() < width)
            row.append(QString());
    }
    return rows;
}

QList<Block> parse(const QString &input)
{
    const QString text = sanitized(input);
    const QList<QStringView> lines = QStringView(text).split(u'\n');
    QList<Block> blocks;
    blocks.reserve(lines.size());
    bool inCode = false;
    qsizetype notTableUntil = -1; // lines already found to be outside any table
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QStringView line = lines[i];
        if (isFence(line)) {
            blocks.append(codeLine(line));
            inCode = !inCode;
            continue;
        }
        if (inCode) {
            blocks.append(codeLine(line));
            continue;
        }
        if (line.contains(u"{{img:")) {
            Line result;
            result.spans = InlineMarkup::parseWithImages(line);
            blocks.append(std::move(result));
            continue;
        }
        if (line.startsWith(u"### ")) {
            blocks.append(textLine(LineFormatting::h3, line.mid(4)));
            continue;
        }
        if (line.startsWith(u"## ")) {
            blocks.append(textLine(LineFormatting::h2, line.mid(3)));
            continue;
        }
        if (i > notTableUntil && isTableLine(line)) {
            qsizetype end = i;
            while (end < lines.size() && isTableLine(lines[end]))
                ++end;
            const QList<QStringList> rows = parseMarkdownTable(lines.mid(i, end - i));
            if (!rows.isEmpty()) {
                blocks.append(Table{rows});
                i = end - 1;
                continue;
            }
            notTableUntil = end - 1;
        }
        if (line.startsWith(u"# ")) {
            blocks.append(textLine(LineFormatting::h1, line.mid(2)));
            continue;
        }
        if (auto list = nestedListLine(line)) {
            blocks.append(std::move(*list));
            continue;
        }
        if (line.startsWith(u"> ")) {
            blocks.append(textLine(LineFormatting::quote, line.mid(2)));
            continue;
        }
        if (line == u"---" || line == u"***") {
            Line divider;
            divider.kind = LineFormatting::divider;
            blocks.append(std::move(divider));
            continue;
        }
        blocks.append(textLine(LineFormatting::body, line));
    }
    return blocks;
}

QString serializeLine(const Line &line)
{
    const QString body = InlineMarkup::serialize(line.spans);
    switch (line.kind) {
    case LineFormatting::code:
        return line.verbatim;
    case LineFormatting::h1:
        return u"# "_s + body;
    case LineFormatting::h2:
        return u"## "_s + body;
    case LineFormatting::h3:
        return u"### "_s + body;
    case LineFormatting::bullet:
        return line.indent + u"- "_s + body;
    case LineFormatting::checklist:
        return line.indent + (line.checked ? u"- [x] "_s : u"- [ ] "_s) + body;
    case LineFormatting::numbered:
        return line.indent + (line.number.isEmpty() ? u"1"_s : line.number) + u". "_s + body;
    case LineFormatting::quote:
        return u"> "_s + body;
    case LineFormatting::divider:
        return body.isEmpty() ? u"---"_s : body;
    case LineFormatting::body:
        break;
    }
    return body;
}

QStringList serializeTable(const Table &table)
{
    QList<QStringList> rows;
    qsizetype width = 1;
    for (const QStringList &row : table.rows) {
        QStringList pieces = rowPieces(row);
        // A row that reads as a separator would vanish on reading; leave it out now.
        if (isTableSeparator(tableRow(pieces)))
            continue;
        width = std::max(width, pieces.size());
        rows.append(std::move(pieces));
    }
    if (rows.isEmpty())
        rows.append(QStringList{QString()});
    // The header names every column; other rows end at their last filled cell, as reading pads
    // them again. Padding every row would make a ragged table grow with rows times columns.
    while (rows.first().size() < width)
        rows.first().append(QString());
    for (qsizetype i = 1; i < rows.size(); ++i) {
        QStringList &row = rows[i];
        while (row.size() > 1 && row.last().isEmpty())
            row.removeLast();
    }
    QStringList out;
    out.append(tableRow(rows.first()));
    out.append(tableRow(QStringList(width, u"---"_s)));
    for (qsizetype i = 1; i < rows.size(); ++i)
        out.append(tableRow(rows.at(i)));
    return out;
}

QString serialize(const QList<Block> &blocks)
{
    QStringList out;
    out.reserve(blocks.size());
    // Follows the reader's fence state, so that fences are added only where a code line would
    // otherwise read back as text, or text as code.
    bool inCode = false;
    bool previousWasCode = false;
    for (const Block &block : blocks) {
        if (const Table *table = std::get_if<Table>(&block)) {
            if (inCode && previousWasCode) {
                out.append(u"```"_s);
                inCode = false;
            }
            out += serializeTable(*table);
            previousWasCode = false;
            continue;
        }
        const Line &line = std::get<Line>(block);
        if (line.kind == LineFormatting::code) {
            if (!inCode && !isFence(line.verbatim)) {
                out.append(u"```"_s);
                inCode = true;
            }
            out.append(line.verbatim);
            if (isFence(line.verbatim))
                inCode = !inCode;
            previousWasCode = true;
            continue;
        }
        if (inCode && previousWasCode) {
            out.append(u"```"_s);
            inCode = false;
        }
        out.append(serializeLine(line));
        if (isFence(out.last()))
            inCode = !inCode;
        previousWasCode = false;
    }
    return out.join(u'\n');
}

QString stabilized(QString text)
{
    for (int pass = 0; pass < maxStabilizingPasses; ++pass) {
        QString again = serialize(parse(text));
        if (again == text)
            break;
        text = std::move(again);
    }
    return text;
}

} // namespace MarkdownDialect
