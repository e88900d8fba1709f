#pragma once

#include "MemorySecretStore.h"
#include "ai/AIClientError.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>
#include <QVariantMap>

#include <qcoro/qcorotask.h>

#include <functional>
#include <optional>

// A small HTTP/1.1 server on 127.0.0.1 that records each request and answers as the handler
// says, standing in for a provider or a model server.
class FakeHttpServer {
public:
    struct Request {
        QByteArray method;
        QByteArray target;                     // path and query
        QHash<QByteArray, QByteArray> headers; // names lower-cased
        QByteArray body;

        QString path() const { return QUrl(QString::fromLatin1(target)).path(); }
        QString query() const { return QUrl(QString::fromLatin1(target)).query(); }
        QJsonObject json() const { return QJsonDocument::fromJson(body).object(); }
        // Empty when each named header has the value given; an empty value means absent.
        QString headerMismatch(const QVariantMap &expected) const
        {
            for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
                const QByteArray name = it.key().toLatin1();
                const QString want = it.value().toString();
                if (want.isEmpty() ? headers.contains(name)
                                   : QString::fromUtf8(headers.value(name)) != want)
                    return it.key() + QStringLiteral(": ") +
                           QString::fromUtf8(headers.value(name, "(absent)"));
            }
            return QString();
        }
    };
    struct Response {
        Response() = default;
        Response(int status_, QByteArray body_ = {},
                 QList<std::pair<QByteArray, QByteArray>> headers_ = {}, bool neverAnswer_ = false)
            : status(status_)
            , body(std::move(body_))
            , headers(std::move(headers_))
            , neverAnswer(neverAnswer_)
        {
        }

        int status = 200;
        QByteArray body;
        QList<std::pair<QByteArray, QByteArray>> headers;
        bool neverAnswer = false;
        // Sends the headers and half the body, then closes: a reply cut off on the way.
        bool cutMidBody = false;
    };
    using Handler = std::function<Response(const Request &)>;

    FakeHttpServer()
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection())
                accept(socket);
        });
        m_server.listen(QHostAddress::LocalHost, 0);
    }

    void setHandler(Handler handler) { m_handler = std::move(handler); }
    // Always the same answer.
    void answer(int status, QByteArray body, QList<std::pair<QByteArray, QByteArray>> headers = {})
    {
        m_handler = [=](const Request &) { return Response{status, body, headers}; };
    }

    bool isListening() const { return m_server.isListening(); }
    QUrl url(const QString &path = QString()) const
    {
        return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort()) + path);
    }
    const QList<Request> &requests() const { return m_requests; }
    QList<Request> requestsTo(const QString &path) const
    {
        QList<Request> found;
        for (const Request &request : m_requests) {
            if (request.path() == path)
                found.append(request);
        }
        return found;
    }
    void close() { m_server.close(); }

private:
    void accept(QTcpSocket *socket)
    {
        auto buffer = std::make_shared<QByteArray>();
        QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, buffer] {
            buffer->append(socket->readAll());
            const qsizetype headerEnd = buffer->indexOf("\r\n\r\n");
            if (headerEnd < 0)
                return;
            Request request;
            const QList<QByteArray> lines = buffer->left(headerEnd).split('\n');
            const QList<QByteArray> start = lines.value(0).trimmed().split(' ');
            request.method = start.value(0);
            request.target = start.value(1);
            for (qsizetype i = 1; i < lines.size(); ++i) {
                const qsizetype colon = lines[i].indexOf(':');
                if (colon > 0)
                    request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                           lines[i].mid(colon + 1).trimmed());
            }
            const qsizetype length = request.headers.value("content-length", "0").toLongLong();
            if (buffer->size() < headerEnd + 4 + length)
                return;
            request.body = buffer->mid(headerEnd + 4, length);
            buffer->clear();
            m_requests.append(request);
            const Response response = m_handler ? m_handler(request) : Response{};
            if (response.neverAnswer)
                return;
            QByteArray out = "HTTP/1.1 " + QByteArray::number(response.status) + " Status\r\n";
            bool hasType = false;
            for (const auto &[name, value] : response.headers) {
                out += name + ": " + value + "\r\n";
                hasType = hasType || name.toLower() == "content-type";
            }
            if (!hasType)
                out += "Content-Type: application/json\r\n";
            out += "Content-Length: " + QByteArray::number(response.body.size()) +
                   "\r\nConnection: close\r\n\r\n" +
                   (response.cutMidBody ? response.body.left(response.body.size() / 2)
                                        : response.body);
            socket->write(out);
            socket->disconnectFromHost();
        });
    }

    QTcpServer m_server;
    Handler m_handler;
    QList<Request> m_requests;
};

// A port on 127.0.0.1 where nothing listens.
inline quint16 closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    return port;
}

// The answer of a coroutine, or the error it threw.
template<class T>
struct Outcome {
    std::optional<T> value;
    std::optional<AIClientError> error;

    QString errorText() const { return error ? error->errorDescription() : QString(); }
};

template<class T>
QCoro::Task<Outcome<T>> capture(QCoro::Task<T> task)
{
    Outcome<T> outcome;
    try {
        outcome.value = co_await std::move(task);
    } catch (const AIClientError &error) {
        outcome.error = error;
    }
    co_return outcome;
}
