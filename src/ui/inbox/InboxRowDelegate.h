#pragma once

#include <QPersistentModelIndex>
#include <QStyledItemDelegate>

#include <utility>

// Draws the inbox list: quiet section labels, and items with the kind's icon, a bold title, the
// age, up to three lines of body and the item's action as a button, in a centred column like
// the journal page's. The button is painted, not a widget, so a long inbox scrolls smoothly.
class InboxRowDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // The widest the column of rows grows, and its margins in a narrow window.
    static constexpr int columnWidth = 720;
    static constexpr int sideMargin = 28;
    // Where the column sits in a viewport this wide: its left and right margins.
    static std::pair<int, int> columnMargins(int viewportWidth);

    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

    // The action button of the item drawn in `rowRect`; empty when it has no action.
    QRect actionRect(const QRect &rowRect, const QModelIndex &index, const QFont &font) const;
    // The row whose button the pointer is over, drawn lit.
    void setHoveredAction(const QPersistentModelIndex &index) { m_hovered = index; }
    QPersistentModelIndex hoveredAction() const { return m_hovered; }

signals:
    void actionTriggered(const QModelIndex &index);

protected:
    bool editorEvent(QEvent *event, QAbstractItemModel *model, const QStyleOptionViewItem &option,
                     const QModelIndex &index) override;

private:
    QPersistentModelIndex m_hovered;
    QPersistentModelIndex m_pressed;
};
