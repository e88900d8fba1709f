#pragma once

#include "LineFormatting.h"

#include <QList>
#include <QString>
#include <QTextCharFormat>

#include <optional>
#include <utility>

class QTextBlock;
class QTextCursor;

// The editor's rules that are logic rather than view: what Return, Backspace, Tab and typing
// do to list lines, the marks toggled from the keyboard, and links. Each works on a document
// through a cursor and says whether it handled the key, so a view only forwards its events.
namespace EditingRules {

enum class InlineStyle { bold, italic, underline, strikethrough };

// Return at the end of a list or quote line continues it, outdents an empty indented item, or
// ends the list on an empty item; at the end of a heading it starts a body line.
bool handleReturn(QTextCursor &cursor);
// Backspace right after a list marker, or at the start of a quote or heading, makes it body.
bool handleBackspaceInMarker(QTextCursor &cursor);
// After a typed blank at the start of a body line: "- ", "* ", "+ ", "1. ", "> ", "# ",
// "## ", "### " turn the line into that kind; "[ ] " or "[x] " after a bullet makes a checklist.
bool checkListShortcut(QTextCursor &cursor);
// After a typed character: arrows and the dash, outside code and links.
bool checkSmartSubstitutions(QTextCursor &cursor);
// Tab and Shift-Tab: four spaces more or less on every list line of the selection.
bool indentSelection(QTextCursor &cursor, bool outdent);

// Flips the style on the selection, or on the typing format when nothing is selected; the
// returned format is the one to type with.
QTextCharFormat toggleInline(QTextCursor &cursor, InlineStyle style);
// The selected lines become `kind`, or body when all of them already are.
void toggleLineFormatting(QTextCursor &cursor, LineFormatting kind);
// The parts of the selection inline marks can go on: not images, code, markers or tables.
QList<std::pair<int, int>> styleableRanges(const QTextCursor &cursor);
void setHighlight(QTextCursor &cursor, const std::optional<QString> &paletteName);
void clearFormatting(QTextCursor &cursor);

// What the link prompt stores: "https://" goes in front of an address without a scheme.
QString normalizedLinkUrl(const QString &input);
// Links the selection; an empty URL removes the user's links from it.
void applyLink(QTextCursor &cursor, const QString &input);

void toggleChecklistItem(const QTextBlock &block);

} // namespace EditingRules
