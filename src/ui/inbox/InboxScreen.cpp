#include "InboxScreen.h"

#include "InboxListModel.h"
#include "InboxRowDelegate.h"
#include "app/TovrenApp.h"
#include "core/Clock.h"
#include "core/records/InboxItem.h"
#include "core/store/ModelContext.h"
#include "inbox/InboxRouter.h"
#include "inbox/InboxService.h"
#include "ui/Dialogs.h"
#include "ui/Theme.h"

#include <QContextMenuEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>
#include <QStackedWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

InboxScreen::InboxScreen(TovrenApp &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
    , m_model(new InboxListModel(this))
    , m_delegate(new InboxRowDelegate(this))
    , m_list(new QListView(this))
    , m_header(new QWidget(this))
    , m_title(new QLabel(tr("Inbox"), m_header))
    , m_newCount(new QLabel(m_header))
    , m_markAllRead(new QPushButton(tr("Mark All Read"), m_header))
    , m_body(new QStackedWidget(this))
    , m_empty(new QWidget(this))
    , m_emptyTitle(new QLabel(tr("You're all caught up"), m_empty))
    , m_emptySentence(new QLabel(tr("Reminders, streak nudges, 1:1 alerts, and review notices "
                                    "show up here as Tovren sends them, so a dismissed banner is "
                                    "never lost."),
                                 m_empty))
{
    setObjectName(u"inboxScreen"_s);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);

    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.5);
    titleFont.setWeight(QFont::DemiBold);
    m_title->setFont(titleFont);
    m_newCount->setObjectName(u"newCount"_s);
    m_markAllRead->setObjectName(u"markAllRead"_s);
    connect(m_markAllRead, &QPushButton::clicked, this, &InboxScreen::markAllRead);
    auto *headerLayout = new QHBoxLayout(m_header);
    headerLayout->setSpacing(12);
    headerLayout->addWidget(m_title, 0, Qt::AlignBaseline);
    headerLayout->addWidget(m_newCount, 0, Qt::AlignBaseline);
    headerLayout->addStretch(1);
    headerLayout->addWidget(m_markAllRead, 0, Qt::AlignVCenter);

    m_list->setObjectName(u"inboxList"_s);
    m_list->setModel(m_model);
    m_list->setItemDelegate(m_delegate);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setMouseTracking(true);
    m_list->setResizeMode(QListView::Adjust);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setBackgroundRole(QPalette::Base);
    m_list->viewport()->setBackgroundRole(QPalette::Base);
    m_list->installEventFilter(this);
    m_list->viewport()->installEventFilter(this);
    connect(m_list, &QListView::activated, this, &InboxScreen::activate);
    connect(m_delegate, &InboxRowDelegate::actionTriggered, this, &InboxScreen::runAction);

    m_emptyTitle->setObjectName(u"emptyTitle"_s);
    QFont emptyFont = m_emptyTitle->font();
    emptyFont.setPointSizeF(emptyFont.pointSizeF() * 1.25);
    emptyFont.setWeight(QFont::DemiBold);
    m_emptyTitle->setFont(emptyFont);
    m_emptySentence->setObjectName(u"emptySentence"_s);
    m_emptySentence->setWordWrap(true);
    m_emptySentence->setAlignment(Qt::AlignHCenter);
    m_emptySentence->setMaximumWidth(440);
    auto *emptyLayout = new QVBoxLayout(m_empty);
    emptyLayout->addStretch(1);
    emptyLayout->addWidget(m_emptyTitle, 0, Qt::AlignHCenter);
    emptyLayout->addSpacing(6);
    // Centred by stretches, not an alignment, so the wrapped sentence gets its full height.
    auto *sentenceRow = new QHBoxLayout;
    sentenceRow->addStretch(1);
    sentenceRow->addWidget(m_emptySentence, 3);
    sentenceRow->addStretch(1);
    emptyLayout->addLayout(sentenceRow);
    emptyLayout->addStretch(2);

    m_empty->installEventFilter(this);
    m_body->addWidget(m_list);
    m_body->addWidget(m_empty);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addWidget(m_header);
    layout->addWidget(m_body, 1);
    followColumn();
    applyPalette();

    // Posts arrive from anywhere (a reminder, an assistant, the recovery notice); while the tab
    // shows they appear at once. While it is hidden nothing is read: showing reads afresh.
    m_refreshTimer.setSingleShot(true);
    connect(&m_refreshTimer, &QTimer::timeout, this, [this] {
        if (isVisible())
            reload();
    });
    connect(&app.mainContext(), &ModelContext::didSave, this, [this] {
        if (isVisible())
            m_refreshTimer.start(0);
    });
    m_minuteTimer.setInterval(60 * 1000);
    connect(&m_minuteTimer, &QTimer::timeout, this, &InboxScreen::reload);
}

QRect InboxScreen::actionButtonRect(const QModelIndex &index) const
{
    return m_delegate->actionRect(m_list->visualRect(index), index, m_list->font());
}

void InboxScreen::reload()
{
    m_refreshTimer.stop();
    const QModelIndex current = m_list->currentIndex();
    const QUuid currentId = current.data(InboxListModel::IdRole).toUuid();
    // The row at the top of the view stays where it is, so a post arriving above doesn't move
    // what the user is reading; at the very top, new items simply show.
    QScrollBar *scroll = m_list->verticalScrollBar();
    const bool atTop = scroll->value() == 0;
    const QModelIndex top = m_list->indexAt(QPoint(m_list->viewport()->width() / 2, 0));
    const bool topIsSection = top.data(InboxListModel::SectionRole).toBool();
    const QUuid topId = top.data(InboxListModel::IdRole).toUuid();
    const QString topSection = top.data().toString();
    const int topOffset = top.isValid() ? m_list->visualRect(top).top() : 0;

    m_model->reload(m_app.mainContext(), Clock::now());

    const qsizetype unread = m_model->unreadCount();
    m_newCount->setText(tr("%1 new").arg(unread));
    m_newCount->setVisible(unread > 0);
    m_markAllRead->setEnabled(unread > 0);
    const bool empty = m_model->itemCount() == 0;
    m_markAllRead->setVisible(!empty);
    m_body->setCurrentWidget(empty ? m_empty : static_cast<QWidget *>(m_list));
    followColumn();
    if (empty)
        return;

    int row = m_model->rowOf(currentId);
    if (row < 0 && current.isValid())
        row = m_model->nearestItemRow(current.row());
    if (row >= 0 && m_list->currentIndex().row() != row)
        m_list->setCurrentIndex(m_model->index(row));
    if (!atTop && top.isValid()) {
        const int topRow = topIsSection ? m_model->rowOfSection(topSection) : m_model->rowOf(topId);
        if (topRow >= 0) {
            m_list->scrollTo(m_model->index(topRow), QAbstractItemView::PositionAtTop);
            scroll->setValue(scroll->value() - topOffset);
        }
    }
}

std::shared_ptr<InboxItem> InboxScreen::item(const QUuid &id) const
{
    if (id.isNull())
        return nullptr;
    return m_app.mainContext().tryFetch<InboxItem>({field(&InboxItem::id) == id, {}, 1}).value(0);
}

QUuid InboxScreen::idAt(const QModelIndex &index)
{
    return index.data(InboxListModel::IdRole).toUuid();
}

void InboxScreen::setRead(const QUuid &id, bool read)
{
    const auto found = item(id);
    if (!found || found->readAt.has_value() == read)
        return;
    found->readAt = read ? std::optional(Clock::now()) : std::nullopt;
    m_app.mainContext().trySave();
    reload();
}

void InboxScreen::remove(const QUuid &id)
{
    const auto found = item(id);
    if (!found)
        return;
    m_app.mainContext().remove(found);
    m_app.mainContext().trySave();
    reload();
}

void InboxScreen::deleteCurrent()
{
    const auto found = item(idAt(m_list->currentIndex()));
    if (!found)
        return;
    const Dialogs::Question question{tr("Delete “%1”?").arg(found->title),
                                     tr("It will be removed from the inbox. This can't be undone."),
                                     tr("Delete"), tr("Cancel"), true};
    if (Dialogs::confirm(this, question))
        remove(found->id);
}

void InboxScreen::markAllRead()
{
    InboxService::markAllRead(m_app.mainContext());
    reload();
}

void InboxScreen::activate(const QModelIndex &index)
{
    if (!index.data(InboxListModel::ActionLabelRole).toString().isEmpty())
        runAction(index);
    else
        setRead(idAt(index), true);
}

void InboxScreen::runAction(const QModelIndex &index)
{
    const auto found = item(idAt(index));
    if (!found)
        return;
    InboxRouter::activate(*found, m_app.mainContext());
    // A tab route has moved the window on; a web page or download leaves the inbox showing.
    if (isVisible())
        reload();
}

void InboxScreen::showMenu(const QModelIndex &index, const QPoint &globalPosition)
{
    const QUuid id = idAt(index);
    if (id.isNull())
        return;
    m_list->setCurrentIndex(index);
    const bool unread = index.data(InboxListModel::UnreadRole).toBool();
    QMenu menu(this);
    menu.addAction(unread ? tr("Mark as Read") : tr("Mark as Unread"), this,
                   [this, id, unread] { setRead(id, unread); });
    menu.addAction(tr("Delete"), this, [this, id] { remove(id); });
    menu.exec(globalPosition);
}

void InboxScreen::trackActionHover(const QPoint &position)
{
    const QModelIndex index = m_list->indexAt(position);
    const QPersistentModelIndex hovered = actionButtonRect(index).contains(position)
                                              ? QPersistentModelIndex(index)
                                              : QPersistentModelIndex();
    if (hovered == m_delegate->hoveredAction())
        return;
    for (const QModelIndex &changed : {QModelIndex(m_delegate->hoveredAction()), index}) {
        if (changed.isValid())
            m_list->viewport()->update(m_list->visualRect(changed));
    }
    m_delegate->setHoveredAction(hovered);
}

void InboxScreen::followColumn()
{
    // The header lines up with the rows' column, as the journal's header follows its page.
    const int width =
        m_body->currentWidget() == m_empty ? m_empty->width() : m_list->viewport()->width();
    const auto [left, right] = InboxRowDelegate::columnMargins(width);
    m_header->layout()->setContentsMargins(left + 24, 26, right + 14, 6);
}

void InboxScreen::applyPalette()
{
    const QColor muted =
        Theme::blend(palette().color(QPalette::Text), palette().color(QPalette::Base), 0.45);
    for (QLabel *label : {m_newCount, m_emptySentence}) {
        // On the page's base colour a label writes in Text, not WindowText.
        QPalette quiet = label->palette();
        quiet.setColor(QPalette::WindowText, muted);
        quiet.setColor(QPalette::Text, muted);
        label->setPalette(quiet);
    }
}

void InboxScreen::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    // The housekeeping runs where the user looks: what they cleared stays for a month.
    InboxService::purgeRetiredFeatures(m_app.mainContext(), m_app.preferences());
    InboxService::pruneOld(m_app.mainContext(), 30);
    reload();
    // Opening the tab starts at the newest item, ready for the arrow keys.
    if (const int first = m_model->nearestItemRow(0); first >= 0) {
        m_list->setCurrentIndex(m_model->index(first));
        m_list->scrollToTop();
    }
    m_list->setFocus();
    m_minuteTimer.start();
}

void InboxScreen::hideEvent(QHideEvent *event)
{
    m_minuteTimer.stop();
    QWidget::hideEvent(event);
}

void InboxScreen::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange)
        applyPalette();
}

bool InboxScreen::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_empty && event->type() == QEvent::Resize)
        followColumn();
    if (watched == m_list->viewport()) {
        switch (event->type()) {
        case QEvent::Resize:
            followColumn();
            break;
        case QEvent::MouseMove:
            trackActionHover(static_cast<QMouseEvent *>(event)->position().toPoint());
            break;
        case QEvent::Leave:
            trackActionHover({-1, -1});
            break;
        case QEvent::ContextMenu: {
            auto *menuEvent = static_cast<QContextMenuEvent *>(event);
            showMenu(m_list->indexAt(menuEvent->pos()), menuEvent->globalPos());
            return true;
        }
        default:
            break;
        }
    }
    if (watched == m_list && event->type() == QEvent::ContextMenu) {
        // From the keyboard: the menu of the current row, under it.
        const QModelIndex current = m_list->currentIndex();
        const QRect rect = m_list->visualRect(current);
        showMenu(current, m_list->viewport()->mapToGlobal(rect.bottomLeft() + QPoint(40, -8)));
        return true;
    }
    // Only the deliberate key in the list itself.
    if (watched == m_list && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Delete) {
        deleteCurrent();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}
