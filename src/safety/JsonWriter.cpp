#include "JsonWriter.h"

namespace {

const char hexDigits[] = "0123456789abcdef";

void appendEscaped(QByteArray &out, const QByteArray &utf8)
{
    out.append('"');
    qsizetype runStart = 0;
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const uchar c = uchar(utf8.at(i));
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        out.append(utf8.constData() + runStart, i - runStart);
        runStart = i + 1;
        out.append('\\');
        switch (c) {
        case '"':
        case '\\':
            out.append(char(c));
            break;
        case '\b':
            out.append('b');
            break;
        case '\f':
            out.append('f');
            break;
        case '\n':
            out.append('n');
            break;
        case '\r':
            out.append('r');
            break;
        case '\t':
            out.append('t');
            break;
        default:
            out.append("u00");
            out.append(hexDigits[c >> 4]);
            out.append(hexDigits[c & 0xF]);
        }
    }
    out.append(utf8.constData() + runStart, utf8.size() - runStart);
    out.append('"');
}

} // namespace

void JsonWriter::newline(qsizetype depth)
{
    m_out.append('\n');
    m_out.append(depth * 2, ' ');
}

void JsonWriter::beforeValue()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (m_open.isEmpty())
        return;
    Q_ASSERT_X(!m_open.last().isObject, "JsonWriter", "a value in an object needs a key");
    if (!m_open.last().empty)
        m_out.append(',');
    m_open.last().empty = false;
    newline(m_open.size());
}

void JsonWriter::key(QLatin1StringView name)
{
    Q_ASSERT_X(!m_open.isEmpty() && m_open.last().isObject && !m_afterKey, "JsonWriter",
               "a key belongs in an object, before its value");
    Container &container = m_open.last();
    Q_ASSERT_X(container.empty || container.lastKey < name, "JsonWriter",
               "keys must come in sorted order");
    if (!container.empty)
        m_out.append(',');
    container.empty = false;
    container.lastKey = name;
    newline(m_open.size());
    m_out.append('"');
    m_out.append(name.data(), name.size());
    m_out.append("\": ");
    m_afterKey = true;
}

void JsonWriter::begin(char bracket, bool isObject)
{
    beforeValue();
    m_out.append(bracket);
    m_open.append({isObject, true, {}});
}

void JsonWriter::end(char bracket)
{
    Q_ASSERT(!m_open.isEmpty() && !m_afterKey);
    const bool empty = m_open.takeLast().empty;
    if (!empty)
        newline(m_open.size());
    m_out.append(bracket);
}

void JsonWriter::beginObject()
{
    begin('{', true);
}

void JsonWriter::endObject()
{
    end('}');
}

void JsonWriter::beginArray()
{
    begin('[', false);
}

void JsonWriter::endArray()
{
    end(']');
}

void JsonWriter::value(const QString &text)
{
    beforeValue();
    appendEscaped(m_out, text.toUtf8());
}

void JsonWriter::value(bool flag)
{
    beforeValue();
    m_out.append(flag ? "true" : "false");
}

void JsonWriter::value(qint64 number)
{
    beforeValue();
    m_out.append(QByteArray::number(number));
}

QByteArray JsonWriter::take()
{
    Q_ASSERT(m_open.isEmpty());
    m_out.append('\n');
    m_afterKey = false;
    return std::exchange(m_out, {});
}
