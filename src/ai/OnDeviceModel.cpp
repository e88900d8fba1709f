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
    return serverFromHostVariable(qEnvironmentVariable("OLLAMA_HOST"));
}

QUrl serverFromHostVariable(const QString &value)
{
    QString text = value.trimmed();
    while (!text.isEmpty() && (text.front() == u'"' || text.front() == u'\''))
        text.remove(0, 1);
    while (!text.isEmpty() && (text.back() == u'"' || text.back() == u'\''))
        text.chop(1);
    text = text.trimmed();

    QString scheme = u"http"_s;
    int defaultPort = 11434;
    const qsizetype separator = text.indexOf(u"://"_s);
    if (separator >= 0) {
        scheme = text.left(separator).toLower();
        text = text.mid(separator + 3);
        if (scheme == u"https"_s)
            defaultPort = 443;
        else if (scheme == u"http"_s)
            defaultPort = 80;
    }
    const qsizetype slash = text.indexOf(u'/');
    const QString path = slash >= 0 ? text.mid(slash) : QString();
    const QString hostPort = slash >= 0 ? text.left(slash) : text;

    QString host = hostPort;
    QString port;
    if (hostPort.startsWith(u'[')) {
        const qsizetype close = hostPort.indexOf(u']');
        host = hostPort.mid(1, close - 1);
        if (close >= 0 && hostPort.mid(close + 1).startsWith(u':'))
            port = hostPort.mid(close + 2);
    } else if (hostPort.count(u':') == 1) {
        host = hostPort.section(u':', 0, 0);
        port = hostPort.section(u':', 1);
    }
    // Addresses a server listens on, not ones to reach it by.
    if (host.isEmpty() || host == u"0.0.0.0"_s || host == u"::"_s)
        host = u"127.0.0.1"_s;
    bool numeric = false;
    const int parsed = port.toInt(&numeric);

    QUrl url;
    url.setScheme(scheme);
    url.setHost(host);
    url.setPort(numeric && parsed > 0 && parsed <= 65535 ? parsed : defaultPort);
    url.setPath(path);
    return url;
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
    state.timedOut = result.timedOut;
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

QCoro::Task<std::optional<QString>> firstChatModel(QNetworkAccessManager &network, QUrl server,
                                                   QStringList models,
                                                   std::chrono::milliseconds timeout)
{
    for (const QString &model : models) {
        const QByteArray body =
            QJsonDocument(QJsonObject{{u"model"_s, model}}).toJson(QJsonDocument::Compact);
        const HttpExchange::Result result = co_await HttpExchange::send(
            network, HttpExchange::jsonRequest(at(server, u"/api/show"_s)), true, body, timeout);
        if (!result.isSuccess())
            continue;
        const QJsonValue capabilities =
            QJsonDocument::fromJson(result.body).object().value(u"capabilities"_s);
        if (!capabilities.isArray() || capabilities.toArray().contains(QJsonValue(u"completion"_s)))
            co_return model;
    }
    co_return std::nullopt;
}

int contextWindowFor(const QString &system, const QString &prompt)
{
    // Three bytes a token undercounts no language by much, and a reply of a few pages fits on
    // top. The ceiling is what today's local models offer at most.
    constexpr qsizetype replyRoom = 4096;
    const qsizetype bytes = system.toUtf8().size() + prompt.toUtf8().size();
    const qsizetype needed = (bytes + 2) / 3 + replyRoom;
    int window = 8192;
    while (window < needed && window < 131072)
        window *= 2;
    return window;
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
    const OnDeviceModel::State state =
        co_await OnDeviceModel::current(*m_network, m_server, m_statusTimeout);
    if (state.timedOut)
        throw AIClientError::timedOut();
    if (state.status != AppleModelStatus::available)
        throw AIClientError::appleModelUnavailable(OnDeviceModel::statusText(state.status));
    QString model = m_model;
    if (model.isEmpty()) {
        const std::optional<QString> chat = co_await OnDeviceModel::firstChatModel(
            *m_network, m_server, state.models, m_statusTimeout);
        if (!chat)
            throw AIClientError::appleModelUnavailable(
                OnDeviceModel::statusText(AppleModelStatus::notReady));
        model = *chat;
    }

    QJsonArray messages;
    if (system && !system->isEmpty())
        messages.append(QJsonObject{{u"role"_s, u"system"_s}, {u"content"_s, *system}});
    messages.append(QJsonObject{{u"role"_s, u"user"_s}, {u"content"_s, prompt}});
    // The server's default window is small and it drops the start of a longer prompt without
    // a word, so a long recap would be written from its last days only.
    const QJsonObject body{
        {u"model"_s, model},
        {u"messages"_s, messages},
        {u"stream"_s, false},
        {u"options"_s, QJsonObject{{u"num_ctx"_s, OnDeviceModel::contextWindowFor(
                                                      system.value_or(QString()), prompt)}}},
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
