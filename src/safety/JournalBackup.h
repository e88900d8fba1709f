#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QTimer>

#include <qcoro/qcorotask.h>

#include <coroutine>
#include <functional>
#include <memory>
#include <optional>

class Preferences;
class QThread;

// Daily copies of the journal under Tovren/Backups in the data root, the last fourteen kept,
// with an optional second copy in a folder of the user's choice (a synced folder or a drive).
// A restore never swaps files under the open store: it leaves the folder in the preferences,
// relaunches, and the next process copies the files in before its store opens.
class JournalBackup : public QObject {
    Q_OBJECT
public:
    enum class BackupError { cantRead, cantWrite, notABackup };
    static QString text(BackupError error);

    struct Hooks {
        // Puts pending typing and unsaved records on disk, so that a backup holds them.
        std::function<void()> saveNow;
        // Starts Tovren again and ends this process; false when no new process could start.
        std::function<bool()> relaunch;
    };

    JournalBackup(Preferences &preferences, Hooks hooks, QObject *parent = nullptr);
    // Waits for a copy under way, so that no worker outlives its folder.
    ~JournalBackup() override;

    std::optional<QDateTime> lastBackup() const { return m_lastBackup; }
    bool isRunning() const { return m_running; }
    const std::optional<QString> &lastError() const { return m_lastError; }
    // The extra folder's last path component, for display.
    const std::optional<QString> &extraFolderName() const { return m_extraFolderName; }
    bool isEnabled() const;
    void setEnabled(bool enabled);

    // Checks at once and then every hour whether a backup is due.
    void start();
    // Backs up when on, not busy, and the last backup is 20 hours old or more: a user who opens
    // Tovren a little earlier each day still gets one a day. Returns the new folder.
    QCoro::Task<std::optional<QString>> runIfDue();
    // The new folder, or nothing when one is already being made or this one failed.
    QCoro::Task<std::optional<QString>> backUpNow(QString label = QString());

    // The folder the user picked for a second copy; a backup follows at once.
    void useExtraFolder(const QString &path);
    // Later backups stay local; copies already made stay where they are.
    void stopExtraFolder();
    // The extra folder when one is set and still there.
    std::optional<QString> resolveExtraFolder() const;

    // A folder is a backup when it holds Tovren.store; nothing else is looked at.
    static bool isBackup(const QString &folder);
    // Backs the current journal up (labelled "before restore"), leaves the folder for the
    // next start and relaunches. False, with lastError set, when the folder is no backup.
    QCoro::Task<bool> restore(QString folder);
    // At process start, before any store is open: copies in the backup a restore left behind.
    // Returns the notice for the user.
    static std::optional<QString> applyPendingRestore(Preferences &preferences);

    // Part of "Erase All Data": the local backups go; the extra folder keeps its copies.
    void eraseLocalBackups();

    // What one backup needs, as values: it is made on a worker thread.
    struct Request {
        QString storePath;
        QString imagesDir;
        QString root;
        QString name;
        std::optional<QString> extraFolder;
        QString appVersion;
        QDateTime createdAt;
        // Test seam: runs on the worker once the store is copied, before the copy is checked.
        std::function<void(const QString &copiedStore)> beforeVerifying;
    };
    struct Outcome {
        QString folder; // the local folder, when it was made
        QString error;  // empty on success
    };
    static Outcome make(const Request &request);

    // "Tovren Backup yyyy-MM-dd HHmm", in the user's time zone, and the label after a blank.
    static QString folderName(const QDateTime &now, const QString &label);
    // Keeps the fourteen newest folders named as backups; returns the error when the folder
    // can't be listed.
    static std::optional<QString> prune(const QString &folder);

    // Test seam, handed to every backup's request.
    std::function<void(const QString &copiedStore)> beforeVerifying;

signals:
    // Any of the state above changed.
    void changed();
    void enabledChanged();

private:
    struct WorkerDone;
    void finishWorker();

    Preferences &m_preferences;
    Hooks m_hooks;
    QTimer m_timer;
    std::optional<QDateTime> m_lastBackup;
    std::optional<QString> m_lastError;
    std::optional<QString> m_extraFolderName;
    bool m_running = false;
    // Set while the destructor finishes a backup under way: nothing may start from it.
    bool m_closing = false;
    std::unique_ptr<QThread> m_worker;
    std::shared_ptr<Outcome> m_outcome;
    std::coroutine_handle<> m_waiting;
};
