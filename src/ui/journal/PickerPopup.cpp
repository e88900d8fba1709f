#include "PickerPopup.h"

#include <QListWidget>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

PickerPopup::PickerPopup(QWidget *parent)
    : QFrame(parent)
    , m_view(new QListWidget(this))
{
    setObjectName(u"pickerPopup"_s);
    setStyleSheet(u"#pickerPopup { border: 1px solid palette(mid); border-radius: 6px;"
                  u" background: palette(base); }"
                  u" QListWidget { background: palette(base); }"
                  u" QListWidget::item { padding: 4px 10px; border-radius: 4px;"
                  u" color: palette(text); }"
                  u" QListWidget::item:selected { background: palette(highlight);"
                  u" color: palette(highlighted-text); }"_s);
    setFocusPolicy(Qt::NoFocus);
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::Base);
    m_view->setFocusPolicy(Qt::NoFocus);
    m_view->setFrameShape(QFrame::NoFrame);
    m_view->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_view->setUniformItemSizes(true);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    layout->addWidget(m_view);
    connect(m_view, &QListWidget::itemClicked, this,
            [this](QListWidgetItem *item) { emit chosen(m_view->row(item)); });
    hide();
}

void PickerPopup::open(const QStringList &rows, const QRect &anchor)
{
    m_list.setCount(int(rows.size()));
    if (!m_list.isOpen()) {
        close();
        return;
    }
    if (rows != m_rows) {
        m_rows = rows;
        m_view->clear();
        m_view->addItems(rows);
    }
    const int rowHeight = m_view->sizeHintForRow(0);
    const int visible = std::min(int(rows.size()), 10);
    const int width = std::max(220, m_view->sizeHintForColumn(0) + 32);
    const int height = rowHeight * visible + 10;
    QPoint at = anchor.bottomLeft() + QPoint(0, 4);
    if (parentWidget() && at.y() + height > parentWidget()->height())
        at.setY(std::max(0, anchor.top() - height - 4));
    if (parentWidget())
        at.setX(std::clamp(at.x(), 0, std::max(0, parentWidget()->width() - width)));
    setGeometry(QRect(at, QSize(std::min(width, 360), height)));
    showSelection();
    show();
    raise();
}

void PickerPopup::close()
{
    m_list.close();
    m_rows.clear();
    m_view->clear();
    hide();
}

CompletionList::Outcome PickerPopup::handleKey(int key)
{
    if (!isOpen())
        return CompletionList::Outcome::ignored;
    CompletionList::Key mapped = CompletionList::Key::other;
    switch (key) {
    case Qt::Key_Tab:
        mapped = CompletionList::Key::tab;
        break;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        mapped = CompletionList::Key::enter;
        break;
    case Qt::Key_Escape:
        mapped = CompletionList::Key::escape;
        break;
    case Qt::Key_Up:
        mapped = CompletionList::Key::up;
        break;
    case Qt::Key_Down:
        mapped = CompletionList::Key::down;
        break;
    default:
        break;
    }
    const int row = m_list.selected();
    const CompletionList::Outcome outcome = m_list.handleKey(mapped);
    switch (outcome) {
    case CompletionList::Outcome::moved:
        showSelection();
        break;
    case CompletionList::Outcome::chosen:
        close();
        emit chosen(row);
        break;
    case CompletionList::Outcome::closed:
        close();
        break;
    case CompletionList::Outcome::ignored:
        break;
    }
    return outcome;
}

void PickerPopup::showSelection()
{
    m_view->setCurrentRow(m_list.selected());
}
