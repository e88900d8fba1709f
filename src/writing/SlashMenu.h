#pragma once

#include <QList>
#include <QString>

class QTextCursor;

// The menu a "/" opens at the start of an empty line.
namespace SlashMenu {

enum class Action {
    heading,
    subheading,
    bulletList,
    numberedList,
    checklist,
    quote,
    codeBlock,
    divider,
    table,
    image
};

struct Item {
    Action action;
    QString title;
};

const QList<Item> &items();

// The cursor is right after a "/" that is all its body line holds.
bool shouldOpen(const QTextCursor &cursor);
// Removes the "/" and applies the choice. For an image only the "/" goes: the view asks for
// the file and inserts it at the cursor.
void apply(QTextCursor &cursor, Action action);

} // namespace SlashMenu
