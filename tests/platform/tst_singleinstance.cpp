#include "platform/SingleInstance.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <future>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

// In one process two objects behave like two processes: the lock is per open file. A later
// start runs on a thread of its own, as its blocking wait would in a second process, while
// this thread's event loop serves as the running Tovren's.
class SingleInstanceTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_runtime;
    QTemporaryDir m_data;

    QString dataRoot(const QString &name) const { return m_data.filePath(name); }

    static std::future<SingleInstance::Answer> laterStart(const QString &root,
                                                          const QStringList &arguments)
    {
        return std::async(std::launch::async, [root, arguments] {
            SingleInstance later(root);
            if (later.claim() != SingleInstance::Role::secondary)
                return SingleInstance::Answer{false, u"not a later start"_s};
            return later.forward(arguments, 8000);
        });
    }
    // Serves events meanwhile, as the running Tovren would.
    static SingleInstance::Answer answerOf(std::future<SingleInstance::Answer> &pending)
    {
        const QDeadlineTimer deadline(15000);
        while (pending.wait_for(0ms) != std::future_status::ready && !deadline.hasExpired())
            QTest::qWait(10);
        return pending.get();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_runtime.isValid() && m_data.isValid());
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
    }

    // Every later start is answered, not only the first; a refusing primary receives nothing,
    // and neither does the Tovren of another journal. The lock is taken before the socket
    // listens; a start in between waits for it.
    void laterStartsForwardTheirArguments_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("refusal");
        QTest::addColumn<int>("listenAfterMs");
        QTest::newRow("none") << QStringList() << QString() << 0;
        QTest::newRow("link") << QStringList{u"tovren://auth/microsoft?code=a%20b&state=x"_s}
                              << QString() << 0;
        QTest::newRow("words with spaces and accents, several")
            << QStringList{u"tovren://tag/café"_s, u"two words"_s, u"\"quoted\" \\ line\nbreak"_s}
            << QString() << 0;
        QTest::newRow("refused") << QStringList{u"--show"_s} << u"No window to show here."_s << 0;
        QTest::newRow("primary still starting")
            << QStringList{u"--quick-capture"_s} << QString() << 1500;
    }
    void laterStartsForwardTheirArguments()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, refusal);
        QFETCH(int, listenAfterMs);
        const QString root = dataRoot(QString::fromLatin1(QTest::currentDataTag()));
        SingleInstance primary(root);
        QCOMPARE(primary.claim(), SingleInstance::Role::primary);
        auto pending = laterStart(root, arguments);
        QTest::qWait(listenAfterMs);
        QVERIFY(primary.listen());
        primary.setRefusal(refusal);
        QSignalSpy received(&primary, &SingleInstance::received);
        SingleInstance bystander(root + u"-other"_s);
        QVERIFY(bystander.claim() == SingleInstance::Role::primary && bystander.listen());
        QSignalSpy bystanderReceived(&bystander, &SingleInstance::received);
        for (int i = 1; i <= 2; ++i) {
            if (i == 2)
                pending = laterStart(root, arguments);
            const SingleInstance::Answer answer = answerOf(pending);
            QCOMPARE(answer.accepted, refusal.isEmpty());
            QCOMPARE(answer.message, refusal);
            QCOMPARE(received.count(), refusal.isEmpty() ? i : 0);
        }
        for (const QList<QVariant> &signal : std::as_const(received))
            QCOMPARE(signal.at(0).toStringList(), arguments);
        QCOMPARE(bystanderReceived.count(), 0);
    }

    // The same folder however spelled; the lock goes with the object.
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
        {
            SingleInstance first(dataRoot(u"spelled"_s));
            QCOMPARE(first.claim(), SingleInstance::Role::primary);
            SingleInstance second(m_data.path() + u'/' + spelling);
            QCOMPARE(second.claim(),
                     same ? SingleInstance::Role::secondary : SingleInstance::Role::primary);
        }
        QCOMPARE(SingleInstance(dataRoot(u"spelled"_s)).claim(), SingleInstance::Role::primary);
    }

    // Anything but a usable XDG_RUNTIME_DIR falls back to a private folder of this user's.
    void runtimeFolder_data()
    {
        QTest::addColumn<QByteArray>("given");
        QTest::newRow("usable") << QFile::encodeName(m_runtime.path());
        QTest::newRow("unset") << QByteArray();
        QTest::newRow("missing folder") << QByteArray("/nonexistent/run/user/4242");
        QTest::newRow("relative") << QByteArray("run/user");
    }
    void runtimeFolder()
    {
        QFETCH(QByteArray, given);
        if (given.isEmpty())
            qunsetenv("XDG_RUNTIME_DIR");
        else
            qputenv("XDG_RUNTIME_DIR", given);
        const QString folder = SingleInstance::runtimeDir();
        const QString socket = SingleInstance(dataRoot(u"journal"_s)).socketPath();
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));

        QVERIFY(socket.startsWith(folder + u'/'));
        QCOMPARE(folder, given == QFile::encodeName(m_runtime.path())
                             ? m_runtime.path()
                             : QDir::tempPath() + u"/tovren-"_s + QString::number(::getuid()));
        struct stat status {};
        QCOMPARE(::stat(QFile::encodeName(folder).constData(), &status), 0);
        QCOMPARE(status.st_mode & 0777, 0700u);
        QCOMPARE(status.st_uid, ::getuid());
    }
};

QTEST_GUILESS_MAIN(SingleInstanceTest)
#include "tst_singleinstance.moc"
