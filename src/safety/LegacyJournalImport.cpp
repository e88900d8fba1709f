#include "LegacyJournalImport.h"

#include "core/DataLocations.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QUuid>

#include <sqlite3.h>

#include <pwd.h>
#include <unistd.h>

#include <array>

using namespace Qt::StringLiterals;

// Diagnostics only; nothing here is shown to the user.
Q_LOGGING_CATEGORY(lcLegacyImport, "tovren.LegacyImport", QtWarningMsg)

namespace LegacyJournalImport {

namespace {

const std::array<QString, 3> storeFiles{u"default.store"_s, u"default.store-wal"_s,
                                        u"default.store-shm"_s};
const QString imagesPath = u"Tovren/Images"_s;

// Keys that describe the earlier install's own state, not the user's choices: a pending restore
// of its backups or its half-told notices must not act on this journal.
const QStringList keptBack{u"legacyJournalImportDone"_s, u"backupPendingRestoreBookmark"_s,
                           u"pendingRecoveryNotice"_s, u"demoModeActive"_s};

void importPreferences(Preferences &preferences, const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QJsonObject old = QJsonDocument::fromJson(file.readAll()).object();
    for (auto it = old.constBegin(); it != old.constEnd(); ++it) {
        if (!keptBack.contains(it.key()) && !preferences.contains(it.key()))
            preferences.setRaw(it.key(), it.value());
    }
}

bool copyImages(const QString &from, const QString &to)
{
    const QDir source(from);
    if (!source.exists())
        return true;
    if (!QDir().mkpath(to))
        return false;
    bool allCopied = true;
    for (const QFileInfo &image : source.entryInfoList(QDir::Files)) {
        const QString target = to + u'/' + image.fileName();
        if (!QFileInfo::exists(target))
            allCopied = QFile::copy(image.filePath(), target) && allCopied;
    }
    return allCopied;
}

bool sameFolder(const QString &a, const QString &b)
{
    const QString canonicalA = QFileInfo(a).canonicalFilePath();
    const QString canonicalB = QFileInfo(b).canonicalFilePath();
    if (!canonicalA.isEmpty() && !canonicalB.isEmpty())
        return canonicalA == canonicalB;
    return QDir::cleanPath(a) == QDir::cleanPath(b);
}

} // namespace

std::optional<Locations> standardLocations()
{
    // A data folder named on purpose (tests, a second journal) is not a sandbox's remapping.
    if (!qEnvironmentVariableIsEmpty("TOVREN_DATA_DIR"))
        return std::nullopt;
    const passwd *account = getpwuid(getuid());
    if (!account || !account->pw_dir || account->pw_dir[0] == '\0')
        return std::nullopt;
    const QString home = QFile::decodeName(account->pw_dir);
    return Locations{home + u"/.local/share/tovren"_s, home + u"/.config/tovren/preferences.json"_s,
                     DataLocations::dataRoot()};
}

std::optional<QString> runIfNeeded(Preferences &preferences)
{
    return run(preferences, standardLocations());
}

std::optional<QString> run(Preferences &preferences, const std::optional<Locations> &locations)
{
    if (preferences.value(Prefs::legacyJournalImportDone))
        return std::nullopt;
    if (!locations)
        return std::nullopt;
    // A native install reads the earlier folder as its own: there is nothing to bring across.
    if (sameFolder(locations->oldRoot, locations->newRoot))
        return std::nullopt;
    const auto finish = [&preferences](const char *message) {
        qCInfo(lcLegacyImport, "%s", message);
        preferences.set(Prefs::legacyJournalImportDone, true);
    };

    importPreferences(preferences, locations->oldPreferences);
    const QString oldStore = locations->oldRoot + u'/' + storeFiles[0];
    if (!QFileInfo::exists(oldStore)) {
        finish("No earlier journal at the old location.");
        return std::nullopt;
    }

    const QString staging = locations->newRoot + u"/.legacy-import-"_s +
                            QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    struct Cleanup {
        QString path;
        ~Cleanup() { QDir(path).removeRecursively(); }
    } cleanup{staging};
    if (!QDir().mkpath(staging)) {
        qCInfo(lcLegacyImport, "Couldn't prepare the import: %s",
               "can't create the staging folder");
        return std::nullopt;
    }
    // The log files travel with the store, so SQLite's recovery works on the copies only.
    for (const QString &name : storeFiles) {
        const QString from = locations->oldRoot + u'/' + name;
        if (QFileInfo::exists(from) && !QFile::copy(from, staging + u'/' + name)) {
            qCInfo(lcLegacyImport, "Couldn't prepare the import: %s", qPrintable(name));
            return std::nullopt;
        }
    }

    const std::optional<qint64> size = journalSize(staging + u'/' + storeFiles[0]);
    if (!size) {
        finish("The file at the old location belongs to another app; leaving it alone.");
        return std::nullopt;
    }
    if (*size < 1) {
        finish("The earlier journal is empty; nothing to bring across.");
        return std::nullopt;
    }
    const QString newStore = locations->newRoot + u'/' + storeFiles[0];
    if (QFileInfo::exists(newStore) && journalSize(newStore).value_or(0) >= 1) {
        finish("Journals in both locations; leaving both untouched.");
        return twoJournalsNotice();
    }

    for (const QString &name : storeFiles)
        QFile::remove(locations->newRoot + u'/' + name);
    for (const QString &name : storeFiles) {
        const QString staged = staging + u'/' + name;
        if (QFileInfo::exists(staged) && !QFile::rename(staged, locations->newRoot + u'/' + name)) {
            qCInfo(lcLegacyImport, "Couldn't move the journal into place: %s", qPrintable(name));
            return std::nullopt;
        }
    }
    if (!copyImages(locations->oldRoot + u'/' + imagesPath, locations->newRoot + u'/' + imagesPath))
        qCInfo(lcLegacyImport, "Some earlier images couldn't be copied.");
    qCInfo(lcLegacyImport, "Brought an earlier journal across (%lld items).",
           static_cast<long long>(*size));
    preferences.set(Prefs::legacyJournalImportDone, true);
    return std::nullopt;
}

std::optional<qint64> journalSize(const QString &storePath)
{
    sqlite3 *db = nullptr;
    // Read-write, as a store is opened, so that a staged log is taken into account.
    if (sqlite3_open_v2(QFile::encodeName(storePath).constData(), &db, SQLITE_OPEN_READWRITE,
                        nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return std::nullopt;
    }
    const auto tableExists = [db](const char *name) {
        sqlite3_stmt *statement = nullptr;
        bool exists = false;
        if (sqlite3_prepare_v2(db, "SELECT 1 FROM sqlite_master WHERE type='table' AND name=?1", -1,
                               &statement, nullptr) == SQLITE_OK) {
            sqlite3_bind_text(statement, 1, name, -1, SQLITE_STATIC);
            exists = sqlite3_step(statement) == SQLITE_ROW;
        }
        sqlite3_finalize(statement);
        return exists;
    };
    std::optional<qint64> total;
    if (tableExists("DailyEntry")) {
        total = 0;
        for (const char *table : {"DailyEntry", "Person", "TaskItem", "Goal", "Meeting"}) {
            if (!tableExists(table))
                continue;
            sqlite3_stmt *statement = nullptr;
            const QByteArray sql = QByteArray("SELECT COUNT(*) FROM \"") + table + '"';
            if (sqlite3_prepare_v2(db, sql.constData(), -1, &statement, nullptr) == SQLITE_OK &&
                sqlite3_step(statement) == SQLITE_ROW)
                *total += sqlite3_column_int64(statement, 0);
            sqlite3_finalize(statement);
        }
    }
    sqlite3_close(db);
    return total;
}

QString supportPage()
{
    return u"https://"_s + QStringLiteral(TOVREN_SUPPORT_HOST) + u"/support"_s;
}

QString twoJournalsNotice()
{
    return u"Tovren found a journal from an earlier download on this computer, alongside the one "
           "you're using now. Neither has been changed. Get in touch at "_s +
           supportPage() + u" and we'll help you bring them together."_s;
}

} // namespace LegacyJournalImport
