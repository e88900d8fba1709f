#include "ImageStorage.h"

#include "core/DataLocations.h"

#include <QFile>
#include <QSaveFile>

#include <filesystem>
#include <system_error>

using namespace Qt::StringLiterals;

namespace {

QString idText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

// Only the exact 36-character form: QUuid::fromString also accepts braces and trailing text.
std::optional<QUuid> idFromRef(const QString &ref)
{
    const QUuid id = QUuid::fromString(ref);
    if (ref.size() != 36 || idText(id).compare(ref, Qt::CaseInsensitive) != 0)
        return std::nullopt;
    return id;
}

void logFailure(const QString &message)
{
    qWarning("%s", qUtf8Printable(message));
}

} // namespace

namespace ImageStorage {

QString pathFor(const QUuid &id)
{
    return DataLocations::imagesDir() + u'/' + idText(id) + u".png"_s;
}

std::optional<QString> save(const QByteArray &data, const QUuid &id)
{
    // QDir::mkpath says only that it failed; the log should say why.
    std::error_code error;
    std::filesystem::create_directories(QFile::encodeName(DataLocations::imagesDir()).toStdString(),
                                        error);
    if (error) {
        logFailure(u"Couldn't access the images folder: "_s +
                   QString::fromStdString(error.message()));
        return std::nullopt;
    }

    QSaveFile file(pathFor(id));
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !file.commit()) {
        logFailure(u"Couldn't save the image: "_s + file.errorString());
        return std::nullopt;
    }
    return idText(id);
}

std::optional<QByteArray> load(const QString &ref)
{
    const std::optional<QUuid> id = idFromRef(ref);
    if (!id)
        return std::nullopt;
    QFile file(pathFor(*id));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    return data;
}

bool remove(const QString &ref)
{
    // A text that is no id names no file of ours, so there is nothing to remove.
    const std::optional<QUuid> id = idFromRef(ref);
    if (!id)
        return true;
    QFile file(pathFor(*id));
    if (!file.exists() || file.remove())
        return true;
    logFailure(u"Couldn't delete the image: "_s + file.errorString());
    return false;
}

} // namespace ImageStorage
