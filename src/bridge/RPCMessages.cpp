#include "RPCMessages.h"

#include <QJsonDocument>
#include <QJsonParseError>

using namespace Qt::StringLiterals;

std::optional<RPCID> RPCID::decode(const QJsonValue &value)
{
    if (const auto number = RPCValue::integer(value))
        return RPCID(*number);
    if (value.isString())
        return RPCID(value.toString());
    return std::nullopt;
}

QJsonValue RPCID::encode() const
{
    if (const auto *number = std::get_if<qint64>(&m_value))
        return QJsonValue(*number);
    return QJsonValue(std::get<QString>(m_value));
}

std::optional<RPCRequest> RPCRequest::decode(QByteArrayView line)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(line.toByteArray(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const QJsonObject object = document.object();

    const QJsonValue jsonrpc = object.value("jsonrpc"_L1);
    const QJsonValue method = object.value("method"_L1);
    if (!jsonrpc.isString() || !method.isString())
        return std::nullopt;

    RPCRequest request;
    request.jsonrpc = jsonrpc.toString();
    request.method = method.toString();

    const QJsonValue id = object.value("id"_L1);
    if (!id.isUndefined() && !id.isNull()) {
        request.id = RPCID::decode(id);
        if (!request.id)
            return std::nullopt;
    }

    const QJsonValue params = object.value("params"_L1);
    if (!params.isUndefined() && !params.isNull()) {
        if (!params.isObject())
            return std::nullopt;
        request.params = params.toObject();
    }
    return request;
}

QByteArray RPCResponse::encode() const
{
    QJsonObject object{{"jsonrpc"_L1, u"2.0"_s}};
    if (id)
        object.insert("id"_L1, id->encode());
    if (result)
        object.insert("result"_L1, *result);
    if (error)
        object.insert("error"_L1,
                      QJsonObject{{"code"_L1, error->code}, {"message"_L1, error->message}});
    // Compact output escapes every control character, newlines included, so it is one line.
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

namespace RPCValue {

std::optional<qint64> integer(const QJsonValue &value)
{
    if (!value.isDouble())
        return std::nullopt;
    // toInteger falls back to the default for fractions and for numbers beyond 64 bits.
    const qint64 number = value.toInteger(0);
    if (number == 0 && value.toDouble() != 0)
        return std::nullopt;
    return number;
}

std::optional<QString> text(const QJsonValue &value)
{
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

std::optional<bool> boolean(const QJsonValue &value)
{
    if (!value.isBool())
        return std::nullopt;
    return value.toBool();
}

} // namespace RPCValue
