#pragma once

#include <QObject>
#include <QTimer>

class ModelContext;
class QListWidget;
class QListWidgetItem;

// The number of unread inbox items beside the sidebar's Inbox row, counted again after the main
// context saves. Saves that come together are counted once, on the next turn of the loop.
class InboxUnreadBadge : public QObject {
    Q_OBJECT
public:
    // Where the count sits on the row; a row without it shows none.
    static constexpr int CountRole = Qt::UserRole + 1;

    // Counts for `row` of `sidebar` for as long as the sidebar lives, and draws the count.
    static InboxUnreadBadge *attach(ModelContext &context, QListWidget *sidebar,
                                    QListWidgetItem *row);

    qint64 count() const { return m_count; }

private:
    InboxUnreadBadge(ModelContext &context, QListWidgetItem *row, QObject *parent);
    void recount();

    ModelContext &m_context;
    QListWidgetItem *m_row;
    QTimer m_coalesce;
    qint64 m_count = -1;
};
