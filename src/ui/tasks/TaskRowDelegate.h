#pragma once

#include <QPointer>
#include <QStyledItemDelegate>
#include <QUuid>

#include <optional>

class DueDateEdit;
class QLineEdit;

// A task's title and due date, edited in place over its row. Enter keeps the change, Escape
// drops it, and moving the keys anywhere else keeps it too.
class TaskEditor : public QWidget {
    Q_OBJECT
public:
    explicit TaskEditor(QWidget *parent = nullptr);

    QLineEdit *title() const { return m_title; }
    DueDateEdit *due() const { return m_due; }
    // Filled from the row once; a refresh of the list while editing leaves the typing alone.
    bool isFilled() const { return m_filled; }
    void fill(const QString &title, std::optional<QDate> due);

signals:
    void focusLeft();

private:
    QLineEdit *m_title;
    DueDateEdit *m_due;
    bool m_filled = false;
};

// Draws the list's headings and task rows (check box, title, quiet aside) and reports what the
// user does to a task; the screen writes it to the store.
class TaskRowDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit TaskRowDelegate(QObject *parent = nullptr);

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void setEditorData(QWidget *editor, const QModelIndex &index) const override;
    void setModelData(QWidget *editor, QAbstractItemModel *model,
                      const QModelIndex &index) const override;
    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override;
    void destroyEditor(QWidget *editor, const QModelIndex &index) const override;

    // The editor over a row now, if any.
    TaskEditor *openEditor() const { return m_open; }
    // Keeps what the open editor holds and closes it; nothing happens without one.
    void commitOpenEditor();

    static QRect checkRect(const QRect &row);

signals:
    void toggleRequested(const QUuid &id);
    void editRequested(const QUuid &id, const QString &title, std::optional<QDate> due);

protected:
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;

private:
    void paintHeading(QPainter *painter, const QStyleOptionViewItem &option,
                      const QModelIndex &index) const;

    mutable QPointer<TaskEditor> m_open;
};
