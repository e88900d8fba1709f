#include "ai/OnDeviceModel.h"

#include "ai/AIClientError.h"
#include "ai/HttpExchange.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace OnDeviceModel {

QUrl defaultServer()
{
    const QString overridden = qEnvironmentVariable("TOVREN_ONDEVICE_URL").trimmed();
    if (!overridden.isEmpty())
        return QUrl(overridden);
    return QUrl(u"http://127.0.0.1:11434"_s);
}

QUrl at(QUrl server, const QString &path)
{
    QString base = server.path();
    while (base.endsWith(u'/'))
        base.chop(1);
    server.setPath(base + path);
    return server;
}

QCoro::Task<State> current(QNetworkAccessManager &network, QUrl server,
                           std::chrono::milliseconds timeout)
{
    const HttpExchange::Result result = co_await HttpExchange::send(
        network, QNetworkRequest(at(server, u"/api/tags"_s)), false, {}, timeout);
    State state;
    if (result.connectionRefused) {
        state.status = AppleModelStatus::notEnabled;
        co_return state;
    }
    if (!result.isSuccess())
        co_return state;
    const QJsonDocument document = QJsonDocument::fromJson(result.body);
    const QJsonValue models = document.object().value(u"models"_s);
    if (!document.isObject() || !models.isArray())
        co_return state;
    for (const QJsonValue &model : models.toArray()) {
        const QJsonValue name = model[u"name"_s];
        if (name.isString() && !name.toString().isEmpty())
            state.models.append(name.toString());
    }
    state.status =
        state.models.isEmpty() ? AppleModelStatus::notReady : AppleModelStatus::available;
    co_return state;
}

QString statusText(AppleModelStatus status)
{
    switch (status) {
    case AppleModelStatus::available:
        return QString();
    case AppleModelStatus::notEnabled:
        return u"No on-device model is running on this computer. Everything in Tovren still "
               u"works: journaling, tasks, people, goals, and reviews. Only the AI-generated "
               u"features (recaps, STAR stories, suggestions) are paused. To turn them on, start "
               u"a model server such as Ollama on this computer, or switch to another provider "
               u"(Claude, OpenAI, or Gemini) below."_s;
    case AppleModelStatus::notReady:
        return u"The on-device model server is running but has no model yet. Until one is "
               u"downloaded, Tovren works fully but the AI-generated features are paused; "
               u"download a model, or switch to another provider below to use them now."_s;
    case AppleModelStatus::unavailable:
        break;
    }
    return u"The on-device model isn't available right now. Everything in Tovren still works. "
           u"Only the AI-generated features are paused. Switch to another provider below, or use "
           u"Tovren through the connector."_s;
}

} // namespace OnDeviceModel

AppleFoundationClient::AppleFoundationClient(QNetworkAccessManager &network, QUrl server,
                                             QString model)
    : m_network(&network)
    , m_server(std::move(server))
    , m_model(std::move(model))
{
}

QCoro::Task<QString> AppleFoundationClient::respond(QString prompt, std::optional<QString> system)
{
    const OnDeviceModel::State state = co_await OnDeviceModel::current(*m_network, m_server);
    if (state.status != AppleModelStatus::available)
        throw AIClientError::appleModelUnavailable(OnDeviceModel::statusText(state.status));

    QJsonArray messages;
    if (system && !system->isEmpty())
        messages.append(QJsonObject{{u"role"_s, u"system"_s}, {u"content"_s, *system}});
    messages.append(QJsonObject{{u"role"_s, u"user"_s}, {u"content"_s, prompt}});
    const QJsonObject body{
        {u"model"_s, m_model.isEmpty() ? state.models.first() : m_model},
        {u"messages"_s, messages},
        {u"stream"_s, false},
    };
    const HttpExchange::Result result = co_await HttpExchange::send(
        *m_network, HttpExchange::jsonRequest(OnDeviceModel::at(m_server, u"/api/chat"_s)), true,
        QJsonDocument(body).toJson(QJsonDocument::Compact), m_timeout);
    if (result.timedOut)
        throw AIClientError::timedOut();
    if (!result.status)
        throw AIClientError::networkFailure(result.transportError.value_or(QString()));
    if (!result.isSuccess())
        throw AIClientError::providerError(*result.status,
                                           HttpExchange::extractErrorMessage(result.body));

    QJsonParseError error{};
    const QJsonDocument reply = QJsonDocument::fromJson(result.body, &error);
    const QJsonValue content = reply.object().value(u"message"_s)[u"content"_s];
    if (error.error != QJsonParseError::NoError || !content.isString())
        throw AIClientError::badResponse(
            HttpExchange::decodeUtf8(result.body).value_or(QString()).left(200));
    co_return content.toString();
}
