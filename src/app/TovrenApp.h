#pragma once

#include "StoreLifecycle.h"
#include "ai/AIContext.h"
#include "ai/AIKeyStore.h"
#include "bridge/MCPTools.h"
#include "inbox/InboxServices.h"
#include "writing/JournalDraftStore.h"
#include "writing/SaveDebouncer.h"

#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>

#include <qcoro/qcorotask.h>

#include <functional>
#include <memory>
#include <optional>

class AppCalendar;
class DataSafety;
class Generators;
class MCPServer;
class ModelContainer;
class ModelContext;
class Preferences;
class SecretStore;

// The launch steps that work on files before any store is open. Each returns the notice it
// has for the user, if any.
struct LaunchSteps {
    std::function<std::optional<QString>(Preferences &)> legacyImport;
    std::function<std::optional<QString>(Preferences &)> pendingRestore;
    std::function<void(Preferences &)> toolGroupDefaults;
    StoreLifecycle::Opener openStore = StoreLifecycle::openContainer;
    // The desktop's notification centre; tests give an in-memory one.
    InboxServices::CenterFactory notificationCenter;

    static LaunchSteps standard();
};

// The composition root: owns the store, the preferences and the long-lived services for the
// life of the process, runs the start-up in its fixed order, and hands the services to the faces.
class TovrenApp : public QObject {
    Q_OBJECT
public:
    explicit TovrenApp(LaunchSteps steps = LaunchSteps::standard(), QObject *parent = nullptr);
    ~TovrenApp() override;

    // Process start: legacy import, pending restore, tool-group defaults, then the store; the
    // assistant bridge listens from then on whenever the user has it switched on.
    // Raises StoreError only when not even a store in memory can be had.
    void start();

    Preferences &preferences() { return *m_preferences; }
    AppCalendar &appCalendar() { return *m_calendar; }
    ModelContainer &container() { return *m_container; }
    // The store the screens and the assistant tools work on: the sample's while demo mode is on.
    ModelContext &mainContext();
    // The user's own store, whatever the shell shows.
    ModelContext &realContext();
    bool isDemoActive() const;
    MCPTools &mcpTools() { return m_mcpTools; }
    MCPServer &mcpServer() { return *m_mcpServer; }
    // The journal's unsaved typing, shared by every open page and the assistant tools.
    JournalDraftStore &journalDrafts() { return m_drafts; }
    SaveDebouncer &saveDebouncer() { return m_saveDebouncer; }
    // What the AI engine works with: preferences, the provider keys and the network.
    AIContext aiContext() { return {*m_preferences, *m_keys, m_network}; }
    AIKeyStore &keyStore() { return *m_keys; }
    InboxServices &inbox() { return *m_inbox; }
    // Backups and their restore, and demo mode.
    DataSafety &safety() { return *m_safety; }
    // Summaries, task phrasing and the rest of what writes for the user.
    Generators &generators();
    const std::optional<QString> &recoveryNotice() const { return m_recoveryNotice; }
    StoreLifecycle::State storeState() const { return m_storeState; }

    // The main shell is showing (or, without a window, start-up is done): pass this launch's
    // notice on to the first page and start the deferred launch work. Runs again whenever the
    // shell appears again; each piece of work guards itself.
    void shellDidAppear();
    // Without a window: this launch's notice goes to the inbox now and stays pending for the
    // next window's alert. Returns it, for standard error.
    std::optional<QString> noticeWithoutWindow();

    struct Alert {
        QString title;
        QString text;
    };
    // The page is up, at every showing of the shell: picks up a pending recovery notice (the
    // alert to show, also kept as an inbox row) and mirrors the profile.
    std::optional<Alert> firstPageDidAppear();

    QCoro::Task<> deferredLaunchWork();
    void postLibraryNudgeIfNeeded();

    // Removes everything Tovren keeps of the user's except generated reviews and settings. The
    // store is emptied before the first suspension; the result says whether every saved provider
    // key is gone too.
    QCoro::Task<bool> eraseAllData();

    // Puts on disk now what is pending: typing still waiting for its debounced save, unsaved
    // records and the preferences. Called when the application goes inactive and at the end.
    void saveNow();

    static QString recoveryAlertTitle(const QString &notice);

private:
    void postRecoveryInboxRow(const QString &notice);

    LaunchSteps m_steps;
    std::unique_ptr<Preferences> m_preferences;
    std::unique_ptr<AppCalendar> m_calendar;
    std::unique_ptr<ModelContainer> m_container;
    JournalDraftStore m_drafts;
    SaveDebouncer m_saveDebouncer;
    MCPTools m_mcpTools;
    std::unique_ptr<MCPServer> m_mcpServer;
    QNetworkAccessManager m_network;
    std::unique_ptr<SecretStore> m_secrets;
    std::unique_ptr<AIKeyStore> m_keys;
    std::unique_ptr<InboxServices> m_inbox;
    std::unique_ptr<DataSafety> m_safety;
    // Background AI work belongs to this; it goes first when Tovren closes.
    std::unique_ptr<QObject> m_aiWork = std::make_unique<QObject>();
    std::unique_ptr<Generators> m_generators;
    std::unique_ptr<Generators> m_demoGenerators;
    QPointer<ModelContext> m_demoGeneratorsContext;
    std::optional<QString> m_recoveryNotice;
    // Once per launch: this launch's notice is passed on, and the on-device model is checked.
    bool m_noticePassedOn = false;
    bool m_modelChecked = false;
    StoreLifecycle::State m_storeState = StoreLifecycle::State::normal;
};
