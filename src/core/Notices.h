#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

// In-process notices: one part of Tovren says something happened, any other part may listen.
// Names are "tovren." plus a topic.
namespace Notices {

inline constexpr auto dataErased = "tovren.data.erased";
inline constexpr auto mcpToggle = "tovren.mcpToggle";
inline constexpr auto startCoachTour = "tovren.startCoachTour";
inline constexpr auto showPrivacy = "tovren.showPrivacy";
inline constexpr auto shareTovren = "tovren.shareTovren";
inline constexpr auto showShortcuts = "tovren.showShortcuts";
inline constexpr auto openTab = "tovren.openTab";
inline constexpr auto newTask = "tovren.newTask";
// The announced update's download, asked for from an inbox item.
inline constexpr auto downloadUpdate = "tovren.update.download";
inline constexpr auto journalReplaced = "tovren.journal.replaced";

} // namespace Notices

class NoticeCenter : public QObject {
    Q_OBJECT
public:
    static NoticeCenter &shared();

    void post(const QString &name, const QVariantMap &info = {});
    void post(const char *name, const QVariantMap &info = {})
    {
        post(QString::fromLatin1(name), info);
    }

signals:
    void posted(const QString &name, const QVariantMap &info);
};
