#include "StoreLifecycle.h"

#include "core/Clock.h"
#include "core/DataLocations.h"
#include "core/records/StoreSchema.h"
#include "core/store/StoreError.h"

#include <QFile>

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

std::optional<QString> quarantineCorruptStore()
{
    const QString storePath = DataLocations::storePath();
    const QString stamp = Clock::now().toUTC().toString(Qt::ISODate).replace(u':', u'-');
    int moved = 0;
    for (const QString &suffix : {QString(), u"-shm"_s, u"-wal"_s}) {
        const QString path = storePath + suffix;
        if (QFile::exists(path) && QFile::rename(path, path + u".corrupt-"_s + stamp))
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
    try {
        result.container = makeContainer(opener);
        result.recoveryNotice = std::move(notice);
        return result;
    } catch (const StoreError &) {
        // Whatever the reason, the file is treated as damaged; the earlier notice is dropped.
    }

    const std::optional<QString> quarantined = quarantineCorruptStore();
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
