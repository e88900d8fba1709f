#include "PasteNormalizer.h"

#include "EntryMarkup.h"
#include "InlineMarkup.h"

#include <QRegularExpression>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextList>

using namespace Qt::StringLiterals;

namespace PasteNormalizer {

namespace {

const QString bulletGlyphs = u"•◦▪▫‣⁃●○■□–—·∙"_s;

QString normalizedLine(QString line)
{
    static const QRegularExpression tabbedPrefix(u"^(\\t*)([^\\t\\n]{0,8})\\t"_s);
    static const QRegularExpression numbered(u"^(\\d+)[.)]\\s+"_s);

    QString indent;
    if (const auto match = tabbedPrefix.match(line); match.hasMatch()) {
        indent = QString(match.capturedLength(1) * 4, u' ');
        line = match.captured(2) + u' ' + line.mid(match.capturedEnd());
    } else {
        int tabs = 0;
        while (tabs < line.size() && line[tabs] == u'\t')
            ++tabs;
        indent = QString(tabs * 4, u' ');
        line = line.mid(tabs);
    }
    int spaces = 0;
    while (spaces < line.size() && line[spaces] == u' ')
        ++spaces;
    indent += line.left(spaces);
    QString body = line.mid(spaces);

    if (!body.isEmpty() && bulletGlyphs.contains(body.front()))
        return indent + u"- "_s + body.mid(1).trimmed();
    if (const auto match = numbered.match(body); match.hasMatch())
        return indent + match.captured(1) + u". "_s + body.mid(match.capturedEnd());
    return indent.isEmpty() ? body : indent + body;
}

} // namespace

QString normalizePastedLists(const QString &plainText)
{
    QStringList lines = plainText.split(u'\n');
    for (QString &line : lines) {
        if (line.endsWith(u'\r'))
            line.chop(1);
        line = normalizedLine(line);
    }
    return lines.join(u'\n');
}

QString prepareForPaste(const QTextDocument &rich)
{
    QStringList lines;
    for (QTextBlock block = rich.begin(); block.isValid(); block = block.next()) {
        QList<InlineMarkup::Span> spans;
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            const QTextCharFormat format = fragment.charFormat();
            if (format.isImageFormat())
                continue;
            InlineMarkup::Span span;
            span.text = fragment.text();
            if (EntryMarkup::isBold(format))
                span.styles |= InlineMarkup::Style::bold;
            if (format.fontItalic())
                span.styles |= InlineMarkup::Style::italic;
            if (format.isAnchor())
                span.link = format.anchorHref();
            spans.append(span);
        }
        QString line = InlineMarkup::serialize(spans);
        if (const QTextList *list = block.textList()) {
            const int level = std::max(0, block.blockFormat().indent() - 1);
            const QString indent(level * 4, u' ');
            const QTextListFormat::Style style = list->format().style();
            const bool ordered = style == QTextListFormat::ListDecimal ||
                                 style == QTextListFormat::ListLowerAlpha ||
                                 style == QTextListFormat::ListUpperAlpha ||
                                 style == QTextListFormat::ListLowerRoman ||
                                 style == QTextListFormat::ListUpperRoman;
            line = indent +
                   (ordered ? QString::number(list->itemNumber(block) + 1) + u". "_s : u"- "_s) +
                   line;
            lines.append(line);
            continue;
        }
        lines.append(normalizedLine(line));
    }
    return lines.join(u'\n');
}

} // namespace PasteNormalizer
