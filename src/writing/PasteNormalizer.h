#pragma once

#include <QString>

class QTextDocument;

// What a paste turns into before it goes into a page: stored text, inserted with
// EntryMarkup::insertMarkdown.
namespace PasteNormalizer {

// Lines that start with a bullet glyph or "1." / "1)" become list lines; a tab after a short
// prefix ("•\tItem", "2.\tItem") is list spacing, and leading tabs are levels of indentation.
QString normalizePastedLists(const QString &plainText);

// Rich text keeps bold, italic and links; fonts, sizes and colours go. Lists of the source
// become list lines.
QString prepareForPaste(const QTextDocument &rich);

} // namespace PasteNormalizer
