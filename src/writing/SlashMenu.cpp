#include "SlashMenu.h"

#include "EditingRules.h"
#include "EntryMarkup.h"
#include "TableEditing.h"

#include <QTextBlock>
#include <QTextCursor>

using namespace Qt::StringLiterals;

namespace SlashMenu {

const QList<Item> &items()
{
    static const QList<Item> list{
        {Action::heading, u"Heading"_s},
        {Action::subheading, u"Subheading"_s},
        {Action::bulletList, u"Bullet List"_s},
        {Action::numberedList, u"Numbered List"_s},
        {Action::checklist, u"Checklist"_s},
        {Action::quote, u"Quote"_s},
        {Action::codeBlock, u"Code Block"_s},
        {Action::divider, u"Divider"_s},
        {Action::table, u"Table"_s},
        {Action::image, u"Image"_s},
    };
    return list;
}

bool shouldOpen(const QTextCursor &cursor)
{
    const QTextBlock block = cursor.block();
    return !cursor.hasSelection() && !cursor.currentTable() && block.text() == u"/" &&
           cursor.position() == block.position() + 1 &&
           EntryMarkup::lineFormatting(block) == LineFormatting::body;
}

void apply(QTextCursor &cursor, Action action)
{
    cursor.beginEditBlock();
    cursor.clearSelection();
    if (cursor.block().text() == u"/") {
        cursor.movePosition(QTextCursor::StartOfBlock);
        cursor.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
        cursor.removeSelectedText();
    }
    switch (action) {
    case Action::heading:
        EditingRules::toggleLineFormatting(cursor, LineFormatting::h1);
        break;
    case Action::subheading:
        EditingRules::toggleLineFormatting(cursor, LineFormatting::h2);
        break;
    case Action::bulletList:
        EditingRules::toggleLineFormatting(cursor, LineFormatting::bullet);
        break;
    case Action::numberedList:
        EditingRules::toggleLineFormatting(cursor, LineFormatting::numbered);
        break;
    case Action::checklist:
        EditingRules::toggleLineFormatting(cursor, LineFormatting::checklist);
        break;
    case Action::quote:
        EditingRules::toggleLineFormatting(cursor, LineFormatting::quote);
        break;
    case Action::codeBlock:
        EditingRules::toggleLineFormatting(cursor, LineFormatting::code);
        break;
    case Action::divider:
        EditingRules::toggleLineFormatting(cursor, LineFormatting::divider);
        break;
    case Action::table:
        TableEditing::insertTable(cursor);
        break;
    case Action::image:
        break;
    }
    if (action != Action::table && action != Action::divider)
        cursor.movePosition(QTextCursor::EndOfBlock);
    cursor.endEditBlock();
}

} // namespace SlashMenu
