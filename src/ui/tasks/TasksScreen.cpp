#include "TasksScreen.h"

#include "DueDateEdit.h"
#include "TaskListModel.h"
#include "TaskRowDelegate.h"
#include "app/TovrenApp.h"
#include "core/AppCalendar.h"
#include "core/Clock.h"
#include "core/Notices.h"
#include "core/SidebarItem.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContext.h"
#include "ui/Dialogs.h"
#include "ui/Theme.h"

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QLocale>
#include <QMenu>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

// As wide as the journal's writing column.
constexpr int columnWidth = 700;

} // namespace

TasksScreen::TasksScreen(TovrenApp &app, QWidget *parent)
    : QWidget(parent)
    , m_app(app)
    , m_model(new TaskListModel(this))
    , m_delegate(new TaskRowDelegate(this))
    , m_date(new QLabel(this))
    , m_quickAdd(new QLineEdit(this))
    , m_quickDue(new DueDateEdit(this))
    , m_sentence(
          new QLabel(tr("Nothing on your list yet. Type a task above and press Enter."), this))
    , m_body(new QStackedWidget(this))
    , m_list(new QListView(this))
    , m_empty(new QWidget(this))
{
    setObjectName(u"tasksScreen"_s);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);

    auto *column = new QWidget(this);
    column->setMaximumWidth(columnWidth);
    auto *columnLayout = new QVBoxLayout(column);
    columnLayout->setContentsMargins(0, 30, 0, 0);
    columnLayout->setSpacing(0);
    auto *heading = new QLabel(tr("Tasks"), column);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.5);
    headingFont.setWeight(QFont::DemiBold);
    heading->setFont(headingFont);
    heading->setContentsMargins(14, 0, 14, 2);
    m_date->setObjectName(u"tasksDate"_s);
    m_date->setContentsMargins(14, 0, 14, 0);
    columnLayout->addWidget(heading);
    columnLayout->addWidget(m_date);
    columnLayout->addSpacing(18);

    // The quick-add row: Enter adds, with the date beside it when one is picked.
    auto *addRow = new QHBoxLayout;
    addRow->setContentsMargins(8, 0, 8, 0);
    addRow->setSpacing(6);
    m_quickAdd->setObjectName(u"quickAdd"_s);
    m_quickAdd->setPlaceholderText(tr("Add a task and press Enter"));
    m_quickAdd->setClearButtonEnabled(true);
    m_quickAdd->setMinimumHeight(m_quickAdd->sizeHint().height() + 6);
    m_quickDue->setObjectName(u"quickAddDue"_s);
    m_quickDue->setMinimumHeight(m_quickAdd->minimumHeight());
    auto *add = new QPushButton(tr("Add"), this);
    add->setObjectName(u"addTask"_s);
    add->setFocusPolicy(Qt::TabFocus);
    add->setMinimumHeight(m_quickAdd->minimumHeight());
    addRow->addWidget(m_quickAdd, 1);
    addRow->addWidget(m_quickDue);
    addRow->addWidget(add);
    columnLayout->addLayout(addRow);
    columnLayout->addSpacing(10);
    connect(m_quickAdd, &QLineEdit::returnPressed, this, &TasksScreen::addFromQuickAdd);
    connect(m_quickDue, &QLineEdit::returnPressed, this, &TasksScreen::addFromQuickAdd);
    connect(add, &QPushButton::clicked, this, &TasksScreen::addFromQuickAdd);

    m_list->setObjectName(u"taskList"_s);
    m_list->setModel(m_model);
    m_list->setItemDelegate(m_delegate);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setMouseTracking(true);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    m_list->installEventFilter(this);
    connect(m_list, &QWidget::customContextMenuRequested, this, &TasksScreen::showContextMenu);
    connect(m_delegate, &TaskRowDelegate::toggleRequested, this, &TasksScreen::toggleCompleted);
    connect(m_delegate, &TaskRowDelegate::editRequested, this, &TasksScreen::editTask);

    // Nothing to do: one sentence; the field above is the one thing to use.
    auto *emptyLayout = new QVBoxLayout(m_empty);
    m_sentence->setObjectName(u"emptySentence"_s);
    emptyLayout->addSpacing(40);
    emptyLayout->addWidget(m_sentence, 0, Qt::AlignHCenter);
    emptyLayout->addStretch(1);

    m_body->addWidget(m_list);
    m_body->addWidget(m_empty);
    columnLayout->addWidget(m_body, 1);
    applyPalette();

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(24, 0, 24, 0);
    layout->addStretch(1);
    layout->addWidget(column, 100);
    layout->addStretch(1);

    // Every save, whoever made it (an assistant's add_task, this screen), shows here at once.
    // While the tab is hidden nothing is read: showing it reads everything afresh anyway.
    m_refreshTimer.setSingleShot(true);
    connect(&m_refreshTimer, &QTimer::timeout, this, &TasksScreen::reload);
    connect(&app.mainContext(), &ModelContext::didSave, this, [this] {
        if (isVisible())
            m_refreshTimer.start(0);
    });
    // A new day moves tasks between the sections.
    connect(&app.appCalendar(), &AppCalendar::changed, this, [this] {
        if (isVisible())
            m_refreshTimer.start(0);
    });
    connect(&NoticeCenter::shared(), &NoticeCenter::posted, this, [this](const QString &name) {
        if (name == QLatin1StringView(Notices::newTask)) {
            NoticeCenter::shared().post(Notices::openTab,
                                        {{u"item"_s, SidebarItems::rawValue(SidebarItem::tasks)}});
            focusQuickAdd();
        } else if (name == QLatin1StringView(Notices::dataErased) && isVisible()) {
            m_refreshTimer.start(0);
        }
    });
}

TasksScreen::~TasksScreen() = default;

std::shared_ptr<TaskItem> TasksScreen::task(const QUuid &id) const
{
    return m_app.mainContext().tryFetch<TaskItem>({field(&TaskItem::id) == id, {}, 1}).value(0);
}

std::shared_ptr<TaskItem> TasksScreen::selectedTask() const
{
    const QModelIndex current = m_list->currentIndex();
    if (!current.isValid() || current.data(TaskListModel::IsHeadingRole).toBool())
        return nullptr;
    return task(current.data(TaskListModel::IdRole).toUuid());
}

void TasksScreen::reload()
{
    m_refreshTimer.stop();
    m_model->reload(m_app.mainContext(), Clock::now());
    refreshHeader();
    const bool empty = m_model->rowCount() == 0;
    // The list going away takes its keys with it; they belong in the field then.
    const bool listHadFocus = m_list->hasFocus();
    m_body->setCurrentWidget(empty ? m_empty : static_cast<QWidget *>(m_list));
    if (empty && listHadFocus)
        focusQuickAdd();
}

void TasksScreen::refreshHeader()
{
    m_date->setText(QLocale().toString(Calendar::current().day(Clock::now()), QLocale::LongFormat));
}

void TasksScreen::applyPalette()
{
    const QColor quiet =
        Theme::blend(palette().color(QPalette::Text), palette().color(QPalette::Base), 0.45);
    // On the base colour a label writes in the Text role, elsewhere in WindowText.
    for (QLabel *label : {m_date, m_sentence}) {
        QPalette quietPalette = label->palette();
        quietPalette.setColor(QPalette::WindowText, quiet);
        quietPalette.setColor(QPalette::Text, quiet);
        label->setPalette(quietPalette);
    }
}

void TasksScreen::focusQuickAdd()
{
    m_quickAdd->setFocus(Qt::ShortcutFocusReason);
    m_quickAdd->selectAll();
}

void TasksScreen::addFromQuickAdd()
{
    const QString title = m_quickAdd->text().trimmed();
    if (title.isEmpty())
        return;
    // Words that are no date would quietly make the task undated; the user fixes them first.
    if (!m_quickDue->isReadable()) {
        m_quickDue->setFocus(Qt::OtherFocusReason);
        m_quickDue->selectAll();
        return;
    }
    addTask(title, m_quickDue->due());
    m_quickAdd->clear();
    m_quickDue->setDue(std::nullopt);
    m_quickAdd->setFocus();
}

void TasksScreen::addTask(const QString &title, std::optional<QDate> due)
{
    const QString trimmed = title.trimmed();
    if (trimmed.isEmpty())
        return;
    std::optional<QDateTime> dueDate;
    if (due)
        dueDate = Calendar::current().startOfDay(*due);
    auto task = std::make_shared<TaskItem>(trimmed, 0, dueDate);
    m_app.mainContext().insert(task);
    m_app.mainContext().trySave();
    reload();
    // The new task is shown where it landed; the keys stay in the field for the next one.
    const int row = m_model->rowOf(task->id);
    if (row >= 0) {
        m_list->setCurrentIndex(m_model->index(row));
        m_list->scrollTo(m_model->index(row));
    }
}

void TasksScreen::setCompleted(const QUuid &id, bool completed)
{
    const std::shared_ptr<TaskItem> item = task(id);
    if (!item || item->isCompleted == completed)
        return;
    item->isCompleted = completed;
    item->completedAt = completed ? std::optional(Clock::now()) : std::nullopt;
    m_app.mainContext().trySave();
    reload();
}

void TasksScreen::toggleCompleted(const QUuid &id)
{
    if (const std::shared_ptr<TaskItem> item = task(id))
        setCompleted(id, !item->isCompleted);
}

void TasksScreen::editTask(const QUuid &id, const QString &title, std::optional<QDate> due)
{
    const std::shared_ptr<TaskItem> item = task(id);
    if (!item)
        return;
    const Calendar calendar = Calendar::current();
    const std::optional<QDate> oldDue =
        item->dueDate ? std::optional(calendar.day(*item->dueDate)) : std::nullopt;
    const QString trimmed = title.trimmed();
    const bool retitled = !trimmed.isEmpty() && trimmed != item->title;
    if (!retitled && due == oldDue)
        return;
    if (retitled)
        item->title = trimmed;
    // The same day keeps its stored instant; a new day is its start, as quick-add stores it.
    if (due != oldDue)
        item->dueDate = due ? std::optional(calendar.startOfDay(*due)) : std::nullopt;
    m_app.mainContext().trySave();
    reload();
}

void TasksScreen::deleteSelected()
{
    const std::shared_ptr<TaskItem> item = selectedTask();
    if (!item)
        return;
    const Dialogs::Question question{
        tr("Delete this task?"),
        tr("“%1” will be removed from your tasks. This can't be undone.").arg(item->title),
        tr("Delete"), tr("Cancel"), true};
    if (!Dialogs::confirm(this, question))
        return;
    m_app.mainContext().remove(item);
    m_app.mainContext().trySave();
    reload();
}

void TasksScreen::showContextMenu(const QPoint &position)
{
    const QModelIndex index = m_list->indexAt(position);
    if (!index.isValid() || index.data(TaskListModel::IsHeadingRole).toBool())
        return;
    m_list->setCurrentIndex(index);
    const QUuid id = index.data(TaskListModel::IdRole).toUuid();
    const bool done = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
    QMenu menu(this);
    menu.addAction(done ? tr("Mark as Not Done") : tr("Mark as Done"), this,
                   [this, id] { toggleCompleted(id); });
    menu.addAction(tr("Edit"), this, [this, index = QPersistentModelIndex(index)] {
        if (index.isValid())
            m_list->edit(index);
    });
    menu.addSeparator();
    menu.addAction(tr("Delete…"), this, &TasksScreen::deleteSelected);
    menu.exec(m_list->viewport()->mapToGlobal(position));
}

void TasksScreen::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    reload();
    focusQuickAdd();
}

void TasksScreen::hideEvent(QHideEvent *event)
{
    // Leaving the tab keeps a title being edited.
    m_delegate->commitOpenEditor();
    QWidget::hideEvent(event);
}

void TasksScreen::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    // The desktop turned light or dark: the quiet words follow.
    if (event->type() == QEvent::PaletteChange)
        applyPalette();
}

bool TasksScreen::eventFilter(QObject *watched, QEvent *event)
{
    // Only the deliberate key in the list itself: Delete in a field edits the field.
    if (watched == m_list && event->type() == QEvent::KeyPress &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Delete) {
        deleteSelected();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}
