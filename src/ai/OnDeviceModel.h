#pragma once

#include "ai/AIClient.h"

#include <QStringList>
#include <QUrl>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

// The on-device model's state, read from the model server on this computer each time it's
// needed, never cached.
enum class AppleModelStatus { available, notEnabled, notReady, unavailable };

// The model server on this computer, spoken to through the Ollama API.
namespace OnDeviceModel {

// A server busy loading or running a model answers even its model list late.
inline constexpr std::chrono::milliseconds statusTimeout = std::chrono::seconds(30);

// TOVREN_ONDEVICE_URL when set (tests), else OLLAMA_HOST as the server's own tools read it,
// else 127.0.0.1:11434.
QUrl defaultServer();
// OLLAMA_HOST's forms: "host", "host:port", ":port" or a URL; a scheme without a port means
// that scheme's port. A listen-everywhere address means this computer.
QUrl serverFromHostVariable(const QString &value);

struct State {
    AppleModelStatus status = AppleModelStatus::unavailable;
    QStringList models; // as the server lists them
    bool timedOut = false;
};

// Available: it answers and lists a model; not ready: it answers and lists none; not enabled:
// nothing listens; unavailable: anything else.
QCoro::Task<State> current(QNetworkAccessManager &network, QUrl server,
                           std::chrono::milliseconds timeout = statusTimeout);

// The first of the listed models that can chat; embedding-only models are passed over. A
// server too old to tell its models' capabilities is taken at its word that each can.
QCoro::Task<std::optional<QString>>
firstChatModel(QNetworkAccessManager &network, QUrl server, QStringList models,
               std::chrono::milliseconds timeout = statusTimeout);

// The context window to ask for, in tokens: room for the whole prompt and a long answer, in
// powers of two so that similar prompts don't make the server reload the model.
int contextWindowFor(const QString &system, const QString &prompt);

// The server's address with an API path appended.
QUrl at(QUrl server, const QString &path);

// What the user reads when the model can't answer; empty for available.
QString statusText(AppleModelStatus status);

} // namespace OnDeviceModel

// Answers on the model server of this computer. A fresh conversation for each call; no output
// limit, no sampling settings.
class AppleFoundationClient final : public AIClient {
public:
    // An empty model means the first one the server lists that can chat.
    AppleFoundationClient(QNetworkAccessManager &network, QUrl server, QString model);

    using AIClient::respond;
    QCoro::Task<QString> respond(QString prompt, std::optional<QString> system) override;

    const QString &model() const { return m_model; }
    void setTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }
    void setStatusTimeout(std::chrono::milliseconds timeout) { m_statusTimeout = timeout; }

private:
    QNetworkAccessManager *m_network;
    QUrl m_server;
    QString m_model;
    std::chrono::milliseconds m_statusTimeout = OnDeviceModel::statusTimeout;
    // Local models on modest hardware can take minutes for a long recap.
    std::chrono::milliseconds m_timeout = std::chrono::minutes(5);
};
