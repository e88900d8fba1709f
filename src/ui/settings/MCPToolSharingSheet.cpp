#include "MCPToolSharingSheet.h"

#include "SettingsUi.h"
#include "bridge/MCPToolGroup.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

struct GroupRow {
    MCPToolGroup::Group group;
    QString title;
    QString detail;
};

const QList<GroupRow> &groupRows()
{
    using MCPToolGroup::Group;
    static const QList<GroupRow> rows{
        {Group::journal, u"Journal and tasks"_s,
         u"Write and read entries, tasks, search, inbox."_s},
        {Group::people, u"People and meetings"_s, u"People you track, 1:1 notes, action items."_s},
        {Group::goals, u"Goals and reviews"_s, u"Goals, recaps, stories, stats."_s},
        {Group::library, u"Library and profile"_s, u"Documents and your profile."_s},
        {Group::setup, u"Setup"_s, u"Check configuration, connect Outlook, set an AI endpoint."_s},
    };
    return rows;
}

std::pair<qsizetype, qsizetype> counts(const Preferences &preferences)
{
    qsizetype all = 0;
    for (MCPToolGroup::Group group : MCPToolGroup::all)
        all += MCPToolGroup::toolNames(group).size();
    return {MCPToolGroup::enabledToolNames(preferences).size(), all};
}

} // namespace

QString MCPToolSharingSheet::sharedCountText(const Preferences &preferences)
{
    const auto [shared, all] = counts(preferences);
    return QString::number(shared) + u" of "_s + QString::number(all);
}

QString MCPToolSharingSheet::footerText(const Preferences &preferences)
{
    const auto [shared, all] = counts(preferences);
    return u"Sharing "_s + QString::number(shared) + u" of "_s + QString::number(all) +
           u" tools. Everything stays in Tovren either way. Reconnect the assistant after "
           u"changing this."_s;
}

MCPToolSharingSheet::MCPToolSharingSheet(Preferences &preferences, QWidget *parent)
    : QDialog(parent)
    , m_preferences(preferences)
{
    setObjectName(u"toolSharingSheet"_s);
    setWindowTitle(u"Tools Shared"_s);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(24, 20, 24, 16);
    layout->setSpacing(12);
    auto *introduction = new QLabel(
        u"Every tool costs the assistant a little room to think, shared with every other app "
        u"you've connected. Share only what you use and that room comes back."_s,
        this);
    introduction->setWordWrap(true);
    layout->addWidget(introduction);

    auto *grid = new QGridLayout;
    grid->setHorizontalSpacing(16);
    grid->setVerticalSpacing(4);
    int row = 0;
    for (const GroupRow &group : groupRows()) {
        auto *title = new QLabel(group.title, this);
        QFont bold = title->font();
        bold.setBold(true);
        title->setFont(bold);
        grid->addWidget(title, row, 0);
        if (group.group == MCPToolGroup::Group::journal) {
            grid->addWidget(SettingsUi::hint(u"always on"_s, this), row, 1, Qt::AlignRight);
        } else {
            auto *toggle = new QCheckBox(this);
            toggle->setObjectName(u"share-"_s + MCPToolGroup::id(group.group));
            toggle->setAccessibleName(group.title);
            toggle->setChecked(MCPToolGroup::isEnabled(group.group, m_preferences));
            grid->addWidget(toggle, row, 1, Qt::AlignRight);
            const MCPToolGroup::Group which = group.group;
            connect(toggle, &QCheckBox::toggled, this, [this, which](bool on) {
                MCPToolGroup::setEnabled(which, on, m_preferences);
                m_footer->setText(footerText(m_preferences));
                emit sharingChanged();
            });
        }
        grid->addWidget(SettingsUi::hint(group.detail, this), row + 1, 0, 1, 2);
        row += 2;
    }
    grid->setColumnStretch(0, 1);
    layout->addLayout(grid);

    m_footer = SettingsUi::hint(footerText(m_preferences), this);
    m_footer->setObjectName(u"sharingFooter"_s);
    layout->addWidget(m_footer);

    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(u"Done"_s, QDialogButtonBox::AcceptRole);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    layout->addWidget(buttons);
    setMinimumWidth(460);
}
