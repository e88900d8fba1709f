#include "ai/TovrenAI.h"

#include "ai/AIClientError.h"
#include "ai/AIContext.h"
#include "ai/AIKeyStore.h"
#include "ai/HTTPAIClient.h"
#include "ai/OnDeviceModel.h"
#include "core/PreferenceKeys.h"

using namespace Qt::StringLiterals;

namespace TovrenAI {

static QUrl withPath(QUrl url, const QString &path)
{
    QString base = url.path();
    while (base.endsWith(u'/'))
        base.chop(1);
    url.setPath(base + path);
    return url;
}

QCoro::Task<std::unique_ptr<AIClient>> current(const AIContext &context)
{
    // Copied before the first suspension: the caller's context may be a temporary.
    Preferences &preferences = context.preferences;
    AIKeyStore &keys = context.keys;
    QNetworkAccessManager &network = context.network;
    const ProviderHosts hosts = context.hosts;
    const QUrl onDevice = context.onDeviceServer;

    const AIProvider provider = AIProviders::stored(preferences);
    const QString model = AIProviders::model(preferences, provider);
    if (provider == AIProvider::appleFoundation)
        co_return std::make_unique<AppleFoundationClient>(network, onDevice, model);

    std::optional<QUrl> customBase;
    if (provider == AIProvider::custom) {
        customBase = AIProviders::normalizedBase(
            preferences.value(Prefs::aiBaseUrlCustom).value_or(QString()));
        // Never a quiet switch to the on-device model: the user chose an endpoint of their own
        // and would not learn that another model wrote the text.
        if (!customBase)
            throw AIClientError::missingEndpoint();
    }

    const QString key = (co_await keys.read(AIProviders::keyAccount(provider))).value_or(QString());
    switch (provider) {
    case AIProvider::claude:
        co_return std::make_unique<HTTPAIClient>(HTTPAIClient::anthropic(
            network, withPath(hosts.anthropic, u"/v1/messages"_s), model, key, false));
    case AIProvider::openai:
        co_return std::make_unique<HTTPAIClient>(HTTPAIClient::openAI(
            network, withPath(hosts.openai, u"/v1/chat/completions"_s), model, key, false));
    case AIProvider::gemini:
        co_return std::make_unique<HTTPAIClient>(
            HTTPAIClient::gemini(network, hosts.gemini, model, key));
    case AIProvider::custom:
        if (AIProviders::detectedWireFormat(preferences) == AIWireFormat::anthropic)
            co_return std::make_unique<HTTPAIClient>(HTTPAIClient::anthropic(
                network, withPath(*customBase, u"/messages"_s), model, key, true));
        co_return std::make_unique<HTTPAIClient>(HTTPAIClient::openAI(
            network, withPath(*customBase, u"/chat/completions"_s), model, key, true));
    case AIProvider::appleFoundation:
        break;
    }
    co_return std::make_unique<AppleFoundationClient>(network, onDevice, model);
}

} // namespace TovrenAI
