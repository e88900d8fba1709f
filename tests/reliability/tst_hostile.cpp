// Clients that misbehave against the real tovren --headless, while a well-behaved assistant
// keeps asking for its last two weeks: one that never reads its answers, one that connects and
// hangs up a thousand times a second. (tst_server floods a listener with an endless line.)
#include "LineClient.h"
#include "Reliability.h"
#include "TovrenProcess.h"

#include <QDate>
#include <QTest>

#include <atomic>
#include <csignal>
#include <thread>

using namespace Qt::StringLiterals;
using namespace Reliability;

namespace {

// Ten days whose pages are 60 KB each, so that one answer for them is some 600 KB.
const QDate bigFirstDay(2020, 3, 2);
constexpr int bigDays = 10;

QByteArray bigRead(int id)
{
    return Line::call(
        QByteArray::number(id), "get_entries",
        QJsonObject{{u"from"_s, bigFirstDay.toString(Qt::ISODate)},
                    {u"to"_s, bigFirstDay.addDays(bigDays - 1).toString(Qt::ISODate)}});
}

// The well-behaved assistant: each call must come back answered, in time.
struct Assistant {
    quint16 port;
    LineClient client{port};
    int asked = 0;
    qint64 slowestMs = 0;

    bool ask()
    {
        QElapsedTimer clock;
        clock.start();
        const std::optional<QJsonObject> answer =
            client.call(Line::call(QByteArray::number(++asked), "get_entries"), 10000);
        slowestMs = std::max(slowestMs, clock.elapsed());
        return answer && Line::succeeded(*answer) && answer->value("id"_L1).toInteger() == asked;
    }
};

} // namespace

class HostileTest : public QObject {
    Q_OBJECT

    std::unique_ptr<TempDataDir> m_dir;
    std::unique_ptr<TovrenProcess> m_tovren;
    quint16 m_port = 0;

    qint64 resident() { return residentKiB(m_tovren->process().processId()); }

private slots:
    void initTestCase()
    {
        // Freed memory held back for use-after-free checks would hide what holding back saves.
        qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") +
                                    (qEnvironmentVariableIsEmpty("ASAN_OPTIONS") ? "" : ":") +
                                    "quarantine_size_mb=16");
        m_dir = std::make_unique<TempDataDir>();
        m_tovren = std::make_unique<TovrenProcess>(*m_dir);
        QVERIFY(m_tovren->writePreferences("{\"mcpServerEnabled\": true}"));
        m_port = TovrenProcess::freePort();
        QVERIFY(m_tovren->start({u"--headless"_s}, m_port));
        QVERIFY(m_tovren->waitUntilListening(m_port));

        QVERIFY(Line::addPages(m_port, bigFirstDay, bigDays, 1, [](int day) {
            return QString(u"Big page %1 "_s.arg(day) + QString(60000, u'b'));
        }));
        LineClient writer(m_port);
        const auto answer = writer.call(bigRead(99));
        QVERIFY(answer && Line::succeeded(*answer));
    }

    void cleanupTestCase()
    {
        if (m_tovren)
            QVERIFY(m_tovren->stop(SIGTERM));
    }

    // It asks for some 600 MB of answers and reads none: tovren's memory stays bounded, the other
    // assistant is served all along, and the client is held back, not cut off.
    void clientThatNeverReadsIsHeldBackWithinBoundedMemory()
    {
        Assistant assistant{m_port};
        QVERIFY(assistant.ask());
        const qint64 before = resident();

        LineClient hoarder(m_port);
        QByteArray requests;
        for (int i = 0; i < 1000; ++i)
            requests += bigRead(i) + '\n';
        qsizetype sent = 0;
        qint64 peak = before;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 8000) {
            sent += hoarder.trySend(QByteArrayView(requests).sliced(sent));
            QVERIFY2(assistant.ask(), "the other assistant went unanswered");
            peak = std::max(peak, resident());
        }
        const qint64 growthMiB = (peak - before) / 1024;
        qInfo("%lld of %lld bytes of requests taken; resident %lld MiB before, peak growth %lld "
              "MiB; slowest answer to the other assistant %lld ms",
              qint64(sent), qint64(requests.size()), before / 1024, growthMiB, assistant.slowestMs);
        QVERIFY2(growthMiB < 128, qPrintable(u"grew %1 MiB"_s.arg(growthMiB)));
        // Still connected, and its answers are there, in order, once it reads.
        for (int i = 0; i < 3; ++i) {
            const auto answer = hoarder.readLine();
            QVERIFY2(answer, "the client that did not read was cut off");
            QCOMPARE(QJsonDocument::fromJson(*answer).object().value("id"_L1).toInt(), i);
        }
        QVERIFY(assistant.ask());
    }

    void connectionChurnDoesNotStopOthers()
    {
        const int seconds = scaled("TOVREN_CHURN_SECONDS", 3);
        Assistant assistant{m_port};
        std::atomic<bool> done = false;
        std::atomic<int> connects = 0;
        std::atomic<int> refused = 0;
        std::thread churn([&] {
            QElapsedTimer clock;
            clock.start();
            // At most one a millisecond: a thousand a second.
            for (qint64 next = 0; !done; ++next) {
                while (clock.nsecsElapsed() < next * 1000000 && !done)
                    std::this_thread::yield();
                LineClient passer(m_port);
                if (passer.connected())
                    ++connects;
                else
                    ++refused;
            }
        });
        QElapsedTimer clock;
        clock.start();
        bool served = true;
        while (clock.elapsed() < seconds * 1000 && served)
            served = assistant.ask();
        done = true;
        churn.join();
        qInfo("%d connects (%d refused) in %d s while the other assistant was answered %d times, "
              "slowest %lld ms",
              connects.load(), refused.load(), seconds, assistant.asked, assistant.slowestMs);
        QVERIFY2(served, "the other assistant went unanswered");
        // The churn really happened; how fast depends on the build, so only a floor is held.
        QVERIFY(connects > 200 * seconds);
        QVERIFY(assistant.ask());
    }
};

QTEST_GUILESS_MAIN(HostileTest)
#include "tst_hostile.moc"
