// The real tovren --headless, killed with SIGKILL at random moments while an assistant adds
// journal entries through the listener, and started again. Whatever it acknowledged before
// dying must be in the store afterwards, whole, and the file must pass SQLite's own check.
// TOVREN_KILL_CYCLES sets the number of kills (25 by default; scripts/reliability runs 1,000)
// and TOVREN_KILL_SEED repeats a run.
#include "LineClient.h"
#include "Reliability.h"
#include "TovrenProcess.h"

#include "core/records/DailyEntry.h"
#include "core/records/StoreSchema.h"
#include "core/store/Database.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QRandomGenerator>
#include <QTest>

#include <csignal>
#include <thread>

using namespace Qt::StringLiterals;
using namespace Reliability;

namespace {

QString entryText(int number, QRandomGenerator &random)
{
    // Long enough now and then to span several database pages.
    const int padding = random.bounded(random.bounded(4) == 0 ? 12000 : 600);
    return u"kill-check entry %1 #reliability @Ann Lee "_s.arg(number) +
           QString(padding, QChar(u'a' + number % 26)) + u" end %1"_s.arg(number);
}

} // namespace

class KillLoopTest : public QObject {
    Q_OBJECT

private slots:
    void acknowledgedEntriesSurviveKills()
    {
        const int cycles = scaled("TOVREN_KILL_CYCLES", 25);
        const uint seed = qEnvironmentVariableIsSet("TOVREN_KILL_SEED")
                              ? qEnvironmentVariable("TOVREN_KILL_SEED").toUInt()
                              : QRandomGenerator::system()->generate();
        QRandomGenerator random(seed);
        qInfo("%d cycles, TOVREN_KILL_SEED=%u", cycles, seed);

        TempDataDir dir;
        TovrenProcess tovren(dir);
        QVERIFY(tovren.writePreferences("{\"mcpServerEnabled\": true}"));
        const QString store = dir.dataRoot() + u"/default.store"_s;
        const QDate firstDay(2001, 1, 1);

        // Each day with the text the listener acknowledged for it.
        QList<std::pair<QDate, QString>> acknowledged;
        int sentTotal = 0;
        int killedMidRequest = 0;
        for (int cycle = 0; cycle < cycles; ++cycle) {
            const quint16 port = TovrenProcess::freePort();
            QVERIFY(tovren.start({u"--headless"_s}, port));
            QVERIFY2(tovren.waitUntilListening(port), "tovren --headless did not start listening");

            LineClient client(port);
            // A few acknowledged adds, then one that the kill lands somewhere inside of.
            const int settled = random.bounded(8);
            for (int i = 0; i <= settled; ++i) {
                const int number = sentTotal++;
                const QDate day = firstDay.addDays(number);
                const QString content = entryText(number, random);
                const QByteArray line = Line::call(
                    QByteArray::number(number), "add_journal_entry",
                    QJsonObject{{u"content"_s, content}, {u"date"_s, day.toString(Qt::ISODate)}});
                if (i < settled) {
                    const std::optional<QJsonObject> answer = client.call(line, 30000);
                    QVERIFY2(answer && Line::succeeded(*answer), "an add was not acknowledged");
                    acknowledged.append({day, content});
                    continue;
                }
                QVERIFY(client.send(line + '\n'));
                std::this_thread::sleep_for(std::chrono::microseconds(random.bounded(20000)));
                ::kill(pid_t(tovren.process().processId()), SIGKILL);
                // An answer that made it out before the kill is a promise like any other.
                if (const std::optional<QByteArray> answer = client.readLine(2000)) {
                    if (Line::succeeded(QJsonDocument::fromJson(*answer).object()))
                        acknowledged.append({day, content});
                } else {
                    ++killedMidRequest;
                }
            }
            QVERIFY(tovren.process().waitForFinished(10000));

            ModelContainer container(StoreSchema::current(),
                                     ModelContainer::Configuration::atPath(store));
            QCOMPARE(container.database().scalar(u"PRAGMA integrity_check"_s).toString(), u"ok"_s);
            QHash<QDate, QStringList> pages;
            for (const auto &entry : container.mainContext().fetch<DailyEntry>())
                pages[entry->date.toLocalTime().date()].append(entry->content);
            for (const auto &[date, content] : std::as_const(acknowledged)) {
                const QStringList &day = pages.value(date);
                QVERIFY2(day.size() == 1 && day.first().trimmed() == content,
                         qPrintable(
                             u"cycle %1: the entry of %2 is lost, cut or doubled"_s.arg(cycle).arg(
                                 date.toString(Qt::ISODate))));
            }
        }
        qInfo("%d cycles, %d entries acknowledged, %d kills landed before the answer", cycles,
              int(acknowledged.size()), killedMidRequest);
    }
};

QTEST_GUILESS_MAIN(KillLoopTest)
#include "tst_killloop.moc"
