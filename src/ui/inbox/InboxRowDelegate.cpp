#include "InboxRowDelegate.h"

#include "InboxListModel.h"
#include "ui/Theme.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QTextLayout>

using namespace Qt::StringLiterals;

namespace {

constexpr int maxBodyLines = 3;
constexpr int iconSize = 22;

// Where everything of one row goes; the same sums serve size, paint and clicks.
struct Geometry {
    QRect column;
    QRect icon;
    QRect firstLine;
    QStringList bodyLines;
    QRect body;
    QRect button;
    int height = 0;
};

QFont titleFont(const QFont &font)
{
    QFont title = font;
    title.setWeight(QFont::DemiBold);
    return title;
}

QFont sectionFont(const QFont &font)
{
    QFont section = font;
    section.setPointSizeF(font.pointSizeF() * 0.85);
    section.setWeight(QFont::DemiBold);
    section.setCapitalization(QFont::AllUppercase);
    section.setLetterSpacing(QFont::PercentageSpacing, 106);
    return section;
}

// The body laid out in at most `maxBodyLines` lines of `width`, the last one elided.
QStringList wrap(QString text, const QFont &font, int width)
{
    text.replace(u'\n', QChar::LineSeparator);
    const QFontMetrics metrics(font);
    QTextLayout layout(text, font);
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    layout.setTextOption(option);
    QStringList lines;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        if (lines.size() == maxBodyLines - 1) {
            QString rest = text.mid(line.textStart());
            rest.replace(QChar::LineSeparator, u' ');
            lines.append(metrics.elidedText(rest.simplified(), Qt::ElideRight, width));
            break;
        }
        QString part = text.mid(line.textStart(), line.textLength());
        part.remove(QChar::LineSeparator);
        lines.append(part.trimmed());
    }
    layout.endLayout();
    while (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();
    return lines;
}

QRect columnOf(const QRect &row)
{
    const auto [left, right] = InboxRowDelegate::columnMargins(row.width());
    return row.adjusted(left, 0, -right, 0);
}

Geometry itemGeometry(const QRect &row, const QModelIndex &index, const QFont &font)
{
    Geometry g;
    g.column = columnOf(row);
    const QFontMetrics metrics(font);
    const int lineHeight = metrics.height();
    // Room on the left for the unread dot, then the icon beside the text.
    const QRect inner = g.column.adjusted(24, 12, -14, 0);
    const int firstLineHeight = std::max(QFontMetrics(titleFont(font)).height(), iconSize);
    g.icon =
        QRect(inner.left(), inner.top() + (firstLineHeight - iconSize) / 2, iconSize, iconSize);
    const int textLeft = g.icon.right() + 13;
    const int textWidth = std::max(40, inner.right() - textLeft);
    g.firstLine = QRect(textLeft, inner.top(), textWidth, firstLineHeight);
    int bottom = g.firstLine.bottom();

    g.bodyLines = wrap(index.data(InboxListModel::BodyRole).toString(), font, textWidth);
    if (!g.bodyLines.isEmpty()) {
        g.body = QRect(textLeft, bottom + 3, textWidth, lineHeight * int(g.bodyLines.size()));
        bottom = g.body.bottom();
    }
    if (const QString label = index.data(InboxListModel::ActionLabelRole).toString();
        !label.isEmpty()) {
        const int width = std::min(textWidth, metrics.horizontalAdvance(label) + 28);
        g.button = QRect(textLeft, bottom + 10, width, lineHeight + 12);
        bottom = g.button.bottom();
    }
    g.height = bottom - row.top() + 1 + 12;
    return g;
}

int viewportWidth(const QStyleOptionViewItem &option)
{
    if (const auto *view = qobject_cast<const QAbstractItemView *>(option.widget))
        return view->viewport()->width();
    return option.rect.width();
}

} // namespace

std::pair<int, int> InboxRowDelegate::columnMargins(int viewportWidth)
{
    const int spare = std::max(0, viewportWidth - columnWidth - 2 * sideMargin);
    const int left = sideMargin + spare / 2;
    return {left, sideMargin + spare - spare / 2};
}

QSize InboxRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const int width = viewportWidth(option);
    if (index.data(InboxListModel::SectionRole).toBool()) {
        // The first label sits under the header; later ones leave a gap above them.
        const int gap = index.row() == 0 ? 6 : 22;
        return {width, gap + QFontMetrics(sectionFont(option.font)).height() + 6};
    }
    return {width, itemGeometry(QRect(0, 0, width, 0), index, option.font).height};
}

void InboxRowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                             const QModelIndex &index) const
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QPalette &palette = option.palette;
    // A section label is a row the view can't select, which it would draw in disabled grey.
    const QPalette::ColorGroup group =
        option.state & QStyle::State_Active ? QPalette::Active : QPalette::Inactive;
    const QColor text = palette.color(group, QPalette::Text);
    const QColor base = palette.color(group, QPalette::Base);
    const QColor accent = palette.color(group, QPalette::Highlight);
    const QColor quiet = Theme::blend(text, base, 0.45);
    const QFont font = option.font;

    if (index.data(InboxListModel::SectionRole).toBool()) {
        const QRect column = columnOf(option.rect);
        const QFont label = sectionFont(font);
        painter->setFont(label);
        painter->setPen(quiet);
        const QRect line(column.left() + 24,
                         option.rect.bottom() - 5 - QFontMetrics(label).height(),
                         column.width() - 24, QFontMetrics(label).height());
        painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter, index.data().toString());
        painter->restore();
        return;
    }

    const Geometry g = itemGeometry(option.rect, index, font);
    const bool selected = option.state & QStyle::State_Selected;
    const bool hovered = option.state & QStyle::State_MouseOver;
    if (selected || hovered) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(selected ? Theme::blend(base, accent, 0.16)
                                   : Theme::blend(base, text, 0.04));
        painter->drawRoundedRect(QRectF(g.column).adjusted(0, 2, 0, -2), 8, 8);
    }
    if (selected && (option.state & QStyle::State_HasFocus)) {
        painter->setPen(QPen(Theme::blend(base, accent, 0.55), 1));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(QRectF(g.column).adjusted(0.5, 2.5, -0.5, -2.5), 8, 8);
    }

    const bool unread = index.data(InboxListModel::UnreadRole).toBool();
    if (unread) {
        const int dot = 8;
        const QPoint centre(g.column.left() + 12, g.firstLine.center().y() + 1);
        painter->setPen(Qt::NoPen);
        // A dark palette's accent is deep; the dot lightens it to stand out as much as in light.
        painter->setBrush(Theme::isDark(palette) ? Theme::blend(accent, text, 0.35) : accent);
        painter->drawEllipse(QRectF(centre.x() - dot / 2.0, centre.y() - dot / 2.0, dot, dot));
    }
    const QIcon icon = index.data(Qt::DecorationRole).value<QIcon>();
    icon.paint(painter, g.icon);

    // The age keeps its room; a long title gives way first.
    QFont small = font;
    small.setPointSizeF(font.pointSizeF() * 0.9);
    const QFontMetrics smallMetrics(small);
    const QString age = index.data(InboxListModel::AgeRole).toString();
    const int ageWidth = smallMetrics.horizontalAdvance(age);
    painter->setFont(small);
    painter->setPen(quiet);
    painter->drawText(g.firstLine, Qt::AlignRight | Qt::AlignVCenter, age);

    const QFont title = titleFont(font);
    painter->setFont(title);
    // Read items step back a little; the unread ones carry the dot and full ink.
    painter->setPen(unread ? text : Theme::blend(text, base, 0.2));
    const QRect titleRect = g.firstLine.adjusted(0, 0, -(ageWidth + 16), 0);
    painter->drawText(
        titleRect, Qt::AlignLeft | Qt::AlignVCenter,
        QFontMetrics(title).elidedText(index.data().toString(), Qt::ElideRight, titleRect.width()));

    if (!g.bodyLines.isEmpty()) {
        painter->setFont(font);
        painter->setPen(quiet);
        const int lineHeight = QFontMetrics(font).height();
        for (qsizetype i = 0; i < g.bodyLines.size(); ++i)
            painter->drawText(QRect(g.body.left(), g.body.top() + int(i) * lineHeight,
                                    g.body.width(), lineHeight),
                              Qt::AlignLeft | Qt::AlignVCenter, g.bodyLines.at(i));
    }

    if (!g.button.isEmpty()) {
        QStyleOptionButton button;
        button.initFrom(option.widget);
        button.rect = g.button;
        button.palette = palette;
        button.fontMetrics = QFontMetrics(font);
        button.text = index.data(InboxListModel::ActionLabelRole).toString();
        button.state = QStyle::State_Enabled | QStyle::State_Raised;
        if (m_hovered == index)
            button.state |= QStyle::State_MouseOver;
        if (m_pressed == index && m_hovered == index)
            button.state = (button.state & ~QStyle::State_Raised) | QStyle::State_Sunken;
        QStyle *style = option.widget ? option.widget->style() : QApplication::style();
        painter->setFont(font);
        style->drawControl(QStyle::CE_PushButton, &button, painter, option.widget);
    }
    painter->restore();
}

QRect InboxRowDelegate::actionRect(const QRect &rowRect, const QModelIndex &index,
                                   const QFont &font) const
{
    if (!index.isValid() || index.data(InboxListModel::SectionRole).toBool())
        return {};
    return itemGeometry(rowRect, index, font).button;
}

bool InboxRowDelegate::editorEvent(QEvent *event, QAbstractItemModel *model,
                                   const QStyleOptionViewItem &option, const QModelIndex &index)
{
    const auto type = event->type();
    if (type != QEvent::MouseButtonPress && type != QEvent::MouseButtonRelease &&
        type != QEvent::MouseButtonDblClick)
        return QStyledItemDelegate::editorEvent(event, model, option, index);
    const auto *mouse = static_cast<QMouseEvent *>(event);
    const bool onButton =
        mouse->button() == Qt::LeftButton &&
        actionRect(option.rect, index, option.font).contains(mouse->position().toPoint());
    // A press on the button is the button's: the row neither selects nor activates under it.
    if (type == QEvent::MouseButtonPress) {
        m_pressed = onButton ? QPersistentModelIndex(index) : QPersistentModelIndex();
        return onButton;
    }
    if (type == QEvent::MouseButtonDblClick)
        return onButton;
    const bool clicked = onButton && m_pressed == index;
    m_pressed = QPersistentModelIndex();
    if (clicked)
        emit actionTriggered(index);
    return clicked;
}
