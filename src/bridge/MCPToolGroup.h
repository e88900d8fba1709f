#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

#include <array>
#include <optional>

class Preferences;

// The groups an assistant's tools come in, which the user switches on and off in Settings.
// `journal` is always on; the others have a preference "mcpToolGroup-" + id.
namespace MCPToolGroup {

enum class Group { journal, people, goals, library, setup };

inline constexpr std::array<Group, 5> all{Group::journal, Group::people, Group::goals,
                                          Group::library, Group::setup};

QString id(Group group);
std::optional<Group> fromId(const QString &id);

// Every tool name an assistant can ever see, in the order of the published list.
const QStringList &allToolNames();
QStringList toolNames(Group group);
std::optional<Group> groupOf(const QString &toolName);

// A stored bool decides; with none (or a value of another type), people and setup are on.
bool isEnabled(Group group, const Preferences &preferences);
// Does nothing for journal.
void setEnabled(Group group, bool enabled, Preferences &preferences);
QSet<QString> enabledToolNames(const Preferences &preferences);

// Runs once per install, before the store opens: someone who already had the bridge on keeps
// every tool they had before the groups existed; a new install gets each group's default.
void applyDefaultsOnce(Preferences &preferences);

} // namespace MCPToolGroup
