#pragma once

#include "LineFormatting.h"
#include "MarkdownDialect.h"

#include <QImage>
#include <QList>
#include <QString>
#include <QTextCharFormat>
#include <QTextFormat>
#include <QUuid>

#include <functional>
#include <optional>

class QTextBlock;
class QTextCursor;
class QTextDocument;

// Stored text in a QTextDocument, and back. One stored line is one block carrying its
// LineFormatting; list lines show their marker as a glyph at the start of the block's text
// ("• ", "☐ ", "✓ ", "3. "); spans are character formats; images are image formats; tables are
// QTextTables of plain cells. Tag, mention and bare-URL links are drawn on top and never stored.
namespace EntryMarkup {

// Block properties.
inline constexpr int LineFormattingProperty = QTextFormat::UserProperty + 1; // raw word
// The empty block Qt keeps before a table at the start, or after one at the end: not a line.
inline constexpr int SpacerProperty = QTextFormat::UserProperty + 2;
// Character properties.
inline constexpr int InlineCodeProperty = QTextFormat::UserProperty + 10;
inline constexpr int HighlightProperty = QTextFormat::UserProperty + 11; // palette name
inline constexpr int DerivedLinkProperty = QTextFormat::UserProperty + 12;
inline constexpr int ImageIdProperty = QTextFormat::UserProperty + 13;
inline constexpr int ImageMissingProperty = QTextFormat::UserProperty + 14;

inline const QString bulletGlyph = QStringLiteral("• ");
inline const QString uncheckedGlyph = QStringLiteral("☐ ");
inline const QString checkedGlyph = QStringLiteral("✓ ");
inline const QString imageUnavailableText = QStringLiteral("Image unavailable");
inline const QString imageUrlPrefix = QStringLiteral("tovren-image:");
// A copy inside Tovren carries the stored text of the selection under this type, so a paste
// restores what plain text and HTML can't say: checklists, headings, marks, tables, images.
inline const QString markupMimeType = QStringLiteral("application/x-tovren-markup");

struct MentionTarget {
    QUuid id;
    QString name;
};

struct LoadOptions {
    QList<MentionTarget> people;
    // Looks an image up by its token id; an image it can't give shows as unavailable.
    std::function<std::optional<QImage>(const QString &id)> image;
};

void loadFromMarkdown(const QString &text, QTextDocument &document,
                      const LoadOptions &options = {});
QString serializeToMarkdown(const QTextDocument &document);
// The stored text of the selection: a line cut at its start is body text, and a table the
// selection touches is taken whole.
QString serializeSelection(const QTextCursor &selection);
// The document as the format's lines and tables, before any text is made of them.
QList<MarkdownDialect::Block> blocksOf(const QTextDocument &document);

// Inserts stored text at the cursor: the first line joins the cursor's line (taking its kind
// when that line is empty), later lines become lines of their own.
void insertMarkdown(QTextCursor &cursor, const QString &text, const LoadOptions &options = {});
// One line's body as styled text at the cursor, on top of the base format.
void parseInlineMarkdown(QTextCursor &cursor, const QString &text, const QTextCharFormat &base);

LineFormatting lineFormatting(const QTextBlock &block);
// Sets the kind of the cursor's block and its base look; leaves the text and markers alone.
void setLineFormatting(QTextCursor cursor, LineFormatting kind);
QTextCharFormat baseCharFormat(LineFormatting kind);

// A list line's text as indentation, marker glyph and the rest.
struct ListMarker {
    int indentLength = 0;
    int markerLength = 0; // 0 when the glyph was removed
    QString indent;
    QString number;
    bool checked = false;
    int textStart() const { return indentLength + markerLength; }
};
ListMarker listMarker(const QTextBlock &block);
QString glyph(LineFormatting kind, bool checked = false, const QString &number = QString());

bool isBold(const QTextCharFormat &format);
// What can carry inline marks: not images, inline code or code lines.
bool isStyleable(const QTextCharFormat &format);

// Tags, mentions and bare URLs of one line, drawn again after an edit.
void refreshDerivedMarks(const QTextBlock &block, const QList<MentionTarget> &people);
void applySyntaxHighlighting(const QTextBlock &block);
// Restyles one edited line: derived marks, code colours, and a spacer that got text.
void restyleBlock(const QTextBlock &block, const QList<MentionTarget> &people);

QColor mentionColor();

} // namespace EntryMarkup
