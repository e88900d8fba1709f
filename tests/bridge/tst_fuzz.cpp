// Hostile input for the line handler and the listener: valid requests mutated, truncated and
// bit-flipped, deep nesting, odd numbers, broken UTF-8. The libFuzzer target in fuzz/ checks that
// nothing crashes and every answer is one line of JSON; this checks what it can't: that each
// answer keeps the request's id or is a parse error without one, and that a real connection
// survives the same bytes.
//
// The run stops after 200,000 lines or 25 seconds, whichever comes first, so that it stays
// short under the sanitizers on a busy machine. TOVREN_FUZZ_SEED repeats a run, and
// TOVREN_FUZZ_LINES and TOVREN_FUZZ_SECONDS change its length.

#include "BridgeTestSupport.h"

#include "bridge/MCPServer.h"

#include <QElapsedTimer>
#include <QRandomGenerator>

using namespace Qt::StringLiterals;
using namespace BridgeTest;

namespace {

const QByteArrayList seeds{
    request("1", "initialize", R"({"protocolVersion":"2024-11-05","capabilities":{}})"),
    request(QByteArray(), "notifications/initialized"),
    request("\"list\"", "tools/list"),
    request("null", "tools/list", "{}"),
    call("2", "echo", R"({"text":"a #tag @Ada Lovelace","limit":10,"done":true})"),
    call("3", "echo", R"({"nested":{"list":[1,2.5,"x",null,{"k":[]}]}})"),
    call("4", "count"),
    call("5", "refuse"),
    call("6", "save_fails"),
    call("7", "throws"),
    call("8", "get_goals"),
    request("10", "tools/call", R"({"name":"echo","arguments":"x"})"),
    request("11", "tools/call", R"({"name":5})"),
    request("12", "resources/list"),
    R"({"jsonrpc":"1.0","id":-9223372036854775808,"method":"tools/list"})",
    R"({"jsonrpc":"2.0","id":1.5,"method":"tools/list"})",
    R"(  {"method":"tools/call","jsonrpc":"2.0","params":{"name":"echo"}} )"};

const QByteArrayList oddValues =
    QByteArray("1e308 -1e309 123456789012345678901234567890 -0 0.0000000000000000000001 "
               "9223372036854775807 -9223372036854775809 \"\\ud800\" \"\\udc00\\ud800\" "
               "\"\\u0000\" \"\xc0\x80\" \"\xed\xa0\x80\" \"\xf4\x90\x80\x80\" \"\xff\" "
               "\"\xe2\x82\" [] {} null true \"tools/call\"")
        .split(' ')
    << "\"" + QByteArray(3000, 'x') + "\"";

class Mutator {
public:
    explicit Mutator(quint32 seed)
        : m_random(seed)
    {
    }

    int below(int n) { return int(m_random.bounded(quint32(n))); }
    const QByteArray &pick(const QByteArrayList &list) { return list.at(below(int(list.size()))); }

    QByteArray next()
    {
        QByteArray line = pick(seeds);
        for (int i = 0, rounds = 1 + below(4); i < rounds; ++i)
            mutate(line);
        return line;
    }

private:
    void mutate(QByteArray &line)
    {
        const qsizetype at = line.isEmpty() ? 0 : below(int(line.size()));
        switch (below(9)) {
        case 0:
            line.truncate(at);
            break;
        case 1: // flip bits, insert bytes of any value, or cut a stretch
            if (!line.isEmpty())
                line[at] ^= char(1 << below(8));
            line.insert(at, QByteArray(below(3), char(below(256))));
            line.remove(at, below(16));
            break;
        case 2: // splice with another seed
            line = line.first(at) + pick(seeds).mid(below(40));
            break;
        case 3: // an odd value where a value starts
            if (const qsizetype colon = line.indexOf(':', at); colon >= 0)
                line.insert(colon + 1, pick(oddValues) + ',');
            break;
        case 4: { // arguments nested around the parser's own limit, or well inside it
            const int depth = below(5) == 0 ? 1015 + below(20) : below(64);
            const QByteArray open = below(2) ? "[" : "{\"a\":";
            const QByteArray close = open == "[" ? "]" : "}";
            line = call(QByteArray::number(below(100)), "echo",
                        open.repeated(depth) + pick(oddValues) + close.repeated(depth));
            break;
        }
        case 5: // a quote or brace where it hurts, or an overlong or surrogate sequence
            line.insert(at, QByteArrayList{"\"", "{", "}", "[", ",", ":", "\\", "\xc0\xaf",
                                           "\xed\xb0\x80", "\xef\xbb\xbf", QByteArray(1, '\0')}
                                .at(below(11)));
            break;
        case 6: // a valid line made long, now and then very long
            line = call(QByteArray::number(below(1000)), "echo",
                        "{\"text\":\"" + QByteArray(below(below(16) ? 2000 : 60000), 'y') + "\"}");
            break;
        default: // well-formed JSON with the request's keys holding anything
            line = randomValue(5, true);
            break;
        }
    }

    QByteArray randomValue(int depth, bool object = false)
    {
        static const QByteArrayList keys{"jsonrpc", "id", "method", "params", "name", "arguments"};
        switch (object ? 5 : below(depth == 0 ? 3 : 5)) {
        case 0:
            return QByteArray::number(qint64(m_random.generate64()));
        case 1:
            return pick(oddValues);
        case 2:
            return pick({"\"method\"", "\"tools/call\"", "false", "-", "1.", ".5", "01"});
        case 3: {
            QByteArray list = "[";
            for (int i = 0, n = below(4); i < n; ++i)
                list += (i ? "," : "") + randomValue(depth - 1);
            return list + ']';
        }
        default: {
            QByteArray map = "{";
            for (int i = 0, n = below(5); i < n; ++i)
                map += (i ? ",\"" : "\"") + pick(keys) + "\":" + randomValue(depth - 1);
            return map + '}';
        }
        }
    }

    QRandomGenerator m_random;
};

quint32 seedFromEnvironment()
{
    bool ok = false;
    const quint32 seed = qEnvironmentVariable("TOVREN_FUZZ_SEED").toUInt(&ok);
    return ok ? seed : 20261115;
}

} // namespace

class FuzzTest : public QObject {
    Q_OBJECT

private slots:
    void lineHandlerSurvivesHostileLines()
    {
        bool ok = false;
        int lines = qEnvironmentVariableIntValue("TOVREN_FUZZ_LINES", &ok);
        if (!ok)
            lines = 200000;
        int seconds = qEnvironmentVariableIntValue("TOVREN_FUZZ_SECONDS", &ok);
        if (!ok)
            seconds = 25;
        const quint32 seed = seedFromEnvironment();
        Journal journal;
        const MCPProtocol protocol = journal.protocol();
        Mutator mutator(seed);
        QElapsedTimer timer;
        timer.start();
        int answered = 0;
        int blank = 0;
        int i = 0;
        for (; i < lines && !timer.hasExpired(seconds * 1000); ++i) {
            const QByteArray line = mutator.next();
            const QByteArray response = protocol.handle(line, journal.context());
            // The message is built only for a failure: this loop runs hundreds of thousands
            // of times.
            const auto check = [&](bool condition, const char *what) {
                if (condition)
                    return true;
                QTest::qFail(
                    qPrintable(u"%1 (seed %2, line %3): %4 -> %5"_s.arg(QLatin1StringView(what))
                                   .arg(seed)
                                   .arg(i)
                                   .arg(QString::fromLatin1(line.left(300).toPercentEncoding()),
                                        QString::fromLatin1(response.left(300)))),
                    __FILE__, __LINE__);
                return false;
            };

            const std::optional<RPCRequest> request = RPCRequest::decode(line);
            if (response.isEmpty()) {
                if (!check(request && request->method == "notifications/initialized"_L1,
                           "no answer"))
                    return;
                ++blank;
                continue;
            }
            QJsonParseError error;
            const QJsonObject answer = QJsonDocument::fromJson(response, &error).object();
            const QJsonObject body = answer.value("error"_L1).toObject();
            const QJsonValue id = answer.value("id"_L1);
            const bool wellFormed =
                check(!response.contains('\n'), "answer spans lines") &&
                check(error.error == QJsonParseError::NoError, "answer isn't JSON") &&
                check(answer.value("jsonrpc"_L1) == u"2.0"_s, "no version") &&
                check(answer.contains("result"_L1) != answer.contains("error"_L1),
                      "needs exactly one of result and error") &&
                check(!answer.contains("error"_L1) || (RPCValue::integer(body.value("code"_L1)) &&
                                                       body.value("message"_L1).isString()),
                      "malformed error") &&
                (request ? check(request->id ? RPCID::decode(id) == request->id : id.isUndefined(),
                                 "id changed")
                         : check(body.value("code"_L1) == -32700 && id.isUndefined(),
                                 "not a parse error"));
            if (!wellFormed)
                return;
            ++answered;
        }
        qInfo("%d lines (%d answered, %d blank) in %lld ms, seed %u", i, answered, blank,
              timer.elapsed(), seed);
        QVERIFY2(i >= std::min(lines, 20000), "too few lines in the time given to say much");
    }

    // The same lines over a real connection, as a misbehaving client would send them; the
    // listener has to be answering a well-behaved one at the end.
    void listenerSurvivesHostileClients()
    {
        Journal journal;
        MCPServer server(journal.protocol(), 0);
        server.start([&journal] { return &journal.context(); });
        QVERIFY(server.isRunning());
        Mutator mutator(seedFromEnvironment() + 2);

        auto client = std::make_unique<LineClient>(server.serverPort());
        for (int i = 0; i < 3000; ++i) {
            if (client->peerClosed())
                client = std::make_unique<LineClient>(server.serverPort());
            QByteArray bytes = mutator.next();
            if (mutator.below(3))
                bytes += '\n';
            client->trySend(bytes);
            if (i % 16 == 0) {
                QTest::qWait(1);
                while (const auto line = client->readLine(0))
                    QVERIFY2(describe(*line) != u"not JSON"_s, line->constData());
            }
        }
        LineClient probe(server.serverPort());
        QCOMPARE(ask(probe, call("\"after\"", "count")), u"\"after\" result"_s);
    }
};

QTEST_GUILESS_MAIN(FuzzTest)
#include "tst_fuzz.moc"
