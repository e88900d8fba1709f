#pragma once

#include <QString>
#include <QUrl>

#include <functional>

class InboxItem;
class ModelContext;

// An inbox item's action route is the only link from the item to the rest of Tovren: a tab to
// open, a page on the web, or the announced update's download.
namespace InboxRouter {

enum class Effect { none, openTab, openUrl, downloadUpdate };
struct Decision {
    Effect effect = Effect::none;
    QString tab; // the sidebar item's raw value, for openTab
    QUrl url;    // for openUrl: always https
};
Decision decide(const QString &route);

// Performs the route: a tab through the tovren.openTab notice, a web page in the browser.
void route(const InboxItem &item);
// The row's action button: marks the item read (saving at once), then routes it.
void activate(InboxItem &item, ModelContext &context);

// Where web pages open; the desktop's browser unless a test puts something else here.
void setBrowser(std::function<void(const QUrl &)> open);

} // namespace InboxRouter
