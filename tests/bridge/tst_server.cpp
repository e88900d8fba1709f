#include "BridgeTestSupport.h"

#include "bridge/MCPServer.h"
#include "bridge/MCPToolGroup.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"

#include "TovrenProcess.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTcpServer>
#include <QThread>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace BridgeTest;

class ServerTest : public QObject {
    Q_OBJECT

    std::unique_ptr<Journal> m_journal;
    std::unique_ptr<MCPServer> m_server;

private slots:
    void init()
    {
        m_journal = std::make_unique<Journal>();
        m_server = std::make_unique<MCPServer>(m_journal->protocol(), 0);
        m_server->start([this] { return &m_journal->context(); });
        QVERIFY(m_server->isRunning());
        QVERIFY(m_server->serverPort() != 0);
    }
    void cleanup()
    {
        m_server.reset();
        m_journal.reset();
    }

    void framing_data()
    {
        QTest::addColumn<QByteArrayList>("writes");
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<int>("toolCalls");

        const QByteArray count1 = call("1", "count");
        QTest::newRow("several lines in one write, answered in order")
            << QByteArrayList{call("1", "count") + '\n' + request("\"b\"", "tools/list") + '\n' +
                              call("3", "count") + '\n'}
            << QStringList{u"1 result"_s, u"\"b\" result"_s, u"3 result"_s} << 2;
        QTest::newRow("a line split across two writes is two broken lines")
            << QByteArrayList{count1.first(20), count1.sliced(20) + '\n'}
            << QStringList{u"- error -32700 Parse error"_s, u"- error -32700 Parse error"_s} << 0;
        QTest::newRow("blank lines get no answer")
            << QByteArrayList{"\n\n\n", "\n" + count1 + "\n\n\n"} << QStringList{u"1 result"_s}
            << 1;
        QTest::newRow("a line of spaces is not blank")
            << QByteArrayList{"   \n"} << QStringList{u"- error -32700 Parse error"_s} << 0;
        QTest::newRow("carriage return before the newline is white space")
            << QByteArrayList{count1 + "\r\n"} << QStringList{u"1 result"_s} << 1;
        QTest::newRow("the last line of a read needs no newline")
            << QByteArrayList{count1} << QStringList{u"1 result"_s} << 1;
        QTest::newRow("initialized is answered by a bare newline")
            << QByteArrayList{request(QByteArray(), "notifications/initialized") + '\n'}
            << QStringList{u"blank"_s} << 0;
        QTest::newRow("a line longer than one read is broken in two")
            << QByteArrayList{call("1", "echo", "{\"pad\":\"" + QByteArray(70000, 'x') + "\"}") +
                              '\n'}
            << QStringList{u"- error -32700 Parse error"_s, u"- error -32700 Parse error"_s} << 0;
        QTest::newRow("a request without id is carried out and answered without one")
            << QByteArrayList{call(QByteArray(), "count") + '\n'} << QStringList{u"- result"_s}
            << 1;

        const auto row = [](const char *name, const QByteArray &line, const QString &answer,
                            int calls = 0) {
            QTest::newRow(name) << QByteArrayList{line + '\n'} << QStringList{answer} << calls;
        };
        const QString parseError = u"- error -32700 Parse error"_s;
        const QString noName = u"1 error -32602 Missing tool name"_s;

        row("integer id", request("7", "tools/list"), u"7 result"_s);
        row("negative id", request("-3", "tools/list"), u"-3 result"_s);
        row("largest 64-bit id", request("9223372036854775807", "tools/list"),
            u"9223372036854775807 result"_s);
        row("whole number written as a fraction", request("2.0", "tools/list"), u"2 result"_s);
        row("exponent id", request("1e3", "tools/list"), u"1000 result"_s);
        row("negative zero id", request("-0", "tools/list"), u"0 result"_s);
        row("string id", request("\"abc\"", "tools/list"), u"\"abc\" result"_s);
        row("empty string id", request("\"\"", "tools/list"), u"\"\" result"_s);
        row("null id", request("null", "tools/list"), u"- result"_s);
        row("fraction id", request("1.5", "tools/list"), parseError);
        row("id past 64 bits", request("9223372036854775808", "tools/list"), parseError);
        row("array id", request("[1]", "tools/list"), parseError);
        row("object id", request("{}", "tools/list"), parseError);
        row("bool id", request("true", "tools/list"), parseError);
        row("version is not checked", R"({"jsonrpc":"1.0","id":1,"method":"tools/list"})",
            u"1 result"_s);
        row("version missing", R"({"id":1,"method":"tools/list"})", parseError);
        row("version not a string", R"({"jsonrpc":2,"id":1,"method":"tools/list"})", parseError);
        row("method missing", R"({"jsonrpc":"2.0","id":1})", parseError);
        row("params not an object", request("1", "tools/list", "[]"), parseError);
        row("null params", request("1", "tools/list", "null"), u"1 result"_s);
        row("not an object", "[1,2]", parseError);
        row("invalid UTF-8",
            "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"tools/list\",\"x\":\"\xff\xfe\"}",
            parseError);
        row("unknown method", request("1", "ping"), u"1 error -32601 Method not found: ping"_s);
        row("other notifications are unknown methods",
            request(QByteArray(), "notifications/cancelled"),
            u"- error -32601 Method not found: notifications/cancelled"_s);
        row("unknown tool", call("1", "nope"), u"1 error -32601 Unknown tool: nope"_s);
        row("tool names are case-sensitive", call("1", "Count"),
            u"1 error -32601 Unknown tool: Count"_s);
        row("tool of a group that is off", call("1", "get_goals"),
            u"1 error -32601 Unknown tool: get_goals"_s);
        row("call without params", request("1", "tools/call"), noName);
        row("call with empty params", request("1", "tools/call", "{}"), noName);
        row("tool name not text", request("1", "tools/call", R"({"name":5})"), noName);
        row("arguments not an object run the tool without any",
            request("1", "tools/call", R"({"name":"echo","arguments":"x"})"), u"1 result"_s, 1);
        row("a tool's refusal", call("\"r\"", "refuse"),
            u"\"r\" error -32602 No day called Blursday."_s);
        row("a failed save", call("1", "save_fails"), u"1 error -32603 The disk is full."_s);
        row("any other failure", call("1", "throws"), u"1 error -32603 vector too long"_s);
    }

    void framing()
    {
        QFETCH(QByteArrayList, writes);
        QFETCH(QStringList, answers);
        QFETCH(int, toolCalls);
        LineClient client(m_server->serverPort());
        for (const QByteArray &bytes : writes) {
            client.send(bytes);
            // Time for the listener to take this write as a read of its own.
            QTest::qWait(50);
        }
        QCOMPARE(describeUntilProbe(client), answers);
        QCOMPARE(m_journal->calls, toolCalls);
    }

    void toolResultIsOneTextItem()
    {
        LineClient client(m_server->serverPort());
        client.send(call("1", "echo", R"({"text":"line one\nline two","n":10})") + '\n');
        const auto line = client.readLine();
        QVERIFY(line);
        QCOMPARE(resultOf(*line),
                 QJsonObject({{"content"_L1,
                               QJsonArray{QJsonObject{
                                   {"type"_L1, u"text"_s},
                                   {"text"_L1, uR"({"n":10,"text":"line one\nline two"})"_s}}}}}));
    }

    void groupSwitchedOffAndOnBetweenCalls()
    {
        LineClient client(m_server->serverPort());
        auto listed = [&] {
            client.send(request("\"list\"", "tools/list") + '\n');
            QStringList names;
            for (const QJsonValue &tool :
                 resultOf(client.readLine().value_or("{}")).value("tools"_L1).toArray())
                names.append(tool.toObject().value("name"_L1).toString());
            return names.contains(u"get_goals"_s);
        };

        QVERIFY(!listed());
        QCOMPARE(ask(client, call("1", "get_goals")), u"1 error -32601 Unknown tool: get_goals"_s);

        MCPToolGroup::setEnabled(MCPToolGroup::Group::goals, true, m_journal->preferences);
        QVERIFY(listed());
        QCOMPARE(ask(client, call("2", "get_goals")), u"2 result"_s);

        MCPToolGroup::setEnabled(MCPToolGroup::Group::goals, false, m_journal->preferences);
        QCOMPARE(ask(client, call("3", "get_goals")), u"3 error -32601 Unknown tool: get_goals"_s);
        QCOMPARE(m_journal->calls, 1);
    }

    void httpGuard_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QStringList>("answers");
        QTest::addColumn<bool>("closed");
        QTest::addColumn<int>("toolCalls");

        const QByteArray count = call("1", "count") + '\n';
        QTest::newRow("POST with a JSON-RPC body")
            << "POST / HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/plain\r\n\r\n" + count
            << QStringList() << true << 0;
        QTest::newRow("GET after a valid line in the same read")
            << count + "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n" + count
            << QStringList{u"1 result"_s} << true << 1;
        QTest::newRow("a preflight") << QByteArray("OPTIONS / HTTP/1.1\r\nOrigin: http://x\r\n\r\n")
                                     << QStringList() << true << 0;
        QTest::newRow("Host header after a valid line")
            << count + "Host: 127.0.0.1:35468\r\n" + count << QStringList{u"1 result"_s} << true
            << 1;
        QTest::newRow("header names in any case")
            << "origin: http://example.com\n" + count << QStringList() << true << 0;
        QTest::newRow("HEAD") << QByteArray("HEAD / HTTP/1.0\r\n\r\n") << QStringList() << true
                              << 0;
        QTest::newRow("HTTP/2 preface")
            << QByteArray("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n") << QStringList() << true << 0;
        QTest::newRow("any method with a request line")
            << "PROPFIND /dav HTTP/1.1\r\n" + count << QStringList() << true << 0;

        QTest::newRow("a word is only a broken line")
            << "GETTING\n" + count << QStringList{u"- error -32700 Parse error"_s, u"1 result"_s}
            << false << 1;
        QTest::newRow("a request naming HTTP inside is served")
            << QByteArray(R"({"jsonrpc":"2.0","id":1,"method":"GET / HTTP/1.1"})"
                          "\n")
            << QStringList{u"1 error -32601 Method not found: GET / HTTP/1.1"_s} << false << 0;
    }
    void httpGuard()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QStringList, answers);
        QFETCH(bool, closed);
        QFETCH(int, toolCalls);

        LineClient client(m_server->serverPort());
        QTRY_COMPARE(m_server->activeSessionCount(), 1);
        client.send(bytes);
        if (closed) {
            QStringList got;
            for (const QByteArray &line :
                 client.linesUntilClosed(5000).value_or(QByteArrayList{"open"}))
                got.append(describe(line));
            QCOMPARE(got, answers);
            QCOMPARE(m_server->activeSessionCount(), 0);
            // Nothing arrives later either.
            QTest::qWait(100);
        } else {
            QCOMPARE(describeUntilProbe(client), answers);
        }
        QCOMPARE(m_journal->calls, toolCalls);
        QCOMPARE(m_server->lifetimeToolCalls(), qint64(toolCalls));
    }

    void toolCallsAreCountedByTheQuotedName()
    {
        LineClient client(m_server->serverPort());
        QSignalSpy changes(m_server.get(), &MCPServer::lifetimeToolCallsChanged);
        client.send(call("1", "count") + '\n' + call("2", "nope") + '\n' +
                    "{\"method\":\"tools/call\"" + '\n' +
                    request("3", "tools/list", R"({"note":"tools/call"})") + '\n' +
                    request("4", "tools/list") + '\n' + "{\"method\":\"tools/call\",\"x\":\"" +
                    '\xff' + "\"}\n");
        QCOMPARE(describeUntilProbe(client).size(), 6);
        QCOMPARE(m_server->lifetimeToolCalls(), 4);
        QCOMPARE(changes.count(), 4);
    }

    void sessionsAndStatus()
    {
        QCOMPARE(m_server->statusLine(), u"On, nothing connected right now"_s);
        LineClient first(m_server->serverPort());
        QTRY_COMPARE(m_server->statusLine(), u"On, 1 app connected"_s);
        LineClient second(m_server->serverPort());
        QTRY_COMPARE(m_server->statusLine(), u"On, 2 apps connected"_s);

        // Calls from two assistants interleave by whole lines.
        first.send(call("1", "count") + '\n');
        QCOMPARE(ask(second, call("2", "count")), u"2 result"_s);
        QCOMPARE(describe(first.readLine().value_or("")), u"1 result"_s);

        first.close();
        QTRY_COMPARE(m_server->activeSessionCount(), 1);

        LineClient third(m_server->serverPort());
        QTRY_COMPARE(m_server->activeSessionCount(), 2);
        m_server->disconnectAll();
        QCOMPARE(m_server->activeSessionCount(), 0);
        QVERIFY(second.waitForClose());
        QVERIFY(third.waitForClose());
        QCOMPARE(m_server->statusLine(), u"On, nothing connected right now"_s);

        // The listener stays up for whoever comes next.
        LineClient fourth(m_server->serverPort());
        QCOMPARE(ask(fourth, call("4", "count")), u"4 result"_s);

        const quint16 port = m_server->serverPort();
        m_server->stop();
        QVERIFY(!m_server->isRunning());
        QCOMPARE(m_server->statusLine(), u"Starting\u2026"_s);
        QCOMPARE(m_server->serverPort(), 0);
        QTRY_COMPARE(m_server->activeSessionCount(), 0);
        QVERIFY(fourth.waitForClose());
        QVERIFY(!LineClient(port).connected());
    }

    void startTwiceKeepsTheFirstProvider()
    {
        ModelContainer other(StoreSchema::current(), ModelContainer::Configuration::memoryOnly());
        const quint16 port = m_server->serverPort();
        m_server->start([&other] { return &other.mainContext(); });
        QCOMPARE(m_server->serverPort(), port);

        LineClient client(port);
        QCOMPARE(ask(client, call("1", "where")), u"1 result"_s);
        QCOMPARE(m_journal->contexts, QList<ModelContext *>{&m_journal->context()});

        // After a stop, a start brings its own provider.
        m_server->stop();
        m_server->start([&other] { return &other.mainContext(); });
        LineClient again(m_server->serverPort());
        QCOMPARE(ask(again, call("2", "where")), u"2 result"_s);
        QCOMPARE(m_journal->contexts.last(), &other.mainContext());
    }

    void listensOnIPv4LoopbackOnly()
    {
        for (const char *address : {"127.0.0.2", "::1"})
            QVERIFY2(!LineClient(m_server->serverPort(), QHostAddress(QLatin1StringView(address)))
                          .connected(),
                     address);
    }

    void portInUseIsReportedAndRecovers()
    {
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress::LocalHost, 0));
        MCPServer server(m_journal->protocol(), squatter.serverPort());
        QSignalSpy errors(&server, &MCPServer::lastErrorChanged);
        server.start([this] { return &m_journal->context(); });
        QVERIFY(!server.isRunning());
        QCOMPARE(server.statusLine(), u"Starting\u2026"_s);
        QCOMPARE(server.lastError(), u"The bound address is already in use"_s);
        QCOMPARE(errors.count(), 1);

        // Nothing was created, so trying again is allowed; the old words stay.
        const quint16 port = squatter.serverPort();
        squatter.close();
        server.start([this] { return &m_journal->context(); });
        QVERIFY(server.isRunning());
        QCOMPARE(server.serverPort(), port);
        QCOMPARE(server.lastError(), u"The bound address is already in use"_s);
    }

    void restartRebindsTheSamePortAtOnce()
    {
        const quint16 port = TovrenProcess::freePort();
        MCPServer server(m_journal->protocol(), port);
        server.start([this] { return &m_journal->context(); });
        QVERIFY(server.isRunning());
        for (int round = 0; round < 3; ++round) {
            LineClient client(port);
            QCOMPARE(ask(client, call(QByteArray::number(round), "count")),
                     u"%1 result"_s.arg(round));
            // The server closes first, leaving its side of the connection lingering.
            server.stop();
            QVERIFY(client.waitForClose());
            server.start([this] { return &m_journal->context(); });
            QVERIFY2(server.isRunning(), qPrintable(server.lastError().value_or(QString())));
        }
    }

    // Lines left for later turns of the loop are answered after the peer's half-close, then it
    // closes.
    void halfClosedPeerGetsEveryAnswer()
    {
        m_journal->add(u"slow"_s, [](const QJsonObject &, auto &) {
            QThread::msleep(15);
            return u"done"_s;
        });
        LineClient client(m_server->serverPort());
        QVERIFY(client.send(calls(12, "slow") + call("12", "count")));
        client.shutdownWrite();
        QStringList answers;
        for (const QByteArray &line : client.linesUntilClosed().value_or(QByteArrayList()))
            answers.append(describe(line));
        QCOMPARE(answers, results(13));
        QTRY_COMPARE(m_server->activeSessionCount(), 0);
    }

    // Ten megabytes without a newline are some 160 broken lines; another assistant is served.
    void endlessLineDoesNotStopOthers()
    {
        LineClient flood(m_server->serverPort());
        LineClient other(m_server->serverPort());
        const QByteArray chunk(256 * 1024, 'a');
        const qsizetype goal = 10 * 1024 * 1024;
        qsizetype total = 0;
        int served = 0;
        QByteArray received;
        for (int i = 0; i < 20000 && total < goal; ++i) {
            total += flood.trySend(
                QByteArrayView(chunk).first(std::min<qsizetype>(chunk.size(), goal - total)));
            if (i % 20 == 0) {
                QCOMPARE(ask(other, call(QByteArray::number(i), "count")), u"%1 result"_s.arg(i));
                ++served;
            }
            QTest::qWait(1);
            received += flood.tryReceive();
        }
        QCOMPARE(total, goal);
        QVERIFY(served > 1);
        QCOMPARE(m_journal->calls, served);

        // The flood ends with a real request, which is answered once its line arrives whole.
        QVERIFY(flood.send("\n" + call("\"last\"", "count") + '\n'));
        for (int i = 0; i < 2000 && !received.contains("\"id\":\"last\""); ++i) {
            QTest::qWait(2);
            received += flood.tryReceive();
        }
        QVERIFY(received.contains("\"id\":\"last\""));
        const qsizetype brokenLines = received.count("\"message\":\"Parse error\"");
        QVERIFY2(brokenLines >= 160 && brokenLines < 1000,
                 qPrintable(QString::number(brokenLines)));
        QCOMPARE(m_server->activeSessionCount(), 2);
    }

    // Valid lines cut, spliced and garbled, some opening like HTTP: every answer is still a line
    // of JSON and the listener goes on serving. (fuzz/ holds each answer to its request.)
    void hostileBytesLeaveTheListenerServing()
    {
        QRandomGenerator random(20261115);
        const QByteArrayList lines{
            call("1", "echo", R"({"text":"a\u0000","n":[1e400,{"k":null}]})"),
            request("\"x\"", "tools/list"),
            "POST / HTTP/1.1",
            request(QByteArray(), "notifications/initialized"),
            call("2", "count"),
            "\xff\xfe{\"id\":[]}"};
        const auto any = [&] { return lines.at(random.bounded(int(lines.size()))); };
        auto client = std::make_unique<LineClient>(m_server->serverPort());
        for (int i = 0; i < 3000; ++i) {
            if (client->peerClosed())
                client = std::make_unique<LineClient>(m_server->serverPort());
            QByteArray bytes = any();
            const int at = random.bounded(int(bytes.size()));
            if (const int how = random.bounded(4); how == 0)
                bytes.truncate(at);
            else if (how == 1)
                bytes[at] = char(random.bounded(256));
            else if (how == 2)
                bytes.insert(at, any());
            client->trySend(random.bounded(3) ? bytes + '\n' : bytes);
            if (i % 16 == 0) {
                QTest::qWait(1);
                while (const auto line = client->readLine(0))
                    QVERIFY2(describe(*line) != u"not JSON"_s, line->constData());
            }
        }
        LineClient probe(m_server->serverPort());
        QCOMPARE(ask(probe, call("\"after\"", "count")), u"\"after\" result"_s);
    }

    // A client that stops reading is held back, not cut off: what waits for it stays bounded, the
    // other assistant is served all along, and once it reads again it gets every answer.
    void slowReaderIsHeldBackNotDropped()
    {
        const QString big(64 * 1024, u'x');
        int bigCalls = 0;
        m_journal->add(u"big"_s, [&](const QJsonObject &, auto &) {
            ++bigCalls;
            return big;
        });
        LineClient slow(m_server->serverPort());
        LineClient other(m_server->serverPort());
        QTRY_COMPARE(m_server->activeSessionCount(), 2);

        // Answered in full at once, some 40 MB would wait for it.
        constexpr int requests = 600;
        QVERIFY(slow.send(calls(requests, "big")));
        for (int round = 0; round < 30; ++round) {
            QCOMPARE(ask(other, call(QByteArray::number(round), "count")),
                     u"%1 result"_s.arg(round));
            QTest::qWait(100);
        }
        // The bound, what the kernel's buffers on both ends hold, and one read's lines.
        QVERIFY2(qint64(bigCalls) * big.size() < 16 * MCPServer::unsentAnswerBound,
                 qPrintable(u"%1 answers made"_s.arg(bigCalls)));

        for (int i = 0; i < requests; ++i) {
            QCOMPARE(describe(slow.readLine().value_or("")), u"%1 result"_s.arg(i));
            if (i % 100 == 0)
                QTest::qWait(200);
        }
        QCOMPARE(bigCalls, requests);
        QCOMPARE(m_server->activeSessionCount(), 2);
    }

    // Each turn of the loop answers only while its budget lasts, so the loop keeps turning and
    // waiting connections take turns instead of the first being served to the end.
    void busyConnectionsShareTheEventLoop()
    {
        QList<int> order;
        m_journal->add(u"slow"_s, [&](const QJsonObject &arguments, auto &) {
            QThread::msleep(30);
            order.append(arguments.value("who"_L1).toInt());
            return u"done"_s;
        });
        constexpr int clients = 6;
        constexpr int lines = 4;
        std::vector<std::unique_ptr<LineClient>> connected;
        for (int c = 0; c < clients; ++c)
            connected.push_back(std::make_unique<LineClient>(m_server->serverPort()));
        QTRY_COMPARE(m_server->activeSessionCount(), clients);

        QElapsedTimer clock;
        qint64 longestGap = 0;
        QTimer tick;
        tick.callOnTimeout([&] { longestGap = std::max(longestGap, clock.restart()); });
        for (int c = 0; c < clients; ++c)
            connected.at(size_t(c))->send(
                calls(lines, "slow", "{\"who\":" + QByteArray::number(c) + '}'));
        clock.start();
        tick.start(5);
        for (const auto &client : connected) {
            for (int l = 0; l < lines; ++l)
                QCOMPARE(describe(client->readLine(10000).value_or("")), u"%1 result"_s.arg(l));
        }
        tick.stop();
        // Served in one go, the loop would have stood still for 24 x 30 ms.
        QVERIFY2(longestGap < 200, qPrintable(QString::number(longestGap)));
        QCOMPARE(order.size(), clients * lines);
        // Everyone had a first answer before anyone had a last.
        const QList<int> firstRound = order.first(clients + 1);
        for (int c = 0; c < clients; ++c)
            QVERIFY2(firstRound.contains(c), qPrintable(u"client %1 waited"_s.arg(c)));
    }

    void followsTheSwitch()
    {
        m_server = std::make_unique<MCPServer>(m_journal->protocol(), 0);
        m_server->followPreference(m_journal->preferences,
                                   [this] { return &m_journal->context(); });
        QVERIFY(!m_server->isRunning());

        m_journal->preferences.set(Prefs::mcpServerEnabled, true);
        NoticeCenter::shared().post(Notices::dataErased);
        QVERIFY(!m_server->isRunning());
        NoticeCenter::shared().post(Notices::mcpToggle);
        QVERIFY(m_server->isRunning());
        LineClient client(m_server->serverPort());
        QTRY_COMPARE(m_server->activeSessionCount(), 1);

        m_journal->preferences.set(Prefs::mcpServerEnabled, false);
        NoticeCenter::shared().post(Notices::mcpToggle);
        QVERIFY(!m_server->isRunning());
        QVERIFY(client.waitForClose());

        // Already on at the start: the listener comes up at once.
        m_journal->preferences.set(Prefs::mcpServerEnabled, true);
        MCPServer second(m_journal->protocol(), 0);
        second.followPreference(m_journal->preferences, [this] { return &m_journal->context(); });
        QVERIFY(second.isRunning());
    }
};

QTEST_GUILESS_MAIN(ServerTest)
#include "tst_server.moc"
