#include "DataPane.h"

#include "SettingsUi.h"
#include "ui/Dialogs.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

DataPane::DataPane(Erase eraseAllData, QWidget *parent)
    : QWidget(parent)
    , m_eraseAllData(std::move(eraseAllData))
{
    setObjectName(u"dataPane"_s);
    QVBoxLayout *column = SettingsUi::paneColumn(this);
    column->addWidget(SettingsUi::sectionHeading(u"Erase"_s, this));
    auto *row = new QHBoxLayout;
    m_erase = new QPushButton(u"Erase All Data…"_s, this);
    m_erase->setObjectName(u"eraseAllData"_s);
    row->addWidget(m_erase);
    row->addStretch();
    column->addLayout(row);
    column->addWidget(SettingsUi::hint(footer, this));
    m_done = SettingsUi::hint(QString(), this);
    m_done->setObjectName(u"eraseDone"_s);
    m_done->hide();
    column->addWidget(m_done);
    column->addStretch();
    connect(m_erase, &QPushButton::clicked, this, &DataPane::eraseWithConfirmation);
}

void DataPane::eraseWithConfirmation()
{
    if (!Dialogs::confirm(this, {confirmTitle, confirmText, u"Erase"_s, u"Cancel"_s, true}))
        return;
    m_erase->setEnabled(false);
    m_done->setText(u"Erasing…"_s);
    m_done->show();
    QCoro::connect(m_eraseAllData(), this, [this](bool keysRemoved) {
        m_erase->setEnabled(true);
        m_done->setText(keysRemoved ? doneText : keysLeftText);
        emit finished();
    });
}
