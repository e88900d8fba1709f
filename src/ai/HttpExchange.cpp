#include "ai/HttpExchange.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QStringDecoder>
#include <QUrl>

#include <qcoro/qcoronetworkreply.h>

#include <memory>

using namespace Qt::StringLiterals;

namespace HttpExchange {

QNetworkRequest jsonRequest(const QUrl &url)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    return request;
}

namespace {

// Whether the reply ended before its body did: the connection dropped after the headers, or the
// body is shorter than the length the server announced. Reads the body into `body`.
bool cutOff(QNetworkReply &reply, QByteArray &body)
{
    body = reply.readAll();
    const QNetworkReply::NetworkError error = reply.error();
    // 1-199: the connection or a proxy failed; the 200s and up are the server's own status.
    if ((error > QNetworkReply::NoError && error < QNetworkReply::ContentAccessDenied) ||
        error == QNetworkReply::ProtocolFailure)
        return true;
    // A compressed body is announced at its compressed length, and arrives inflated.
    const QVariant announced = reply.header(QNetworkRequest::ContentLengthHeader);
    return announced.isValid() && !reply.hasRawHeader("Content-Encoding") &&
           body.size() < announced.toLongLong();
}

} // namespace

QCoro::Task<Result> send(QNetworkAccessManager &network, QNetworkRequest request, bool post,
                         QByteArray body, std::chrono::milliseconds timeout)
{
    // The timer below bounds the whole exchange; Qt's own transfer timeout would only see idle
    // time and reports itself as a cancellation.
    request.setTransferTimeout(0);
    std::unique_ptr<QNetworkReply, void (*)(QNetworkReply *)> reply(
        post ? network.post(request, body) : network.get(request),
        [](QNetworkReply *r) { r->deleteLater(); });

    Result result;
    if (!reply->isFinished()) {
        const bool finished = co_await qCoro(reply.get()).waitForFinished(timeout);
        if (!finished) {
            reply->abort();
            result.timedOut = true;
            co_return result;
        }
    }

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && !cutOff(*reply, result.body)) {
        result.status = status.toInt();
        result.retryAfter = reply->rawHeader("Retry-After");
    } else if (status.isValid()) {
        // Half a reply reads as a whole one to the JSON parser often enough (a cut list, a cut
        // answer text inside an error page), so it counts as no reply at all.
        result.body.clear();
        result.transportError = u"The connection closed before the whole reply arrived."_s;
    } else if (reply->error() == QNetworkReply::TimeoutError) {
        result.timedOut = true;
    } else {
        result.connectionRefused = reply->error() == QNetworkReply::ConnectionRefusedError;
        result.transportError = reply->errorString();
    }
    co_return result;
}

std::optional<QString> decodeUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

QString extractErrorMessage(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (document.isObject()) {
        const QJsonObject object = document.object();
        const QJsonValue error = object.value(u"error"_s);
        const QJsonValue nested = error.toObject().value(u"message"_s);
        if (error.isObject() && nested.isString())
            return nested.toString();
        if (error.isString())
            return error.toString();
        if (object.value(u"message"_s).isString())
            return object.value(u"message"_s).toString();
    }
    return decodeUtf8(body.left(200)).value_or(u"(no body)"_s);
}

QString withoutSecret(QString text, const QString &secret)
{
    if (secret.isEmpty())
        return text;
    text.replace(secret, u"…"_s);
    const QString encoded = QString::fromLatin1(QUrl::toPercentEncoding(secret));
    if (encoded != secret)
        text.replace(encoded, u"…"_s);
    return text;
}

void endAll(QNetworkAccessManager &network)
{
    for (int round = 0; round < 20; ++round) {
        const auto replies = network.findChildren<QNetworkReply *>();
        if (replies.isEmpty())
            return;
        for (QNetworkReply *reply : replies)
            reply->abort();
        QCoreApplication::processEvents();
    }
}

} // namespace HttpExchange
