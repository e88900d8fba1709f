#include "DemoMode.h"

#include "DemoSeeder.h"
#include "core/DataGeneration.h"
#include "core/ImageStorage.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/EntryImage.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "writing/JournalDraftStore.h"
#include "writing/SaveDebouncer.h"

#include <QTimer>

DemoMode::DemoMode(Preferences &preferences, JournalDraftStore &drafts, SaveDebouncer &debouncer,
                   Factory makeStore, QObject *parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_drafts(drafts)
    , m_debouncer(debouncer)
    , m_makeStore(std::move(makeStore))
{
    if (m_preferences.value(Prefs::demoModeActive))
        activate();
}

DemoMode::~DemoMode() = default;

int DemoMode::generation()
{
    return DataGeneration::current();
}

ModelContext &DemoMode::activeContext(ModelContext &real) const
{
    return m_container ? m_container->mainContext() : real;
}

std::unique_ptr<ModelContainer> DemoMode::makeContainer()
{
    try {
        return std::make_unique<ModelContainer>(StoreSchema::current(),
                                                ModelContainer::Configuration::memoryOnly());
    } catch (const StoreError &) {
        return nullptr;
    }
}

bool DemoMode::activate()
{
    std::unique_ptr<ModelContainer> store = m_makeStore ? m_makeStore() : nullptr;
    if (!store)
        return false;
    ModelContext &context = store->mainContext();
    DemoSeeder::seed(context);
    context.trySave();
    context.setAutosaveEnabled(true);
    m_container = std::move(store);
    emit changed(true);
    return true;
}

void DemoMode::dropDrafts()
{
    DataGeneration::advance();
    m_debouncer.cancel();
    m_drafts.clear();
}

void DemoMode::enter()
{
    if (isActive())
        return;
    dropDrafts();
    // A store that can't be made leaves demo mode off, and the next launch as it was.
    if (activate())
        m_preferences.set(Prefs::demoModeActive, true);
}

void DemoMode::exit()
{
    if (!isActive())
        return;
    dropDrafts();
    // Pictures pasted while exploring are files beside the real store; they go with the demo.
    for (const auto &image : m_container->mainContext().tryFetch<EntryImage>())
        ImageStorage::remove(image->id.toString(QUuid::WithoutBraces).toUpper());
    const ModelContainer *old = m_container.get();
    m_retired.push_back(std::move(m_container));
    emit changed(false);
    m_preferences.set(Prefs::demoModeActive, false);
    QTimer::singleShot(m_retirement, this, [this, old] {
        m_retired.remove_if([old](const auto &store) { return store.get() == old; });
    });
}

QList<const ModelContainer *> DemoMode::retired() const
{
    QList<const ModelContainer *> stores;
    for (const auto &store : m_retired)
        stores.append(store.get());
    return stores;
}
