#pragma once

#include <QString>

#include <array>
#include <optional>

// The tabs of the main window, in the order the sidebar lists them. Anything may ask for one
// through the tovren.openTab notice, with the raw value under "item".
enum class SidebarItem {
    journal,
    tasks,
    inbox,
    meetings,
    goals,
    recaps,
    stories,
    insights,
    knowledge
};

namespace SidebarItems {

inline constexpr std::array<SidebarItem, 9> all{
    SidebarItem::journal,  SidebarItem::tasks,    SidebarItem::inbox,
    SidebarItem::meetings, SidebarItem::goals,    SidebarItem::recaps,
    SidebarItem::stories,  SidebarItem::insights, SidebarItem::knowledge};

QString rawValue(SidebarItem item);
std::optional<SidebarItem> fromRaw(const QString &raw);
// The word the sidebar and the palette show.
QString title(SidebarItem item);

} // namespace SidebarItems
