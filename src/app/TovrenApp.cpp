#include "TovrenApp.h"

#include "ai/AIAvailabilityNotifier.h"
#include "ai/HttpExchange.h"
#include "bridge/JournalTools.h"
#include "bridge/MCPProtocol.h"
#include "bridge/MCPServer.h"
#include "bridge/MCPToolGroup.h"
#include "bridge/PeopleTools.h"
#include "bridge/TaskTools.h"
#include "core/AppCalendar.h"
#include "core/DataGeneration.h"
#include "core/DataLocations.h"
#include "core/ImageStorage.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/UserProfile.h"
#include "core/records/AIInteraction.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Document.h"
#include "core/records/EntryImage.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/SavedStory.h"
#include "core/records/Tag.h"
#include "core/records/TaskItem.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "generators/Generators.h"
#include "inbox/InboxService.h"
#include "platform/DesktopNotificationCenter.h"
#include "platform/SecretStore.h"
#include "platform/SingleInstance.h"
#include "safety/DataSafety.h"
#include "safety/LegacyJournalImport.h"

#include <QCoreApplication>
#include <QTimer>

using namespace Qt::StringLiterals;

LaunchSteps LaunchSteps::standard()
{
    LaunchSteps steps;
    steps.legacyImport = LegacyJournalImport::runIfNeeded;
    steps.pendingRestore = JournalBackup::applyPendingRestore;
    steps.toolGroupDefaults = MCPToolGroup::applyDefaultsOnce;
    steps.notificationCenter = [] {
        return std::unique_ptr<NotificationCenter>(new DesktopNotificationCenter);
    };
    return steps;
}

TovrenApp::TovrenApp(LaunchSteps steps, QObject *parent)
    : QObject(parent)
    , m_steps(std::move(steps))
    , m_preferences(std::make_unique<Preferences>(DataLocations::preferencesPath()))
    , m_calendar(std::make_unique<AppCalendar>())
    , m_mcpServer(std::make_unique<MCPServer>(
          MCPProtocol(*m_preferences, m_mcpTools,
                      [this] { return m_container ? &m_container->mainContext() : nullptr; })))
    , m_secrets(std::make_unique<SecretServiceStore>(AIKeyStore::service))
    , m_keys(std::make_unique<AIKeyStore>(*m_secrets))
    , m_inbox(std::make_unique<InboxServices>(
          m_steps.notificationCenter ? m_steps.notificationCenter : [] {
              return std::unique_ptr<NotificationCenter>(new DesktopNotificationCenter);
          }))
{
    JournalTools::registerAll(m_mcpTools, m_drafts, *m_preferences);
    PeopleTools::registerAll(m_mcpTools);
    TaskTools::registerAll(m_mcpTools);
    // A restore starts the new process first; it waits until this one has saved and gone.
    const auto relaunch = [] {
        if (!SingleInstance::relaunch())
            return false;
        QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        return true;
    };
    m_safety = std::make_unique<DataSafety>(*m_preferences,
                                            JournalBackup::Hooks{[this] { saveNow(); }, relaunch},
                                            m_drafts, m_saveDebouncer);
}

TovrenApp::~TovrenApp()
{
    // Requests still under way end now, so that whatever awaits them finishes (and frees
    // itself) while everything it may touch still exists; background work sees it is no
    // longer wanted.
    m_aiWork.reset();
    HttpExchange::endAll(m_network);
    saveNow();
}

ModelContext &TovrenApp::mainContext()
{
    return m_safety->activeContext(realContext());
}

ModelContext &TovrenApp::realContext()
{
    return m_container->mainContext();
}

bool TovrenApp::isDemoActive() const
{
    return m_safety->isDemoActive();
}

Generators &TovrenApp::generators()
{
    if (!isDemoActive())
        return *m_generators;
    // The demo writes with its own, so that nothing made for the sample lands in the journal.
    // An earlier demo's goes only now: its screens went when that demo ended.
    ModelContext &demo = mainContext();
    if (m_demoGeneratorsContext != &demo) {
        m_demoGenerators = std::make_unique<Generators>(aiContext(), demo, m_aiWork.get());
        m_demoGeneratorsContext = &demo;
    }
    return *m_demoGenerators;
}

void TovrenApp::start()
{
    std::optional<QString> notice =
        m_steps.legacyImport ? m_steps.legacyImport(*m_preferences) : std::nullopt;
    // A restore overwrites the store files, so it runs after the import, and its word wins.
    if (std::optional<QString> restored =
            m_steps.pendingRestore ? m_steps.pendingRestore(*m_preferences) : std::nullopt)
        notice = std::move(restored);
    if (m_steps.toolGroupDefaults)
        m_steps.toolGroupDefaults(*m_preferences);

    StoreLifecycle::Opened opened = StoreLifecycle::open(std::move(notice), m_steps.openStore);
    m_container = std::move(opened.container);
    m_recoveryNotice = std::move(opened.recoveryNotice);
    m_storeState = opened.state;
    m_generators = std::make_unique<Generators>(aiContext(), realContext(), m_aiWork.get());
    // Autosave starts once start-up has handed the thread back.
    QTimer::singleShot(0, this, [this] { realContext().setAutosaveEnabled(true); });

    // Both faces serve assistants from the main store; no window needs to exist for it.
    m_mcpServer->followPreference(*m_preferences, [this] { return &mainContext(); });
}

void TovrenApp::shellDidAppear()
{
    // The sample journal gets neither: both wait until the user's own journal shows again.
    if (isDemoActive())
        return;
    // Written again at a later showing, it would raise the same alert each time.
    if (m_recoveryNotice && !m_noticePassedOn) {
        m_preferences->set(Prefs::pendingRecoveryNotice, m_recoveryNotice);
        m_noticePassedOn = true;
    }
    // Behind the first page: the work starts once the event loop has drawn it.
    QTimer::singleShot(0, this, [this] { deferredLaunchWork(); });
}

QString TovrenApp::recoveryAlertTitle(const QString &notice)
{
    return notice.startsWith(u"Restored"_s) ? u"Journal restored"_s : u"Database recovered"_s;
}

std::optional<QString> TovrenApp::noticeWithoutWindow()
{
    if (m_recoveryNotice)
        postRecoveryInboxRow(*m_recoveryNotice);
    return m_recoveryNotice;
}

void TovrenApp::postRecoveryInboxRow(const QString &notice)
{
    ModelContext &context = realContext();
    // A launch without a window posted it already; the window then only raises the alert.
    if (!context.tryFetch<InboxItem>({field(&InboxItem::body) == notice, {}, 1}).isEmpty())
        return;
    InboxService::post(context, InboxItemKind::system, recoveryAlertTitle(notice), notice);
}

std::optional<TovrenApp::Alert> TovrenApp::firstPageDidAppear()
{
    std::optional<Alert> alert;
    if (isDemoActive())
        return alert;
    ModelContext &context = mainContext();
    if (const std::optional<QString> notice = m_preferences->value(Prefs::pendingRecoveryNotice)) {
        m_preferences->remove(Prefs::pendingRecoveryNotice.name);
        alert = Alert{recoveryAlertTitle(*notice), *notice};
        postRecoveryInboxRow(*notice);
    }

    if (const auto profile = context.tryFetch<Document>(
            {field(&Document::category) == DocumentCategory::aboutMe, {}, 1});
        !profile.isEmpty()) {
        UserProfile::mirror(*m_preferences, profile.first()->userName,
                            profile.first()->avatarData.optionalValue());
    }
    // Not awaited: the page is up, and the answer of the on-device model server may take a while.
    if (!m_modelChecked) {
        m_modelChecked = true;
        AIAvailabilityNotifier::runIfNeeded(context, *m_preferences, m_network,
                                            OnDeviceModel::defaultServer(), m_aiWork.get());
    }
    return alert;
}

QCoro::Task<> TovrenApp::deferredLaunchWork()
{
    // Started just before demo mode came on, it waits for the next showing of the real journal.
    if (isDemoActive())
        co_return;
    // The update check joins before the backups, and missing recaps and the streak reminder
    // after them, as they arrive.
    m_safety->backup().start();
    postLibraryNudgeIfNeeded();
    // Banners the user never opened join the inbox, in both faces.
    m_inbox->reconcileNotifications(mainContext());
    co_return;
}

void TovrenApp::postLibraryNudgeIfNeeded()
{
    if (m_preferences->value(Prefs::libraryNudgePosted))
        return;
    ModelContext &context = mainContext();
    qint64 entries = 0;
    try {
        entries = context.fetchCount<DailyEntry>();
    } catch (const StoreError &) {
        return; // asked again at a later launch
    }
    if (entries < 10)
        return;
    if (!context
             .tryFetch<Document>({field(&Document::category) != DocumentCategory::aboutMe, {}, 1})
             .isEmpty()) {
        m_preferences->set(Prefs::libraryNudgePosted, true); // the user found the library alone
        return;
    }
    InboxService::post(
        context, InboxItemKind::system, u"Sharpen your recaps and reviews"_s,
        u"Add a leveling guide, a past review, or your resume to Library. Every brief and story is "
        "grounded in what Tovren knows. The more it knows about the bar you're measured against, "
        "the sharper the drafts."_s,
        std::nullopt, u"Open Library"_s, u"tab:library"_s);
    m_preferences->set(Prefs::libraryNudgePosted, true);
}

namespace {

template<class T>
void removeAll(ModelContext &context)
{
    for (const auto &record : context.tryFetch<T>())
        context.remove(record);
}

} // namespace

QCoro::Task<bool> TovrenApp::eraseAllData()
{
    DataGeneration::advance();
    // A save already on its way must not bring back what is about to go.
    m_saveDebouncer.cancel();
    m_drafts.clear();
    const bool demo = isDemoActive();
    if (!demo)
        m_safety->backup().eraseLocalBackups();
    ModelContext &context = mainContext();
    for (const auto &image : context.tryFetch<EntryImage>())
        ImageStorage::remove(image->id.toString(QUuid::WithoutBraces).toUpper());

    // Generated reviews are deliberately kept: they outlive an erase.
    removeAll<DailyEntry>(context);
    removeAll<Meeting>(context);
    removeAll<Person>(context);
    removeAll<Goal>(context);
    removeAll<GoalMilestone>(context);
    removeAll<TaskItem>(context);
    removeAll<ActionItem>(context);
    removeAll<Document>(context);
    removeAll<EntryImage>(context);
    removeAll<Tag>(context);
    removeAll<InboxItem>(context);
    removeAll<AIInteraction>(context);
    removeAll<WeeklyBrief>(context);
    removeAll<SavedStory>(context);
    context.trySave();
    // In demo mode only the sample goes: the profile, the keys, the banners and the assistants
    // belong to the user's own journal beside it.
    if (demo) {
        NoticeCenter::shared().post(Notices::dataErased);
        co_return true;
    }

    m_preferences->remove(Prefs::userProfileName.name);
    m_preferences->remove(Prefs::userProfileAvatar.name);
    m_preferences->remove(Prefs::userProfileEmail.name);
    // An assistant that was reading the journal starts again from the empty one.
    if (m_mcpServer->isRunning())
        m_mcpServer->disconnectAll();
    // The pages go now; the keys may wait behind a keyring's unlock prompt, and the caller
    // says whether they went.
    NoticeCenter::shared().post(Notices::dataErased);
    // The log of banners holds their words too.
    QStringList delivered;
    for (const NotificationCenter::Delivered &shown :
         co_await m_inbox->notifications().deliveredNotifications())
        delivered.append(shown.identifier);
    if (!delivered.isEmpty())
        m_inbox->notifications().removeDelivered(delivered);
    co_return co_await m_keys->removeAllProviderKeys();
}

void TovrenApp::saveNow()
{
    m_saveDebouncer.fire();
    if (m_container) {
        mainContext().trySave();
        realContext().trySave();
    }
    if (m_preferences)
        m_preferences->flush();
}
