#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include <optional>
#include <variant>

// The records of one newline-delimited JSON-RPC 2.0 exchange.

// A request's id: a 64-bit integer or a string, sent back in the type it came in.
class RPCID {
public:
    explicit RPCID(qint64 number)
        : m_value(number)
    {
    }
    explicit RPCID(QString text)
        : m_value(std::move(text))
    {
    }

    // The integer first, then the string; anything else isn't an id.
    static std::optional<RPCID> decode(const QJsonValue &value);
    QJsonValue encode() const;

    bool isNumber() const { return std::holds_alternative<qint64>(m_value); }
    bool operator==(const RPCID &) const = default;

private:
    std::variant<qint64, QString> m_value;
};

struct RPCErrorBody {
    int code = 0;
    QString message;
};

struct RPCRequest {
    QString jsonrpc; // present and a string; its value is not checked
    std::optional<RPCID> id;
    QString method;
    std::optional<QJsonObject> params;

    // One line's bytes. Fails as a whole when the line is not a JSON object, lacks a string
    // "jsonrpc" or "method", has an id that is neither an integer nor a string, or has params
    // that are not an object. A null id or null params count as absent.
    static std::optional<RPCRequest> decode(QByteArrayView line);
};

struct RPCResponse {
    std::optional<RPCID> id;
    std::optional<QJsonObject> result;
    std::optional<RPCErrorBody> error;
    // A tool's answer, sent as the result {"content": [{"type": "text", "text": ...}]}. It is
    // written straight to JSON: a year of pages is a third of a megabyte, and going through
    // QJsonObject converted it three times.
    std::optional<QString> toolText = std::nullopt;

    // One line of compact JSON without the newline; "id" is left out rather than null.
    QByteArray encode() const;
};

// Reading a value of the argument map the way the wire decodes it: a number is an integer
// only when it is whole and fits in 64 bits, otherwise it is a double; text is only a string.
namespace RPCValue {

std::optional<qint64> integer(const QJsonValue &value);
std::optional<QString> text(const QJsonValue &value);
std::optional<bool> boolean(const QJsonValue &value);

} // namespace RPCValue
