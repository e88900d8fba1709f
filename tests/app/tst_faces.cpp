#include "TovrenProcess.h"
#include "app/TovrenApp.h"
#include "core/records/InboxItem.h"
#include "core/store/ModelContext.h"
#include "platform/SingleInstance.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <memory>

using namespace Qt::StringLiterals;

// The real executable, started as a user or a test harness would start it: one journal at a
// time, later starts handing over to the running one.
class FacesTest : public QObject {
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

private slots:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(TovrenProcess::binary()), qPrintable(TovrenProcess::binary()));
        QVERIFY(m_runtime.isValid());
        // Never the user's own running Tovren, whatever the data folder.
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
    }

    void laterStart_data()
    {
        QTest::addColumn<QString>("running");
        QTest::addColumn<QStringList>("later");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QByteArray>("said");
        const QByteArray windowless("Tovren is running without a window (tovren --headless)");
        const QByteArray already("Tovren is already running for the journal in ");
        const QByteArray linksOnly("Tovren opens tovren:// links only");
        QTest::newRow("plain") << u"window"_s << QStringList() << 0 << QByteArray();
        QTest::newRow("quick capture")
            << u"window"_s << QStringList{u"--quick-capture"_s} << 0 << QByteArray();
        QTest::newRow("link") << u"window"_s << QStringList{u"tovren://auth/microsoft?code=abc"_s}
                              << 0 << QByteArray();
        QTest::newRow("show, opened at login")
            << u"background"_s << QStringList{u"--show"_s} << 0 << QByteArray();
        // Killed outright, Tovren leaves its socket file behind; the next start takes over.
        QTest::newRow("show, after a crash")
            << u"window after a crash"_s << QStringList{u"--show"_s} << 0 << QByteArray();
        QTest::newRow("window against headless")
            << u"headless"_s << QStringList() << 1 << windowless;
        QTest::newRow("headless against window")
            << u"window"_s << QStringList{u"--headless"_s} << 1 << already;
        QTest::newRow("not a link") << QString() << QStringList{u"notes.txt"_s} << 1 << linksOnly;
        QTest::newRow("another scheme")
            << QString() << QStringList{u"https://example.com"_s} << 1 << linksOnly;
        QTest::newRow("headless with a window option")
            << QString() << QStringList{u"--headless"_s, u"--show"_s} << 1
            << QByteArray("--headless runs Tovren without a window");
        QTest::newRow("unknown option")
            << QString() << QStringList{u"--headless"_s, u"--frobnicate"_s} << 1
            << QByteArray("frobnicate");
    }
    void laterStart()
    {
        QFETCH(QString, running);
        QFETCH(QStringList, later);
        QFETCH(int, exitCode);
        QFETCH(QByteArray, said);
        TempDataDir dir;
        if (running.endsWith(u"after a crash"_s)) {
            TovrenProcess crashed(dir);
            QVERIFY(crashed.start({}));
            QVERIFY(waitUntilReachable(dir, crashed));
            QVERIFY(crashed.stop(SIGKILL));
            QVERIFY(QFileInfo::exists(SingleInstance(dir.dataRoot()).socketPath()));
        }
        std::unique_ptr<TovrenProcess> first;
        if (!running.isNull()) {
            first = std::make_unique<TovrenProcess>(dir);
            QVERIFY(first->start(running.startsWith(u"window"_s) ? QStringList()
                                                                 : QStringList{u"--"_s + running}));
            QVERIFY(waitUntilReachable(dir, *first));
        }

        const Outcome second = runSecond(dir, later);
        QCOMPARE(second.exitCode, exitCode);
        QVERIFY2(said.isEmpty() ? second.error.isEmpty() : second.error.contains(said),
                 second.error.constData());
        if (!first) {
            QVERIFY(!QFile::exists(dir.dataRoot() + u"/default.store"_s));
            return;
        }
        if (exitCode != 0)
            QVERIFY(second.error.contains(QFile::encodeName(dir.dataRoot())));
        QCOMPARE(first->process().state(), QProcess::Running);
        // Either signal ends Tovren cleanly: the log is checkpointed and the sidecars go.
        QVERIFY(first->stop(running == u"headless"_s ? SIGINT : SIGTERM));
        QCOMPARE(first->process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(first->process().exitCode(), 0);
        QVERIFY(QFile::exists(dir.dataRoot() + u"/default.store"_s));
        QVERIFY(!QFile::exists(dir.dataRoot() + u"/default.store-wal"_s));
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
        if (dataRootIsAFile)
            QVERIFY(QDir(dir.dataRoot()).removeRecursively());
        writeFile(dataRootIsAFile ? dir.dataRoot() : store, QByteArray(10000, '#'));

        TovrenProcess tovren(dir);
        QVERIFY(tovren.start({u"--headless"_s}, 0, QProcess::SeparateChannels));
        QByteArray error;
        QTRY_VERIFY_WITH_TIMEOUT((error += tovren.process().readAllStandardError()).contains('\n'),
                                 20000);
        QVERIFY2(error.startsWith("tovren: ") && error.contains(said.toUtf8()), error.constData());
        const QString notice = QString::fromUtf8(error.mid(8, error.indexOf('\n') - 8));
        QVERIFY(tovren.stop(SIGTERM));
        QCOMPARE(tovren.process().exitCode(), 0);

        QCOMPARE(QJsonDocument::fromJson(fileContents(dir.configDir() + u"/preferences.json"_s))
                     .object()
                     .value(u"pendingRecoveryNotice"_s)
                     .toString(),
                 notice);
        if (dataRootIsAFile)
            return; // the inbox row went with the store in memory
        // The next window raises the alert, without a second row.
        TovrenApp next(LaunchSteps::standard());
        next.start();
        const auto alert = next.firstPageDidAppear();
        QCOMPARE(alert ? alert->text : QString(), notice);
        const auto rows = next.mainContext().fetch<InboxItem>();
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows[0]->title, u"Database recovered"_s);
        QCOMPARE(rows[0]->body, notice);
    }
};

QTEST_GUILESS_MAIN(FacesTest)
#include "tst_faces.moc"
