#include "TestSupport.h"

#include "core/records/DailyEntry.h"
#include "core/records/StoreSchema.h"
#include "core/store/Database.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QRandomGenerator>
#include <QTest>

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

        int acknowledgedTotal = 0;
        for (int cycle = 0; cycle < 5; ++cycle) {
            const QString prefix = u"cycle%1"_s.arg(cycle);
            const QList<int> acknowledged =
                runStoreWriter(store, 5 + int(QRandomGenerator::global()->bounded(60)), prefix);
            QVERIFY(acknowledged.size() >= 5);
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
                QVERIFY2(contents.count(storeWriterContent(prefix, i)) == 1,
                         qPrintable(u"%1 entry %2 lost or doubled"_s.arg(prefix).arg(i)));
            }
        }
    }
};

QTEST_GUILESS_MAIN(DurabilityTest)
#include "tst_durability.moc"
