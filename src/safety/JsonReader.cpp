#include "JsonReader.h"

#include <charconv>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

void appendUtf8(QByteArray &out, uint cp)
{
    if (cp < 0x80) {
        out.append(char(cp));
    } else if (cp < 0x800) {
        out.append(char(0xC0 | (cp >> 6)));
        out.append(char(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.append(char(0xE0 | (cp >> 12)));
        out.append(char(0x80 | ((cp >> 6) & 0x3F)));
        out.append(char(0x80 | (cp & 0x3F)));
    } else {
        out.append(char(0xF0 | (cp >> 18)));
        out.append(char(0x80 | ((cp >> 12) & 0x3F)));
        out.append(char(0x80 | ((cp >> 6) & 0x3F)));
        out.append(char(0x80 | (cp & 0x3F)));
    }
}

} // namespace

JsonReader::JsonReader(QByteArrayView text)
    : m_text(text)
{
    if (const qsizetype bad = invalidUtf8Offset(text); bad >= 0)
        fail(u"text that isn't UTF-8"_s, bad);
    if (m_text.startsWith("\xEF\xBB\xBF"))
        m_pos = 3;
}

qsizetype JsonReader::invalidUtf8Offset(QByteArrayView text)
{
    const auto *bytes = reinterpret_cast<const uchar *>(text.data());
    const qsizetype size = text.size();
    qsizetype i = 0;
    while (i < size) {
        const uchar lead = bytes[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        int length;
        uint cp;
        uint smallest;
        if ((lead & 0xE0) == 0xC0) {
            length = 2, cp = lead & 0x1F, smallest = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, cp = lead & 0x0F, smallest = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, cp = lead & 0x07, smallest = 0x10000;
        } else {
            return i;
        }
        if (size - i < length)
            return i;
        for (int k = 1; k < length; ++k) {
            const uchar next = bytes[i + k];
            if ((next & 0xC0) != 0x80)
                return i;
            cp = (cp << 6) | (next & 0x3F);
        }
        if (cp < smallest || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return i;
        i += length;
    }
    return -1;
}

void JsonReader::skipSpace()
{
    while (!atEnd()) {
        const char c = current();
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            return;
        ++m_pos;
    }
}

QString JsonReader::location(qsizetype offset) const
{
    qsizetype line = 1;
    qsizetype lineStart = 0;
    for (qsizetype i = 0; i < offset; ++i) {
        if (m_text.at(i) == '\n') {
            ++line;
            lineStart = i + 1;
        }
    }
    // Columns count characters; everything before the offset is known to be UTF-8.
    qsizetype column = 1;
    for (qsizetype i = lineStart; i < offset; ++i) {
        if ((uchar(m_text.at(i)) & 0xC0) != 0x80)
            ++column;
    }
    return u"at line %1, column %2"_s.arg(line).arg(column);
}

void JsonReader::fail(const QString &problem, qsizetype offset) const
{
    throw Error(problem + u' ' + location(offset));
}

void JsonReader::failAtEnd() const
{
    throw Error(u"the file ends in the middle of the data"_s);
}

void JsonReader::fail(const QString &problem) const
{
    if (atEnd())
        failAtEnd();
    fail(problem, m_pos);
}

void JsonReader::expect(char c, const char *what)
{
    skipSpace();
    if (atEnd())
        failAtEnd();
    if (current() != c)
        fail(u"expected %1"_s.arg(QLatin1StringView(what)), m_pos);
    ++m_pos;
}

JsonReader::Kind JsonReader::peek()
{
    skipSpace();
    if (atEnd())
        failAtEnd();
    switch (current()) {
    case '{':
        return Kind::Object;
    case '[':
        return Kind::Array;
    case '"':
        return Kind::String;
    case 't':
    case 'f':
        return Kind::Boolean;
    case 'n':
        return Kind::Null;
    default:
        if (current() == '-' || isDigit(current()))
            return Kind::Number;
        fail(u"unexpected character"_s, m_pos);
    }
}

void JsonReader::push(bool isObject)
{
    if (m_open.size() >= maxDepth)
        fail(u"data nested deeper than %1 levels"_s.arg(maxDepth), m_pos);
    ++m_pos;
    m_open.append({isObject, true});
}

void JsonReader::beginObject()
{
    if (peek() != Kind::Object)
        fail(u"expected an object"_s);
    push(true);
}

void JsonReader::beginArray()
{
    if (peek() != Kind::Array)
        fail(u"expected a list"_s);
    push(false);
}

std::optional<QString> JsonReader::nextKey()
{
    Q_ASSERT(!m_open.isEmpty() && m_open.last().isObject);
    skipSpace();
    if (atEnd())
        failAtEnd();
    if (current() == '}') {
        ++m_pos;
        m_open.removeLast();
        return std::nullopt;
    }
    if (!m_open.last().first)
        expect(',', "\",\" or \"}\"");
    m_open.last().first = false;
    skipSpace();
    if (atEnd())
        failAtEnd();
    if (current() != '"')
        fail(u"expected a key in quotes"_s, m_pos);
    QString key = readString();
    expect(':', "\":\" after a key");
    return key;
}

bool JsonReader::nextElement()
{
    Q_ASSERT(!m_open.isEmpty() && !m_open.last().isObject);
    skipSpace();
    if (atEnd())
        failAtEnd();
    if (current() == ']') {
        ++m_pos;
        m_open.removeLast();
        return false;
    }
    if (!m_open.last().first)
        expect(',', "\",\" or \"]\"");
    m_open.last().first = false;
    return true;
}

uint JsonReader::hexQuad()
{
    if (m_text.size() - m_pos < 4)
        failAtEnd();
    uint value = 0;
    for (int i = 0; i < 4; ++i) {
        const char c = current();
        int digit;
        if (isDigit(c))
            digit = c - '0';
        else if (c >= 'a' && c <= 'f')
            digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            digit = c - 'A' + 10;
        else
            fail(u"a \\u escape without four hex digits"_s, m_pos);
        value = value * 16 + uint(digit);
        ++m_pos;
    }
    return value;
}

QString JsonReader::readString()
{
    if (peek() != Kind::String)
        fail(u"expected text"_s);
    ++m_pos;
    qsizetype runStart = m_pos;
    QByteArray unescaped; // used only once an escape turns up
    bool escaped = false;
    for (;;) {
        if (atEnd())
            failAtEnd();
        const char c = current();
        if (c == '"')
            break;
        if (uchar(c) < 0x20)
            fail(u"a control character inside text"_s, m_pos);
        if (c != '\\') {
            ++m_pos;
            continue;
        }
        unescaped.append(m_text.sliced(runStart, m_pos - runStart));
        escaped = true;
        const qsizetype escapeStart = m_pos;
        ++m_pos;
        if (atEnd())
            failAtEnd();
        const char kind = current();
        ++m_pos;
        switch (kind) {
        case '"':
        case '\\':
        case '/':
            unescaped.append(kind);
            break;
        case 'b':
            unescaped.append('\b');
            break;
        case 'f':
            unescaped.append('\f');
            break;
        case 'n':
            unescaped.append('\n');
            break;
        case 'r':
            unescaped.append('\r');
            break;
        case 't':
            unescaped.append('\t');
            break;
        case 'u': {
            uint cp = hexQuad();
            if (cp >= 0xDC00 && cp <= 0xDFFF)
                fail(u"half of a surrogate pair"_s, escapeStart);
            if (cp >= 0xD800 && cp <= 0xDBFF) {
                if (!m_text.sliced(m_pos).startsWith("\\u"))
                    fail(u"half of a surrogate pair"_s, escapeStart);
                m_pos += 2;
                const uint low = hexQuad();
                if (low < 0xDC00 || low > 0xDFFF)
                    fail(u"half of a surrogate pair"_s, escapeStart);
                cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
            }
            appendUtf8(unescaped, cp);
            break;
        }
        default:
            fail(u"an unknown escape"_s, escapeStart);
        }
        runStart = m_pos;
    }
    const QByteArrayView tail = m_text.sliced(runStart, m_pos - runStart);
    ++m_pos;
    if (!escaped)
        return QString::fromUtf8(tail);
    unescaped.append(tail);
    return QString::fromUtf8(unescaped);
}

bool JsonReader::scanLiteral(QByteArrayView word)
{
    if (!m_text.sliced(m_pos).startsWith(word))
        return false;
    m_pos += word.size();
    return true;
}

bool JsonReader::readBoolean()
{
    if (peek() != Kind::Boolean)
        fail(u"expected true or false"_s);
    if (scanLiteral("true"))
        return true;
    if (scanLiteral("false"))
        return false;
    fail(u"unexpected character"_s, m_pos);
}

void JsonReader::readNull()
{
    if (peek() != Kind::Null || !scanLiteral("null"))
        fail(u"expected null"_s);
}

QByteArrayView JsonReader::scanNumber()
{
    if (peek() != Kind::Number)
        fail(u"expected a number"_s);
    const qsizetype start = m_pos;
    auto digits = [this] {
        if (atEnd() || !isDigit(current()))
            fail(u"a number without its digits"_s);
        while (!atEnd() && isDigit(current()))
            ++m_pos;
    };
    if (current() == '-')
        ++m_pos;
    if (!atEnd() && current() == '0')
        ++m_pos;
    else
        digits();
    if (!atEnd() && current() == '.') {
        ++m_pos;
        digits();
    }
    if (!atEnd() && (current() == 'e' || current() == 'E')) {
        ++m_pos;
        if (!atEnd() && (current() == '+' || current() == '-'))
            ++m_pos;
        digits();
    }
    return m_text.sliced(start, m_pos - start);
}

std::optional<qint64> JsonReader::readInteger()
{
    const QByteArrayView number = scanNumber();
    const char *first = number.data();
    const char *last = first + number.size();
    qint64 whole = 0;
    if (auto [end, error] = std::from_chars(first, last, whole);
        error == std::errc() && end == last)
        return whole;
    // 2.0 and 2e3 are whole numbers too; from_chars refuses what a double can't hold.
    double value = 0;
    if (auto [end, error] = std::from_chars(first, last, value);
        error != std::errc() || end != last)
        return std::nullopt;
    if (value != std::trunc(value) || std::fabs(value) >= 9223372036854775808.0)
        return std::nullopt;
    return qint64(value);
}

void JsonReader::skipValue()
{
    switch (peek()) {
    case Kind::Null:
        readNull();
        break;
    case Kind::Boolean:
        readBoolean();
        break;
    case Kind::Number:
        scanNumber();
        break;
    case Kind::String:
        readString();
        break;
    case Kind::Array:
        beginArray();
        while (nextElement())
            skipValue();
        break;
    case Kind::Object:
        beginObject();
        while (nextKey())
            skipValue();
        break;
    }
}

void JsonReader::finish()
{
    skipSpace();
    if (!atEnd())
        fail(u"more text after the end of the data"_s, m_pos);
}
