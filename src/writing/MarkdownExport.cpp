#include "MarkdownExport.h"

#include <QFont>
#include <QTextCursor>

using namespace Qt::StringLiterals;

namespace MarkdownExport {

QString plainText(const QString &text)
{
    QStringList out;
    for (QStringView line : QStringView(text).split(u'\n')) {
        for (QStringView prefix : {u"### ", u"## ", u"# "}) {
            if (line.startsWith(prefix)) {
                line = line.mid(prefix.size());
                break;
            }
        }
        QString result = line.toString();
        if (line.startsWith(u"- ") || line.startsWith(u"* "))
            result = u"• "_s + line.mid(2);
        result.remove(u"**"_s);
        result.remove(u'`');
        out.append(result);
    }
    return out.join(u'\n');
}

QList<MarkdownLine> lines(const QString &text)
{
    QList<MarkdownLine> result;
    for (QStringView raw : QStringView(text).split(u'\n')) {
        const QStringView line = raw.trimmed();
        if (line.isEmpty())
            result.append({MarkdownLine::Type::empty, {}});
        else if (line.startsWith(u"### "))
            result.append({MarkdownLine::Type::h3, line.mid(4).toString()});
        else if (line.startsWith(u"## "))
            result.append({MarkdownLine::Type::h2, line.mid(3).toString()});
        else if (line.startsWith(u"# "))
            result.append({MarkdownLine::Type::h1, line.mid(2).toString()});
        else if (line.startsWith(u"- ") || line.startsWith(u"* "))
            result.append({MarkdownLine::Type::bullet, line.mid(2).toString()});
        else
            result.append({MarkdownLine::Type::body, line.toString()});
    }
    return result;
}

namespace {

// "**" pairs, each closing at the nearest "**" after at least one character. Once no closer is
// left, none can be found further on, which keeps this linear.
void insertWithBold(QTextCursor &cursor, QStringView text, const QTextCharFormat &base)
{
    QTextCharFormat bold = base;
    bold.setFontWeight(QFont::Bold);
    qsizetype at = 0;
    while (at < text.size()) {
        const qsizetype open = text.indexOf(u"**", at);
        const qsizetype close = open < 0 ? -1 : text.indexOf(u"**", open + 3);
        if (close < 0) {
            cursor.insertText(text.mid(at).toString(), base);
            return;
        }
        cursor.insertText(text.mid(at, open - at).toString(), base);
        cursor.insertText(text.mid(open + 2, close - open - 2).toString(), bold);
        at = close + 2;
    }
}

} // namespace

std::unique_ptr<QTextDocument> attributedString(const QString &text, qreal bodySize)
{
    auto document = std::make_unique<QTextDocument>();
    QTextCursor cursor(document.get());
    bool first = true;
    for (const MarkdownLine &line : lines(text)) {
        QTextCharFormat format;
        format.setFontPointSize(bodySize);
        QString shown = line.text;
        switch (line.type) {
        case MarkdownLine::Type::h1:
            format.setFontPointSize(bodySize * 1.6);
            format.setFontWeight(QFont::Bold);
            break;
        case MarkdownLine::Type::h2:
            format.setFontPointSize(bodySize * 1.3);
            format.setFontWeight(QFont::Bold);
            break;
        case MarkdownLine::Type::h3:
            format.setFontPointSize(bodySize * 1.15);
            format.setFontWeight(QFont::Bold);
            break;
        case MarkdownLine::Type::bullet:
            shown = u"• "_s + shown;
            break;
        case MarkdownLine::Type::body:
        case MarkdownLine::Type::empty:
            break;
        }
        if (!first)
            cursor.insertBlock(QTextBlockFormat(), format);
        else
            cursor.setBlockCharFormat(format);
        first = false;
        insertWithBold(cursor, shown, format);
    }
    return document;
}

} // namespace MarkdownExport
