#pragma once

#include <QByteArrayView>
#include <QList>
#include <QString>

#include <optional>
#include <stdexcept>

// Reads JSON text (RFC 8259, UTF-8) one value at a time, straight into the caller's own values,
// so that nothing the caller doesn't keep is ever held in memory. Strict where QJsonDocument is
// lenient with a file from outside: lone surrogate escapes and raw control characters inside
// strings are refused, not repaired. A key given twice is the caller's to refuse: only it knows
// which keys it keeps, and remembering every key of a hostile object would cost more memory than
// the file. A leading byte-order mark is allowed. Keeps no shared state, so readers may run on
// any thread.
class JsonReader {
public:
    // Why the text was refused, in words that point at the place.
    class Error : public std::runtime_error {
    public:
        explicit Error(const QString &description)
            : std::runtime_error(description.toStdString())
            , m_description(description)
        {
        }
        const QString &description() const { return m_description; }

    private:
        QString m_description;
    };

    enum class Kind { Null, Boolean, Number, String, Array, Object };

    // Deep enough for any format of ours, shallow enough that skipping an unknown value, which
    // recurses, never nears the end of the stack.
    static constexpr int maxDepth = 32;

    // Raises Error when the text isn't well-formed UTF-8.
    explicit JsonReader(QByteArrayView text);

    // The kind of the next value; raises Error when none can start here.
    Kind peek();

    void beginObject();
    // The next key of the object being read, or nothing at its end.
    std::optional<QString> nextKey();
    void beginArray();
    // Whether another element of the array being read follows.
    bool nextElement();

    QString readString();
    bool readBoolean();
    void readNull();
    // A number whose value is whole and fits 64 bits, or nothing (the number is read either way).
    std::optional<qint64> readInteger();
    // Any value, checked for form and then forgotten.
    void skipValue();
    // Only white space may follow the value that was read.
    void finish();

    // Where the value about to be read starts, once peek() has looked at it.
    qsizetype offset() const { return m_pos; }
    // Raise Error with the problem and the place of the value about to be read, or of the
    // value that started at an earlier offset.
    [[noreturn]] void fail(const QString &problem) const;
    [[noreturn]] void fail(const QString &problem, qsizetype offset) const;

    // The first byte of the text that isn't part of well-formed UTF-8 (overlong forms,
    // surrogates and values beyond U+10FFFF included), or -1 when all of it is.
    static qsizetype invalidUtf8Offset(QByteArrayView text);

private:
    struct Container {
        bool isObject = false;
        bool first = true;
    };

    void skipSpace();
    bool atEnd() const { return m_pos >= m_text.size(); }
    char current() const { return m_text.at(m_pos); }
    void expect(char c, const char *what);
    void push(bool isObject);
    QString location(qsizetype offset) const;
    [[noreturn]] void failAtEnd() const;
    uint hexQuad();
    QByteArrayView scanNumber();
    bool scanLiteral(QByteArrayView word);

    QByteArrayView m_text;
    qsizetype m_pos = 0;
    QList<Container> m_open;
};
