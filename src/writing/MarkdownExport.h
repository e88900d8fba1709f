#pragma once

#include <QList>
#include <QString>
#include <QTextDocument>

#include <memory>

// Stored text for places that don't edit it: plain text for summaries and search, and a
// simply styled document for printing and exported files.
namespace MarkdownExport {

// Headings lose their "#"s, "- " and "* " become bullets, "**" and "`" go; other marks stay.
QString plainText(const QString &text);

// The small reader behind the styled export: headings, bullets, text and blank lines, with
// bold as the only inline style.
struct MarkdownLine {
    enum class Type { h1, h2, h3, bullet, body, empty };
    Type type = Type::body;
    QString text;
};
QList<MarkdownLine> lines(const QString &text);

// A document to print or write out, with body text at bodySize points.
std::unique_ptr<QTextDocument> attributedString(const QString &text, qreal bodySize);

} // namespace MarkdownExport
