#include "SettingsWindow.h"

#include "ui/Theme.h"

#include <QHBoxLayout>
#include <QListWidget>
#include <QStackedWidget>

using namespace Qt::StringLiterals;

SettingsWindow::SettingsWindow(QWidget *parent)
    : QWidget(parent, Qt::Window)
{
    setObjectName(u"settings"_s);
    setWindowTitle(u"Tovren Settings"_s);
    resize(760, 600);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    m_list = new QListWidget(this);
    m_list->setObjectName(u"settingsPanes"_s);
    m_list->setFixedWidth(170);
    Theme::styleSidebar(m_list);
    m_stack = new QStackedWidget(this);
    layout->addWidget(m_list);
    layout->addWidget(m_stack, 1);
    connect(m_list, &QListWidget::currentRowChanged, m_stack, &QStackedWidget::setCurrentIndex);
}

void SettingsWindow::addPane(const QString &title, QWidget *pane)
{
    pane->setParent(m_stack);
    m_stack->addWidget(pane);
    new QListWidgetItem(title, m_list);
    if (m_list->currentRow() < 0)
        m_list->setCurrentRow(0);
}

bool SettingsWindow::showPane(const QString &title)
{
    const auto found = m_list->findItems(title, Qt::MatchExactly);
    if (found.isEmpty())
        return false;
    m_list->setCurrentItem(found.first());
    return true;
}

QWidget *SettingsWindow::pane(const QString &title) const
{
    const auto found = m_list->findItems(title, Qt::MatchExactly);
    return found.isEmpty() ? nullptr : m_stack->widget(m_list->row(found.first()));
}
