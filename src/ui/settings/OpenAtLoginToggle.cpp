#include "OpenAtLoginToggle.h"

#include "SettingsUi.h"

#include <QCheckBox>
#include <QLabel>
#include <QSignalBlocker>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

OpenAtLoginToggle::OpenAtLoginToggle(LoginItem loginItem, QWidget *parent)
    : QWidget(parent)
    , m_loginItem(std::move(loginItem))
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    m_toggle = new QCheckBox(u"Open at login"_s, this);
    m_toggle->setObjectName(u"openAtLogin"_s);
    layout->addWidget(m_toggle);
    layout->addWidget(SettingsUi::hint(u"Your assistant can only reach Tovren while it's running. "
                                       u"This starts it in the background when you log in."_s,
                                       this));
    m_problem = SettingsUi::hint(QString(), this);
    m_problem->setObjectName(u"openAtLoginProblem"_s);
    m_problem->hide();
    layout->addWidget(m_problem);

    connect(m_toggle, &QCheckBox::toggled, this, [this](bool on) {
        const std::optional<QString> problem = m_loginItem.setEnabled(on);
        m_problem->setText(problem.value_or(QString()));
        m_problem->setVisible(problem.has_value());
        // What is on disk decides what the switch shows.
        refresh();
    });
    refresh();
}

void OpenAtLoginToggle::refresh()
{
    const QSignalBlocker blocker(m_toggle);
    m_toggle->setChecked(m_loginItem.isEnabled());
}
