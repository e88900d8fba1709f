#pragma once

#include "FakeHttpServer.h"

#include <QJsonArray>
#include <QStringList>

#include <functional>

// A model server on this computer as its API shows it, which also stands in for an
// OpenAI-shaped provider: /api/tags lists `models` (none: the server has no model yet), every
// model can chat, and both chat paths answer with what `reply` writes for the request.
class FakeModelServer {
public:
    using Request = FakeHttpServer::Request;
    using Reply = std::function<QString(const Request &)>;

    QStringList models{QStringLiteral("chat:3b")};
    Reply reply = [](const Request &) { return QStringLiteral("OK"); };

    FakeModelServer()
    {
        m_http.setHandler([this](const Request &request) -> FakeHttpServer::Response {
            if (request.path() == QStringLiteral("/api/tags")) {
                QJsonArray listed;
                for (const QString &name : models)
                    listed.append(QJsonObject{{QStringLiteral("name"), name}});
                return {200, compact(QJsonObject{{QStringLiteral("models"), listed}})};
            }
            if (request.path() == QStringLiteral("/api/show"))
                return {200, R"({"capabilities":["completion"]})"};
            const QJsonObject message{{QStringLiteral("role"), QStringLiteral("assistant")},
                                      {QStringLiteral("content"), reply(request)}};
            if (request.path() == QStringLiteral("/api/chat"))
                return {200, compact(QJsonObject{{QStringLiteral("message"), message}})};
            if (request.path() == QStringLiteral("/v1/chat/completions"))
                return {200, compact(QJsonObject{
                                 {QStringLiteral("choices"),
                                  QJsonArray{QJsonObject{{QStringLiteral("message"), message}}}}})};
            return {404, R"({"error":"not found"})"};
        });
    }

    QUrl url() const { return m_http.url(); }
    const FakeHttpServer &http() const { return m_http; }
    // The requests for an answer from the model on this computer.
    QList<Request> chats() const { return m_http.requestsTo(QStringLiteral("/api/chat")); }

    // The content of the message with this role; empty when there is none.
    static QString message(const Request &request, const QString &role)
    {
        for (const QJsonValue &entry : request.json().value(QStringLiteral("messages")).toArray()) {
            if (entry[QStringLiteral("role")].toString() == role)
                return entry[QStringLiteral("content")].toString();
        }
        return QString();
    }
    static QString prompt(const Request &request)
    {
        return message(request, QStringLiteral("user"));
    }
    static QString system(const Request &request)
    {
        return message(request, QStringLiteral("system"));
    }

private:
    static QByteArray compact(const QJsonObject &object)
    {
        return QJsonDocument(object).toJson(QJsonDocument::Compact);
    }

    FakeHttpServer m_http;
};
