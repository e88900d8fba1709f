#include "platform/SingleInstance.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The test binary started again as one Tovren-like process: "--child <data root> [args...]".
// The primary prints "primary" and then one JSON line per request received; a secondary
// forwards the rest of its arguments and reports the answer through its exit code.
int runChild(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    SingleInstance instance(arguments.at(2));
    switch (instance.claim()) {
    case SingleInstance::Role::unguarded:
        return 4;
    case SingleInstance::Role::secondary: {
        const SingleInstance::Answer answer = instance.forward(arguments.mid(3), 8000);
        std::printf("%s\n", qPrintable(answer.message));
        return answer.accepted ? 0 : 3;
    }
    case SingleInstance::Role::primary:
        break;
    }
    // A primary that is slow to start: the lock is held, nobody listens yet.
    QThread::msleep(qEnvironmentVariableIntValue("CHILD_LISTEN_DELAY_MS"));
    if (!instance.listen())
        return 5;
    instance.setRefusal(qEnvironmentVariable("CHILD_REFUSAL"));
    QObject::connect(&instance, &SingleInstance::received, [](const QStringList &received) {
        std::printf("%s\n", QJsonDocument(QJsonArray::fromStringList(received))
                                .toJson(QJsonDocument::Compact)
                                .constData());
        std::fflush(stdout);
    });
    std::printf("primary\n");
    std::fflush(stdout);
    return application.exec();
}

} // namespace

class SingleInstanceTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_runtime;
    QTemporaryDir m_data;

    QString dataRoot(const QString &name = u"journal"_s) const { return m_data.filePath(name); }

    void startChild(QProcess &process, const QString &root, const QStringList &arguments = {},
                    const QProcessEnvironment &extra = {})
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_RUNTIME_DIR"_s, m_runtime.path());
        environment.insert(extra);
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::SeparateChannels);
        process.start(QCoreApplication::applicationFilePath(),
                      QStringList{u"--child"_s, root} + arguments);
        QVERIFY(process.waitForStarted());
    }

    static QByteArray nextLine(QProcess &process, int timeoutMs = 10000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!process.canReadLine() && !deadline.hasExpired())
            process.waitForReadyRead(50);
        return process.readLine().trimmed();
    }

    void startPrimary(QProcess &process, const QString &root, const QProcessEnvironment &extra = {})
    {
        startChild(process, root, {}, extra);
        QCOMPARE(nextLine(process), QByteArray("primary"));
    }

    // Exit code and first line of a secondary start.
    std::pair<int, QByteArray> forwardFrom(const QString &root, const QStringList &arguments)
    {
        QProcess second;
        startChild(second, root, arguments);
        if (!second.waitForFinished(15000))
            return {-1, {}};
        return {second.exitCode(), second.readAllStandardOutput().trimmed()};
    }

    static void end(QProcess &process, int signal = SIGTERM)
    {
        ::kill(pid_t(process.processId()), signal);
        QVERIFY(process.waitForFinished(10000));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_runtime.isValid());
        QVERIFY(m_data.isValid());
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
    }

    void secondStartForwardsItsArgumentsAndEnds_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("none") << QStringList();
        QTest::newRow("show") << QStringList{u"--show"_s};
        QTest::newRow("quick capture") << QStringList{u"--quick-capture"_s};
        QTest::newRow("link") << QStringList{u"tovren://auth/microsoft?code=a%20b&state=x"_s};
        QTest::newRow("words with spaces and accents, several")
            << QStringList{u"tovren://tag/café"_s, u"two words"_s, u"\"quoted\" \\ line\nbreak"_s};
    }
    void secondStartForwardsItsArgumentsAndEnds()
    {
        QFETCH(QStringList, arguments);
        QProcess primary;
        startPrimary(primary, dataRoot());

        const auto [code, said] = forwardFrom(dataRoot(), arguments);
        QCOMPARE(code, 0);
        QCOMPARE(said, QByteArray());
        const QByteArray received = nextLine(primary);
        QCOMPARE(QJsonDocument::fromJson(received).array().toVariantList(),
                 QVariant(arguments).toList());
        QCOMPARE(primary.state(), QProcess::Running);
        end(primary);
    }

    // Each later start is answered, not only the first one.
    void primaryKeepsAnswering()
    {
        QProcess primary;
        startPrimary(primary, dataRoot());
        for (int i = 0; i < 3; ++i) {
            const QStringList arguments{u"--show"_s, QString::number(i)};
            QCOMPARE(forwardFrom(dataRoot(), arguments).first, 0);
            QCOMPARE(QJsonDocument::fromJson(nextLine(primary)).array().toVariantList(),
                     QVariant(arguments).toList());
        }
        end(primary);
    }

    // A Tovren killed outright leaves its socket file; the next start must not be fooled by it
    // into forwarding to no one, nor fail to listen because the name is taken.
    void staleSocketOfAKilledInstanceIsRecovered()
    {
        const QString root = dataRoot(u"crashed"_s);
        QProcess crashed;
        startPrimary(crashed, root);
        end(crashed, SIGKILL);
        QVERIFY(QFileInfo::exists(SingleInstance(root).socketPath()));

        QProcess next;
        startPrimary(next, root);
        QCOMPARE(forwardFrom(root, {u"--show"_s}).first, 0);
        QCOMPARE(nextLine(next), QByteArray("[\"--show\"]"));
        end(next);
    }

    // The lock is taken before the socket listens; a start in between waits for it.
    void secondStartWaitsForAPrimaryStillStarting()
    {
        const QString root = dataRoot(u"slow"_s);
        QProcessEnvironment slow;
        slow.insert(u"CHILD_LISTEN_DELAY_MS"_s, u"1500"_s);
        QProcess primary;
        startChild(primary, root, {}, slow);
        QTRY_VERIFY(QFileInfo::exists(SingleInstance(root).lockPath()));
        QTest::qWait(200);

        QProcess second;
        startChild(second, root, {u"--quick-capture"_s});
        QVERIFY(second.waitForFinished(15000));
        QCOMPARE(second.exitCode(), 0);
        QCOMPARE(nextLine(primary), QByteArray("primary"));
        QCOMPARE(nextLine(primary), QByteArray("[\"--quick-capture\"]"));
        end(primary);
    }

    void refusalReachesTheSecondStart()
    {
        const QString root = dataRoot(u"headless"_s);
        QProcessEnvironment refusing;
        refusing.insert(u"CHILD_REFUSAL"_s, u"No window to show here."_s);
        QProcess primary;
        startPrimary(primary, root, refusing);

        const auto [code, said] = forwardFrom(root, {u"--show"_s});
        QCOMPARE(code, 3);
        QCOMPARE(said, QByteArray("No window to show here."));
        QTest::qWait(200);
        QVERIFY(!primary.canReadLine());
        end(primary);
    }

    void differentJournalsDoNotCollide()
    {
        QProcess first;
        QProcess second;
        startPrimary(first, dataRoot(u"one"_s));
        startPrimary(second, dataRoot(u"two"_s));
        QCOMPARE(forwardFrom(dataRoot(u"two"_s), {u"tovren://two"_s}).first, 0);
        QCOMPARE(nextLine(second), QByteArray("[\"tovren://two\"]"));
        QTest::qWait(200);
        QVERIFY(!first.canReadLine());
        end(first);
        end(second);
    }

    // In one process two objects behave like two processes: the lock is per open file.
    void oneJournalUnderDifferentSpellings_data()
    {
        QTest::addColumn<QString>("spelling");
        QTest::addColumn<bool>("same");
        QTest::newRow("identical") << u"spelled"_s << true;
        QTest::newRow("trailing slash") << u"spelled/"_s << true;
        QTest::newRow("dot dot") << u"other/../spelled"_s << true;
        QTest::newRow("through a symbolic link") << u"link"_s << true;
        QTest::newRow("another folder") << u"other"_s << false;
    }
    void oneJournalUnderDifferentSpellings()
    {
        QFETCH(QString, spelling);
        QFETCH(bool, same);
        QDir(m_data.path()).mkpath(u"spelled"_s);
        QDir(m_data.path()).mkpath(u"other"_s);
        QFile::link(dataRoot(u"spelled"_s), dataRoot(u"link"_s));

        SingleInstance first(dataRoot(u"spelled"_s));
        QCOMPARE(first.claim(), SingleInstance::Role::primary);
        SingleInstance second(m_data.path() + u'/' + spelling);
        QCOMPARE(second.claim(),
                 same ? SingleInstance::Role::secondary : SingleInstance::Role::primary);
    }

    void lockIsReleasedWithTheObject()
    {
        const QString root = dataRoot(u"released"_s);
        {
            SingleInstance first(root);
            QCOMPARE(first.claim(), SingleInstance::Role::primary);
        }
        SingleInstance again(root);
        QCOMPARE(again.claim(), SingleInstance::Role::primary);
    }

    void runtimeFolderFallsBackToAPrivateOne_data()
    {
        QTest::addColumn<QByteArray>("given");
        QTest::newRow("unset") << QByteArray();
        QTest::newRow("missing folder") << QByteArray("/nonexistent/run/user/4242");
        QTest::newRow("relative") << QByteArray("run/user");
    }
    void runtimeFolderFallsBackToAPrivateOne()
    {
        QFETCH(QByteArray, given);
        if (given.isEmpty())
            qunsetenv("XDG_RUNTIME_DIR");
        else
            qputenv("XDG_RUNTIME_DIR", given);
        const QString folder = SingleInstance::runtimeDir();
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));

        QCOMPARE(folder, QDir::tempPath() + u"/tovren-"_s + QString::number(::getuid()));
        struct stat status {};
        QCOMPARE(::stat(QFile::encodeName(folder).constData(), &status), 0);
        QCOMPARE(status.st_mode & 0777, 0700u);
        QCOMPARE(status.st_uid, ::getuid());
    }

    void runtimeFolderIsTheGivenOne()
    {
        QCOMPARE(SingleInstance::runtimeDir(), m_runtime.path());
        QVERIFY(SingleInstance(dataRoot()).socketPath().startsWith(m_runtime.path() + u'/'));
    }
};

int main(int argc, char **argv)
{
    if (argc >= 3 && qstrcmp(argv[1], "--child") == 0)
        return runChild(argc, argv);
    QCoreApplication application(argc, argv);
    SingleInstanceTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_singleinstance.moc"
