#include "DataSafety.h"

DataSafety::DataSafety(Preferences &preferences, JournalBackup::Hooks backupHooks,
                       JournalDraftStore &drafts, SaveDebouncer &debouncer)
    : m_backup(preferences, std::move(backupHooks))
    , m_preferences(preferences)
    , m_drafts(drafts)
    , m_debouncer(debouncer)
{
}

DemoMode &DataSafety::demo()
{
    if (!m_demo)
        m_demo = std::make_unique<DemoMode>(m_preferences, m_drafts, m_debouncer);
    return *m_demo;
}
