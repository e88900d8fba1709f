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

namespace {

// A JSON string, quotes included, escaped as QJsonDocument escapes it: quotes, backslashes and
// control characters, and a surrogate without its other half as "\\uXXXX".
// The letter after the backslash for characters with a two-character escape, else 0.
constexpr char shortEscape(char16_t c)
{
    switch (c) {
    case u'"':
        return '"';
    case u'\\':
        return '\\';
    case u'\n':
        return 'n';
    case u'\r':
        return 'r';
    case u'\t':
        return 't';
    case u'\b':
        return 'b';
    case u'\f':
        return 'f';
    default:
        return 0;
    }
}

void appendJsonString(QByteArray &out, QStringView text)
{
    static constexpr char hex[] = "0123456789abcdef";
    // Written through a pointer into room for the longest form, six bytes a unit, as appending
    // byte by byte cost more than the escaping itself.
    const qsizetype start = out.size();
    out.resize(start + 6 * text.size() + 2);
    char *to = out.data() + start;
    const auto escaped = [&to](char16_t unit) {
        *to++ = '\\';
        *to++ = 'u';
        for (int shift = 12; shift >= 0; shift -= 4)
            *to++ = hex[(unit >> shift) & 0xf];
    };
    const auto pair = [&to](char first, char second) {
        *to++ = first;
        *to++ = second;
    };
    *to++ = '"';
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < 0x80) {
            if (const char letter = shortEscape(c)) {
                pair('\\', letter);
            } else if (c < 0x20) {
                escaped(c);
            } else {
                *to++ = char(c);
            }
        } else if (c < 0x800) {
            pair(char(0xc0 | (c >> 6)), char(0x80 | (c & 0x3f)));
        } else if (QChar::isHighSurrogate(c) && i + 1 < text.size() &&
                   text[i + 1].isLowSurrogate()) {
            const char32_t point = QChar::surrogateToUcs4(c, text[++i].unicode());
            pair(char(0xf0 | (point >> 18)), char(0x80 | ((point >> 12) & 0x3f)));
            pair(char(0x80 | ((point >> 6) & 0x3f)), char(0x80 | (point & 0x3f)));
        } else if (QChar::isSurrogate(c)) {
            escaped(c);
        } else {
            *to++ = char(0xe0 | (c >> 12));
            pair(char(0x80 | ((c >> 6) & 0x3f)), char(0x80 | (c & 0x3f)));
        }
    }
    *to++ = '"';
    out.truncate(to - out.constData());
}

} // namespace

QByteArray RPCResponse::encode() const
{
    if (toolText && !result && !error) {
        QByteArray out = "{";
        if (id) {
            out += "\"id\":";
            const QJsonValue value = id->encode();
            if (id->isNumber())
                out += QByteArray::number(value.toInteger());
            else
                appendJsonString(out, value.toString());
            out += ',';
        }
        out += "\"jsonrpc\":\"2.0\",\"result\":{\"content\":[{\"text\":";
        appendJsonString(out, *toolText);
        out += ",\"type\":\"text\"}]}}";
        return out;
    }
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
