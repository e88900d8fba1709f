#pragma once

#include "writing/Completion.h"

#include <QFrame>
#include <QStringList>

class QListWidget;

// The small list under the caret for the slash menu and for @mention and #tag completion. It
// never takes the focus: the editor keeps the keyboard and forwards the list's keys.
class PickerPopup : public QFrame {
    Q_OBJECT
public:
    explicit PickerPopup(QWidget *parent);

    // Shows the rows below `anchor` (in the parent's coordinates); an empty list closes.
    void open(const QStringList &rows, const QRect &anchor);
    void close();
    bool isOpen() const { return m_list.isOpen(); }
    int selected() const { return m_list.selected(); }
    QStringList rows() const { return m_rows; }
    // The editor's key: moved, chosen, closed or not the list's.
    CompletionList::Outcome handleKey(int key);

signals:
    void chosen(int row);

private:
    void showSelection();

    QListWidget *m_view;
    QStringList m_rows;
    CompletionList m_list;
};
