#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <optional>
#include <type_traits>
#include <utility>

// A preference: its stored name, and what a reader gets when the key is absent or holds a value
// of another type. With T an optional, the default is "no value".
template<class T>
struct PrefKey {
    QString name;
    T defaultValue;
};

// Every setting and small persistent flag, kept as one JSON object in one file. Bools, numbers,
// text, lists and dictionaries are plain JSON so that the file can be written by hand; bytes and
// date-times are tagged objects, {"$data": base64} and {"$date": ISO 8601 in UTC with ms}.
// Changes reach the file on the next turn of the event loop. Main thread only, one instance per
// file: the file is read once, and two instances would overwrite each other's changes.
class Preferences : public QObject {
    Q_OBJECT
public:
    explicit Preferences(QString filePath, QObject *parent = nullptr);
    ~Preferences() override;

    const QString &filePath() const { return m_filePath; }

    bool contains(const QString &key) const;
    // Undefined when the key is absent.
    QJsonValue rawValue(const QString &key) const;
    void remove(const QString &key);

    // An absent key and a value of another type both read as no value.
    std::optional<bool> boolValue(const QString &key) const;
    std::optional<qint64> integerValue(const QString &key) const;
    std::optional<double> doubleValue(const QString &key) const;
    std::optional<QString> textValue(const QString &key) const;
    std::optional<QByteArray> bytesValue(const QString &key) const;
    std::optional<QStringList> textListValue(const QString &key) const;
    std::optional<QJsonObject> dictionaryValue(const QString &key) const;
    std::optional<QDateTime> dateValue(const QString &key) const;

    void setBool(const QString &key, bool value);
    void setInteger(const QString &key, qint64 value);
    // JSON has no NaN or infinity: such a number removes the key.
    void setDouble(const QString &key, double value);
    void setText(const QString &key, const QString &value);
    void setBytes(const QString &key, const QByteArray &value);
    void setTextList(const QString &key, const QStringList &value);
    void setDictionary(const QString &key, const QJsonObject &value);
    // Kept to the millisecond; an invalid date-time removes the key.
    void setDate(const QString &key, const QDateTime &value);
    // An undefined value removes the key.
    void setRaw(const QString &key, const QJsonValue &value);

    template<class T>
    T value(const PrefKey<T> &key) const;
    // Setting an optional key to nullopt removes it.
    template<class T>
    void set(const PrefKey<T> &key, const std::type_identity_t<T> &value);

    // Calls fn, with or without the key as argument, whenever that one key changes.
    template<class F>
    QMetaObject::Connection onChanged(const QString &key, const QObject *context, F &&fn);

    // Writes pending changes now and returns once they are on disk, folder entry included.
    void flush();

    // The tagged forms, for dates and bytes nested in lists or dictionaries.
    static QJsonValue bytesToJson(const QByteArray &bytes);
    static std::optional<QByteArray> bytesFromJson(const QJsonValue &value);
    static QJsonValue dateToJson(const QDateTime &date);
    static std::optional<QDateTime> dateFromJson(const QJsonValue &value);

signals:
    void changed(const QString &key);

private:
    template<class T>
    std::optional<T> typedValue(const QString &key) const;
    template<class T>
    void setTyped(const QString &key, const T &value);

    void load();
    void store(const QString &key, const QJsonValue &value);
    void noteChange(const QString &key);
    bool moveAside();
    bool write();

    QString m_filePath;
    QJsonObject m_values;
    QTimer m_writeTimer;
    bool m_dirty = false;
    // A file we could not read and could not move aside either: never write over it.
    bool m_unreadableFileInTheWay = false;
    bool m_folderNeedsSync = false;
    bool m_lastWriteFailed = false;
};

template<class T>
inline constexpr bool isPrefOptional = false;
template<class T>
inline constexpr bool isPrefOptional<std::optional<T>> = true;

template<class T>
std::optional<T> Preferences::typedValue(const QString &key) const
{
    if constexpr (std::is_same_v<T, bool>)
        return boolValue(key);
    else if constexpr (std::is_same_v<T, qint64>)
        return integerValue(key);
    else if constexpr (std::is_same_v<T, double>)
        return doubleValue(key);
    else if constexpr (std::is_same_v<T, QString>)
        return textValue(key);
    else if constexpr (std::is_same_v<T, QByteArray>)
        return bytesValue(key);
    else if constexpr (std::is_same_v<T, QStringList>)
        return textListValue(key);
    else if constexpr (std::is_same_v<T, QJsonObject>)
        return dictionaryValue(key);
    else if constexpr (std::is_same_v<T, QDateTime>)
        return dateValue(key);
    else
        static_assert(!sizeof(T), "not a preference type");
}

template<class T>
void Preferences::setTyped(const QString &key, const T &value)
{
    if constexpr (std::is_same_v<T, bool>)
        setBool(key, value);
    else if constexpr (std::is_same_v<T, qint64>)
        setInteger(key, value);
    else if constexpr (std::is_same_v<T, double>)
        setDouble(key, value);
    else if constexpr (std::is_same_v<T, QString>)
        setText(key, value);
    else if constexpr (std::is_same_v<T, QByteArray>)
        setBytes(key, value);
    else if constexpr (std::is_same_v<T, QStringList>)
        setTextList(key, value);
    else if constexpr (std::is_same_v<T, QJsonObject>)
        setDictionary(key, value);
    else if constexpr (std::is_same_v<T, QDateTime>)
        setDate(key, value);
    else
        static_assert(!sizeof(T), "not a preference type");
}

template<class T>
T Preferences::value(const PrefKey<T> &key) const
{
    if constexpr (isPrefOptional<T>) {
        if (auto stored = typedValue<typename T::value_type>(key.name))
            return stored;
        return key.defaultValue;
    } else {
        return typedValue<T>(key.name).value_or(key.defaultValue);
    }
}

template<class T>
void Preferences::set(const PrefKey<T> &key, const std::type_identity_t<T> &value)
{
    if constexpr (isPrefOptional<T>) {
        if (value)
            setTyped(key.name, *value);
        else
            remove(key.name);
    } else {
        setTyped(key.name, value);
    }
}

template<class F>
QMetaObject::Connection Preferences::onChanged(const QString &key, const QObject *context, F &&fn)
{
    return connect(this, &Preferences::changed, context,
                   [key, fn = std::forward<F>(fn)](const QString &changedKey) mutable {
                       if (changedKey != key)
                           return;
                       if constexpr (std::is_invocable_v<decltype(fn) &, const QString &>)
                           fn(changedKey);
                       else
                           fn();
                   });
}
