#include "MCPToolGroup.h"

#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace MCPToolGroup {

namespace {

// The wire contract: every tool, its group and its place in tools/list. Tools register their
// handlers separately; this table is what the settings count and the catalogue order follow.
const std::array<std::pair<const char16_t *, Group>, 36> toolTable{{
    {u"get_entries", Group::journal},
    {u"get_open_tasks", Group::journal},
    {u"search", Group::journal},
    {u"add_journal_entry", Group::journal},
    {u"add_task", Group::journal},
    {u"complete_task", Group::journal},
    {u"log_meeting", Group::people},
    {u"get_profile", Group::library},
    {u"get_tags", Group::journal},
    {u"get_people", Group::people},
    {u"get_person", Group::people},
    {u"add_person", Group::people},
    {u"get_meetings", Group::people},
    {u"get_action_items", Group::people},
    {u"add_action_item", Group::people},
    {u"complete_action_item", Group::people},
    {u"get_goals", Group::goals},
    {u"add_goal", Group::goals},
    {u"update_goal_status", Group::goals},
    {u"get_briefs", Group::goals},
    {u"get_brief", Group::goals},
    {u"get_documents", Group::library},
    {u"get_document", Group::library},
    {u"add_document", Group::library},
    {u"get_stats", Group::goals},
    {u"save_brief", Group::goals},
    {u"save_story", Group::goals},
    {u"get_stories", Group::goals},
    {u"set_goal_coaching", Group::goals},
    {u"get_setup_status", Group::setup},
    {u"request_ai_endpoint", Group::setup},
    {u"connect_outlook_calendar", Group::setup},
    {u"get_inbox", Group::journal},
    {u"mark_inbox_read", Group::journal},
    {u"get_journal_template", Group::journal},
    {u"update_journal_entry", Group::journal},
}};

} // namespace

QString id(Group group)
{
    switch (group) {
    case Group::journal:
        return u"journal"_s;
    case Group::people:
        return u"people"_s;
    case Group::goals:
        return u"goals"_s;
    case Group::library:
        return u"library"_s;
    case Group::setup:
        return u"setup"_s;
    }
    return {};
}

std::optional<Group> fromId(const QString &text)
{
    for (Group group : all) {
        if (id(group) == text)
            return group;
    }
    return std::nullopt;
}

const QStringList &allToolNames()
{
    static const QStringList names = [] {
        QStringList list;
        for (const auto &[name, group] : toolTable)
            list.append(QString::fromUtf16(name));
        return list;
    }();
    return names;
}

QStringList toolNames(Group group)
{
    QStringList names;
    for (const auto &[name, owner] : toolTable) {
        if (owner == group)
            names.append(QString::fromUtf16(name));
    }
    return names;
}

std::optional<Group> groupOf(const QString &toolName)
{
    for (const auto &[name, group] : toolTable) {
        if (toolName == QStringView(name))
            return group;
    }
    return std::nullopt;
}

bool isEnabled(Group group, const Preferences &preferences)
{
    if (group == Group::journal)
        return true;
    if (const std::optional<bool> stored = preferences.value(Prefs::mcpToolGroup(id(group))))
        return *stored;
    return group == Group::people || group == Group::setup;
}

void setEnabled(Group group, bool enabled, Preferences &preferences)
{
    if (group == Group::journal)
        return;
    preferences.set(Prefs::mcpToolGroup(id(group)), enabled);
}

QSet<QString> enabledToolNames(const Preferences &preferences)
{
    QSet<QString> names;
    for (Group group : all) {
        if (isEnabled(group, preferences)) {
            for (const QString &name : toolNames(group))
                names.insert(name);
        }
    }
    return names;
}

void applyDefaultsOnce(Preferences &preferences)
{
    if (preferences.value(Prefs::mcpToolGroupDefaultsApplied))
        return;
    preferences.set(Prefs::mcpToolGroupDefaultsApplied, true);
    if (!preferences.value(Prefs::mcpServerEnabled))
        return;
    for (Group group : all)
        setEnabled(group, true, preferences);
}

} // namespace MCPToolGroup
