#pragma once

#include <QByteArray>
#include <QString>
#include <QUuid>

#include <optional>

// The image files beside the store, one per image, named after the image's id. Keeps no state,
// so any thread may use it. Failures go to the diagnostic log and show only in the result.
namespace ImageStorage {

// Writes the file atomically; the reference to keep is the id's text.
std::optional<QString> save(const QByteArray &data, const QUuid &id);
// Absent when the reference is not a UUID text or the file can't be read.
std::optional<QByteArray> load(const QString &ref);
// Whether the image is gone afterwards; removing one that isn't there succeeds.
bool remove(const QString &ref);

QString pathFor(const QUuid &id);

} // namespace ImageStorage
