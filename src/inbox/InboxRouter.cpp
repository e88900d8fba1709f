#include "InboxRouter.h"

#include "core/Clock.h"
#include "core/Notices.h"
#include "core/SidebarItem.h"
#include "core/records/InboxItem.h"
#include "core/store/ModelContext.h"

#include <QDesktopServices>

#include <array>

using namespace Qt::StringLiterals;

namespace InboxRouter {

namespace {

std::function<void(const QUrl &)> &browser()
{
    static std::function<void(const QUrl &)> open = [](const QUrl &url) {
        QDesktopServices::openUrl(url);
    };
    return open;
}

struct TabRoute {
    const char16_t *prefix;
    SidebarItem item;
};

// Tested in this order; a route may carry anything after its tab word.
constexpr std::array tabRoutes{
    TabRoute{u"tab:goals", SidebarItem::goals},
    TabRoute{u"tab:recaps", SidebarItem::recaps},
    TabRoute{u"tab:reviews", SidebarItem::recaps},
    TabRoute{u"tab:journal", SidebarItem::journal},
    TabRoute{u"tab:people", SidebarItem::meetings},
    TabRoute{u"tab:meetings", SidebarItem::meetings},
    TabRoute{u"tab:library", SidebarItem::knowledge},
};

} // namespace

Decision decide(const QString &route)
{
    if (route == u"update:download"_s)
        return {Effect::downloadUpdate, {}, {}};
    for (const TabRoute &tab : tabRoutes) {
        if (route.startsWith(QStringView(tab.prefix)))
            return {Effect::openTab, SidebarItems::rawValue(tab.item), {}};
    }
    if (route.startsWith(u"url:"_s)) {
        const QString address = route.mid(4);
        const QUrl url(address, QUrl::StrictMode);
        // QUrl lowers the scheme's case; only a link that says "https" itself is opened.
        if (url.isValid() && address.startsWith(u"https:"_s) && url.scheme() == u"https"_s &&
            !url.host().isEmpty())
            return {Effect::openUrl, {}, url};
    }
    return {};
}

void route(const InboxItem &item)
{
    const Decision decision = decide(item.actionRoute.value_or(QString()));
    switch (decision.effect) {
    case Effect::openTab:
        NoticeCenter::shared().post(Notices::openTab, {{u"item"_s, decision.tab}});
        break;
    case Effect::openUrl:
        browser()(decision.url);
        break;
    case Effect::downloadUpdate:
        NoticeCenter::shared().post(Notices::downloadUpdate);
        break;
    case Effect::none:
        break;
    }
}

void activate(InboxItem &item, ModelContext &context)
{
    if (!item.readAt) {
        item.readAt = Clock::now();
        context.trySave();
    }
    route(item);
}

void setBrowser(std::function<void(const QUrl &)> open)
{
    browser() = std::move(open);
}

} // namespace InboxRouter
