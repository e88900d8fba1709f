#pragma once

#include "InlineMarkup.h"
#include "LineFormatting.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <variant>

// The stored text of pages and notes as a list of lines and tables, without any editor. The
// editor's document is built from this and read back into it, so the rules of the format live
// here once.
namespace MarkdownDialect {

struct Line {
    LineFormatting kind = LineFormatting::body;
    QString indent;       // list lines: the leading spaces and tabs
    QString number;       // numbered lines: the digits
    bool checked = false; // checklist lines
    QString verbatim;     // code lines: the whole line
    QList<InlineMarkup::Span> spans;

    bool operator==(const Line &) const = default;
};

struct Table {
    QList<QStringList> rows; // the first is the header; every row has the same cell count
    bool operator==(const Table &) const = default;
};

using Block = std::variant<Line, Table>;

// Line breaks the editor can't hold inside a line ("\r", U+2029) become line feeds, and
// characters it keeps for its own structure become U+FFFD, as does a lone surrogate.
QString sanitized(const QString &text);

QList<Block> parse(const QString &text);
QString serialize(const QList<Block> &blocks);
QString serializeLine(const Line &line);

// Marks can combine into text that reads back differently ("**a*" next to "b*"), since
// nothing is escaped. Reading and writing again until the text stops changing gives a text
// that loads and saves as itself.
QString stabilized(QString text);

// After leading spaces and tabs: "- [x] ", "- [X] ", "- [ ] ", "- ", "* " or digits and ". ".
std::optional<Line> nestedListLine(QStringView line);

bool isTableLine(QStringView line);
bool isTableSeparator(QStringView line);
QStringList tableCells(QStringView line);
// Separator lines dropped, short rows padded; no rows when the lines have no separator.
QList<QStringList> parseMarkdownTable(const QList<QStringView> &lines);
QStringList serializeTable(const Table &table);

} // namespace MarkdownDialect
