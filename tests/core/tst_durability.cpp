#include "TestSupport.h"

#include "core/records/DailyEntry.h"
#include "core/records/StoreSchema.h"
#include "core/store/Database.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

// A save that returned is on disk: a writer killed with SIGKILL at a random moment loses none
// of the pages it had reported as saved, and the file stays whole.
class DurabilityTest : public QObject {
    Q_OBJECT

private slots:
    void killedWriterLosesNothingAcknowledged()
    {
        TempDataDir dir;
        const QString store = dir.dataRoot() + u"/default.store"_s;
        const QString writer = qEnvironmentVariable("TOVREN_TEST_HELPERS") + u"/store_writer"_s;
        QVERIFY2(QFile::exists(writer), qPrintable(writer));

        int acknowledgedTotal = 0;
        for (int cycle = 0; cycle < 5; ++cycle) {
            QProcess process;
            const QString prefix = u"cycle%1"_s.arg(cycle);
            process.start(writer, {store, u"100000"_s, prefix});
            QVERIFY(process.waitForStarted());
            const int killAfter = 5 + int(QRandomGenerator::global()->bounded(60));
            QList<int> acknowledged;
            QByteArray pending;
            while (acknowledged.size() < killAfter && process.state() == QProcess::Running) {
                process.waitForReadyRead(5000);
                pending += process.readAllStandardOutput();
                qsizetype newline;
                while ((newline = pending.indexOf('\n')) >= 0) {
                    const QByteArray line = pending.left(newline);
                    pending.remove(0, newline + 1);
                    if (line.startsWith("saved "))
                        acknowledged.append(line.mid(6).toInt());
                }
            }
            ::kill(pid_t(process.processId()), SIGKILL);
            process.waitForFinished();
            QCOMPARE(process.exitStatus(), QProcess::CrashExit);
            acknowledgedTotal += int(acknowledged.size());

            ModelContainer container(StoreSchema::current(),
                                     ModelContainer::Configuration::atPath(store));
            QCOMPARE(container.database().scalar(u"PRAGMA integrity_check"_s).toString(), u"ok"_s);
            const auto entries = container.mainContext().fetch<DailyEntry>();
            QStringList contents;
            for (const auto &entry : entries)
                contents.append(entry->content);
            QVERIFY(entries.size() >= acknowledgedTotal);
            for (int i : std::as_const(acknowledged)) {
                const QString expected =
                    prefix + u" entry %1 "_s.arg(i) + QString(6000, QChar(u'a' + i % 26));
                QVERIFY2(contents.count(expected) == 1,
                         qPrintable(u"%1 entry %2 lost or doubled"_s.arg(prefix).arg(i)));
            }
        }
    }
};

QTEST_GUILESS_MAIN(DurabilityTest)
#include "tst_durability.moc"
