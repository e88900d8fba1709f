#pragma once

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

// One HTTP request and what came back, for the AI clients, the catalogue and the probe.
namespace HttpExchange {

struct Result {
    bool timedOut = false;
    // Set when no HTTP response arrived; the transport's own description.
    std::optional<QString> transportError;
    bool connectionRefused = false;
    std::optional<int> status;
    QByteArray body;
    QByteArray retryAfter;

    bool isSuccess() const { return status && *status >= 200 && *status <= 299; }
};

// GET when body is empty and post is false. The whole exchange is bounded by timeout; the reply
// is aborted when it runs out.
QCoro::Task<Result> send(QNetworkAccessManager &network, QNetworkRequest request, bool post,
                         QByteArray body, std::chrono::milliseconds timeout);

QNetworkRequest jsonRequest(const QUrl &url);

// Aborts every request still under way on the manager, so that whatever awaits one finishes
// (and frees itself) now. An aborted reply reports its end through the event queue and what
// awaited it may ask again (a probe tries several paths), so this runs a few rounds of abort
// and one pass of the queue.
void endAll(QNetworkAccessManager &network);

// The message of a failed body: error.message, error, or message when the body is a JSON object
// holding one of them as text; otherwise its first 200 bytes, or "(no body)" when those aren't
// UTF-8.
QString extractErrorMessage(const QByteArray &body);
// Strict UTF-8; nothing when the bytes aren't valid.
std::optional<QString> decodeUtf8(const QByteArray &bytes);
// The text with every occurrence of the secret, raw or percent-encoded, taken out.
QString withoutSecret(QString text, const QString &secret);

} // namespace HttpExchange
