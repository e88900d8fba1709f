#include "TaskRowDelegate.h"

#include "DueDateEdit.h"
#include "TaskListModel.h"
#include "ui/Theme.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

using namespace Qt::StringLiterals;

namespace {

constexpr int checkSize = 18;
constexpr int checkLeft = 14;
constexpr int titleGap = 12;

int titleLeft(const QRect &row)
{
    return row.left() + checkLeft + checkSize + titleGap;
}

bool isHeading(const QModelIndex &index)
{
    return index.data(TaskListModel::IsHeadingRole).toBool();
}

} // namespace

TaskEditor::TaskEditor(QWidget *parent)
    : QWidget(parent)
    , m_title(new QLineEdit(this))
    , m_due(new DueDateEdit(this))
{
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    m_title->setObjectName(u"taskTitleEditor"_s);
    m_due->setObjectName(u"taskDueEditor"_s);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 2, 0, 2);
    layout->setSpacing(6);
    layout->addWidget(m_title, 1);
    layout->addWidget(m_due);
    setFocusProxy(m_title);
    // The calendar is a window of its own but belongs to the date field: the keys going there
    // are still in the editor.
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget *, QWidget *now) {
        for (QWidget *widget = now; widget; widget = widget->parentWidget()) {
            if (widget == this)
                return;
        }
        if (now && isVisible())
            emit focusLeft();
    });
}

void TaskEditor::fill(const QString &title, std::optional<QDate> due)
{
    m_title->setText(title);
    m_title->selectAll();
    m_due->setDue(due);
    m_filled = true;
}

TaskRowDelegate::TaskRowDelegate(QObject *parent)
    : QStyledItemDelegate(parent)
{
    // Connected before any view's slot: an editor the view is closing is no longer ours to close
    // when the keys leave it.
    connect(this, &QAbstractItemDelegate::closeEditor, this, [this](QWidget *editor) {
        if (editor == m_open)
            m_open = nullptr;
    });
}

QRect TaskRowDelegate::checkRect(const QRect &row)
{
    return {row.left() + checkLeft, row.center().y() - checkSize / 2 + 1, checkSize, checkSize};
}

QSize TaskRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const QFontMetrics metrics(option.font);
    if (isHeading(index))
        return {option.rect.width(), metrics.height() + 26};
    return {option.rect.width(), std::max(metrics.height() + 20, 36)};
}

void TaskRowDelegate::paintHeading(QPainter *painter, const QStyleOptionViewItem &option,
                                   const QModelIndex &index) const
{
    // A heading is a disabled row so the keys skip it; it is drawn in the normal colours.
    const QPalette &palette = option.palette;
    const QColor text = palette.color(QPalette::Active, QPalette::Text);
    const QColor base = palette.color(QPalette::Active, QPalette::Base);
    QFont font = option.font;
    font.setPointSizeF(font.pointSizeF() * 0.9);
    font.setWeight(QFont::DemiBold);
    const QFontMetrics metrics(font);
    const QRect line(option.rect.left() + checkLeft, option.rect.bottom() - metrics.height() - 4,
                     option.rect.width() - 2 * checkLeft, metrics.height());
    const QString title = index.data().toString();
    painter->setFont(font);
    painter->setPen(Theme::blend(text, base, 0.35));
    painter->drawText(line, Qt::AlignLeft | Qt::AlignVCenter, title);
    painter->setPen(Theme::blend(text, base, 0.6));
    painter->drawText(line.adjusted(metrics.horizontalAdvance(title) + 8, 0, 0, 0),
                      Qt::AlignLeft | Qt::AlignVCenter,
                      QString::number(index.data(TaskListModel::CountRole).toInt()));
}

void TaskRowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                            const QModelIndex &index) const
{
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (isHeading(index)) {
        paintHeading(painter, option, index);
        painter->restore();
        return;
    }
    const QPalette &palette = option.palette;
    const QColor text = palette.color(QPalette::Text);
    const QColor base = palette.color(QPalette::Base);
    const QColor accent = palette.color(QPalette::Highlight);
    const QColor quiet = Theme::blend(text, base, 0.45);
    const QRect rect = option.rect;

    const bool selected = option.state & QStyle::State_Selected;
    const bool hovered = option.state & QStyle::State_MouseOver;
    if (selected || hovered) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(selected ? Theme::blend(base, accent, 0.2)
                                   : Theme::blend(base, text, 0.05));
        painter->drawRoundedRect(QRectF(rect).adjusted(2, 1, -2, -1), 7, 7);
    }

    // A round check: an outline while open, the accent with a tick once done.
    const bool done = index.data(Qt::CheckStateRole).toInt() == Qt::Checked;
    const QRectF check = QRectF(checkRect(rect)).adjusted(0.5, 0.5, -0.5, -0.5);
    if (done) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(accent);
        painter->drawEllipse(check);
        QPainterPath tick;
        tick.moveTo(check.left() + check.width() * 0.28, check.top() + check.height() * 0.52);
        tick.lineTo(check.left() + check.width() * 0.44, check.top() + check.height() * 0.68);
        tick.lineTo(check.left() + check.width() * 0.73, check.top() + check.height() * 0.36);
        painter->setPen(QPen(palette.color(QPalette::HighlightedText), 1.8, Qt::SolidLine,
                             Qt::RoundCap, Qt::RoundJoin));
        painter->setBrush(Qt::NoBrush);
        painter->drawPath(tick);
    } else {
        painter->setPen(QPen(Theme::blend(text, base, 0.55), 1.4));
        painter->setBrush(Qt::NoBrush);
        painter->drawEllipse(check);
    }

    const QFontMetrics metrics(option.font);
    int right = rect.right() - 14;
    if (const QString aside = index.data(TaskListModel::AsideRole).toString(); !aside.isEmpty()) {
        const bool overdue =
            index.data(TaskListModel::SectionRole).value<TaskListModel::Section>() ==
            TaskListModel::Section::overdue;
        QFont asideFont = option.font;
        if (overdue)
            asideFont.setWeight(QFont::DemiBold);
        const QFontMetrics asideMetrics(asideFont);
        const int width = asideMetrics.horizontalAdvance(aside);
        painter->setFont(asideFont);
        // The accent alone is too dim on a dark base; a share of the text colour reads in both.
        painter->setPen(overdue ? Theme::blend(accent, text, 0.3) : quiet);
        painter->drawText(QRect(right - width, rect.top(), width, rect.height()),
                          Qt::AlignRight | Qt::AlignVCenter, aside);
        right -= width + 16;
    }

    QFont titleFont = option.font;
    titleFont.setStrikeOut(done);
    painter->setFont(titleFont);
    painter->setPen(done ? quiet : text);
    const QRect title(titleLeft(rect), rect.top(), right - titleLeft(rect), rect.height());
    painter->drawText(title, Qt::AlignLeft | Qt::AlignVCenter,
                      metrics.elidedText(index.data().toString(), Qt::ElideRight, title.width()));
    painter->restore();
}

bool TaskRowDelegate::editorEvent(QEvent *event, QAbstractItemModel *,
                                  const QStyleOptionViewItem &option, const QModelIndex &index)
{
    if (isHeading(index))
        return false;
    const QUuid id = index.data(TaskListModel::IdRole).toUuid();
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
    case QEvent::MouseButtonRelease: {
        auto *mouse = static_cast<QMouseEvent *>(event);
        // A little more than the circle, so a click just beside it still counts.
        const QRect target = checkRect(option.rect).adjusted(-6, -6, 6, 6);
        if (mouse->button() != Qt::LeftButton || !target.contains(mouse->position().toPoint()))
            break;
        if (event->type() == QEvent::MouseButtonRelease)
            emit toggleRequested(id);
        return true;
    }
    case QEvent::KeyPress: {
        const int key = static_cast<QKeyEvent *>(event)->key();
        if (key == Qt::Key_Space || key == Qt::Key_Select) {
            emit toggleRequested(id);
            return true;
        }
        break;
    }
    default:
        break;
    }
    // The base class would tick through the model; here the screen does it.
    return false;
}

QWidget *TaskRowDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &,
                                       const QModelIndex &) const
{
    auto *editor = new TaskEditor(parent);
    // An editor already closing may still hear the keys move; it must not close its successor.
    auto *self = const_cast<TaskRowDelegate *>(this);
    connect(editor, &TaskEditor::focusLeft, self, [self, editor] {
        if (self->m_open == editor)
            self->commitOpenEditor();
    });
    m_open = editor;
    return editor;
}

void TaskRowDelegate::setEditorData(QWidget *editor, const QModelIndex &index) const
{
    auto *taskEditor = qobject_cast<TaskEditor *>(editor);
    if (!taskEditor || taskEditor->isFilled())
        return;
    const QVariant due = index.data(TaskListModel::DueRole);
    taskEditor->fill(index.data(Qt::EditRole).toString(),
                     due.isValid() ? std::optional(due.toDate()) : std::nullopt);
}

void TaskRowDelegate::setModelData(QWidget *editor, QAbstractItemModel *,
                                   const QModelIndex &index) const
{
    auto *taskEditor = qobject_cast<TaskEditor *>(editor);
    if (!taskEditor)
        return;
    // Words that are no date leave the day as it was.
    std::optional<QDate> due = taskEditor->due()->due();
    if (!taskEditor->due()->isReadable()) {
        const QVariant old = index.data(TaskListModel::DueRole);
        due = old.isValid() ? std::optional(old.toDate()) : std::nullopt;
    }
    // The model is the store's mirror; the screen writes the change and the list follows.
    emit const_cast<TaskRowDelegate *>(this)->editRequested(
        index.data(TaskListModel::IdRole).toUuid(), taskEditor->title()->text(), due);
}

void TaskRowDelegate::updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                                           const QModelIndex &) const
{
    const QRect row = option.rect;
    const int height = std::max(editor->sizeHint().height(), row.height() - 4);
    editor->setGeometry(titleLeft(row) - 4, row.center().y() - height / 2 + 1,
                        row.right() - 8 - (titleLeft(row) - 4), height);
}

void TaskRowDelegate::destroyEditor(QWidget *editor, const QModelIndex &index) const
{
    if (editor == m_open)
        m_open = nullptr;
    QStyledItemDelegate::destroyEditor(editor, index);
}

void TaskRowDelegate::commitOpenEditor()
{
    TaskEditor *editor = m_open;
    if (!editor)
        return;
    m_open = nullptr;
    emit commitData(editor);
    emit closeEditor(editor, QAbstractItemDelegate::NoHint);
}
