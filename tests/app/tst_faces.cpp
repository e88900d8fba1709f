#include "TestSupport.h"

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
    static QString binary() { return qEnvironmentVariable("TOVREN_BIN"); }

    static void startTovren(QProcess &process, const TempDataDir &dir, const QStringList &args)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"TOVREN_DATA_DIR"_s, dir.dataRoot());
        environment.insert(u"TOVREN_CONFIG_DIR"_s, dir.configDir());
        environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(binary(), args);
        QVERIFY(process.waitForStarted());
    }

    static void stopWith(QProcess &process, int signal)
    {
        ::kill(pid_t(process.processId()), signal);
        QVERIFY(process.waitForFinished(30000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
    }

private slots:
    void initTestCase() { QVERIFY2(QFile::exists(binary()), qPrintable(binary())); }

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
        QProcess process;
        startTovren(process, dir, args);
        const QString store = dir.dataRoot() + u"/default.store"_s;
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(store), 20000);
        QTest::qWait(300);
        QCOMPARE(process.state(), QProcess::Running);
        stopWith(process, signal);
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

        QProcess process;
        startTovren(process, dir, {u"--headless"_s});
        QTRY_VERIFY_WITH_TIMEOUT(
            !QDir(dir.dataRoot()).entryList({u"default.store.corrupt-*"_s}).isEmpty(), 20000);
        QTest::qWait(300);
        stopWith(process, SIGTERM);

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
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"TOVREN_DATA_DIR"_s, dir.dataRoot());
        environment.insert(u"TOVREN_CONFIG_DIR"_s, dir.configDir());
        process.setProcessEnvironment(environment);
        process.start(binary(), {u"--headless"_s, u"--frobnicate"_s});
        QVERIFY(process.waitForFinished(30000));
        QVERIFY(process.exitCode() != 0);
        QVERIFY(process.readAllStandardError().contains("frobnicate"));
        QVERIFY(!QFile::exists(dir.dataRoot() + u"/default.store"_s));
    }
};

QTEST_GUILESS_MAIN(FacesTest)
#include "tst_faces.moc"
