#include "TableEditing.h"

#include "EntryMarkup.h"

#include <QTextBlock>
#include <QTextCursor>
#include <QTextTable>

namespace TableEditing {

namespace {

void removeTable(QTextTable *table)
{
    QTextCursor cursor(table->document());
    cursor.setPosition(table->firstPosition() - 1);
    cursor.setPosition(table->lastPosition() + 1, QTextCursor::KeepAnchor);
    cursor.removeSelectedText();
}

} // namespace

QTextTable *insertTable(QTextCursor &cursor, int rows, int columns)
{
    cursor.beginEditBlock();
    cursor.clearSelection();
    QTextBlock block = cursor.block();
    // An empty line is replaced by the table rather than left above it; at the very start Qt
    // keeps a block there anyway, which then is no line.
    if (block.text().isEmpty() && !cursor.currentTable()) {
        if (block.previous().isValid() && !QTextCursor(block.previous()).currentTable()) {
            cursor.deletePreviousChar();
        } else {
            QTextBlockFormat format = cursor.blockFormat();
            format.setProperty(EntryMarkup::SpacerProperty, true);
            cursor.setBlockFormat(format);
        }
    } else {
        cursor.movePosition(QTextCursor::EndOfBlock);
    }
    QTextTableFormat format;
    format.setHeaderRowCount(1);
    format.setCellPadding(4);
    format.setCellSpacing(0);
    format.setBorder(1);
    QTextTable *table = cursor.insertTable(rows, columns, format);
    // Qt leaves an empty block after the table. At the end it is only the place to type
    // after the table; before the next line it would be a blank line nobody wrote, so the
    // next line moves into it, taking its own formats along.
    QTextCursor after = table->lastCursorPosition();
    after.movePosition(QTextCursor::NextBlock);
    const QTextBlock next = after.block().next();
    if (after.block().text().isEmpty() && !next.isValid()) {
        QTextBlockFormat spacer = after.blockFormat();
        spacer.setProperty(EntryMarkup::SpacerProperty, true);
        after.setBlockFormat(spacer);
    } else if (after.block().text().isEmpty() && !QTextCursor(next).currentTable()) {
        after.setBlockFormat(next.blockFormat());
        after.setBlockCharFormat(next.charFormat());
        after.deleteChar();
    }
    cursor.endEditBlock();
    cursor = table->cellAt(0, 0).firstCursorPosition();
    return table;
}

bool insertRowAbove(QTextCursor &cursor)
{
    QTextTable *table = cursor.currentTable();
    if (!table)
        return false;
    table->insertRows(table->cellAt(cursor).row(), 1);
    return true;
}

bool insertRowBelow(QTextCursor &cursor)
{
    QTextTable *table = cursor.currentTable();
    if (!table)
        return false;
    table->insertRows(table->cellAt(cursor).row() + 1, 1);
    return true;
}

bool deleteRow(QTextCursor &cursor)
{
    QTextTable *table = cursor.currentTable();
    if (!table)
        return false;
    if (table->rows() <= 1)
        removeTable(table);
    else
        table->removeRows(table->cellAt(cursor).row(), 1);
    return true;
}

bool insertColumnBefore(QTextCursor &cursor)
{
    QTextTable *table = cursor.currentTable();
    if (!table)
        return false;
    table->insertColumns(table->cellAt(cursor).column(), 1);
    return true;
}

bool insertColumnAfter(QTextCursor &cursor)
{
    QTextTable *table = cursor.currentTable();
    if (!table)
        return false;
    table->insertColumns(table->cellAt(cursor).column() + 1, 1);
    return true;
}

bool deleteColumn(QTextCursor &cursor)
{
    QTextTable *table = cursor.currentTable();
    if (!table)
        return false;
    if (table->columns() <= 1)
        removeTable(table);
    else
        table->removeColumns(table->cellAt(cursor).column(), 1);
    return true;
}

} // namespace TableEditing
