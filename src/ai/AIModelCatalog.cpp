#include "ai/AIModelCatalog.h"

#include "ai/AIClientError.h"
#include "ai/AIContext.h"
#include "ai/HttpExchange.h"
#include "core/Clock.h"
#include "core/PreferenceKeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace AIModelCatalog {

namespace {

QUrl withPath(QUrl url, const QString &path, const QString &query = QString())
{
    QString base = url.path();
    while (base.endsWith(u'/'))
        base.chop(1);
    url.setPath(base + path);
    if (!query.isEmpty())
        url.setQuery(query);
    return url;
}

QStringList namesIn(const QByteArray &body, const QString &listField, const QString &nameField)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    const QJsonValue list = document.object().value(listField);
    if (error.error != QJsonParseError::NoError || !list.isArray())
        throw AIClientError::badResponse(
            HttpExchange::decodeUtf8(body).value_or(QString()).left(200));
    QStringList names;
    for (const QJsonValue &entry : list.toArray()) {
        const QJsonValue name = entry[nameField];
        if (name.isString() && !name.toString().isEmpty())
            names.append(name.toString());
    }
    return names;
}

} // namespace

QCoro::Task<QStringList> fetch(const AIContext &context, AIProvider provider, QString apiKey,
                               std::optional<QUrl> customBase, std::chrono::milliseconds timeout)
{
    QNetworkAccessManager &network = context.network;
    QNetworkRequest request;
    QString listField = u"data"_s;
    QString nameField = u"id"_s;
    switch (provider) {
    case AIProvider::appleFoundation:
        co_return QStringList();
    case AIProvider::claude:
        request.setUrl(withPath(context.hosts.anthropic, u"/v1/models"_s, u"limit=100"_s));
        request.setRawHeader("x-api-key", apiKey.toUtf8());
        request.setRawHeader("anthropic-version", "2023-06-01");
        break;
    case AIProvider::openai:
        request.setUrl(withPath(context.hosts.openai, u"/v1/models"_s));
        request.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());
        break;
    case AIProvider::gemini:
        request.setUrl(withPath(context.hosts.gemini, u"/v1beta/models"_s,
                                u"key="_s + QString::fromLatin1(QUrl::toPercentEncoding(apiKey)) +
                                    u"&pageSize=200"_s));
        listField = u"models"_s;
        nameField = u"name"_s;
        break;
    case AIProvider::custom: {
        const auto base =
            customBase ? customBase
                       : AIProviders::normalizedBase(
                             context.preferences.value(Prefs::aiBaseUrlCustom).value_or(QString()));
        if (!base)
            throw AIClientError::missingEndpoint();
        request.setUrl(withPath(*base, u"/models"_s));
        if (!apiKey.isEmpty()) {
            if (AIProviders::detectedWireFormat(context.preferences) == AIWireFormat::anthropic) {
                request.setRawHeader("x-api-key", apiKey.toUtf8());
                request.setRawHeader("anthropic-version", "2023-06-01");
            } else {
                request.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());
            }
        }
        break;
    }
    }

    const HttpExchange::Result result =
        co_await HttpExchange::send(network, request, false, {}, timeout);
    if (result.timedOut)
        throw AIClientError::timedOut();
    if (!result.status)
        throw AIClientError::networkFailure(
            HttpExchange::withoutSecret(result.transportError.value_or(QString()), apiKey));
    if (*result.status == 401 || *result.status == 403)
        throw AIClientError::invalidAPIKey();
    if (!result.isSuccess())
        throw AIClientError::providerError(
            *result.status,
            HttpExchange::withoutSecret(HttpExchange::extractErrorMessage(result.body), apiKey));

    QStringList names = namesIn(result.body, listField, nameField);
    if (provider == AIProvider::gemini) {
        for (QString &name : names) {
            if (name.startsWith(u"models/"_s))
                name.remove(0, 7);
        }
    }
    names.sort();
    co_return names;
}

QStringList cached(const Preferences &preferences, AIProvider provider)
{
    return preferences.value(Prefs::aiModelsCache(AIProviders::rawValue(provider)))
        .value_or(QStringList());
}

bool isStale(const Preferences &preferences, AIProvider provider, const QDateTime &now)
{
    if (cached(preferences, provider).isEmpty())
        return true;
    const auto fetchedAt =
        preferences.value(Prefs::aiModelsFetchedAt(AIProviders::rawValue(provider)));
    if (!fetchedAt)
        return true;
    return double(now.toMSecsSinceEpoch()) / 1000.0 - *fetchedAt > double(refreshAfterSeconds);
}

bool canLoadModels(const Preferences &preferences, AIProvider provider, const QString &apiKey)
{
    switch (provider) {
    case AIProvider::appleFoundation:
        return false;
    case AIProvider::custom:
        return AIProviders::normalizedBase(
                   preferences.value(Prefs::aiBaseUrlCustom).value_or(QString()))
            .has_value();
    default:
        return !apiKey.trimmed().isEmpty();
    }
}

QCoro::Task<bool> refresh(const AIContext &context, AIProvider provider, QString apiKey,
                          std::optional<QUrl> customBase)
{
    Preferences &preferences = context.preferences;
    QStringList names;
    try {
        names = co_await fetch(context, provider, apiKey, customBase);
    } catch (const AIClientError &) {
        co_return false;
    }
    const QString raw = AIProviders::rawValue(provider);
    preferences.set(Prefs::aiModelsCache(raw), names);
    preferences.set(Prefs::aiModelsFetchedAt(raw),
                    double(Clock::now().toMSecsSinceEpoch()) / 1000.0);
    co_return true;
}

} // namespace AIModelCatalog
