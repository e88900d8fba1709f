#include "MCPConnectorSection.h"

#include "AIConnectorPicker.h"
#include "MCPToolSharingSheet.h"
#include "SettingsUi.h"
#include "bridge/MCPServer.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "ui/Dialogs.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

MCPConnectorSection::MCPConnectorSection(Preferences &preferences, MCPServer &server,
                                         const AIConnector::Bridge &bridge,
                                         OpenAtLoginToggle::LoginItem loginItem, QWidget *parent)
    : QWidget(parent)
    , m_preferences(preferences)
    , m_server(server)
{
    setObjectName(u"connectorSection"_s);
    QVBoxLayout *column = SettingsUi::paneColumn(this);
    column->addWidget(SettingsUi::sectionHeading(u"Connect an App"_s, this));

    m_switch = new QCheckBox(u"Let your assistant use Tovren"_s, this);
    m_switch->setObjectName(u"assistantSwitch"_s);
    column->addWidget(m_switch);
    column->addWidget(SettingsUi::hint(
        u"ChatGPT, Claude and others on this computer can read and write your journal"_s, this));
    m_under = SettingsUi::hint(QString(), this);
    m_under->setObjectName(u"assistantSwitchNote"_s);
    column->addWidget(m_under);

    m_whileOn = new QWidget(this);
    auto *onColumn = new QVBoxLayout(m_whileOn);
    onColumn->setContentsMargins(0, 8, 0, 0);
    onColumn->setSpacing(10);

    auto *statusRow = new QHBoxLayout;
    m_status = new QLabel(m_whileOn);
    m_status->setObjectName(u"listenerStatus"_s);
    m_status->setTextFormat(Qt::RichText);
    statusRow->addWidget(m_status, 1);
    m_disconnect = new QPushButton(u"Disconnect"_s, m_whileOn);
    m_disconnect->setObjectName(u"disconnect"_s);
    statusRow->addWidget(m_disconnect);
    onColumn->addLayout(statusRow);

    auto *toolsRow = new QHBoxLayout;
    auto *toolsText = new QVBoxLayout;
    toolsText->setSpacing(0);
    toolsText->addWidget(new QLabel(u"Tools shared with assistants"_s, m_whileOn));
    m_sharedCount = SettingsUi::hint(QString(), m_whileOn);
    m_sharedCount->setObjectName(u"sharedCount"_s);
    toolsText->addWidget(m_sharedCount);
    toolsRow->addLayout(toolsText, 1);
    auto *choose = new QPushButton(tr("Choose…"), m_whileOn);
    choose->setObjectName(u"chooseTools"_s);
    toolsRow->addWidget(choose, 0, Qt::AlignVCenter);
    onColumn->addLayout(toolsRow);

    onColumn->addWidget(new AIConnectorPicker(bridge, false, m_whileOn));
    onColumn->addWidget(new OpenAtLoginToggle(std::move(loginItem), m_whileOn));
    column->addWidget(m_whileOn);
    column->addStretch();

    connect(m_switch, &QCheckBox::toggled, this, &MCPConnectorSection::onSwitchToggled);
    connect(m_disconnect, &QPushButton::clicked, &m_server, &MCPServer::disconnectAll);
    connect(choose, &QPushButton::clicked, this, &MCPConnectorSection::openSharingSheet);
    connect(&m_server, &MCPServer::runningChanged, this, &MCPConnectorSection::refresh);
    connect(&m_server, &MCPServer::activeSessionCountChanged, this, &MCPConnectorSection::refresh);
    connect(&m_server, &MCPServer::lastErrorChanged, this, &MCPConnectorSection::refresh);
    connect(&m_preferences, &Preferences::changed, this, [this](const QString &key) {
        if (key == Prefs::mcpServerEnabled.name || key.startsWith(u"mcpToolGroup-"_s))
            refresh();
    });
    refresh();
}

void MCPConnectorSection::onSwitchToggled(bool on)
{
    if (on) {
        // Nothing opens until the user has read what it means.
        const bool enable =
            Dialogs::confirm(this, {consentTitle, consentText, u"Enable"_s, u"Cancel"_s, false});
        if (!enable) {
            refresh();
            return;
        }
    }
    m_preferences.set(Prefs::mcpServerEnabled, on);
    NoticeCenter::shared().post(Notices::mcpToggle);
    refresh();
}

void MCPConnectorSection::openSharingSheet()
{
    auto *sheet = new MCPToolSharingSheet(m_preferences, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &MCPToolSharingSheet::sharingChanged, this, &MCPConnectorSection::refresh);
    sheet->open();
}

void MCPConnectorSection::refresh()
{
    const bool on = m_preferences.value(Prefs::mcpServerEnabled);
    {
        const QSignalBlocker blocker(m_switch);
        m_switch->setChecked(on);
    }
    m_under->setText(on ? u"Tovren listens only on this computer. Whatever your assistant reads is "
                          u"then handled under that assistant's own terms."_s
                        : u"Off until you turn it on. Tovren only listens on this computer."_s);
    m_whileOn->setVisible(on);
    // Green while listening, hollow otherwise: the state reads at a glance.
    const QString mark =
        m_server.isRunning() ? u"<span style=\"color:#2e9e5b\">\u25CF</span> "_s : u"\u25CB "_s;
    // A listener that couldn't start says why instead of "Starting…" for ever.
    const bool failed = !m_server.isRunning() && m_server.lastError().has_value();
    m_status->setText(mark +
                      (failed ? *m_server.lastError() : m_server.statusLine()).toHtmlEscaped());
    m_disconnect->setVisible(m_server.activeSessionCount() >= 1);
    m_sharedCount->setText(MCPToolSharingSheet::sharedCountText(m_preferences));
}
