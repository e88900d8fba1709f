#pragma once

#include <QTimer>
#include <QUuid>
#include <QWidget>

#include <memory>

class InboxItem;
class InboxListModel;
class InboxRowDelegate;
class QLabel;
class QListView;
class QPushButton;
class QStackedWidget;
class TovrenApp;

// The Inbox tab: everything Tovren has said, newest first in sections, each item's action as a
// button. Read afresh whenever it appears and after every save while it shows, since reminders,
// nudges and notices arrive from anywhere.
class InboxScreen : public QWidget {
    Q_OBJECT
public:
    explicit InboxScreen(TovrenApp &app, QWidget *parent = nullptr);

    QListView *list() const { return m_list; }
    InboxListModel *model() const { return m_model; }
    // "3 new", hidden when nothing is unread.
    QLabel *newCount() const { return m_newCount; }
    QPushButton *markAllReadButton() const { return m_markAllRead; }
    // Shown instead of the list while the inbox is empty.
    QWidget *emptyState() const { return m_empty; }
    // Where the row's action button is drawn, in the list's viewport; empty without one.
    QRect actionButtonRect(const QModelIndex &index) const;

public slots:
    void markAllRead();
    // Asks first; the context menu's Delete doesn't.
    void deleteCurrent();

protected:
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void reload();
    void applyPalette();
    void followColumn();
    void trackActionHover(const QPoint &position);
    std::shared_ptr<InboxItem> item(const QUuid &id) const;
    static QUuid idAt(const QModelIndex &index);
    void setRead(const QUuid &id, bool read);
    void remove(const QUuid &id);
    // Enter or a double-click: the action when there is one, otherwise just read.
    void activate(const QModelIndex &index);
    void runAction(const QModelIndex &index);
    void showMenu(const QModelIndex &index, const QPoint &globalPosition);

    TovrenApp &m_app;
    InboxListModel *m_model;
    InboxRowDelegate *m_delegate;
    QListView *m_list;
    QWidget *m_header;
    QLabel *m_title;
    QLabel *m_newCount;
    QPushButton *m_markAllRead;
    QStackedWidget *m_body;
    QWidget *m_empty;
    QLabel *m_emptyTitle;
    QLabel *m_emptySentence;
    QTimer m_refreshTimer;
    // Keeps "5 min ago" and the sections true while the tab stays open.
    QTimer m_minuteTimer;
};
