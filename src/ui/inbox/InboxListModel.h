#pragma once

#include "core/records/Enumerations.h"

#include <QAbstractListModel>
#include <QColor>
#include <QDateTime>
#include <QIcon>
#include <QUuid>

#include <optional>

class ModelContext;

// The inbox as one list: a label row for each section, then that section's items, newest first.
// Plain values, so the list never holds records; actions fetch the item by its id.
class InboxListModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        IdRole = Qt::UserRole,
        SectionRole, // true on a section's label row
        BodyRole,
        AgeRole, // "5 min ago", "yesterday", a date
        UnreadRole,
        ActionLabelRole, // empty when the item has no action
    };

    struct Row {
        bool isSection = false;
        QString title;
        QUuid id;
        InboxItemKind kind = InboxItemKind::system;
        QString body;
        QDateTime createdAt;
        bool unread = false;
        std::optional<QString> actionLabel;
    };

    using QAbstractListModel::QAbstractListModel;

    // Reads the store again; when only the words or read marks changed, the rows stay in place.
    void reload(ModelContext &context, const QDateTime &now);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

    const Row &at(int row) const { return m_rows.at(row); }
    // -1 when no item has that id.
    int rowOf(const QUuid &id) const;
    // The label row of the section with this title; -1 when it is gone.
    int rowOfSection(const QString &title) const;
    // The item row nearest to `row`, looking down first; -1 when there are no items.
    int nearestItemRow(int row) const;
    qsizetype itemCount() const { return m_itemCount; }
    qsizetype unreadCount() const { return m_unreadCount; }

    // How long ago, in the user's locale: "just now", "12 min ago", "3 h ago", "yesterday",
    // "4 days ago", then the date.
    static QString ageText(const QDateTime &at, const QDateTime &now);
    // The kind's icon from the desktop's theme, or a bundled line drawing in `ink`.
    static QIcon icon(InboxItemKind kind, const QColor &ink);

private:
    QList<Row> m_rows;
    QDateTime m_now;
    qsizetype m_itemCount = 0;
    qsizetype m_unreadCount = 0;
};
