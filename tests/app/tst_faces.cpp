#include "TovrenProcess.h"
#include "core/records/InboxItem.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

// The real executable, started as a user or a test harness would start it.
class FacesTest : public QObject {
    Q_OBJECT

private:
    static void stopCleanly(TovrenProcess &tovren, int signal)
    {
        QVERIFY(tovren.stop(signal));
        QCOMPARE(tovren.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(tovren.process().exitCode(), 0);
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(TovrenProcess::binary()), qPrintable(TovrenProcess::binary()));
    }

    void facesStartAndStopCleanly_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<int>("signal");
        QTest::newRow("headless, SIGTERM") << QStringList{u"--headless"_s} << SIGTERM;
        QTest::newRow("headless, SIGINT") << QStringList{u"--headless"_s} << SIGINT;
        QTest::newRow("window, SIGTERM") << QStringList() << SIGTERM;
    }
    void facesStartAndStopCleanly()
    {
        QFETCH(QStringList, args);
        QFETCH(int, signal);
        TempDataDir dir;
        TovrenProcess tovren(dir);
        QVERIFY(tovren.start(args));
        const QString store = dir.dataRoot() + u"/default.store"_s;
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(store), 20000);
        QTest::qWait(300);
        QCOMPARE(tovren.process().state(), QProcess::Running);
        stopCleanly(tovren, signal);
        // A clean stop checkpoints the log into the file and removes the sidecars.
        QVERIFY(!QFile::exists(store + u"-wal"_s));
    }

    // Without a window, the store's trouble is said on standard error at once, the notice is in
    // the inbox, and it waits in the preferences for the next window.
    void headlessSaysWhatBecameOfTheStore_data()
    {
        QTest::addColumn<bool>("dataRootIsAFile");
        QTest::addColumn<QString>("said");
        QTest::newRow("damaged store")
            << false << u"Your local database was unreadable and has been quarantined."_s;
        QTest::newRow("unusable data folder")
            << true << u"). Running in memory, so changes won't persist until this is resolved."_s;
    }
    void headlessSaysWhatBecameOfTheStore()
    {
        QFETCH(bool, dataRootIsAFile);
        QFETCH(QString, said);
        TempDataDir dir;
        const QString store = dir.dataRoot() + u"/default.store"_s;
        QFile damaged(dataRootIsAFile ? dir.dataRoot() : store);
        if (dataRootIsAFile)
            QVERIFY(QDir(dir.dataRoot()).removeRecursively());
        QVERIFY(damaged.open(QIODevice::WriteOnly));
        damaged.write(QByteArray(10000, '#'));
        damaged.close();

        TovrenProcess tovren(dir);
        QVERIFY(tovren.start({u"--headless"_s}, 0, QProcess::SeparateChannels));
        QByteArray error;
        QTRY_VERIFY_WITH_TIMEOUT((error += tovren.process().readAllStandardError()).contains('\n'),
                                 20000);
        QVERIFY2(error.startsWith("tovren: ") && error.contains(said.toUtf8()), error.constData());
        const QString notice = QString::fromUtf8(error.mid(8, error.indexOf('\n') - 8));
        stopCleanly(tovren, SIGTERM);

        QFile preferences(dir.configDir() + u"/preferences.json"_s);
        QVERIFY(preferences.open(QIODevice::ReadOnly));
        QCOMPARE(QJsonDocument::fromJson(preferences.readAll())
                     .object()
                     .value(u"pendingRecoveryNotice"_s)
                     .toString(),
                 notice);
        if (dataRootIsAFile)
            return; // the inbox row went with the store in memory
        ModelContainer container(StoreSchema::current(),
                                 ModelContainer::Configuration::atPath(store));
        const auto rows = container.mainContext().fetch<InboxItem>();
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows[0]->title, u"Database recovered"_s);
        QCOMPARE(rows[0]->body, notice);
    }
};

QTEST_GUILESS_MAIN(FacesTest)
#include "tst_faces.moc"
