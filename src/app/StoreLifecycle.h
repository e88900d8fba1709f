#pragma once

#include "core/store/ModelContainer.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

// Opening the one local store at launch: open it; on any failure set the files aside and build
// a fresh one; when that fails too, run on a store in memory so that Tovren stays usable.
namespace StoreLifecycle {

enum class State { normal, rebuilt, inMemory };

struct Opened {
    std::unique_ptr<ModelContainer> container;
    std::optional<QString> recoveryNotice;
    State state = State::normal;
};

// Opens a store for a configuration; tests may put another in its place.
using Opener =
    std::function<std::unique_ptr<ModelContainer>(const ModelContainer::Configuration &)>;
std::unique_ptr<ModelContainer> openContainer(const ModelContainer::Configuration &configuration);

// The store at its default place in the data root; raises StoreError.
std::unique_ptr<ModelContainer> makeContainer(const Opener &opener = openContainer);

// The store's -shm and -wal as they were before anything opened it: SQLite's first connection
// rebuilds the index, and a failed open may add to the log, so a copy read beforehand is what
// gets set aside. A sidecar that was missing has no copy; one that couldn't be read has no bytes.
struct Sidecar {
    bool existed = false;
    std::optional<QByteArray> bytes;
};
struct Sidecars {
    Sidecar shm;
    Sidecar wal;
    static Sidecars readNow();
};

// Moves the store file and its -shm and -wal sidecars aside with a ".corrupt-<stamp>" suffix,
// the sidecars as `beforeOpen` holds them. Returns the notice to show when at least one file
// moved. Never raises.
std::optional<QString> quarantineCorruptStore(const Sidecars &beforeOpen = Sidecars::readNow());

// The same store in memory; when even this fails there is nothing left to fall back to.
std::unique_ptr<ModelContainer> inMemoryFallback(const Opener &opener = openContainer);

// The whole sequence. `notice` is what the earlier launch steps had to say; a failed open
// drops it in favour of the corruption notice.
Opened open(std::optional<QString> notice, const Opener &opener = openContainer);

} // namespace StoreLifecycle
