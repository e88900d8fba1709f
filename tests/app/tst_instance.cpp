#include "TovrenProcess.h"
#include "platform/SingleInstance.h"

#include <QFile>
#include <QFileInfo>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

// The real executable, one journal at a time: later starts hand over to the running one.
class InstanceTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_runtime;

    // True once the running Tovren answers on its socket.
    static bool waitUntilReachable(const TempDataDir &dir, TovrenProcess &tovren)
    {
        const QString path = SingleInstance(dir.dataRoot()).socketPath();
        QDeadlineTimer deadline(30000);
        while (!deadline.hasExpired() && tovren.process().state() == QProcess::Running) {
            QLocalSocket probe;
            probe.connectToServer(path);
            if (probe.waitForConnected(500))
                return true;
            QTest::qWait(100);
        }
        return false;
    }

    struct Outcome {
        int exitCode = -1;
        QByteArray error;
    };
    static Outcome runSecond(const TempDataDir &dir, const QStringList &arguments)
    {
        TovrenProcess second(dir);
        if (!second.start(arguments, 0, QProcess::SeparateChannels) ||
            !second.process().waitForFinished(30000))
            return {};
        return {second.process().exitCode(), second.process().readAllStandardError()};
    }

    static void stop(TovrenProcess &tovren)
    {
        QVERIFY(tovren.stop(SIGTERM));
        QCOMPARE(tovren.process().exitCode(), 0);
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(TovrenProcess::binary()), qPrintable(TovrenProcess::binary()));
        QVERIFY(m_runtime.isValid());
        // Never the user's own running Tovren, whatever the data folder.
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
    }

    void laterStartHandsOverAndEnds_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("plain") << QStringList();
        QTest::newRow("show") << QStringList{u"--show"_s};
        QTest::newRow("quick capture") << QStringList{u"--quick-capture"_s};
        QTest::newRow("link") << QStringList{u"tovren://auth/microsoft?code=abc"_s};
        QTest::newRow("login start") << QStringList{u"--background"_s};
    }
    void laterStartHandsOverAndEnds()
    {
        QFETCH(QStringList, arguments);
        TempDataDir dir;
        TovrenProcess first(dir);
        QVERIFY(first.start({}));
        QVERIFY(waitUntilReachable(dir, first));

        const Outcome second = runSecond(dir, arguments);
        QCOMPARE(second.exitCode, 0);
        QCOMPARE(second.error, QByteArray());
        QCOMPARE(first.process().state(), QProcess::Running);
        stop(first);
    }

    // A window start opened at login: nothing is shown, but the way back works.
    void backgroundStartRunsAndAnswers()
    {
        TempDataDir dir;
        TovrenProcess first(dir);
        QVERIFY(first.start({u"--background"_s}));
        QVERIFY(waitUntilReachable(dir, first));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir.dataRoot() + u"/default.store"_s), 20000);
        QCOMPARE(runSecond(dir, {u"--show"_s}).exitCode, 0);
        stop(first);
    }

    // Headless Tovren has no window to bring forward, and no face may open its store twice.
    void startsAgainstAnOpenJournalAreRefused_data()
    {
        QTest::addColumn<QStringList>("running");
        QTest::addColumn<QStringList>("later");
        QTest::addColumn<QByteArray>("said");
        QTest::newRow("window against headless")
            << QStringList{u"--headless"_s} << QStringList()
            << QByteArray("Tovren is running without a window (tovren --headless)");
        QTest::newRow("link against headless")
            << QStringList{u"--headless"_s} << QStringList{u"tovren://x"_s}
            << QByteArray("Tovren is running without a window (tovren --headless)");
        QTest::newRow("headless against headless")
            << QStringList{u"--headless"_s} << QStringList{u"--headless"_s}
            << QByteArray("Tovren is already running for the journal in ");
        QTest::newRow("headless against window")
            << QStringList() << QStringList{u"--headless"_s}
            << QByteArray("Tovren is already running for the journal in ");
    }
    void startsAgainstAnOpenJournalAreRefused()
    {
        QFETCH(QStringList, running);
        QFETCH(QStringList, later);
        QFETCH(QByteArray, said);
        TempDataDir dir;
        TovrenProcess first(dir);
        QVERIFY(first.start(running));
        QVERIFY(waitUntilReachable(dir, first));

        const Outcome second = runSecond(dir, later);
        QCOMPARE(second.exitCode, 1);
        QVERIFY2(second.error.contains(said), second.error.constData());
        QVERIFY(second.error.contains(QFile::encodeName(dir.dataRoot())));
        QCOMPARE(first.process().state(), QProcess::Running);
        stop(first);
    }

    void otherJournalsRunSideBySide()
    {
        TempDataDir one;
        TovrenProcess first(one);
        QVERIFY(first.start({u"--headless"_s}));
        QVERIFY(waitUntilReachable(one, first));
        TempDataDir two;
        TovrenProcess second(two);
        QVERIFY(second.start({u"--headless"_s}));
        QVERIFY(waitUntilReachable(two, second));
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(two.dataRoot() + u"/default.store"_s), 20000);
        stop(first);
        stop(second);
    }

    // Killed outright, Tovren leaves its socket file behind; the next start takes over.
    void startAfterACrashTakesOver()
    {
        TempDataDir dir;
        {
            TovrenProcess crashed(dir);
            QVERIFY(crashed.start({}));
            QVERIFY(waitUntilReachable(dir, crashed));
            QVERIFY(crashed.stop(SIGKILL));
        }
        QVERIFY(QFileInfo::exists(SingleInstance(dir.dataRoot()).socketPath()));
        TovrenProcess next(dir);
        QVERIFY(next.start({}));
        QVERIFY(waitUntilReachable(dir, next));
        QCOMPARE(runSecond(dir, {u"--show"_s}).exitCode, 0);
        stop(next);
    }

    void argumentsThatMakeNoSenseAreRefused_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("said");
        QTest::newRow("not a link")
            << QStringList{u"notes.txt"_s} << QByteArray("Tovren opens tovren:// links only");
        QTest::newRow("another scheme") << QStringList{u"https://example.com"_s}
                                        << QByteArray("Tovren opens tovren:// links only");
        QTest::newRow("headless with a window option")
            << QStringList{u"--headless"_s, u"--show"_s}
            << QByteArray("--headless runs Tovren without a window");
    }
    void argumentsThatMakeNoSenseAreRefused()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, said);
        TempDataDir dir;
        const Outcome outcome = runSecond(dir, arguments);
        QCOMPARE(outcome.exitCode, 1);
        QVERIFY2(outcome.error.contains(said), outcome.error.constData());
        QVERIFY(!QFile::exists(dir.dataRoot() + u"/default.store"_s));
    }
};

QTEST_GUILESS_MAIN(InstanceTest)
#include "tst_instance.moc"
