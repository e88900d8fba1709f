#include "TovrenProcess.h"

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

    // With no window to show it, a recovery notice waits in the preferences for the next one.
    void headlessKeepsTheRecoveryNoticeForLater()
    {
        TempDataDir dir;
        QFile damaged(dir.dataRoot() + u"/default.store"_s);
        QVERIFY(damaged.open(QIODevice::WriteOnly));
        damaged.write(QByteArray(10000, '#'));
        damaged.close();

        TovrenProcess tovren(dir);
        QVERIFY(tovren.start({u"--headless"_s}));
        QTRY_VERIFY_WITH_TIMEOUT(
            !QDir(dir.dataRoot()).entryList({u"default.store.corrupt-*"_s}).isEmpty(), 20000);
        QTest::qWait(300);
        stopCleanly(tovren, SIGTERM);

        QFile preferences(dir.configDir() + u"/preferences.json"_s);
        QVERIFY(preferences.open(QIODevice::ReadOnly));
        const QJsonObject stored = QJsonDocument::fromJson(preferences.readAll()).object();
        QVERIFY(stored.value(u"pendingRecoveryNotice"_s)
                    .toString()
                    .startsWith(u"Your local database was unreadable and has been quarantined."_s));
    }

    void unknownOptionIsRefusedInPlainWords()
    {
        TempDataDir dir;
        TovrenProcess tovren(dir);
        QVERIFY(tovren.start({u"--headless"_s, u"--frobnicate"_s}, 0, QProcess::SeparateChannels));
        QVERIFY(tovren.process().waitForFinished(30000));
        QVERIFY(tovren.process().exitCode() != 0);
        QVERIFY(tovren.process().readAllStandardError().contains("frobnicate"));
        QVERIFY(!QFile::exists(dir.dataRoot() + u"/default.store"_s));
    }
};

QTEST_GUILESS_MAIN(FacesTest)
#include "tst_faces.moc"
