#include "TestSupport.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "safety/LegacyJournalImport.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

// A store file with the given tables, each holding `rows` rows; with `inLog` the rows stay in
// the write-ahead log beside the file, as a journal closed mid-session leaves them.
void writeStore(const QString &path, const QStringList &tables, int rows, bool inLog = false)
{
    QDir().mkpath(QFileInfo(path).path());
    sqlite3 *db = nullptr;
    QCOMPARE(sqlite3_open(QFile::encodeName(path).constData(), &db), SQLITE_OK);
    if (inLog) {
        sqlite3_exec(db, "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;", nullptr, nullptr,
                     nullptr);
        sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    }
    for (const QString &table : tables) {
        const QByteArray name = table.toUtf8();
        const QByteArray create = "CREATE TABLE \"" + name + "\" (id INTEGER)";
        const QByteArray insert = "INSERT INTO \"" + name + "\" VALUES (1)";
        sqlite3_exec(db, create.constData(), nullptr, nullptr, nullptr);
        for (int row = 0; row < rows; ++row)
            sqlite3_exec(db, insert.constData(), nullptr, nullptr, nullptr);
    }
    sqlite3_close(db);
}

const QStringList ours{u"DailyEntry"_s, u"Person"_s, u"TaskItem"_s, u"Goal"_s, u"Meeting"_s};

} // namespace

class TestLegacyImport : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<TempDataDir> m_dir;
    std::unique_ptr<Preferences> m_preferences;
    LegacyJournalImport::Locations m_at;

    QString oldStore() const { return m_at.oldRoot + u"/default.store"_s; }
    QString newStore() const { return m_at.newRoot + u"/default.store"_s; }
    std::optional<QString> run() { return LegacyJournalImport::run(*m_preferences, m_at); }
    bool done() const { return m_preferences->value(Prefs::legacyJournalImportDone); }

private slots:
    void init()
    {
        m_dir = std::make_unique<TempDataDir>();
        m_preferences = std::make_unique<Preferences>(m_dir->configDir() + u"/preferences.json"_s);
        m_at = {m_dir->path() + u"/home/.local/share/tovren"_s,
                m_dir->path() + u"/home/.config/tovren/preferences.json"_s, m_dir->dataRoot()};
        QDir().mkpath(m_at.newRoot);
    }

    void finalAnswers_data()
    {
        QTest::addColumn<QStringList>("oldTables");
        QTest::addColumn<int>("oldRows");
        QTest::addColumn<bool>("broughtAcross");
        QTest::newRow("no earlier journal") << QStringList() << 0 << false;
        QTest::newRow("another program's file") << QStringList{u"Notes"_s} << 3 << false;
        QTest::newRow("earlier journal empty") << ours << 0 << false;
        QTest::newRow("earlier journal with pages") << ours << 2 << true;
        QTest::newRow("pages only in the log") << QStringList{u"DailyEntry"_s} << 1 << true;
    }
    void finalAnswers()
    {
        QFETCH(QStringList, oldTables);
        QFETCH(int, oldRows);
        QFETCH(bool, broughtAcross);
        const bool inLog = QByteArray(QTest::currentDataTag()).contains("log");
        if (!oldTables.isEmpty())
            writeStore(oldStore(), oldTables, oldRows, inLog);
        if (inLog)
            QVERIFY(QFileInfo::exists(oldStore() + u"-wal"_s));
        const QByteArray oldBytes = fileContents(oldStore());
        // An empty store at the new location, as a first launch of the new install leaves.
        writeStore(newStore(), ours, 0);

        QCOMPARE(run(), std::nullopt);
        QVERIFY(done());
        const qint64 expected = qint64(oldTables.size()) * oldRows;
        QCOMPARE(LegacyJournalImport::journalSize(newStore()).value_or(-1),
                 broughtAcross ? expected : 0);
        // The earlier files stay as they were, and nothing is left behind in staging.
        QCOMPARE(fileContents(oldStore()), oldBytes);
        QCOMPARE(QDir(m_at.newRoot).entryList({u".legacy-import-*"_s}, QDir::Dirs | QDir::Hidden),
                 QStringList());
    }

    void twoJournalsAreLeftAloneAndToldOnce()
    {
        writeStore(oldStore(), ours, 1);
        writeStore(newStore(), ours, 1);
        const QByteArray newBytes = fileContents(newStore());
        const std::optional<QString> notice = run();
        QVERIFY(notice);
        QVERIFY(notice->startsWith(u"Tovren found a journal from an earlier download on this "
                                   "computer, alongside the one you're using now."_s));
        QVERIFY(notice->contains(LegacyJournalImport::supportPage()));
        QCOMPARE(fileContents(newStore()), newBytes);
        QCOMPARE(run(), std::nullopt);
    }

    void preferencesAndImagesFillOnlyWhatIsMissing()
    {
        writeStore(oldStore(), ours, 1);
        writeFile(m_at.oldPreferences,
                  QJsonDocument(QJsonObject{{u"journalTemplate"_s, u"pm"_s},
                                            {u"aiProvider"_s, u"claude"_s},
                                            {u"backupPendingRestoreBookmark"_s, u"x"_s}})
                      .toJson());
        m_preferences->setText(u"aiProvider"_s, u"openai"_s);
        writeFile(m_at.oldRoot + u"/Tovren/Images/a.png"_s, "old a");
        writeFile(m_at.oldRoot + u"/Tovren/Images/b.png"_s, "old b");
        writeFile(m_at.newRoot + u"/Tovren/Images/a.png"_s, "new a");

        QCOMPARE(run(), std::nullopt);
        QCOMPARE(m_preferences->textValue(u"journalTemplate"_s), u"pm"_s);
        QCOMPARE(m_preferences->textValue(u"aiProvider"_s), u"openai"_s);
        QVERIFY(!m_preferences->contains(u"backupPendingRestoreBookmark"_s));
        QCOMPARE(fileContents(m_at.newRoot + u"/Tovren/Images/a.png"_s), "new a");
        QCOMPARE(fileContents(m_at.newRoot + u"/Tovren/Images/b.png"_s), "old b");
    }

    void notFinalUntilItCanLook_data()
    {
        QTest::addColumn<bool>("sameFolder");
        QTest::newRow("native install: one folder") << true;
        QTest::newRow("staging can't be made") << false;
    }
    void notFinalUntilItCanLook()
    {
        QFETCH(bool, sameFolder);
        writeStore(oldStore(), ours, 1);
        if (sameFolder) {
            m_at.newRoot = m_at.oldRoot;
        } else {
            // A file where the staging folder's parent should be.
            m_at.newRoot = m_dir->path() + u"/blocked/inner"_s;
            writeFile(m_dir->path() + u"/blocked"_s, "not a folder");
        }
        QCOMPARE(run(), std::nullopt);
        QVERIFY(!done());
        QCOMPARE(LegacyJournalImport::journalSize(oldStore()), qint64(5));
    }
};

QTEST_GUILESS_MAIN(TestLegacyImport)
#include "tst_legacyimport.moc"
