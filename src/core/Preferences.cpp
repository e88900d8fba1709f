#include "Preferences.h"

#include "Clock.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <cmath>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const QString dataTag = u"$data"_s;
const QString dateTag = u"$date"_s;

bool isTagged(const QJsonObject &object)
{
    return object.size() == 1 && (object.contains(dataTag) || object.contains(dateTag));
}

std::optional<QString> taggedText(const QJsonValue &value, const QString &tag)
{
    const QJsonObject object = value.toObject();
    const QJsonValue inner = object.value(tag);
    if (object.size() != 1 || !inner.isString())
        return std::nullopt;
    return inner.toString();
}

// A rename is durable only once its folder is synced.
void syncFolder(const QString &folder)
{
    const int fd =
        ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    ::fsync(fd);
    ::close(fd);
}

} // namespace

Preferences::Preferences(QString filePath, QObject *parent)
    : QObject(parent)
    , m_filePath(std::move(filePath))
{
    m_writeTimer.setSingleShot(true);
    m_writeTimer.setInterval(0);
    connect(&m_writeTimer, &QTimer::timeout, this, [this] { write(); });
    load();
}

Preferences::~Preferences()
{
    flush();
}

void Preferences::load()
{
    QFile file(m_filePath);
    if (!file.exists())
        return;
    if (file.open(QIODevice::ReadOnly)) {
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
        if (error.error == QJsonParseError::NoError && document.isObject()) {
            m_values = document.object();
            return;
        }
        file.close();
    }
    m_unreadableFileInTheWay = !moveAside();
}

bool Preferences::moveAside()
{
    if (!QFileInfo::exists(m_filePath))
        return true;
    const QString base =
        m_filePath + u".corrupt-"_s + Clock::now().toUTC().toString(u"yyyyMMdd'T'HHmmss'Z'"_s);
    QString target = base;
    for (int n = 2; QFileInfo::exists(target); ++n)
        target = base + u'-' + QString::number(n);
    if (QFile::rename(m_filePath, target)) {
        qWarning("Preferences: unreadable file kept as %s; starting with defaults",
                 qUtf8Printable(target));
        return true;
    }
    qWarning("Preferences: cannot move the unreadable %s aside; changes stay in memory",
             qUtf8Printable(m_filePath));
    return false;
}

bool Preferences::write()
{
    if (!m_dirty)
        return true;
    if (m_unreadableFileInTheWay) {
        m_unreadableFileInTheWay = !moveAside();
        if (m_unreadableFileInTheWay)
            return false;
    }

    const QString folder = QFileInfo(m_filePath).absolutePath();
    QSaveFile file(m_filePath);
    bool ok = QDir().mkpath(folder) && file.open(QIODevice::WriteOnly);
    if (ok) {
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        const QByteArray bytes = QJsonDocument(m_values).toJson(QJsonDocument::Indented);
        // QSaveFile renames without syncing; after a power cut that could leave an empty file
        // in place of every setting.
        ok = file.write(bytes) == bytes.size() && file.flush() && ::fsync(file.handle()) == 0 &&
             file.commit();
    }
    if (!ok) {
        // Warn once per run of failures: the next change tries again, and every keystroke may
        // be one.
        if (!m_lastWriteFailed)
            qWarning("Preferences: cannot write %s: %s", qUtf8Printable(m_filePath),
                     qUtf8Printable(file.errorString()));
        m_lastWriteFailed = true;
        return false;
    }
    m_lastWriteFailed = false;
    m_dirty = false;
    m_folderNeedsSync = true;
    return true;
}

void Preferences::flush()
{
    m_writeTimer.stop();
    if (write() && m_folderNeedsSync) {
        syncFolder(QFileInfo(m_filePath).absolutePath());
        m_folderNeedsSync = false;
    }
}

void Preferences::store(const QString &key, const QJsonValue &value)
{
    if (value.isUndefined()) {
        remove(key);
        return;
    }
    const auto existing = m_values.constFind(key);
    if (existing != m_values.constEnd() && *existing == value)
        return;
    m_values.insert(key, value);
    noteChange(key);
}

bool Preferences::contains(const QString &key) const
{
    return m_values.contains(key);
}

QJsonValue Preferences::rawValue(const QString &key) const
{
    return m_values.value(key);
}

void Preferences::remove(const QString &key)
{
    const auto existing = m_values.find(key);
    if (existing == m_values.end())
        return;
    m_values.erase(existing);
    noteChange(key);
}

void Preferences::noteChange(const QString &key)
{
    m_dirty = true;
    m_writeTimer.start();
    emit changed(key);
}

std::optional<bool> Preferences::boolValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    if (!value.isBool())
        return std::nullopt;
    return value.toBool();
}

std::optional<qint64> Preferences::integerValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    if (!value.isDouble())
        return std::nullopt;
    // toInteger() falls back to 0 for a fraction or an out-of-range double.
    const qint64 integer = value.toInteger();
    if (static_cast<double>(integer) != value.toDouble())
        return std::nullopt;
    return integer;
}

std::optional<double> Preferences::doubleValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    if (!value.isDouble())
        return std::nullopt;
    return value.toDouble();
}

std::optional<QString> Preferences::textValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    if (!value.isString())
        return std::nullopt;
    return value.toString();
}

std::optional<QByteArray> Preferences::bytesValue(const QString &key) const
{
    return bytesFromJson(m_values.value(key));
}

std::optional<QStringList> Preferences::textListValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    if (!value.isArray())
        return std::nullopt;
    QStringList list;
    const QJsonArray array = value.toArray();
    list.reserve(array.size());
    for (const QJsonValue &element : array) {
        if (!element.isString())
            return std::nullopt;
        list.append(element.toString());
    }
    return list;
}

std::optional<QJsonObject> Preferences::dictionaryValue(const QString &key) const
{
    const QJsonValue value = m_values.value(key);
    if (!value.isObject() || isTagged(value.toObject()))
        return std::nullopt;
    return value.toObject();
}

std::optional<QDateTime> Preferences::dateValue(const QString &key) const
{
    return dateFromJson(m_values.value(key));
}

void Preferences::setBool(const QString &key, bool value)
{
    store(key, QJsonValue(value));
}

void Preferences::setInteger(const QString &key, qint64 value)
{
    store(key, QJsonValue(value));
}

void Preferences::setDouble(const QString &key, double value)
{
    store(key, std::isfinite(value) ? QJsonValue(value) : QJsonValue(QJsonValue::Undefined));
}

void Preferences::setText(const QString &key, const QString &value)
{
    store(key, QJsonValue(value));
}

void Preferences::setBytes(const QString &key, const QByteArray &value)
{
    store(key, bytesToJson(value));
}

void Preferences::setTextList(const QString &key, const QStringList &value)
{
    store(key, QJsonArray::fromStringList(value));
}

void Preferences::setDictionary(const QString &key, const QJsonObject &value)
{
    store(key, value);
}

void Preferences::setDate(const QString &key, const QDateTime &value)
{
    store(key, dateToJson(value));
}

void Preferences::setRaw(const QString &key, const QJsonValue &value)
{
    store(key, value);
}

QJsonValue Preferences::bytesToJson(const QByteArray &bytes)
{
    return QJsonObject{{dataTag, QString::fromLatin1(bytes.toBase64())}};
}

std::optional<QByteArray> Preferences::bytesFromJson(const QJsonValue &value)
{
    const std::optional<QString> encoded = taggedText(value, dataTag);
    if (!encoded)
        return std::nullopt;
    auto decoded = QByteArray::fromBase64Encoding(encoded->toLatin1(),
                                                  QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded)
        return std::nullopt;
    return std::move(decoded.decoded);
}

QJsonValue Preferences::dateToJson(const QDateTime &date)
{
    if (!date.isValid())
        return QJsonValue(QJsonValue::Undefined);
    return QJsonObject{{dateTag, date.toUTC().toString(Qt::ISODateWithMs)}};
}

std::optional<QDateTime> Preferences::dateFromJson(const QJsonValue &value)
{
    const std::optional<QString> text = taggedText(value, dateTag);
    if (!text)
        return std::nullopt;
    const QDateTime date = QDateTime::fromString(*text, Qt::ISODateWithMs);
    if (!date.isValid())
        return std::nullopt;
    return date;
}
