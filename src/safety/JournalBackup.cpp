#include "JournalBackup.h"

#include "core/Clock.h"
#include "core/DataLocations.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/store/Database.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QSaveFile>
#include <QThread>

#include <qcoro/qcorosignal.h>

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString backupPrefix = u"Tovren Backup "_s;
const QString storeName = u"Tovren.store"_s;
constexpr qsizetype backupsKept = 14;
constexpr qint64 dueAfterSeconds = 20 * 3600;

struct Failure {
    QString text;
};

[[noreturn]] void fail(JournalBackup::BackupError error)
{
    throw Failure{JournalBackup::text(error)};
}

std::filesystem::path fsPath(const QString &path)
{
    return std::filesystem::path(QFile::encodeName(path).toStdString());
}

QString fsText(const std::error_code &error)
{
    return QString::fromLocal8Bit(error.message());
}

class Connection {
public:
    Connection() = default;
    ~Connection() { sqlite3_close(m_db); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    bool open(const QString &path, int flags)
    {
        return sqlite3_open_v2(QFile::encodeName(path).constData(), &m_db, flags, nullptr) ==
               SQLITE_OK;
    }
    sqlite3 *handle() const { return m_db; }

    // Every row of the statement's first column, as text; nothing when it fails.
    std::optional<QList<QByteArray>> column(const QByteArray &sql) const
    {
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(m_db, sql.constData(), int(sql.size()), &statement, nullptr) !=
            SQLITE_OK) {
            sqlite3_finalize(statement);
            return std::nullopt;
        }
        QList<QByteArray> values;
        int step = SQLITE_ROW;
        while ((step = sqlite3_step(statement)) == SQLITE_ROW)
            values.append(reinterpret_cast<const char *>(sqlite3_column_text(statement, 0)));
        sqlite3_finalize(statement);
        if (step != SQLITE_DONE)
            return std::nullopt;
        return values;
    }

private:
    sqlite3 *m_db = nullptr;
};

using RowCounts = QList<std::pair<QByteArray, QByteArray>>;

// Rows per table. A virtual table's rows are counted in the tables that hold them.
std::optional<RowCounts> rowCounts(const Connection &db)
{
    const auto tables = db.column("SELECT name FROM sqlite_master WHERE type = 'table' AND sql "
                                  "NOT LIKE 'CREATE VIRTUAL TABLE%' ORDER BY name");
    if (!tables)
        return std::nullopt;
    RowCounts counts;
    for (const QByteArray &table : *tables) {
        const auto count = db.column("SELECT count(*) FROM " +
                                     quotedIdentifier(QString::fromUtf8(table)).toUtf8());
        if (!count || count->size() != 1)
            return std::nullopt;
        counts.append({table, count->first()});
    }
    return counts;
}

// A live store in write-ahead-log mode can't be copied as a file; the online backup copies it
// consistently while Tovren may be writing. Returns the rows the copy must hold.
RowCounts snapshot(const QString &source, const QString &destination)
{
    Connection from;
    if (!from.open(source, SQLITE_OPEN_READONLY))
        fail(JournalBackup::BackupError::cantRead);
    // One read for the counts and the copy, so that both see the same moment of the journal.
    if (sqlite3_exec(from.handle(), "BEGIN", nullptr, nullptr, nullptr) != SQLITE_OK)
        fail(JournalBackup::BackupError::cantRead);
    const std::optional<RowCounts> counts = rowCounts(from);
    if (!counts)
        fail(JournalBackup::BackupError::cantRead);

    Connection to;
    if (!to.open(destination, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE))
        fail(JournalBackup::BackupError::cantWrite);
    sqlite3_backup *backup = sqlite3_backup_init(to.handle(), "main", from.handle(), "main");
    if (!backup)
        fail(JournalBackup::BackupError::cantWrite);
    // All pages in one step: a journal is small, and the read is held for the whole copy.
    const int step = sqlite3_backup_step(backup, -1);
    sqlite3_backup_finish(backup);
    sqlite3_exec(from.handle(), "COMMIT", nullptr, nullptr, nullptr);
    if (step != SQLITE_DONE)
        fail(JournalBackup::BackupError::cantWrite);
    // One self-contained file, with no log beside it to lose on the way to a drive.
    sqlite3_exec(to.handle(), "PRAGMA journal_mode=DELETE;", nullptr, nullptr, nullptr);
    return *counts;
}

// The copy must open on its own, be sound page by page, and hold what the journal held.
void verify(const QString &copy, const RowCounts &expected)
{
    Connection db;
    if (!db.open(copy, SQLITE_OPEN_READONLY))
        fail(JournalBackup::BackupError::cantWrite);
    // Mapped, the check reads the file a good third faster; nothing else touches this copy.
    sqlite3_exec(db.handle(), "PRAGMA mmap_size = 268435456", nullptr, nullptr, nullptr);
    const auto check = db.column("PRAGMA integrity_check");
    if (!check || *check != QList<QByteArray>{"ok"} || rowCounts(db) != expected)
        fail(JournalBackup::BackupError::cantWrite);
}

void writeInfo(const QString &path, const JournalBackup::Request &request)
{
    const QJsonObject info{{u"appVersion"_s, request.appVersion},
                           {u"createdAt"_s, request.createdAt.toUTC().toString(Qt::ISODate)},
                           {u"format"_s, 1}};
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QJsonDocument(info).toJson(QJsonDocument::Indented)) < 0 || !file.commit())
        fail(JournalBackup::BackupError::cantWrite);
}

void copyFolder(const QString &from, const QString &to)
{
    std::error_code error;
    std::filesystem::copy(fsPath(from), fsPath(to), std::filesystem::copy_options::recursive,
                          error);
    if (error)
        throw Failure{fsText(error)};
}

} // namespace

QString JournalBackup::text(BackupError error)
{
    switch (error) {
    case BackupError::cantRead:
        return u"Tovren couldn't read the journal to back it up."_s;
    case BackupError::cantWrite:
        return u"Tovren couldn't write the backup. Check there's space and the folder is still "
               u"there."_s;
    case BackupError::notABackup:
        return u"That folder isn't a Tovren backup."_s;
    }
    return {};
}

// Hands the request to a worker thread and resumes the waiting coroutine on the main thread
// with the outcome.
struct JournalBackup::WorkerDone {
    JournalBackup *backup;
    Request request;

    bool await_ready() const noexcept { return false; }
    void await_suspend(std::coroutine_handle<> waiting)
    {
        backup->m_waiting = waiting;
        auto outcome = std::make_shared<Outcome>();
        backup->m_outcome = outcome;
        backup->m_worker.reset(
            QThread::create([request = std::move(request), outcome] { *outcome = make(request); }));
        connect(
            backup->m_worker.get(), &QThread::finished, backup,
            [self = backup] { self->finishWorker(); }, Qt::QueuedConnection);
        backup->m_worker->start(QThread::LowPriority);
    }
    Outcome await_resume() { return std::move(*std::exchange(backup->m_outcome, nullptr)); }
};

JournalBackup::JournalBackup(Preferences &preferences, Hooks hooks, QObject *parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_hooks(std::move(hooks))
{
    if (const double last = preferences.value(Prefs::backupLastDate); last > 0)
        m_lastBackup = QDateTime::fromMSecsSinceEpoch(qint64(last * 1000), QTimeZone::utc());
    if (const std::optional<QString> extra = resolveExtraFolder())
        m_extraFolderName = QFileInfo(*extra).fileName();
    m_timer.setInterval(3600 * 1000);
    connect(&m_timer, &QTimer::timeout, this, [this] { runIfDue(); });
    preferences.onChanged(Prefs::backupEnabled.name, this, [this] { emit enabledChanged(); });
}

JournalBackup::~JournalBackup()
{
    m_closing = true;
    if (m_worker)
        finishWorker();
}

void JournalBackup::finishWorker()
{
    if (!m_worker)
        return;
    m_worker->wait();
    m_worker.reset();
    std::exchange(m_waiting, {}).resume();
}

bool JournalBackup::isEnabled() const
{
    return m_preferences.value(Prefs::backupEnabled);
}

void JournalBackup::setEnabled(bool enabled)
{
    m_preferences.set(Prefs::backupEnabled, enabled);
}

void JournalBackup::start()
{
    runIfDue();
    m_timer.start();
}

QCoro::Task<std::optional<QString>> JournalBackup::runIfDue()
{
    if (!isEnabled() || m_running)
        co_return std::nullopt;
    if (m_lastBackup && m_lastBackup->secsTo(Clock::now()) < dueAfterSeconds)
        co_return std::nullopt;
    co_return co_await backUpNow();
}

QCoro::Task<std::optional<QString>> JournalBackup::backUpNow(QString label)
{
    if (m_running || m_closing)
        co_return std::nullopt;
    m_running = true;
    emit changed();
    if (m_hooks.saveNow)
        m_hooks.saveNow();

    const QDateTime now = Clock::now();
    // Named, not a temporary in the co_await: GCC 12 mishandles temporaries there.
    WorkerDone worker{this,
                      {DataLocations::storePath(), DataLocations::imagesDir(),
                       DataLocations::backupsDir(), folderName(now, label), resolveExtraFolder(),
                       QCoreApplication::applicationVersion(), now, beforeVerifying}};
    const Outcome outcome = co_await worker;
    m_running = false;
    if (!outcome.error.isEmpty()) {
        // The last backup stays as it was, so the next hourly check tries again.
        m_lastError = outcome.error;
        emit changed();
        co_return std::nullopt;
    }
    m_lastBackup = Clock::now();
    m_lastError.reset();
    m_preferences.set(Prefs::backupLastDate, double(m_lastBackup->toMSecsSinceEpoch()) / 1000);
    emit changed();
    co_return outcome.folder;
}

JournalBackup::Outcome JournalBackup::make(const Request &request)
{
    Outcome outcome;
    const QString folder = request.root + u'/' + request.name;
    try {
        std::error_code error;
        std::filesystem::create_directories(fsPath(request.root), error);
        if (error)
            fail(BackupError::cantWrite);
        // Two backups in the same minute with the same label: the later one stands.
        std::filesystem::remove_all(fsPath(folder), error);
        std::filesystem::create_directory(fsPath(folder), error);
        if (error)
            fail(BackupError::cantWrite);

        const QString store = folder + u'/' + storeName;
        try {
            const RowCounts counts = snapshot(request.storePath, store);
            if (request.beforeVerifying)
                request.beforeVerifying(store);
            verify(store, counts);
        } catch (const Failure &) {
            // A copy that isn't whole must never be offered for a restore.
            std::filesystem::remove_all(fsPath(folder), error);
            throw;
        }
        // The store keeps its large values in its own tables: there is no folder of them to copy.
        if (QFileInfo(request.imagesDir).isDir())
            copyFolder(request.imagesDir, folder + u"/Images"_s);
        writeInfo(folder + u"/Backup Info.json"_s, request);
        if (const std::optional<QString> problem = prune(request.root))
            throw Failure{*problem};
        outcome.folder = folder;

        if (request.extraFolder) {
            const QString copy = *request.extraFolder + u'/' + request.name;
            std::filesystem::remove_all(fsPath(copy), error);
            copyFolder(folder, copy);
            if (const std::optional<QString> problem = prune(*request.extraFolder))
                throw Failure{*problem};
        }
    } catch (const Failure &failure) {
        outcome.error = failure.text;
    }
    return outcome;
}

QString JournalBackup::folderName(const QDateTime &now, const QString &label)
{
    const QDateTime local = now.toTimeZone(Calendar::current().timeZone());
    QString name = backupPrefix + QLocale::c().toString(local, u"yyyy-MM-dd HHmm"_s);
    if (!label.isEmpty())
        name += u' ' + label;
    return name;
}

std::optional<QString> JournalBackup::prune(const QString &folder)
{
    std::error_code error;
    QStringList backups;
    for (std::filesystem::directory_iterator entry(fsPath(folder), error), end;
         !error && entry != end; entry.increment(error)) {
        // Only our own names: a shared folder's other entries are never touched.
        const QString name = QFile::decodeName(entry->path().filename().c_str());
        if (name.startsWith(backupPrefix))
            backups.append(name);
    }
    if (error)
        return fsText(error);
    // The date in the name makes this newest first.
    std::sort(backups.begin(), backups.end(), std::greater<>());
    for (qsizetype i = backupsKept; i < backups.size(); ++i)
        std::filesystem::remove_all(fsPath(folder + u'/' + backups.at(i)), error);
    return std::nullopt;
}

std::optional<QString> JournalBackup::resolveExtraFolder() const
{
    const std::optional<QByteArray> path = m_preferences.value(Prefs::backupExtraFolderBookmark);
    if (!path || path->isEmpty() || !QFileInfo(QString::fromUtf8(*path)).isDir())
        return std::nullopt;
    return QString::fromUtf8(*path);
}

void JournalBackup::useExtraFolder(const QString &path)
{
    const QString folder = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    m_preferences.set(Prefs::backupExtraFolderBookmark, folder.toUtf8());
    m_extraFolderName = QFileInfo(folder).fileName();
    emit changed();
    backUpNow();
}

void JournalBackup::stopExtraFolder()
{
    m_preferences.remove(Prefs::backupExtraFolderBookmark.name);
    m_extraFolderName.reset();
    emit changed();
}

bool JournalBackup::isBackup(const QString &folder)
{
    return QFileInfo(folder + u'/' + storeName).isFile();
}

QCoro::Task<bool> JournalBackup::restore(QString folder)
{
    folder = QDir::cleanPath(QFileInfo(folder).absoluteFilePath());
    if (!isBackup(folder)) {
        m_lastError = text(BackupError::notABackup);
        emit changed();
        co_return false;
    }
    // The journal as it is now must be kept, even when a daily backup is just under way.
    while (m_running)
        co_await qCoro(this, &JournalBackup::changed);
    // Its failure doesn't stop the restore the user asked for.
    co_await backUpNow(u"before restore"_s);
    if (m_closing)
        co_return false;
    m_preferences.set(Prefs::backupPendingRestoreBookmark, folder.toUtf8());
    m_preferences.flush();
    if (m_hooks.relaunch)
        m_hooks.relaunch();
    co_return true;
}

std::optional<QString> JournalBackup::applyPendingRestore(Preferences &preferences)
{
    const std::optional<QByteArray> pending =
        preferences.value(Prefs::backupPendingRestoreBookmark);
    if (!pending)
        return std::nullopt;
    // Gone before anything is tried, so that a restore that fails can't come back at every start.
    preferences.remove(Prefs::backupPendingRestoreBookmark.name);
    preferences.flush();
    // The process that asked for the restore has ended: this one waited for its instance lock.
    const QString folder = QString::fromUtf8(*pending);
    if (!isBackup(folder))
        return std::nullopt;

    std::error_code error;
    const QString store = DataLocations::storePath();
    for (const QString &suffix : {QString(), u"-wal"_s, u"-shm"_s})
        std::filesystem::remove(fsPath(store + suffix), error);
    const auto failed = [](const std::error_code &cause) {
        return u"The backup couldn't be restored: "_s + fsText(cause);
    };
    std::filesystem::create_directories(fsPath(DataLocations::dataRoot()), error);
    std::filesystem::copy_file(fsPath(folder + u'/' + storeName), fsPath(store), error);
    if (error)
        return failed(error);
    // The store's large values come with it; there is no separate folder of them.
    if (const QString images = folder + u"/Images"_s; QFileInfo(images).isDir()) {
        const std::filesystem::path target = fsPath(DataLocations::imagesDir());
        std::filesystem::remove_all(target, error);
        std::filesystem::create_directories(target.parent_path(), error);
        std::filesystem::copy(fsPath(images), target, std::filesystem::copy_options::recursive,
                              error);
        if (error)
            return failed(error);
    }
    return u"Restored your journal from \""_s + QFileInfo(folder).fileName() +
           u"\". The journal you had before is saved as a backup marked \"before restore\"."_s;
}

void JournalBackup::eraseLocalBackups()
{
    std::error_code error;
    std::filesystem::remove_all(fsPath(DataLocations::backupsDir()), error);
    m_lastBackup.reset();
    m_preferences.remove(Prefs::backupLastDate.name);
    emit changed();
}
