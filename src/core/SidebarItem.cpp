#include "SidebarItem.h"

using namespace Qt::StringLiterals;

namespace SidebarItems {

QString rawValue(SidebarItem item)
{
    switch (item) {
    case SidebarItem::journal:
        return u"journal"_s;
    case SidebarItem::tasks:
        return u"tasks"_s;
    case SidebarItem::inbox:
        return u"inbox"_s;
    case SidebarItem::meetings:
        return u"meetings"_s;
    case SidebarItem::goals:
        return u"goals"_s;
    case SidebarItem::recaps:
        return u"recaps"_s;
    case SidebarItem::stories:
        return u"stories"_s;
    case SidebarItem::insights:
        return u"insights"_s;
    case SidebarItem::knowledge:
        return u"knowledge"_s;
    }
    return {};
}

std::optional<SidebarItem> fromRaw(const QString &raw)
{
    for (SidebarItem item : all) {
        if (rawValue(item) == raw)
            return item;
    }
    return std::nullopt;
}

QString title(SidebarItem item)
{
    switch (item) {
    case SidebarItem::journal:
        return u"Journal"_s;
    case SidebarItem::tasks:
        return u"Tasks"_s;
    case SidebarItem::inbox:
        return u"Inbox"_s;
    case SidebarItem::meetings:
        return u"People"_s;
    case SidebarItem::goals:
        return u"Goals"_s;
    case SidebarItem::recaps:
        return u"Recaps"_s;
    case SidebarItem::stories:
        return u"Stories"_s;
    case SidebarItem::insights:
        return u"Activity"_s;
    case SidebarItem::knowledge:
        return u"Library"_s;
    }
    return {};
}

} // namespace SidebarItems
