#pragma once

#include "ai/AIClient.h"

#include <QByteArray>
#include <QNetworkRequest>
#include <QUrl>

#include <chrono>
#include <functional>

class QNetworkAccessManager;

// The one client for every remote provider. A provider is a filled-in instance: its endpoint and
// the two functions that speak its shape. No retries and no sampling settings, ever.
class HTTPAIClient final : public AIClient {
public:
    struct Request {
        QNetworkRequest request;
        QByteArray body;
    };
    using BuildRequest = std::function<Request(
        const QString &prompt, const std::optional<QString> &system, const QString &apiKey)>;
    // Throws AIClientError::badResponse when the reply path is missing.
    using ParseResponse = std::function<QString(const QByteArray &body)>;

    static constexpr int maxOutputTokens = 4096;
    static constexpr std::chrono::milliseconds defaultTimeout{60000};

    HTTPAIClient(QNetworkAccessManager &network, bool allowsEmptyKey, QUrl endpoint,
                 BuildRequest buildRequest, ParseResponse parseResponse, QString apiKey);

    // endpoint: the full messages URL.
    static HTTPAIClient anthropic(QNetworkAccessManager &network, const QUrl &endpoint,
                                  const QString &model, const QString &apiKey, bool allowsEmptyKey);
    // endpoint: the full chat-completions URL.
    static HTTPAIClient openAI(QNetworkAccessManager &network, const QUrl &endpoint,
                               const QString &model, const QString &apiKey, bool allowsEmptyKey);
    // host: the API's scheme and host; the path names the model.
    static HTTPAIClient gemini(QNetworkAccessManager &network, const QUrl &host,
                               const QString &model, const QString &apiKey);

    using AIClient::respond;
    QCoro::Task<QString> respond(QString prompt, std::optional<QString> system) override;

    bool allowsEmptyKey() const { return m_allowsEmptyKey; }
    const QUrl &endpoint() const { return m_endpoint; }
    const QString &apiKey() const { return m_apiKey; }
    void setTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }

private:
    QNetworkAccessManager *m_network;
    bool m_allowsEmptyKey;
    QUrl m_endpoint;
    BuildRequest m_buildRequest;
    ParseResponse m_parseResponse;
    QString m_apiKey;
    std::chrono::milliseconds m_timeout = defaultTimeout;
};

// The request bodies and reply paths of the three shapes, shared with the endpoint probe.
namespace AIWireShapes {

QByteArray anthropicBody(const QString &model, const QString &prompt,
                         const std::optional<QString> &system, int maxTokens);
QByteArray openAIBody(const QString &model, const QString &prompt,
                      const std::optional<QString> &system, int maxTokens);
QByteArray geminiBody(const QString &prompt, const std::optional<QString> &system);

QString parseAnthropic(const QByteArray &body);
QString parseOpenAI(const QByteArray &body);
QString parseGemini(const QByteArray &body);

} // namespace AIWireShapes
