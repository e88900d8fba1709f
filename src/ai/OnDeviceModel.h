#pragma once

#include "ai/AIClient.h"

#include <QStringList>
#include <QUrl>

#include <chrono>

class QNetworkAccessManager;

// The on-device model's state, read from the model server on this computer each time it's
// needed, never cached.
enum class AppleModelStatus { available, notEnabled, notReady, unavailable };

// The model server on this computer, spoken to through the Ollama API.
namespace OnDeviceModel {

// 127.0.0.1:11434, unless TOVREN_ONDEVICE_URL names another server.
QUrl defaultServer();

struct State {
    AppleModelStatus status = AppleModelStatus::unavailable;
    QStringList models; // as the server lists them
};

// Available: it answers and lists a model; not ready: it answers and lists none; not enabled:
// nothing listens; unavailable: anything else.
QCoro::Task<State> current(QNetworkAccessManager &network, QUrl server,
                           std::chrono::milliseconds timeout = std::chrono::seconds(5));

// The server's address with an API path appended.
QUrl at(QUrl server, const QString &path);

// What the user reads when the model can't answer; empty for available.
QString statusText(AppleModelStatus status);

} // namespace OnDeviceModel

// Answers on the model server of this computer. A fresh conversation for each call; no output
// limit, no sampling settings.
class AppleFoundationClient final : public AIClient {
public:
    // An empty model means the first one the server lists.
    AppleFoundationClient(QNetworkAccessManager &network, QUrl server, QString model);

    using AIClient::respond;
    QCoro::Task<QString> respond(QString prompt, std::optional<QString> system) override;

    const QString &model() const { return m_model; }
    void setTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }

private:
    QNetworkAccessManager *m_network;
    QUrl m_server;
    QString m_model;
    // Local models on modest hardware can take minutes for a long recap.
    std::chrono::milliseconds m_timeout = std::chrono::minutes(5);
};
