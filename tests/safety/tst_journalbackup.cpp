#include "LineClient.h"
#include "TovrenProcess.h"
#include "core/DataLocations.h"
#include "core/ImageStorage.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/DailyEntry.h"
#include "core/records/StoreSchema.h"
#include "core/store/Database.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "platform/SingleInstance.h"
#include "safety/JournalBackup.h"

#include <QDir>
#include <QJsonArray>
#include <QTcpSocket>
#include <QTest>

#include <qcoro/qcorotask.h>

#include <system_error>

using namespace Qt::StringLiterals;

namespace {

// 13:57 in the test calendar's Berlin.
const QDateTime launchTime(QDate(2026, 11, 15), QTime(12, 57, 30), Qt::UTC);
const QString firstName = u"Tovren Backup 2026-11-15 1357"_s;

QStringList folders(const QString &path)
{
    return QDir(path).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
}

// Read without opening the file as Tovren would, which changes its journal mode.
QStringList pagesIn(const QString &folder)
{
    QStringList pages;
    for (const QVariantList &row : Database(folder + u"/Tovren.store"_s)
                                       .query(u"SELECT content FROM DailyEntry ORDER BY 1"_s))
        pages.append(row.value(0).toString());
    return pages;
}

// A journal as a running Tovren holds it: the store open in write-ahead-log mode, the
// preferences, and the backups over them.
struct Journal {
    TempDataDir dir;
    FixedClock clock{launchTime, testCalendar()};
    std::unique_ptr<ModelContainer> store = std::make_unique<ModelContainer>(
        StoreSchema::current(), ModelContainer::Configuration::atPath(DataLocations::storePath()));
    std::unique_ptr<Preferences> preferences =
        std::make_unique<Preferences>(DataLocations::preferencesPath());
    int relaunches = 0;
    std::unique_ptr<JournalBackup> backup = makeBackup();

    std::unique_ptr<JournalBackup> makeBackup()
    {
        return std::make_unique<JournalBackup>(
            *preferences, JournalBackup::Hooks{[this] { store->mainContext().save(); },
                                               [this] { return ++relaunches, true; }});
    }
    // Left unsaved: a backup saves what is pending first.
    void write(const QString &content)
    {
        store->mainContext().insert(std::make_shared<DailyEntry>(content, Clock::now(), false));
    }
    std::optional<QString> backUp(const QString &label = QString())
    {
        return QCoro::waitFor(backup->backUpNow(label));
    }
    QString error() const { return backup->lastError().value_or(QString()); }
};

QString toolText(quint16 port, const QByteArray &tool, const QJsonObject &arguments = {})
{
    const auto answer = LineClient(port).call(Line::call("1", tool, arguments), 30000);
    return QJsonValue(answer.value_or(QJsonObject()))["result"_L1]["content"_L1][0]["text"_L1]
        .toString();
}

bool listening(quint16 port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    return socket.waitForConnected(500);
}

} // namespace

class JournalBackupTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_runtime;

private slots:
    void initTestCase()
    {
        QCoreApplication::setApplicationVersion(u"1.4.2"_s);
        // Never the user's own running Tovren.
        QVERIFY(m_runtime.isValid());
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
    }

    void backsUpWhenDue_data()
    {
        QTest::addColumn<qint64>("lastAgo"); // seconds; negative: never backed up
        QTest::addColumn<QVariant>("enabled");
        QTest::addColumn<bool>("made");
        QTest::newRow("first launch, setting never written") << -1LL << QVariant() << true;
        QTest::newRow("19 h 59 min after the last") << 71940LL << QVariant() << false;
        QTest::newRow("20 h after the last") << 72000LL << QVariant(true) << true;
        QTest::newRow("already done today") << 3600LL << QVariant(true) << false;
        QTest::newRow("switched off") << 90000LL << QVariant(false) << false;
    }
    void backsUpWhenDue()
    {
        QFETCH(qint64, lastAgo);
        QFETCH(QVariant, enabled);
        QFETCH(bool, made);
        Journal journal;
        if (enabled.isValid())
            journal.preferences->set(Prefs::backupEnabled, enabled.toBool());
        const double last = lastAgo < 0 ? 0 : double(launchTime.toSecsSinceEpoch() - lastAgo);
        journal.preferences->set(Prefs::backupLastDate, last);
        journal.backup = journal.makeBackup(); // reads the date, as at launch

        QCOMPARE(QCoro::waitFor(journal.backup->runIfDue()).has_value(), made);
        QCOMPARE(folders(DataLocations::backupsDir()).size(), made ? 1 : 0);
        QCOMPARE(journal.preferences->value(Prefs::backupLastDate),
                 made ? double(launchTime.toSecsSinceEpoch()) : last);
    }

    // A rollback-journal copy with every page, unsaved ones too, the images and a description;
    // a second backup in the same minute takes the first one's place.
    void aBackupHoldsTheJournal()
    {
        Journal journal;
        journal.write(u"- saved"_s);
        journal.store->mainContext().save();
        journal.write(u"- typed"_s);
        const QUuid image = QUuid::createUuid();
        QVERIFY(ImageStorage::save("picture", image));

        const QString folder = journal.backUp().value_or(QString());
        QCOMPARE(folder, DataLocations::backupsDir() + u'/' + firstName);
        QCOMPARE(journal.backup->lastBackup(), launchTime);
        QCOMPARE(QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 (QStringList{u"Backup Info.json"_s, u"Images"_s, u"Tovren.store"_s}));
        QCOMPARE(pagesIn(folder), (QStringList{u"- saved"_s, u"- typed"_s}));
        QCOMPARE(Database(folder + u"/Tovren.store"_s).scalar(u"PRAGMA journal_mode"_s).toString(),
                 u"delete"_s);
        QCOMPARE(
            fileContents(folder + u"/Images/"_s + ImageStorage::pathFor(image).section(u'/', -1)),
            QByteArray("picture"));
        QCOMPARE(fileContents(folder + u"/Backup Info.json"_s),
                 QByteArray("{\n    \"appVersion\": \"1.4.2\",\n    \"createdAt\": "
                            "\"2026-11-15T12:57:30Z\",\n    \"format\": 1\n}\n"));

        journal.write(u"- later"_s);
        journal.clock.advance(25000);
        QCOMPARE(journal.backUp(), folder);
        QCOMPARE(pagesIn(folder), (QStringList{u"- later"_s, u"- saved"_s, u"- typed"_s}));
        QVERIFY(journal.backUp(u"before restore"_s));
        QCOMPARE(folders(DataLocations::backupsDir()),
                 (QStringList{firstName, firstName + u" before restore"_s}));
    }

    void keepsFourteen_data()
    {
        QTest::addColumn<int>("older");
        QTest::addColumn<QString>("label"); // of the newest of the older ones
        QTest::addColumn<bool>("oldestGoes");
        QTest::newRow("fifteen") << 14 << QString() << true;
        QTest::newRow("fourteen") << 13 << QString() << false;
        QTest::newRow("a before-restore copy counts") << 14 << u"before restore"_s << true;
    }
    void keepsFourteen()
    {
        QFETCH(int, older);
        QFETCH(QString, label);
        QFETCH(bool, oldestGoes);
        Journal journal;
        const QString root = DataLocations::backupsDir();
        QStringList expected{firstName, u"Notes"_s};
        for (int day = 1; day <= older; ++day)
            expected.append(u"Tovren Backup 2026-11-%1 0900"_s.arg(day, 2, 10, QChar(u'0')));
        expected.last() += label.isEmpty() ? QString() : u' ' + label;
        for (const QString &name : std::as_const(expected))
            writeFile(root + u'/' + name + u"/Tovren.store"_s, "");
        QVERIFY(journal.backUp());
        if (oldestGoes)
            expected.removeOne(u"Tovren Backup 2026-11-01 0900"_s);
        expected.sort();
        QCOMPARE(folders(root), expected); // "Notes" isn't ours, whatever it holds
    }

    void copiesToTheExtraFolder_data()
    {
        QTest::addColumn<QString>("extra");
        QTest::newRow("there") << u"there"_s;
        QTest::newRow("gone before the backup") << u"gone before"_s;
        QTest::newRow("gone during the backup") << u"gone during"_s;
    }
    void copiesToTheExtraFolder()
    {
        QFETCH(QString, extra);
        Journal journal;
        const QString sync = journal.dir.path() + u"/Sync"_s;
        for (int day = 11; day <= 24; ++day)
            writeFile(sync + u"/Tovren Backup 2026-10-%1 0800/Tovren.store"_s.arg(day), "");
        writeFile(sync + u"/Photos/a.jpg"_s, "");
        journal.backup->useExtraFolder(sync);
        QCOMPARE(journal.backup->extraFolderName(), u"Sync"_s);
        QTRY_VERIFY(journal.backup->lastBackup()); // it backs up at once
        QCOMPARE(fileContents(sync + u'/' + firstName + u"/Tovren.store"_s),
                 fileContents(DataLocations::backupsDir() + u'/' + firstName + u"/Tovren.store"_s));
        QCOMPARE(folders(sync).size(), 15); // the oldest gone, the photos kept
        QCOMPARE(folders(sync).first(), u"Photos"_s);

        journal.clock.advance(60000);
        if (extra == u"there"_s) {
            // Erasing the local backups leaves the copies in the folder the user chose.
            journal.backup->eraseLocalBackups();
            QCOMPARE(journal.backup->lastBackup(), std::nullopt);
            QVERIFY(!journal.preferences->contains(Prefs::backupLastDate.name));
            QVERIFY(!QFileInfo::exists(DataLocations::backupsDir()));
            QVERIFY(folders(sync).contains(firstName));
            return;
        }
        if (extra == u"gone before"_s) {
            // A drive that isn't plugged in: a local backup, and nothing to say.
            QVERIFY(QDir(sync).removeRecursively());
            QCOMPARE(journal.makeBackup()->extraFolderName(), std::nullopt);
            QVERIFY(journal.backUp());
            QCOMPARE(journal.backup->lastError(), std::nullopt);
            QVERIFY(!QFileInfo::exists(sync));
        } else {
            journal.backup->beforeVerifying = [sync](const QString &) {
                QDir(sync).removeRecursively();
            };
            QCOMPARE(journal.backUp(), std::nullopt);
            QCOMPARE(journal.error(),
                     QString::fromLocal8Bit(
                         std::make_error_code(std::errc::no_such_file_or_directory).message()));
            // Not done: the next hourly check makes a whole new one.
            QCOMPARE(journal.backup->lastBackup(), launchTime);
        }
        QCOMPARE(folders(DataLocations::backupsDir()).size(), 2);
    }

    void aDamagedCopyIsNoBackup_data()
    {
        QTest::addColumn<QString>("damage");
        QTest::newRow("pages overwritten") << u"overwrite"_s;
        QTest::newRow("cut short") << u"truncate"_s;
        QTest::newRow("a page missing") << u"delete a row"_s;
    }
    void aDamagedCopyIsNoBackup()
    {
        QFETCH(QString, damage);
        Journal journal;
        for (int i = 0; i < 60; ++i)
            journal.write(QString(1500, QChar(u'a' + i % 26)));
        journal.backup->beforeVerifying = [damage](const QString &copy) {
            QFile file(copy);
            if (damage == u"delete a row"_s)
                Database(copy).exec(u"DELETE FROM DailyEntry WHERE rowid = 7"_s);
            else if (damage == u"truncate"_s)
                file.resize(file.size() / 2);
            else if (file.open(QIODevice::ReadWrite) && file.seek(file.size() / 3))
                file.write(QByteArray(file.size() / 3, char(0xA5)));
        };
        QCOMPARE(journal.backUp(), std::nullopt);
        QCOMPARE(journal.error(), JournalBackup::text(JournalBackup::BackupError::cantWrite));
        QCOMPARE(journal.backup->lastBackup(), std::nullopt);
        QCOMPARE(folders(DataLocations::backupsDir()), QStringList());
    }

    void aRestoreTakesPlaceAtTheNextStart_data()
    {
        QTest::addColumn<bool>("backupHasImages");
        QTest::newRow("with images") << true;
        QTest::newRow("without images: today's stay") << false;
    }
    void aRestoreTakesPlaceAtTheNextStart()
    {
        QFETCH(bool, backupHasImages);
        Journal journal;
        journal.write(u"- kept in the backup"_s);
        const QString old = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        if (backupHasImages)
            QVERIFY(ImageStorage::save("old", QUuid(old)));
        const QString folder = journal.backUp().value_or(QString());
        journal.clock.advance(3600 * 1000);
        journal.write(u"- written after"_s);
        QVERIFY(QDir(DataLocations::imagesDir()).removeRecursively());
        const std::optional<QString> later = ImageStorage::save("later", QUuid::createUuid());

        QVERIFY(QCoro::waitFor(journal.backup->restore(folder)));
        QCOMPARE(journal.relaunches, 1);
        QCOMPARE(pagesIn(DataLocations::backupsDir() + u'/' +
                         u"Tovren Backup 2026-11-15 1457 before restore"_s),
                 (QStringList{u"- kept in the backup"_s, u"- written after"_s}));

        journal.backup.reset(); // the process ends
        journal.preferences.reset();
        journal.store.reset();
        writeFile(DataLocations::storePath() + u"-wal"_s, "a log of the replaced journal");
        Preferences next(DataLocations::preferencesPath());
        QCOMPARE(JournalBackup::applyPendingRestore(next),
                 u"Restored your journal from \""_s + firstName +
                     u"\". The journal you had before is saved as a backup marked \"before "
                     "restore\"."_s);
        QVERIFY(!QFileInfo::exists(DataLocations::storePath() + u"-wal"_s));
        ModelContainer restored(StoreSchema::current(),
                                ModelContainer::Configuration::atPath(DataLocations::storePath()));
        const auto pages = restored.mainContext().fetch<DailyEntry>();
        QCOMPARE(pages.size(), 1);
        QCOMPARE(pages.first()->content, u"- kept in the backup"_s);
        QCOMPARE(ImageStorage::load(old).has_value(), backupHasImages);
        QCOMPARE(ImageStorage::load(*later).has_value(), !backupHasImages);
        QCOMPARE(JournalBackup::applyPendingRestore(next), std::nullopt);
    }

    void aFolderWithoutAStoreIsNoBackup()
    {
        Journal journal;
        const QString folder = journal.dir.path() + u'/' + firstName;
        writeFile(folder + u"/Backup Info.json"_s, "{}");
        QVERIFY(!QCoro::waitFor(journal.backup->restore(folder)));
        QCOMPARE(journal.error(), JournalBackup::text(JournalBackup::BackupError::notABackup));
        QCOMPARE(journal.relaunches, 0);
        QVERIFY(!QFileInfo::exists(DataLocations::backupsDir()));

        // Left pending all the same: the journal stays, and it isn't tried again.
        journal.preferences->set(Prefs::backupPendingRestoreBookmark, folder.toUtf8());
        journal.write(u"- today"_s);
        journal.store->mainContext().save();
        QCOMPARE(JournalBackup::applyPendingRestore(*journal.preferences), std::nullopt);
        QVERIFY(!journal.preferences->contains(Prefs::backupPendingRestoreBookmark.name));
        QCOMPARE(journal.store->mainContext().fetchCount<DailyEntry>(), 1);
    }

    // A relaunched Tovren takes the journal over once the process that started it lets go,
    // and from no one else.
    void aRelaunchedTovrenWaitsForTheOneThatStartedIt_data()
    {
        QTest::addColumn<bool>("starterRuns");
        QTest::newRow("its starter still ends") << true;
        QTest::newRow("its starter is gone, another has the journal") << false;
    }
    void aRelaunchedTovrenWaitsForTheOneThatStartedIt()
    {
        QFETCH(bool, starterRuns);
        TempDataDir dir;
        auto holder = std::make_unique<SingleInstance>(dir.dataRoot());
        QCOMPARE(holder->claim(), SingleInstance::Role::primary);
        // No process ever has the id pid_max.
        const QByteArray starter = starterRuns
                                       ? QByteArray::number(QCoreApplication::applicationPid())
                                       : fileContents(u"/proc/sys/kernel/pid_max"_s).trimmed();
        TovrenProcess tovren(dir);
        QVERIFY(tovren.writePreferences(R"({"mcpServerEnabled": true})"));
        const quint16 port = TovrenProcess::freePort();
        qputenv("TOVREN_RELAUNCHED_FROM", starter);
        QVERIFY(tovren.start({u"--headless"_s}, port, QProcess::SeparateChannels));
        qunsetenv("TOVREN_RELAUNCHED_FROM");
        if (!starterRuns) {
            QVERIFY(tovren.process().waitForFinished(30000));
            QVERIFY(tovren.process().readAllStandardError().contains("already running"));
            return;
        }
        QVERIFY(!tovren.process().waitForFinished(1000));
        QVERIFY(!listening(port));
        holder.reset();
        QVERIFY(tovren.waitUntilListening(port));
    }

    // The whole program: a running Tovren asked by a later start to restore backs up,
    // relaunches, and the new process serves the restored journal.
    void aRunningTovrenRestartsOnTheRestoredJournal()
    {
        TempDataDir dir;
        {
            ModelContainer store(StoreSchema::current(),
                                 ModelContainer::Configuration::atPath(DataLocations::storePath()));
            store.mainContext().insert(std::make_shared<DailyEntry>(
                u"- from the backup"_s, QDateTime::currentDateTime(), false));
            store.mainContext().save();
        }
        TovrenProcess tovren(dir);
        QVERIFY(tovren.writePreferences(R"({"mcpServerEnabled": true})"));
        const quint16 port = TovrenProcess::freePort();
        QVERIFY(tovren.start({u"--headless"_s}, port));
        // Its first launch backs up behind the first page.
        const QString root = DataLocations::backupsDir();
        QTRY_VERIFY_WITH_TIMEOUT(
            QFileInfo::exists(root + u'/' + folders(root).value(0) + u"/Backup Info.json"_s),
            30000);
        const QString backup = root + u'/' + folders(root).first();
        QVERIFY(listening(port));
        toolText(port, "add_journal_entry", {{"content"_L1, u"- after the backup"_s}});
        QVERIFY(toolText(port, "get_entries").contains(u"- after the backup"_s));

        const auto restore = [&dir](const QString &folder) {
            TovrenProcess later(dir);
            later.start({u"restore"_s, folder}, 0, QProcess::SeparateChannels);
            later.process().waitForFinished(30000);
            return std::pair(later.process().exitCode(), later.process().readAllStandardError());
        };
        QCOMPARE(restore(dir.dataRoot()),
                 std::pair(1, QByteArray("tovren: That folder isn't a Tovren backup.\n")));
        QCOMPARE(restore(backup), std::pair(0, QByteArray()));
        QVERIFY(tovren.process().waitForFinished(30000));
        QCOMPARE(tovren.process().exitCode(), 0);

        QTRY_VERIFY_WITH_TIMEOUT(listening(port), 30000);
        const QString entries = toolText(port, "get_entries");
        QVERIFY2(entries.contains(u"- from the backup"_s), qPrintable(entries));
        QVERIFY(!entries.contains(u"- after the backup"_s));
        QVERIFY(pagesIn(root + u'/' + folders(root).last()).join(u'\n').contains(u"after"_s));

        // Nobody's child here: found through its instance lock, and stopped.
        SingleInstance probe(dir.dataRoot());
        QCOMPARE(::kill(pid_t(fileContents(probe.lockPath()).trimmed().toLongLong()), SIGTERM), 0);
        QTRY_COMPARE_WITH_TIMEOUT(probe.claim(), SingleInstance::Role::primary, 30000);
    }
};

QTEST_GUILESS_MAIN(JournalBackupTest)
#include "tst_journalbackup.moc"
