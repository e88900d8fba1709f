#pragma once

#include <QByteArray>
#include <QLatin1StringView>
#include <QList>
#include <QString>

// Writes JSON text in one pretty form: two-space indents, "key": value, "[]" and "{}" when
// empty, text as UTF-8 with only the escapes JSON requires, a newline at the end. The caller
// gives each object's keys in sorted order; debug builds check that it does.
class JsonWriter {
public:
    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    void key(QLatin1StringView name);

    void value(const QString &text);
    void value(bool flag);
    void value(qint64 number);
    void value(int number) { value(qint64(number)); }

    // The text written so far, closed with a newline; the writer starts afresh.
    QByteArray take();

private:
    struct Container {
        bool isObject = false;
        bool empty = true;
        QLatin1StringView lastKey;
    };

    void beforeValue();
    void newline(qsizetype depth);
    void begin(char bracket, bool isObject);
    void end(char bracket);

    QByteArray m_out;
    QList<Container> m_open;
    bool m_afterKey = false;
};
