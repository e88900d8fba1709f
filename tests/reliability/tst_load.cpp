// Many assistants at once against the real tovren --headless: 32 connections, each with a few
// requests in flight, reads and writes mixed. Every request must be answered exactly once,
// with its own id, and the event loop must not stall.
//
// TOVREN_LOAD_REQUESTS sets the requests per connection (200 by default; scripts/reliability
// sends 2,000). The longest stall is always printed; it is asserted against
// TOVREN_STALL_LIMIT_MS, by default 100 ms in an optimised build and 2,000 ms in a debug or
// sanitizer build. There the code runs several times slower and shares two cores with the 32
// client threads and the other tests ctest runs beside it, so 100 ms would fail on scheduling
// alone; 2 s still catches a handler that blocks the loop or a cost that grows with the load.
#include "LineClient.h"
#include "Reliability.h"
#include "TovrenProcess.h"

#include <QDate>
#include <QJsonArray>
#include <QRegularExpression>
#include <QTest>

#include <atomic>
#include <mutex>
#include <thread>

using namespace Qt::StringLiterals;
using namespace Reliability;

namespace {

#if defined(__SANITIZE_ADDRESS__) || !defined(NDEBUG)
constexpr int defaultStallLimitMs = 2000;
#else
constexpr int defaultStallLimitMs = 100;
#endif

constexpr int connections = 32;
constexpr int inFlight = 4;

QByteArray requestFor(int connection, int number)
{
    const QByteArray id =
        "\"c" + QByteArray::number(connection) + '-' + QByteArray::number(number) + '"';
    const QDate today = QDate::currentDate();
    switch (number % 10) {
    case 0:
    case 1:
    case 2:
        return Line::call(id, "get_entries");
    case 3:
        return Line::call(id, "get_entries",
                          QJsonObject{{u"from"_s, today.addYears(-1).toString(Qt::ISODate)},
                                      {u"to"_s, today.toString(Qt::ISODate)}});
    case 4:
    case 5:
        return "{\"jsonrpc\":\"2.0\",\"id\":" + id + ",\"method\":\"tools/list\"}";
    case 6:
        return "{\"jsonrpc\":\"2.0\",\"id\":" + id +
               ",\"method\":\"initialize\",\"params\":{\"protocolVersion\":\"2024-11-05\"}}";
    case 7:
        return Line::call(id, "get_journal_template");
    case 8:
        if (number % 100 == 8)
            return Line::call(
                id, "add_journal_entry",
                QJsonObject{{u"content"_s, u"load c%1 n%2 #load"_s.arg(connection).arg(number)},
                            {u"date"_s, today.addDays(-(number % 30)).toString(Qt::ISODate)}});
        [[fallthrough]];
    default:
        return Line::call(id, "get_entries", QJsonObject{{u"limit"_s, 3}});
    }
}

struct Outcome {
    int answered = 0;
    QStringList problems;
};

// One connection's whole run: keeps inFlight requests outstanding and checks each answer's id
// against the ones still owed.
Outcome drive(quint16 port, int connection, int requests)
{
    Outcome outcome;
    LineClient client(port);
    if (!client.connected()) {
        outcome.problems.append(u"c%1 could not connect"_s.arg(connection));
        return outcome;
    }
    QSet<QString> owed;
    int sent = 0;
    while (outcome.answered < requests) {
        while (sent < requests && owed.size() < inFlight) {
            if (!client.send(requestFor(connection, sent) + '\n')) {
                outcome.problems.append(u"c%1: connection lost at %2"_s.arg(connection).arg(sent));
                return outcome;
            }
            owed.insert(u"c%1-%2"_s.arg(connection).arg(sent));
            ++sent;
        }
        const std::optional<QByteArray> line = client.readLine(30000);
        if (!line) {
            outcome.problems.append(
                u"c%1: no answer for %2 of its requests"_s.arg(connection).arg(owed.size()));
            return outcome;
        }
        const QJsonObject answer = QJsonDocument::fromJson(*line).object();
        const QString id = answer.value("id"_L1).toString();
        if (!owed.remove(id)) {
            outcome.problems.append(u"c%1: answer for %2, not owed: %3"_s.arg(connection)
                                        .arg(id, QString::fromUtf8(line->left(200))));
            return outcome;
        }
        if (!answer.contains("result"_L1))
            outcome.problems.append(u"c%1: %2 failed: %3"_s.arg(connection)
                                        .arg(id, QString::fromUtf8(line->left(200))));
        ++outcome.answered;
    }
    return outcome;
}

} // namespace

class LoadTest : public QObject {
    Q_OBJECT

private slots:
    void everyRequestAnsweredOnceWithoutStalls()
    {
        const int requests = scaled("TOVREN_LOAD_REQUESTS", 200);
        const int stallLimitMs = scaled("TOVREN_STALL_LIMIT_MS", defaultStallLimitMs);

        TempDataDir dir;
        TovrenProcess tovren(dir);
        QVERIFY(tovren.writePreferences("{\"mcpServerEnabled\": true}"));
        qputenv("TOVREN_REPORT_STALLS", "1");
        const quint16 port = TovrenProcess::freePort();
        QVERIFY(tovren.start({u"--headless"_s}, port));
        qunsetenv("TOVREN_REPORT_STALLS");
        QVERIFY(tovren.waitUntilListening(port));

        // A month of pages, so that the reads have something to read.
        {
            LineClient writer(port);
            for (int day = 0; day < 30; ++day) {
                const auto answer = writer.call(Line::call(
                    QByteArray::number(day), "add_journal_entry",
                    QJsonObject{
                        {u"content"_s, QString(u"Seeded page %1 #seed with @Ann Lee. "_s.arg(day) +
                                               QString(1200, u'x'))},
                        {u"date"_s, QDate::currentDate().addDays(-day).toString(Qt::ISODate)}}));
                QVERIFY(answer && Line::succeeded(*answer));
            }
        }

        std::vector<Outcome> outcomes(connections);
        std::vector<std::thread> threads;
        QElapsedTimer clock;
        clock.start();
        for (int c = 0; c < connections; ++c)
            threads.emplace_back([&, c] { outcomes[size_t(c)] = drive(port, c, requests); });
        for (std::thread &thread : threads)
            thread.join();
        const qint64 elapsed = clock.elapsed();

        int answered = 0;
        QStringList problems;
        for (const Outcome &outcome : outcomes) {
            answered += outcome.answered;
            problems += outcome.problems;
        }
        QVERIFY2(problems.isEmpty(), qPrintable(problems.mid(0, 10).join(u'\n')));
        QCOMPARE(answered, connections * requests);

        QVERIFY(tovren.stop(SIGTERM));
        const QString output = QString::fromUtf8(tovren.process().readAllStandardOutput());
        static const QRegularExpression stall(u"tovren: longest stall (\\d+) ms"_s);
        const QRegularExpressionMatch match = stall.match(output);
        QVERIFY2(match.hasMatch(), qPrintable(u"no stall report in: "_s + output));
        const int longest = match.captured(1).toInt();
        qInfo("%d requests on %d connections in %lld ms; longest stall %d ms (limit %d ms)",
              answered, connections, elapsed, longest, stallLimitMs);
        QVERIFY2(longest <= stallLimitMs,
                 qPrintable(u"the event loop stalled %1 ms"_s.arg(longest)));
    }
};

QTEST_GUILESS_MAIN(LoadTest)
#include "tst_load.moc"
