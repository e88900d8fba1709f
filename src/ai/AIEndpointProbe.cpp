#include "ai/AIEndpointProbe.h"

#include "ai/HTTPAIClient.h"
#include "ai/HttpExchange.h"

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace AIEndpointProbe {

namespace {

QUrl withPath(QUrl url, const QString &path)
{
    QString base = url.path();
    while (base.endsWith(u'/'))
        base.chop(1);
    url.setPath(base + path);
    return url;
}

const QString probeText = u"Reply with OK."_s;

QCoro::Task<QJsonArray> listModels(QNetworkAccessManager &network, QUrl base, QString apiKey,
                                   std::chrono::milliseconds timeout)
{
    QNetworkRequest request(withPath(base, u"/models"_s));
    if (!apiKey.isEmpty()) {
        // Either shape's key header; an endpoint ignores the one it doesn't speak.
        request.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());
        request.setRawHeader("x-api-key", apiKey.toUtf8());
        request.setRawHeader("anthropic-version", "2023-06-01");
    }
    const HttpExchange::Result result =
        co_await HttpExchange::send(network, request, false, {}, timeout);
    if (!result.isSuccess())
        co_return QJsonArray();
    co_return QJsonDocument::fromJson(result.body).object().value(u"data"_s).toArray();
}

// Whether the path exists: only 404 and 405 say it doesn't. Nothing at all for no answer.
QCoro::Task<std::optional<bool>> pathExists(QNetworkAccessManager &network, QNetworkRequest request,
                                            QByteArray body, std::chrono::milliseconds timeout)
{
    const HttpExchange::Result result =
        co_await HttpExchange::send(network, request, true, body, timeout);
    if (!result.status)
        co_return std::nullopt;
    co_return *result.status != 404 && *result.status != 405;
}

} // namespace

std::optional<AIWireFormat> formatFromModelList(const QJsonArray &models)
{
    if (models.isEmpty())
        return std::nullopt;
    const QJsonValue first = models.first();
    if (first[u"object"_s].toString() == u"model"_s)
        return AIWireFormat::openai;
    if (first[u"type"_s].toString() == u"model"_s)
        return AIWireFormat::anthropic;
    const QString id = first[u"id"_s].toString();
    if (id.startsWith(u"claude-"_s))
        return AIWireFormat::anthropic;
    if (id.startsWith(u"gpt-"_s))
        return AIWireFormat::openai;
    return std::nullopt;
}

QCoro::Task<std::optional<AIWireFormat>> detect(QNetworkAccessManager &network, QUrl baseURL,
                                                QString apiKey, std::chrono::milliseconds timeout)
{
    const QJsonArray models = co_await listModels(network, baseURL, apiKey, timeout);
    if (const auto format = formatFromModelList(models))
        co_return format;

    QString model = u"probe"_s;
    if (!models.isEmpty() && models.first()[u"id"_s].isString())
        model = models.first()[u"id"_s].toString();

    QNetworkRequest anthropic = HttpExchange::jsonRequest(withPath(baseURL, u"/messages"_s));
    anthropic.setRawHeader("anthropic-version", "2023-06-01");
    if (!apiKey.isEmpty())
        anthropic.setRawHeader("x-api-key", apiKey.toUtf8());
    const auto messages = co_await pathExists(
        network, anthropic, AIWireShapes::anthropicBody(model, probeText, std::nullopt, 1),
        timeout);
    if (!messages)
        co_return std::nullopt;
    if (*messages)
        co_return AIWireFormat::anthropic;

    QNetworkRequest openai = HttpExchange::jsonRequest(withPath(baseURL, u"/chat/completions"_s));
    if (!apiKey.isEmpty())
        openai.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());
    const auto completions = co_await pathExists(
        network, openai, AIWireShapes::openAIBody(model, probeText, std::nullopt, 1), timeout);
    if (completions.value_or(false))
        co_return AIWireFormat::openai;
    co_return std::nullopt;
}

} // namespace AIEndpointProbe
