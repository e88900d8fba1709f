// The whole program as an assistant meets it: `tovren --headless` with the bridge switched on
// in a hand-written preferences file, reached over a socket and through `tovren mcp`. The
// protocol's words are held in process by tst_protocol and tst_server.

#include "LineClient.h"
#include "TovrenProcess.h"

#include <QDate>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <numeric>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Line::call;
using Line::request;

class HeadlessTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TempDataDir> m_dir;
    std::unique_ptr<TovrenProcess> m_tovren;
    quint16 m_port = 0;

    static void startBridge(QProcess &bridge, quint16 port)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"TOVREN_MCP_PORT"_s, QString::number(port));
        bridge.setProcessEnvironment(environment);
        bridge.start(TovrenProcess::binary(), {u"mcp"_s});
        QVERIFY(bridge.waitForStarted());
    }

private slots:
    void initTestCase()
    {
        m_dir = std::make_unique<TempDataDir>();
        m_tovren = std::make_unique<TovrenProcess>(*m_dir);
        QVERIFY(m_tovren->writePreferences(R"({"mcpServerEnabled": true})"));
        m_port = TovrenProcess::freePort();
        QVERIFY(m_tovren->start({u"--headless"_s}, m_port));
        QVERIFY2(m_tovren->waitUntilListening(m_port), "tovren --headless never listened");

        // A fortnight of long pages, so that answers take many turns of Tovren's loop.
        QVERIFY(Line::addPages(m_port, QDate::currentDate(), 14, -1,
                               [](int) { return QString(20000, u'p'); }));
    }

    // Every tool built so far, in the published order: an install that had the bridge on before
    // the groups existed has every group on.
    void headlessTovrenListsEveryTool()
    {
        LineClient client(m_port);
        const QJsonArray tools = client.call(request("2", "tools/list"))
                                     .value_or(QJsonObject())
                                     .value("result"_L1)
                                     .toObject()
                                     .value("tools"_L1)
                                     .toArray();
        QStringList names;
        for (const QJsonValue &tool : tools) {
            names.append(tool.toObject().value("name"_L1).toString());
            QVERIFY(tool.toObject().value("description"_L1).isString());
            QCOMPARE(tool.toObject().value("inputSchema"_L1).toObject().value("type"_L1),
                     u"object"_s);
        }
        QCOMPARE(names, u"get_entries get_open_tasks search add_journal_entry add_task "
                        "complete_task log_meeting get_tags get_people get_person add_person "
                        "get_meetings get_action_items add_action_item complete_action_item "
                        "get_stats get_inbox mark_inbox_read get_journal_template "
                        "update_journal_entry"_s.split(u' '));
    }

    // `tovren mcp` sends all its requests and then closes its sending side when its input ends;
    // every one is answered, however long they take. (tst_server half-closes a socket.)
    void stdioBridgeGetsEveryAnswerAfterItsInputEnds()
    {
        constexpr int requests = 120;
        QByteArray lines;
        for (int i = 0; i < requests; ++i)
            lines += call(QByteArray::number(i), i % 3 ? "get_entries" : "add_journal_entry",
                          QJsonObject{{"content"_L1, u"- pipelined %1"_s.arg(i)}}) +
                     '\n';
        QProcess bridge;
        bridge.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        startBridge(bridge, m_port);
        bridge.write(lines);
        bridge.closeWriteChannel();
        QVERIFY(bridge.waitForFinished(180000));
        QCOMPARE(bridge.exitCode(), 0);
        QByteArrayList answers = bridge.readAllStandardOutput().split('\n');
        QCOMPARE(answers.takeLast(), QByteArray());
        QList<int> ids;
        for (const QByteArray &line : std::as_const(answers)) {
            const QJsonObject answer = QJsonDocument::fromJson(line).object();
            QVERIFY2(Line::succeeded(answer), line.left(200).constData());
            ids.append(answer.value("id"_L1).toInt(-1));
        }
        QList<int> expected(requests);
        std::iota(expected.begin(), expected.end(), 0);
        QCOMPARE(ids, expected);
    }

    // `tovren mcp` against a listener that answers a lot before it reads anything and then is
    // slow to finish: the bridge must take answers while its own writes wait, and stay to the end.
    void stdioBridgeRelaysBothWaysUntilTovrenCloses()
    {
        const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        QVERIFY(::bind(listener, reinterpret_cast<sockaddr *>(&address), length) == 0);
        QVERIFY(::listen(listener, 1) == 0);
        QVERIFY(::getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) == 0);

        // More each way than the kernel's buffers hold.
        const QByteArray input(16 * 1024 * 1024, 'q');
        const QByteArray answers = QByteArray(16 * 1024 * 1024, 'a') + '\n';
        qsizetype received = 0;
        std::thread fake([&] {
            const int fd = ::accept(listener, nullptr, nullptr);
            for (qsizetype at = 0, sent = 0; at < answers.size() && sent >= 0; at += sent)
                sent =
                    ::send(fd, answers.constData() + at, size_t(answers.size() - at), MSG_NOSIGNAL);
            char buffer[65536];
            for (ssize_t got; (got = ::recv(fd, buffer, sizeof buffer, 0)) > 0;)
                received += got;
            std::this_thread::sleep_for(std::chrono::seconds(6));
            ::send(fd, "last\n", 5, MSG_NOSIGNAL);
            ::close(fd);
        });

        QProcess bridge;
        startBridge(bridge, ntohs(address.sin_port));
        bridge.write(input);
        bridge.closeWriteChannel();
        const bool finished = bridge.waitForFinished(30000);
        if (!finished)
            bridge.kill();
        fake.join();
        ::close(listener);
        QVERIFY2(finished, "the bridge and the listener wait for each other");
        QCOMPARE(bridge.exitCode(), 0);
        QCOMPARE(received, input.size());
        const QByteArray output = bridge.readAllStandardOutput();
        QCOMPARE(output.size(), answers.size() + 5);
        QVERIFY(output.endsWith("\nlast\n"));
    }

    void cleanupTestCase()
    {
        QVERIFY(m_tovren->stop(SIGTERM));
        QCOMPARE(m_tovren->process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_tovren->process().exitCode(), 0);

        QFile preferences(m_dir->configDir() + u"/preferences.json"_s);
        QVERIFY(preferences.open(QIODevice::ReadOnly));
        const QJsonObject stored = QJsonDocument::fromJson(preferences.readAll()).object();
        QCOMPARE(stored.value("mcpToolGroupDefaultsApplied"_L1), true);
        for (const char *group : {"people", "goals", "library", "setup"})
            QCOMPARE(stored.value(u"mcpToolGroup-"_s + QLatin1StringView(group)), true);
    }
};

QTEST_GUILESS_MAIN(HeadlessTest)
#include "tst_headless.moc"
