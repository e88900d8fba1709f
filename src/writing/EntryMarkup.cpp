#include "EntryMarkup.h"

#include "EditorLink.h"
#include "HighlightPalette.h"
#include "core/TagParser.h"
#include "core/records/Tag.h"

#include <QFileInfo>
#include <QFont>
#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QRegularExpression>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextTable>

#include <algorithm>
#include <limits>
#include <map>
#include <tuple>

using namespace Qt::StringLiterals;
using InlineMarkup::Span;
using InlineMarkup::Style;
using MarkdownDialect::Block;
using MarkdownDialect::Line;
using MarkdownDialect::Table;

namespace EntryMarkup {

namespace {

constexpr int boldWeight = QFont::Bold;
constexpr int headingWeight = QFont::DemiBold;
constexpr int normalWeight = QFont::Normal;
// Colouring and link drawing are for reading; a line built to be huge gets plain text.
constexpr qsizetype maxHighlightedLine = 4000;
constexpr int maxDerivedMarksPerLine = 1000;

const QStringList &monospaceFamilies()
{
    static const QStringList families{u"monospace"_s};
    return families;
}

bool isHeading(LineFormatting kind)
{
    return kind == LineFormatting::h1 || kind == LineFormatting::h2 || kind == LineFormatting::h3;
}

int sizeAdjustment(LineFormatting kind)
{
    switch (kind) {
    case LineFormatting::h1:
        return 3;
    case LineFormatting::h2:
        return 2;
    case LineFormatting::h3:
        return 1;
    default:
        return 0;
    }
}

QTextBlockFormat blockFormat(LineFormatting kind)
{
    QTextBlockFormat format;
    format.setProperty(LineFormattingProperty, rawValue(kind));
    format.setHeadingLevel(isHeading(kind) ? 4 - sizeAdjustment(kind) : 0);
    return format;
}

// Puts the base look of a kind on a format, keeping its marks.
void rebase(QTextCharFormat &format, LineFormatting kind)
{
    const bool bold = isBold(format);
    format.setFontWeight(bold ? boldWeight : isHeading(kind) ? headingWeight : normalWeight);
    if (isHeading(kind))
        format.setProperty(QTextFormat::FontSizeAdjustment, sizeAdjustment(kind));
    else
        format.clearProperty(QTextFormat::FontSizeAdjustment);
    const bool inlineCode = format.boolProperty(InlineCodeProperty);
    if (kind == LineFormatting::code || inlineCode) {
        format.setFontFixedPitch(true);
        format.setFontFamilies(monospaceFamilies());
    } else {
        format.clearProperty(QTextFormat::FontFixedPitch);
        format.clearProperty(QTextFormat::FontFamilies);
    }
    if (!format.boolProperty(DerivedLinkProperty))
        format.clearProperty(QTextFormat::ForegroundBrush);
}

QTextCharFormat spanFormat(const Span &span, const QTextCharFormat &base)
{
    QTextCharFormat format = base;
    if (span.styles & Style::bold)
        format.setFontWeight(boldWeight);
    if (span.styles & Style::italic)
        format.setFontItalic(true);
    if (span.styles & Style::underline)
        format.setFontUnderline(true);
    if (span.styles & Style::strikethrough)
        format.setFontStrikeOut(true);
    if (span.styles & Style::code) {
        format.setProperty(InlineCodeProperty, true);
        format.setFontFixedPitch(true);
        format.setFontFamilies(monospaceFamilies());
        format.setBackground(QColor(0, 0, 0, 20));
    }
    if (span.styles & Style::highlight) {
        const QString name = HighlightPalette::canonicalName(span.highlight);
        format.setProperty(HighlightProperty, name);
        format.setBackground(HighlightPalette::color(name));
    }
    if (!span.link.isEmpty()) {
        format.setAnchor(true);
        format.setAnchorHref(span.link);
    }
    return format;
}

// What stands in for an image that can't be shown. It is drawn at most 480 pixels on a side and
// stretched to the token's size on the page, and drawings are shared between tokens of one size:
// a page of hostile tokens (huge, or hundreds of them) costs a few small images, not gigabytes.
QImage drawPlaceholder(QSize size)
{
    constexpr int largest = 480;
    size = size.expandedTo(QSize(1, 1));
    if (size.width() > largest || size.height() > largest)
        size = size.scaled(largest, largest, Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    const QPalette palette = QGuiApplication::palette();
    const QColor base = palette.color(QPalette::Base);
    const QColor text = palette.color(QPalette::Text);
    const auto mix = [&](double amountOfText) {
        return QColor::fromRgbF(
            float(base.redF() + (text.redF() - base.redF()) * amountOfText),
            float(base.greenF() + (text.greenF() - base.greenF()) * amountOfText),
            float(base.blueF() + (text.blueF() - base.blueF()) * amountOfText));
    };
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(mix(0.25), 1));
    painter.setBrush(mix(0.06));
    painter.drawRoundedRect(QRectF(image.rect()).adjusted(0.5, 0.5, -0.5, -0.5), 6, 6);
    painter.setPen(mix(0.55));
    painter.drawText(image.rect(), Qt::AlignCenter | Qt::TextWordWrap, imageUnavailableText);
    return image;
}

QImage placeholderImage(QSize size)
{
    // Keyed by the colours too, so a switch between light and dark draws anew.
    const QPalette palette = QGuiApplication::palette();
    const auto key = std::tuple{size.width(), size.height(), palette.color(QPalette::Base).rgba(),
                                palette.color(QPalette::Text).rgba()};
    static std::map<decltype(key), QImage> drawn;
    if (const auto found = drawn.find(key); found != drawn.end())
        return found->second;
    if (drawn.size() >= 32)
        drawn.clear();
    return drawn[key] = drawPlaceholder(size);
}

QTextImageFormat imageFormat(const InlineMarkup::ImageToken &token, QTextDocument *document,
                             const LoadOptions &options)
{
    QTextImageFormat format;
    format.setName(imageUrlPrefix + token.id);
    format.setProperty(ImageIdProperty, token.id);
    if (token.size) {
        format.setWidth(token.size->width());
        format.setHeight(token.size->height());
    }
    std::optional<QImage> image;
    if (options.image)
        image = options.image(token.id);
    if (image && !image->isNull()) {
        document->addResource(QTextDocument::ImageResource, QUrl(format.name()), *image);
    } else {
        format.setProperty(ImageMissingProperty, true);
        format.setToolTip(imageUnavailableText);
        document->addResource(QTextDocument::ImageResource, QUrl(format.name()),
                              placeholderImage(token.size.value_or(QSize(240, 135))));
    }
    return format;
}

void insertSpans(QTextCursor &cursor, const QList<Span> &spans, const QTextCharFormat &base,
                 const LoadOptions &options)
{
    for (const Span &span : spans) {
        if (span.image)
            cursor.insertImage(imageFormat(*span.image, cursor.document(), options));
        else if (!span.text.isEmpty())
            cursor.insertText(span.text, spanFormat(span, base));
    }
}

void markSpacer(QTextCursor cursor)
{
    QTextBlockFormat format = cursor.blockFormat();
    format.setProperty(SpacerProperty, true);
    cursor.setBlockFormat(format);
}

// Appends the format's blocks at a cursor. Qt keeps a block before and after every table; the
// line that precedes a table is that block, and the block after it takes the next line.
class Builder {
public:
    Builder(QTextCursor &cursor, const LoadOptions &options, bool wholeDocument)
        : m_cursor(cursor)
        , m_options(options)
        , m_whole(wholeDocument)
    {
    }

    void add(const Block &block)
    {
        if (const Table *table = std::get_if<Table>(&block))
            addTable(*table);
        else
            addLine(std::get<Line>(block));
    }

    // An empty line left before or after a table is Qt's, not one of the text's: a pasted
    // table adds no blank lines around it.
    void finish()
    {
        if (m_afterTable && (m_whole || m_cursor.block().text().isEmpty()))
            markSpacer(m_cursor);
    }

private:
    void addLine(const Line &line)
    {
        const QTextCharFormat base = baseCharFormat(line.kind);
        bool withPrefix = true;
        if (m_first) {
            if (m_whole || m_cursor.block().text().isEmpty()) {
                m_cursor.setBlockFormat(blockFormat(line.kind));
                m_cursor.setBlockCharFormat(base);
            } else {
                // Joining a line that has text: it keeps its kind, so no marker either.
                withPrefix = false;
            }
        } else if (m_afterTable) {
            m_cursor.setBlockFormat(blockFormat(line.kind));
            m_cursor.setBlockCharFormat(base);
        } else {
            m_cursor.insertBlock(blockFormat(line.kind), base);
        }
        m_first = false;
        m_afterTable = false;

        if (line.kind == LineFormatting::code) {
            m_cursor.insertText(line.verbatim, base);
            return;
        }
        if (withPrefix && isListFormatting(line.kind))
            m_cursor.insertText(line.indent + glyph(line.kind, line.checked, line.number), base);
        insertSpans(m_cursor, line.spans, base, m_options);
    }

    void addTable(const Table &table)
    {
        if (m_first && (m_whole || m_cursor.block().text().isEmpty()))
            markSpacer(m_cursor);
        m_first = false;
        const int rows = int(table.rows.size());
        const int columns = int(table.rows.first().size());
        QTextTableFormat format;
        format.setHeaderRowCount(1);
        format.setCellPadding(4);
        format.setCellSpacing(0);
        format.setBorder(1);
        QTextTable *created = m_cursor.insertTable(rows, columns, format);
        const QTextCharFormat base = baseCharFormat(LineFormatting::body);
        for (int r = 0; r < rows; ++r) {
            for (int c = 0; c < columns; ++c) {
                QTextCursor cell = created->cellAt(r, c).firstCursorPosition();
                QTextCharFormat cellFormat = base;
                if (r == 0)
                    cellFormat.setFontWeight(headingWeight);
                cell.insertText(table.rows.at(r).at(c), cellFormat);
            }
        }
        m_cursor = created->lastCursorPosition();
        m_cursor.movePosition(QTextCursor::NextBlock);
        m_afterTable = true;
    }

    QTextCursor &m_cursor;
    const LoadOptions &m_options;
    bool m_whole = false;
    bool m_first = true;
    bool m_afterTable = false;
};

QString recoveredImageId(const QTextCharFormat &format)
{
    const QString id = format.stringProperty(ImageIdProperty);
    if (!id.isEmpty())
        return id;
    // An image that lost its id still names its file, "<UUID>.png", or our own resource URL.
    const QString name = format.toImageFormat().name();
    if (name.startsWith(imageUrlPrefix))
        return name.mid(imageUrlPrefix.size());
    const QString base = QFileInfo(QUrl(name).path()).completeBaseName();
    const QUuid uuid = QUuid::fromString(base);
    return uuid.isNull() ? QString() : uuid.toString(QUuid::WithoutBraces).toUpper();
}

Span textSpan(const QString &text, const QTextCharFormat &format)
{
    Span span;
    span.text = text;
    if (isBold(format))
        span.styles |= Style::bold;
    if (format.fontItalic())
        span.styles |= Style::italic;
    if (format.fontUnderline())
        span.styles |= Style::underline;
    if (format.fontStrikeOut())
        span.styles |= Style::strikethrough;
    if (format.boolProperty(InlineCodeProperty))
        span.styles |= Style::code;
    const QString highlight = format.stringProperty(HighlightProperty);
    if (!highlight.isEmpty()) {
        span.styles |= Style::highlight;
        span.highlight = HighlightPalette::canonicalName(highlight);
    }
    if (format.isAnchor() && !format.boolProperty(DerivedLinkProperty))
        span.link = format.anchorHref();
    return span;
}

// The runs of the characters [from, to) of a line.
QList<Span> spansOf(const QTextBlock &block, int from, int to)
{
    QList<Span> spans;
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        if (!fragment.isValid())
            continue;
        const int start = fragment.position() - block.position();
        if (start + fragment.length() <= from || start >= to)
            continue;
        const int first = std::max(from, start);
        QString text =
            fragment.text().mid(first - start, std::min(to, start + fragment.length()) - first);
        const QTextCharFormat format = fragment.charFormat();
        if (format.isImageFormat()) {
            for (QChar c : std::as_const(text)) {
                if (c != QChar::ObjectReplacementCharacter) {
                    spans.append(textSpan(QString(c), format));
                    continue;
                }
                const QString id = recoveredImageId(format);
                if (id.isEmpty())
                    continue;
                const QTextImageFormat image = format.toImageFormat();
                std::optional<QSize> size;
                if (image.hasProperty(QTextFormat::ImageWidth) &&
                    image.hasProperty(QTextFormat::ImageHeight))
                    size = QSize(int(image.width()), int(image.height()));
                spans.append(Span{{}, {}, {}, {}, InlineMarkup::ImageToken{id, size}});
            }
            continue;
        }
        spans.append(textSpan(text, format));
    }
    return spans;
}

// The characters [from, to) of a line. A part that starts inside the line's text is body text:
// its marker, or the start of its heading, was not taken.
Line lineOf(const QTextBlock &block, int from, int to)
{
    Line line;
    line.kind = lineFormatting(block);
    const ListMarker marker = listMarker(block);
    if (from > (isListFormatting(line.kind) ? marker.textStart() : 0)) {
        line.kind = LineFormatting::body;
        line.spans = spansOf(block, from, to);
        return line;
    }
    switch (line.kind) {
    case LineFormatting::code:
        line.verbatim = block.text().left(to);
        return line;
    case LineFormatting::bullet:
    case LineFormatting::checklist:
    case LineFormatting::numbered:
        line.indent = marker.indent;
        line.number = marker.number;
        line.checked = marker.checked;
        line.spans = spansOf(block, marker.textStart(), to);
        return line;
    case LineFormatting::divider:
        if (block.text().isEmpty())
            return line;
        line.kind = LineFormatting::body;
        break;
    default:
        break;
    }
    line.spans = spansOf(block, 0, to);
    return line;
}

QString cellText(const QTextTableCell &cell)
{
    QTextCursor cursor = cell.firstCursorPosition();
    cursor.setPosition(cell.lastCursorPosition().position(), QTextCursor::KeepAnchor);
    return cursor.selectedText().replace(QChar::ParagraphSeparator, u' ');
}

Table tableOf(const QTextTable &table)
{
    Table result;
    for (int r = 0; r < table.rows(); ++r) {
        QStringList row;
        for (int c = 0; c < table.columns(); ++c)
            row.append(cellText(table.cellAt(r, c)));
        result.rows.append(row);
    }
    return result;
}

// Document positions, the end exclusive.
struct Range {
    int from = 0;
    int to = std::numeric_limits<int>::max();
};

void collectBlocks(QTextFrame *frame, QList<Block> &out, Range range)
{
    for (auto it = frame->begin(); !it.atEnd(); ++it) {
        if (QTextFrame *child = it.currentFrame()) {
            if (child->lastPosition() < range.from || child->firstPosition() > range.to)
                continue;
            if (auto *table = qobject_cast<QTextTable *>(child)) {
                if (table->rows() > 0 && table->columns() > 0)
                    out.append(tableOf(*table));
            } else {
                collectBlocks(child, out, range);
            }
            continue;
        }
        const QTextBlock block = it.currentBlock();
        const int start = block.position();
        const int end = start + block.length() - 1; // the line break
        if (end < range.from || start > range.to)
            continue;
        if (block.blockFormat().boolProperty(SpacerProperty) && block.text().isEmpty())
            continue;
        // Only the break before this line was taken: the selection ends in an empty line.
        if (start == range.to && start > range.from && end > start) {
            out.append(Line{});
            continue;
        }
        out.append(lineOf(block, std::max(range.from - start, 0), std::min(range.to, end) - start));
    }
}

struct Mark {
    int start = 0;
    int length = 0;
    QString href;
    QColor color;
};

// Whether a derived link may be drawn over this range: not over code, images or a link the
// user made.
bool markable(const QTextBlock &block, int start, int length)
{
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        const int from = fragment.position() - block.position();
        if (from + fragment.length() <= start || from >= start + length)
            continue;
        const QTextCharFormat format = fragment.charFormat();
        if (!isStyleable(format) ||
            (format.isAnchor() && !format.boolProperty(DerivedLinkProperty)))
            return false;
    }
    return true;
}

void clearDerivedMarks(const QTextBlock &block)
{
    QList<std::pair<int, QTextCharFormat>> ranges;
    QList<int> lengths;
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        QTextCharFormat format = fragment.charFormat();
        if (!format.boolProperty(DerivedLinkProperty))
            continue;
        format.clearProperty(DerivedLinkProperty);
        format.clearProperty(QTextFormat::AnchorHref);
        format.clearProperty(QTextFormat::IsAnchor);
        format.clearProperty(QTextFormat::ForegroundBrush);
        ranges.append({fragment.position(), format});
        lengths.append(fragment.length());
    }
    QTextCursor cursor(block);
    for (qsizetype i = 0; i < ranges.size(); ++i) {
        cursor.setPosition(ranges.at(i).first);
        cursor.setPosition(ranges.at(i).first + lengths.at(i), QTextCursor::KeepAnchor);
        cursor.setCharFormat(ranges.at(i).second);
    }
}

const QRegularExpression &bareUrlPattern()
{
    static const QRegularExpression pattern(u"\\bhttps?://[^\\s<>\"]+"_s,
                                            QRegularExpression::CaseInsensitiveOption);
    return pattern;
}

} // namespace

QColor mentionColor()
{
    return QColor(0x2f, 0x6f, 0xeb);
}

LineFormatting lineFormatting(const QTextBlock &block)
{
    return lineFormattingFromRaw(block.blockFormat().stringProperty(LineFormattingProperty))
        .value_or(LineFormatting::body);
}

QTextCharFormat baseCharFormat(LineFormatting kind)
{
    QTextCharFormat format;
    rebase(format, kind);
    return format;
}

void setLineFormatting(QTextCursor cursor, LineFormatting kind)
{
    cursor.clearSelection();
    const QTextBlock block = cursor.block();
    QTextBlockFormat format = block.blockFormat();
    const QTextBlockFormat wanted = blockFormat(kind);
    format.setProperty(LineFormattingProperty, wanted.property(LineFormattingProperty));
    format.setHeadingLevel(wanted.headingLevel());
    format.clearProperty(SpacerProperty);
    cursor.setBlockFormat(format);

    QList<std::tuple<int, int, QTextCharFormat>> ranges;
    for (auto it = block.begin(); !it.atEnd(); ++it) {
        const QTextFragment fragment = it.fragment();
        QTextCharFormat charFormat = fragment.charFormat();
        if (charFormat.isImageFormat())
            continue;
        rebase(charFormat, kind);
        ranges.append({fragment.position(), fragment.length(), charFormat});
    }
    for (const auto &[position, length, charFormat] : ranges) {
        cursor.setPosition(position);
        cursor.setPosition(position + length, QTextCursor::KeepAnchor);
        cursor.setCharFormat(charFormat);
    }
    QTextCursor blockCursor(block);
    QTextCharFormat blockChar = block.charFormat();
    rebase(blockChar, kind);
    blockCursor.setBlockCharFormat(blockChar);
    if (kind == LineFormatting::code)
        applySyntaxHighlighting(block);
}

QString glyph(LineFormatting kind, bool checked, const QString &number)
{
    switch (kind) {
    case LineFormatting::bullet:
        return bulletGlyph;
    case LineFormatting::checklist:
        return checked ? checkedGlyph : uncheckedGlyph;
    case LineFormatting::numbered:
        return (number.isEmpty() ? u"1"_s : number) + u". "_s;
    default:
        return QString();
    }
}

ListMarker listMarker(const QTextBlock &block)
{
    ListMarker marker;
    const LineFormatting kind = lineFormatting(block);
    if (!isListFormatting(kind))
        return marker;
    const QString text = block.text();
    int at = 0;
    while (at < text.size() && (text[at] == u' ' || text[at] == u'\t'))
        ++at;
    marker.indentLength = at;
    marker.indent = text.left(at);
    const QStringView rest = QStringView(text).mid(at);
    if (kind == LineFormatting::bullet && rest.startsWith(bulletGlyph)) {
        marker.markerLength = int(bulletGlyph.size());
    } else if (kind == LineFormatting::checklist) {
        if (rest.startsWith(checkedGlyph)) {
            marker.markerLength = int(checkedGlyph.size());
            marker.checked = true;
        } else if (rest.startsWith(uncheckedGlyph)) {
            marker.markerLength = int(uncheckedGlyph.size());
        }
    } else if (kind == LineFormatting::numbered) {
        int digits = 0;
        while (digits < rest.size() && rest[digits] >= u'0' && rest[digits] <= u'9')
            ++digits;
        if (digits > 0 && rest.mid(digits).startsWith(u". ")) {
            marker.number = rest.left(digits).toString();
            marker.markerLength = digits + 2;
        }
    }
    return marker;
}

bool isBold(const QTextCharFormat &format)
{
    return format.fontWeight() >= boldWeight;
}

bool isStyleable(const QTextCharFormat &format)
{
    return !format.isImageFormat() && !format.boolProperty(InlineCodeProperty);
}

void loadFromMarkdown(const QString &text, QTextDocument &document, const LoadOptions &options)
{
    const bool undo = document.isUndoRedoEnabled();
    document.setUndoRedoEnabled(false);
    document.clear();
    {
        QTextCursor cursor(&document);
        cursor.beginEditBlock();
        Builder builder(cursor, options, true);
        for (const Block &block : MarkdownDialect::parse(text))
            builder.add(block);
        builder.finish();
        cursor.endEditBlock();
    }
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next())
        restyleBlock(block, options.people);
    document.setUndoRedoEnabled(undo);
    document.setModified(false);
}

QList<Block> blocksOf(const QTextDocument &document)
{
    QList<Block> blocks;
    collectBlocks(document.rootFrame(), blocks, {});
    return blocks;
}

QString serializeToMarkdown(const QTextDocument &document)
{
    return MarkdownDialect::stabilized(MarkdownDialect::serialize(blocksOf(document)));
}

QString serializeSelection(const QTextCursor &selection)
{
    if (!selection.hasSelection() || !selection.document())
        return QString();
    QList<Block> blocks;
    collectBlocks(selection.document()->rootFrame(), blocks,
                  {selection.selectionStart(), selection.selectionEnd()});
    return MarkdownDialect::stabilized(MarkdownDialect::serialize(blocks));
}

void insertMarkdown(QTextCursor &cursor, const QString &text, const LoadOptions &options)
{
    cursor.beginEditBlock();
    cursor.removeSelectedText();
    const int firstBlock = cursor.blockNumber();
    Builder builder(cursor, options, false);
    for (const Block &block : MarkdownDialect::parse(text))
        builder.add(block);
    builder.finish();
    const int lastBlock = cursor.blockNumber();
    for (QTextBlock block = cursor.document()->findBlockByNumber(firstBlock);
         block.isValid() && block.blockNumber() <= lastBlock; block = block.next())
        restyleBlock(block, options.people);
    cursor.endEditBlock();
}

void parseInlineMarkdown(QTextCursor &cursor, const QString &text, const QTextCharFormat &base)
{
    insertSpans(cursor, InlineMarkup::parseWithImages(MarkdownDialect::sanitized(text)), base, {});
}

void refreshDerivedMarks(const QTextBlock &block, const QList<MentionTarget> &people)
{
    clearDerivedMarks(block);
    if (lineFormatting(block) == LineFormatting::code)
        return;
    const QString text = block.text();
    if (text.isEmpty())
        return;
    QList<bool> taken(text.size(), false);
    QList<Mark> marks;
    const auto take = [&](int start, int length, const QString &href, const QColor &color) {
        if (marks.size() >= maxDerivedMarksPerLine)
            return;
        for (int i = start; i < start + length; ++i) {
            if (taken[i])
                return;
        }
        if (!markable(block, start, length))
            return;
        std::fill(taken.begin() + start, taken.begin() + start + length, true);
        marks.append({start, length, href, color});
    };

    // Longest names first, so that "@Ann Lee" wins over "@Ann".
    QList<MentionTarget> byLength = people;
    std::stable_sort(byLength.begin(), byLength.end(), [](const auto &a, const auto &b) {
        return a.name.trimmed().size() > b.name.trimmed().size();
    });
    for (const MentionTarget &person : std::as_const(byLength)) {
        const QString needle = u'@' + person.name.trimmed();
        if (needle.size() < 2)
            continue;
        const QString href =
            EditorLink::personLink(person.id.toString(QUuid::WithoutBraces)).toString();
        for (qsizetype at = text.indexOf(needle); at >= 0; at = text.indexOf(needle, at + 1))
            take(int(at), int(needle.size()), href, mentionColor());
    }

    // Names come in order of appearance, and nothing between two of them starts a tag, so
    // each is found by searching on from the last.
    qsizetype from = 0;
    const QList<QColor> &palette = Tag::palette();
    for (const QString &name : TagParser::extractTagNames(text)) {
        const QString needle = u'#' + name;
        const qsizetype at = text.indexOf(needle, from);
        if (at < 0)
            break;
        from = at + needle.size();
        const QColor color = palette.at(Tag::paletteIndex(name, int(palette.size())));
        take(int(at), int(needle.size()), EditorLink::tagLink(name.toLower()).toString(), color);
    }

    for (auto it = bareUrlPattern().globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        QString url = match.captured();
        while (!url.isEmpty() && QStringView(u".,;:!?)]}'*~_=`").contains(url.back()))
            url.chop(1);
        if (url.size() > 8)
            take(int(match.capturedStart()), int(url.size()), url, mentionColor());
    }

    QTextCursor cursor(block);
    for (const Mark &mark : std::as_const(marks)) {
        cursor.setPosition(block.position() + mark.start);
        cursor.setPosition(block.position() + mark.start + mark.length, QTextCursor::KeepAnchor);
        QTextCharFormat format;
        format.setAnchor(true);
        format.setAnchorHref(mark.href);
        format.setProperty(DerivedLinkProperty, true);
        format.setForeground(mark.color);
        cursor.mergeCharFormat(format);
    }
}

void applySyntaxHighlighting(const QTextBlock &block)
{
    if (lineFormatting(block) != LineFormatting::code)
        return;
    const QString text = block.text();
    QTextCursor cursor(block);
    cursor.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    cursor.setCharFormat(baseCharFormat(LineFormatting::code));
    if (text.isEmpty() || text.size() > maxHighlightedLine)
        return;

    struct Rule {
        QRegularExpression pattern;
        QColor color;
    };
    // In this order; a later rule paints over an earlier one.
    static const QList<Rule> rules{
        {QRegularExpression(u"//.*$"_s), QColor(0x6a, 0x73, 0x7d)},
        {QRegularExpression(u"\"(?:[^\"\\\\]|\\\\.)*\""_s), QColor(0xc4, 0x1a, 0x16)},
        {QRegularExpression(u"'(?:[^'\\\\]|\\\\.)*'"_s), QColor(0xc4, 0x1a, 0x16)},
        {QRegularExpression(
             u"\\b(?:if|else|for|while|do|switch|case|default|break|continue|return|func|"
             "function|def|class|struct|enum|protocol|interface|extends|implements|let|var|"
             "const|static|public|private|protected|internal|import|from|export|package|new|"
             "delete|try|catch|throw|throws|async|await|yield|true|false|nil|null|None|self|"
             "this|super|void|int|float|double|bool|char|string|in|of|is|as|and|or|not|lambda|"
             "guard|where|with|using|namespace|template|typename|auto|fn|pub|mut|impl|match)\\b"_s),
         QColor(0x9b, 0x23, 0x93)},
        {QRegularExpression(u"\\b[A-Z][a-zA-Z0-9]+\\b"_s), QColor(0x1c, 0x6b, 0x8c)},
        {QRegularExpression(u"\\b[a-z_][a-zA-Z0-9_]*(?=\\s*\\()"_s), QColor(0x32, 0x6d, 0x74)},
    };
    for (const Rule &rule : rules) {
        for (auto it = rule.pattern.globalMatch(text); it.hasNext();) {
            const QRegularExpressionMatch match = it.next();
            if (match.capturedLength() == 0)
                continue;
            cursor.setPosition(block.position() + int(match.capturedStart()));
            cursor.setPosition(block.position() + int(match.capturedEnd()),
                               QTextCursor::KeepAnchor);
            QTextCharFormat color;
            color.setForeground(rule.color);
            cursor.mergeCharFormat(color);
        }
    }
}

void restyleBlock(const QTextBlock &block, const QList<MentionTarget> &people)
{
    if (block.blockFormat().boolProperty(SpacerProperty) && !block.text().isEmpty()) {
        QTextCursor cursor(block);
        QTextBlockFormat format = block.blockFormat();
        format.clearProperty(SpacerProperty);
        cursor.setBlockFormat(format);
    }
    if (lineFormatting(block) == LineFormatting::code)
        applySyntaxHighlighting(block);
    else
        refreshDerivedMarks(block, people);
}

} // namespace EntryMarkup
