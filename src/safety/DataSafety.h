#pragma once

#include "DemoMode.h"
#include "JournalBackup.h"

#include <memory>

class JournalDraftStore;
class ModelContext;
class Preferences;
class SaveDebouncer;

// The data-safety services for the life of the process: the daily backups and their restore,
// and demo mode.
class DataSafety {
public:
    // Demo mode clears the journal's drafts and pending save when it swaps the store.
    DataSafety(Preferences &preferences, JournalBackup::Hooks backupHooks,
               JournalDraftStore &drafts, SaveDebouncer &debouncer);
    DataSafety(const DataSafety &) = delete;
    DataSafety &operator=(const DataSafety &) = delete;

    JournalBackup &backup() { return m_backup; }
    // Made on first use, the window's: a relaunch in demo mode seeds its store then, and the
    // windowless face, which never asks, stays on the user's own journal.
    DemoMode &demo();
    bool isDemoActive() const { return m_demo && m_demo->isActive(); }
    // The store everything works on: the demo's while demo mode is on, otherwise `real`.
    ModelContext &activeContext(ModelContext &real) const
    {
        return m_demo ? m_demo->activeContext(real) : real;
    }

private:
    JournalBackup m_backup;
    Preferences &m_preferences;
    JournalDraftStore &m_drafts;
    SaveDebouncer &m_debouncer;
    std::unique_ptr<DemoMode> m_demo;
};
