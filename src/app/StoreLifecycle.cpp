#include "StoreLifecycle.h"

#include "core/Clock.h"
#include "core/DataLocations.h"
#include "core/records/StoreSchema.h"
#include "core/store/StoreError.h"

#include <QFile>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace StoreLifecycle {

std::unique_ptr<ModelContainer> openContainer(const ModelContainer::Configuration &configuration)
{
    return std::make_unique<ModelContainer>(StoreSchema::current(), configuration);
}

std::unique_ptr<ModelContainer> makeContainer(const Opener &opener)
{
    return opener(ModelContainer::Configuration::atPath(DataLocations::storePath()));
}

namespace {

Sidecar readSidecar(const QString &path)
{
    Sidecar sidecar;
    QFile file(path);
    sidecar.existed = file.exists();
    if (sidecar.existed && file.open(QIODevice::ReadOnly))
        sidecar.bytes = file.readAll();
    return sidecar;
}

QByteArray contentsOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Sets one sidecar aside as it was before the open; true when it is there under `target`.
bool setAside(const QString &path, const Sidecar &before, const QString &target)
{
    const bool present = QFile::exists(path);
    if (!before.existed) {
        // Made by the failed open itself: beside a fresh store it would be taken for its own.
        if (present)
            QFile::remove(path);
        return false;
    }
    if (!before.bytes || (present && contentsOf(path) == *before.bytes))
        return present && QFile::rename(path, target);
    // On disk before the live file goes.
    QSaveFile copy(target);
    if (!copy.open(QIODevice::WriteOnly) || copy.write(*before.bytes) != before.bytes->size() ||
        !copy.commit())
        return false;
    QFile::setPermissions(target, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    if (present)
        QFile::remove(path);
    return true;
}

} // namespace

Sidecars Sidecars::readNow()
{
    const QString storePath = DataLocations::storePath();
    return {readSidecar(storePath + u"-shm"_s), readSidecar(storePath + u"-wal"_s)};
}

std::optional<QString> quarantineCorruptStore(const Sidecars &beforeOpen)
{
    const QString storePath = DataLocations::storePath();
    const QString stamp = Clock::now().toUTC().toString(Qt::ISODate).replace(u':', u'-');
    const QString suffix = u".corrupt-"_s + stamp;
    int moved = 0;
    if (QFile::exists(storePath) && QFile::rename(storePath, storePath + suffix))
        ++moved;
    for (const auto &[name, before] :
         {std::pair{u"-shm"_s, beforeOpen.shm}, {u"-wal"_s, beforeOpen.wal}}) {
        if (setAside(storePath + name, before, storePath + name + suffix))
            ++moved;
    }
    if (moved == 0)
        return std::nullopt;
    return u"Your local database was unreadable and has been quarantined. A fresh database has "
           "been created. The original files are preserved with a `.corrupt-%1` suffix in "
           "Tovren's data folder."_s.arg(stamp);
}

std::unique_ptr<ModelContainer> inMemoryFallback(const Opener &opener)
{
    return opener(ModelContainer::Configuration::memoryOnly());
}

Opened open(std::optional<QString> notice, const Opener &opener)
{
    Opened result;
    const Sidecars beforeOpen = Sidecars::readNow();
    try {
        result.container = makeContainer(opener);
        result.recoveryNotice = std::move(notice);
        return result;
    } catch (const StoreError &) {
        // Whatever the reason, the file is treated as damaged; the earlier notice is dropped.
    }

    const std::optional<QString> quarantined = quarantineCorruptStore(beforeOpen);
    try {
        result.container = makeContainer(opener);
        result.state = State::rebuilt;
        result.recoveryNotice =
            quarantined.value_or(u"We rebuilt your local database after a corruption error."_s);
        return result;
    } catch (const StoreError &error) {
        result.container = inMemoryFallback(opener);
        result.state = State::inMemory;
        result.recoveryNotice =
            u"Couldn't open or rebuild your local database (%1). Running in "
            "memory, so changes won't persist until this is resolved."_s.arg(error.description());
        return result;
    }
}

} // namespace StoreLifecycle
