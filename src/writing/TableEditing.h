#pragma once

class QTextCursor;
class QTextTable;

// Tables in the editor: the menu's new table and the row and column commands of a cell's menu.
// The first row is the header.
namespace TableEditing {

// A two-by-two table after the cursor's line (in its place when the line is empty); the
// cursor ends in the first cell.
QTextTable *insertTable(QTextCursor &cursor, int rows = 2, int columns = 2);

// Each works on the table and cell at the cursor and says whether there was one.
bool insertRowAbove(QTextCursor &cursor);
bool insertRowBelow(QTextCursor &cursor);
// Deleting the last row or column deletes the table.
bool deleteRow(QTextCursor &cursor);
bool insertColumnBefore(QTextCursor &cursor);
bool insertColumnAfter(QTextCursor &cursor);
bool deleteColumn(QTextCursor &cursor);

} // namespace TableEditing
