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
    if (status.isValid()) {
        result.status = status.toInt();
        result.body = reply->readAll();
        result.retryAfter = reply->rawHeader("Retry-After");
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
