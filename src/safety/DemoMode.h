#pragma once

#include "core/store/ModelContainer.h"

#include <QList>
#include <QObject>

#include <chrono>
#include <functional>
#include <list>
#include <memory>

class JournalDraftStore;
class ModelContext;
class Preferences;
class SaveDebouncer;

// A filled-in Tovren to explore: while it is on, the whole shell and the assistant tools work on
// a second store, in memory and seeded with sample data. The user's own store stays open beside
// it, untouched, and is back the moment demo mode ends.
class DemoMode : public QObject {
    Q_OBJECT
public:
    using Factory = std::function<std::unique_ptr<ModelContainer>()>;
    // Views still being torn down may touch a store that was just taken away.
    static constexpr std::chrono::milliseconds retirement{10000};

    // Picks up demoModeActive: a demo left on at the last quit starts again at once, freshly
    // seeded, since nothing of an earlier demo survives a store in memory.
    DemoMode(Preferences &preferences, JournalDraftStore &drafts, SaveDebouncer &debouncer,
             Factory makeStore = &DemoMode::makeContainer, QObject *parent = nullptr);
    ~DemoMode() override;

    bool isActive() const { return bool(m_container); }
    // Raised at every change of store and at every erase; a loaded page that saw an older value
    // drops its late saves.
    static int generation();
    ModelContainer *container() const { return m_container.get(); }
    // The store the shell and the tools work on: the demo's while it is on, otherwise `real`.
    ModelContext &activeContext(ModelContext &real) const;

    // Each does nothing when already in that state. No draft of either journal crosses over.
    void enter();
    void exit();

    // Stores taken out of use and not yet released.
    QList<const ModelContainer *> retired() const;
    void setRetirement(std::chrono::milliseconds delay) { m_retirement = delay; }

    // A store of the real schema in memory; nothing when it can't be made.
    static std::unique_ptr<ModelContainer> makeContainer();

signals:
    // The store under the shell changed; `active` says which one it is now.
    void changed(bool active);

private:
    bool activate();
    void dropDrafts();

    Preferences &m_preferences;
    JournalDraftStore &m_drafts;
    SaveDebouncer &m_debouncer;
    Factory m_makeStore;
    std::unique_ptr<ModelContainer> m_container;
    std::list<std::unique_ptr<ModelContainer>> m_retired;
    std::chrono::milliseconds m_retirement = retirement;
};
