#pragma once

#include <QAbstractListModel>
#include <QDateTime>
#include <QStyledItemDelegate>
#include <QUuid>

#include <optional>

class ModelContext;

// The rows of the people column: everyone in the store, pinned people first, then by name,
// each with what the list says about them. Plain values, so the list never holds records.
class PeopleListModel : public QAbstractListModel {
    Q_OBJECT
public:
    // AsideRole: quiet words after the bold first line; DetailRole: the quiet second line.
    enum Role { IdRole = Qt::UserRole, AsideRole, DetailRole, MarkRole, CountRole };

    struct Row {
        QUuid id;
        QString name;
        QString role;
        QString relationship;
        std::optional<QString> emoji;
        bool isPinned = false;
        QDateTime lastMet;
        qsizetype openActions = 0;
    };

    using QAbstractListModel::QAbstractListModel;

    // Reads the store again; rows that only changed their words keep the view's selection.
    void reload(ModelContext &context, const QDateTime &now);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    const Row &at(int row) const { return m_rows.at(row); }
    // -1 when nobody has that id.
    int rowOf(const QUuid &id) const;

    // The chosen mark, or the initials of the first and last word of the name.
    static QString mark(const QString &name, const std::optional<QString> &emoji);
    // "last met today", "last met 3 days ago", "last met 4 months ago".
    static QString lastMetText(const QDateTime &met, const QDateTime &now);

private:
    QString detail(const Row &row) const;

    QList<Row> m_rows;
    QDateTime m_now;
};

// Rows with a bold first line and a quiet second one, like the day list, the first line's quiet
// aside after the bold words; a round mark in front
// when the row has one and a small count at the end when it is above zero.
class TwoLineDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
};
