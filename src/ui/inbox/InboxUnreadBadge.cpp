#include "InboxUnreadBadge.h"

#include "core/store/ModelContext.h"
#include "inbox/InboxService.h"
#include "ui/Theme.h"

#include <QListWidget>
#include <QPainter>
#include <QStyledItemDelegate>

using namespace Qt::StringLiterals;

namespace {

// The sidebar's rows as the style draws them, a row's count quiet at its right end.
class SidebarCountDelegate : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override
    {
        QStyledItemDelegate::paint(painter, option, index);
        const qint64 count = index.data(InboxUnreadBadge::CountRole).toLongLong();
        if (count <= 0)
            return;
        painter->save();
        const QPalette &palette = option.palette;
        const bool selected = option.state & QStyle::State_Selected;
        QFont font = option.font;
        font.setWeight(QFont::DemiBold);
        painter->setFont(font);
        painter->setPen(selected ? palette.color(QPalette::HighlightedText)
                                 : Theme::blend(palette.color(QPalette::Text),
                                                palette.color(QPalette::AlternateBase), 0.45));
        painter->drawText(option.rect.adjusted(0, 0, -12, 0), Qt::AlignRight | Qt::AlignVCenter,
                          QLocale().toString(count));
        painter->restore();
    }
};

} // namespace

InboxUnreadBadge *InboxUnreadBadge::attach(ModelContext &context, QListWidget *sidebar,
                                           QListWidgetItem *row)
{
    if (!dynamic_cast<SidebarCountDelegate *>(sidebar->itemDelegate()))
        sidebar->setItemDelegate(new SidebarCountDelegate(sidebar));
    return new InboxUnreadBadge(context, row, sidebar);
}

InboxUnreadBadge::InboxUnreadBadge(ModelContext &context, QListWidgetItem *row, QObject *parent)
    : QObject(parent)
    , m_context(context)
    , m_row(row)
{
    // One COUNT per turn of the loop however many saves it held; the journal's typing already
    // reaches the store only through its debounced saves.
    m_coalesce.setSingleShot(true);
    connect(&m_coalesce, &QTimer::timeout, this, &InboxUnreadBadge::recount);
    connect(&context, &ModelContext::didSave, this, [this] { m_coalesce.start(0); });
    recount();
}

void InboxUnreadBadge::recount()
{
    const qint64 count = InboxService::unreadCount(m_context);
    if (count == m_count)
        return;
    m_count = count;
    m_row->setData(CountRole, count);
    m_row->setData(Qt::AccessibleTextRole,
                   count > 0 ? tr("%1, %n unread", nullptr, int(count)).arg(m_row->text())
                             : m_row->text());
}
