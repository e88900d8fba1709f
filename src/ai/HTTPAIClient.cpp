#include "ai/HTTPAIClient.h"

#include "ai/AIClientError.h"
#include "ai/HttpExchange.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

bool hasText(const std::optional<QString> &system)
{
    return system && !system->isEmpty();
}

QByteArray compact(const QJsonObject &object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

// A reply's JSON object, or badResponse with the start of the body.
QJsonValue parsedBody(const QByteArray &body)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(body, &error);
    if (error.error != QJsonParseError::NoError)
        throw AIClientError::badResponse(
            HttpExchange::decodeUtf8(body).value_or(QString()).left(200));
    return document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
}

[[noreturn]] void missingPath(const QByteArray &body)
{
    throw AIClientError::badResponse(HttpExchange::decodeUtf8(body).value_or(QString()).left(200));
}

QString textAt(const QByteArray &body, const QJsonValue &leaf)
{
    if (!leaf.isString())
        missingPath(body);
    return leaf.toString();
}

} // namespace

namespace AIWireShapes {

QByteArray anthropicBody(const QString &model, const QString &prompt,
                         const std::optional<QString> &system, int maxTokens)
{
    QJsonObject body{
        {u"model"_s, model},
        {u"max_tokens"_s, maxTokens},
        {u"messages"_s, QJsonArray{QJsonObject{{u"role"_s, u"user"_s}, {u"content"_s, prompt}}}},
    };
    if (hasText(system))
        body.insert(u"system"_s, *system);
    return compact(body);
}

QByteArray openAIBody(const QString &model, const QString &prompt,
                      const std::optional<QString> &system, int maxTokens)
{
    QJsonArray messages;
    if (hasText(system))
        messages.append(QJsonObject{{u"role"_s, u"system"_s}, {u"content"_s, *system}});
    messages.append(QJsonObject{{u"role"_s, u"user"_s}, {u"content"_s, prompt}});
    return compact(
        QJsonObject{{u"model"_s, model}, {u"max_tokens"_s, maxTokens}, {u"messages"_s, messages}});
}

QByteArray geminiBody(const QString &prompt, const std::optional<QString> &system)
{
    QJsonObject body{
        {u"contents"_s,
         QJsonArray{QJsonObject{{u"parts"_s, QJsonArray{QJsonObject{{u"text"_s, prompt}}}}}}},
        {u"generationConfig"_s, QJsonObject{{u"maxOutputTokens"_s, HTTPAIClient::maxOutputTokens}}},
    };
    if (hasText(system))
        body.insert(u"systemInstruction"_s,
                    QJsonObject{{u"parts"_s, QJsonArray{QJsonObject{{u"text"_s, *system}}}}});
    return compact(body);
}

QString parseAnthropic(const QByteArray &body)
{
    const QJsonValue root = parsedBody(body);
    return textAt(body, root[u"content"_s][0][u"text"_s]);
}

QString parseOpenAI(const QByteArray &body)
{
    const QJsonValue root = parsedBody(body);
    return textAt(body, root[u"choices"_s][0][u"message"_s][u"content"_s]);
}

QString parseGemini(const QByteArray &body)
{
    const QJsonValue root = parsedBody(body);
    return textAt(body, root[u"candidates"_s][0][u"content"_s][u"parts"_s][0][u"text"_s]);
}

} // namespace AIWireShapes

HTTPAIClient::HTTPAIClient(QNetworkAccessManager &network, bool allowsEmptyKey, QUrl endpoint,
                           BuildRequest buildRequest, ParseResponse parseResponse, QString apiKey)
    : m_network(&network)
    , m_allowsEmptyKey(allowsEmptyKey)
    , m_endpoint(std::move(endpoint))
    , m_buildRequest(std::move(buildRequest))
    , m_parseResponse(std::move(parseResponse))
    , m_apiKey(std::move(apiKey))
{
}

HTTPAIClient HTTPAIClient::anthropic(QNetworkAccessManager &network, const QUrl &endpoint,
                                     const QString &model, const QString &apiKey,
                                     bool allowsEmptyKey)
{
    auto build = [endpoint, model](const QString &prompt, const std::optional<QString> &system,
                                   const QString &key) {
        QNetworkRequest request = HttpExchange::jsonRequest(endpoint);
        if (!key.isEmpty())
            request.setRawHeader("x-api-key", key.toUtf8());
        request.setRawHeader("anthropic-version", "2023-06-01");
        return Request{request,
                       AIWireShapes::anthropicBody(model, prompt, system, maxOutputTokens)};
    };
    return HTTPAIClient(network, allowsEmptyKey, endpoint, build, AIWireShapes::parseAnthropic,
                        apiKey);
}

HTTPAIClient HTTPAIClient::openAI(QNetworkAccessManager &network, const QUrl &endpoint,
                                  const QString &model, const QString &apiKey, bool allowsEmptyKey)
{
    auto build = [endpoint, model](const QString &prompt, const std::optional<QString> &system,
                                   const QString &key) {
        QNetworkRequest request = HttpExchange::jsonRequest(endpoint);
        if (!key.isEmpty())
            request.setRawHeader("Authorization", "Bearer " + key.toUtf8());
        return Request{request, AIWireShapes::openAIBody(model, prompt, system, maxOutputTokens)};
    };
    return HTTPAIClient(network, allowsEmptyKey, endpoint, build, AIWireShapes::parseOpenAI,
                        apiKey);
}

HTTPAIClient HTTPAIClient::gemini(QNetworkAccessManager &network, const QUrl &host,
                                  const QString &model, const QString &apiKey)
{
    QUrl endpoint = host;
    endpoint.setPath(u"/v1beta/models/"_s + model + u":generateContent"_s);
    auto build = [endpoint](const QString &prompt, const std::optional<QString> &system,
                            const QString &key) {
        // The key travels in the query only, never in a header.
        QUrl url = endpoint;
        url.setQuery(u"key="_s + QString::fromLatin1(QUrl::toPercentEncoding(key)));
        return Request{HttpExchange::jsonRequest(url), AIWireShapes::geminiBody(prompt, system)};
    };
    return HTTPAIClient(network, false, endpoint, build, AIWireShapes::parseGemini, apiKey);
}

QCoro::Task<QString> HTTPAIClient::respond(QString prompt, std::optional<QString> system)
{
    if (m_apiKey.isEmpty() && !m_allowsEmptyKey)
        throw AIClientError::missingAPIKey();

    Request request = m_buildRequest(prompt, system, m_apiKey);
    const HttpExchange::Result result =
        co_await HttpExchange::send(*m_network, request.request, true, request.body, m_timeout);

    if (result.timedOut)
        throw AIClientError::timedOut();
    if (!result.status)
        throw AIClientError::networkFailure(
            HttpExchange::withoutSecret(result.transportError.value_or(QString()), m_apiKey));

    const int status = *result.status;
    if (status < 200 || status > 299) {
        if (status == 401 || status == 403)
            throw AIClientError::invalidAPIKey();
        if (status == 429) {
            bool ok = false;
            const qint64 seconds = result.retryAfter.trimmed().toLongLong(&ok);
            throw AIClientError::rateLimited(ok ? std::optional<qint64>(seconds) : std::nullopt);
        }
        throw AIClientError::providerError(
            status,
            HttpExchange::withoutSecret(HttpExchange::extractErrorMessage(result.body), m_apiKey));
    }
    co_return m_parseResponse(result.body);
}
