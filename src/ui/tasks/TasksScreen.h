#pragma once

#include <QDate>
#include <QTimer>
#include <QUuid>
#include <QWidget>

#include <memory>
#include <optional>

class DueDateEdit;
class QLabel;
class QLineEdit;
class QListView;
class QStackedWidget;
class TaskItem;
class TaskListModel;
class TaskRowDelegate;
class TovrenApp;

// The Tasks tab: a quick-add field on top, where the keys are whenever the tab opens, and one
// list in sections: Today, Overdue, Upcoming and Done today. Every change is saved at once, and
// whatever an assistant saves shows while the tab is open.
class TasksScreen : public QWidget {
    Q_OBJECT
public:
    explicit TasksScreen(TovrenApp &app, QWidget *parent = nullptr);
    ~TasksScreen() override;

    QLineEdit *quickAdd() const { return m_quickAdd; }
    DueDateEdit *quickAddDue() const { return m_quickDue; }
    QListView *list() const { return m_list; }
    TaskListModel *model() const { return m_model; }
    TaskRowDelegate *delegate() const { return m_delegate; }
    // Shown instead of the list while there is nothing to do and nothing done today.
    QWidget *emptyState() const { return m_empty; }

    std::shared_ptr<TaskItem> task(const QUuid &id) const;
    std::shared_ptr<TaskItem> selectedTask() const;

public slots:
    // The caret in the quick-add field, ready for a new task.
    void focusQuickAdd();
    // An empty title adds nothing; a task without a day belongs to today.
    void addTask(const QString &title, std::optional<QDate> due);
    // Done now, or open again.
    void setCompleted(const QUuid &id, bool completed);
    void toggleCompleted(const QUuid &id);
    // An empty title keeps the old one.
    void editTask(const QUuid &id, const QString &title, std::optional<QDate> due);
    // Asks first.
    void deleteSelected();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void reload();
    void addFromQuickAdd();
    void showContextMenu(const QPoint &position);
    void refreshHeader();
    void applyPalette();

    TovrenApp &m_app;
    TaskListModel *m_model;
    TaskRowDelegate *m_delegate;
    QLabel *m_date;
    QLineEdit *m_quickAdd;
    DueDateEdit *m_quickDue;
    QLabel *m_sentence;
    QStackedWidget *m_body;
    QListView *m_list;
    QWidget *m_empty;
    QTimer m_refreshTimer;
};
