#include "ai/AIAvailabilityNotifier.h"

#include "ai/OnDeviceModel.h"
#include "core/PreferenceKeys.h"
#include "inbox/InboxService.h"

#include <QPointer>

using namespace Qt::StringLiterals;

namespace AIAvailabilityNotifier {

static QString noticeBody(AppleModelStatus status)
{
    if (status == AppleModelStatus::notEnabled)
        return u"No on-device model is running on this computer, so Tovren's AI features, "
               u"including recaps, STAR stories and suggestions, are paused. Everything else "
               u"works normally. Start a model server such as Ollama, or switch to another "
               u"provider in Settings → Connections."_s;
    return u"The on-device model isn't available, so Tovren's AI features are paused. "
           u"Everything else works normally. Switch to another provider in Settings → "
           u"Connections."_s;
}

QCoro::Task<> runIfNeeded(ModelContext &context, Preferences &preferences,
                          QNetworkAccessManager &network, QUrl onDeviceServer,
                          const QObject *lifetime)
{
    const QPointer<const QObject> alive(lifetime);
    const auto provider = preferences.textValue(Prefs::aiProvider.name);
    if (provider && *provider != u"appleFoundation"_s)
        co_return;
    const OnDeviceModel::State state = co_await OnDeviceModel::current(network, onDeviceServer);
    // Shutting down: an answer cut short says nothing about the model.
    if (lifetime && !alive)
        co_return;
    if (state.status == AppleModelStatus::available || state.status == AppleModelStatus::notReady)
        co_return;

    InboxService::post(context, InboxItemKind::system, u"AI features are paused"_s,
                       noticeBody(state.status), payload, std::nullopt, std::nullopt,
                       repeatAfterSeconds);
}

} // namespace AIAvailabilityNotifier
