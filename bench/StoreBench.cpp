// Times the store on its own, over a copy of a generated journal: opening it, fetching every
// page, and saving a one-field change, the last both with few records held and with every
// record of the journal held by the context (autosave checks every held record for changes).
// Each --search term is looked up through the index and by reading every record; the two must
// give the same hits. A backup of the journal is timed too, as the worker makes it beside an open
// store.
//
//   store_bench STORE [--runs N] [--search TERM]...
//
// Prints one JSON line per figure: {"figure":..., "unit":"ms", "runs":N, "min":..., ...}.
#include "core/JournalSearch.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Meeting.h"
#include "core/records/StoreSchema.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "safety/JournalBackup.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

void report(const char *figure, QList<double> samples, qint64 held = -1, qint64 hits = -1,
            const char *target = nullptr)
{
    std::sort(samples.begin(), samples.end());
    const double median =
        samples.size() % 2
            ? samples.at(samples.size() / 2)
            : (samples.at(samples.size() / 2 - 1) + samples.at(samples.size() / 2)) / 2;
    std::printf("{\"figure\":\"%s\",\"unit\":\"ms\",\"runs\":%d,\"min\":%.3f,\"median\":%.3f,"
                "\"max\":%.3f",
                figure, int(samples.size()), samples.first(), median, samples.last());
    if (held >= 0)
        std::printf(",\"held_records\":%lld", static_cast<long long>(held));
    if (hits >= 0)
        std::printf(",\"hits\":%lld", static_cast<long long>(hits));
    if (target)
        std::printf(",\"target\":\"%s\"", target);
    std::printf("}\n");
    std::fflush(stdout);
}

double timed(const std::function<void()> &work)
{
    QElapsedTimer clock;
    clock.start();
    work();
    return double(clock.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 2) {
        std::fprintf(stderr, "usage: store_bench STORE [--runs N]\n");
        return 2;
    }
    int runs = 7;
    QStringList terms;
    for (qsizetype i = 2; i + 1 < args.size(); i += 2) {
        if (args.at(i) == u"--runs"_s)
            runs = args.at(i + 1).toInt();
        else if (args.at(i) == u"--search"_s)
            terms.append(args.at(i + 1));
    }
    QTemporaryDir scratch;
    const QString path = scratch.filePath(u"bench.store"_s);
    if (!QFile::copy(args.at(1), path)) {
        std::fprintf(stderr, "store_bench: can't copy %s\n", qPrintable(args.at(1)));
        return 1;
    }

    try {
        QList<double> open, fetchCold, fetchWarm, saveFew, saveAll, scanAll;
        qint64 held = 0;
        for (int run = 0; run < runs; ++run) {
            std::unique_ptr<ModelContainer> container;
            open.append(timed([&] {
                container = std::make_unique<ModelContainer>(
                    StoreSchema::current(), ModelContainer::Configuration::atPath(path));
            }));
            ModelContext &context = container->mainContext();

            QList<std::shared_ptr<DailyEntry>> pages;
            fetchCold.append(timed([&] { pages = context.fetch<DailyEntry>(); }));
            fetchWarm.append(timed([&] { pages = context.fetch<DailyEntry>(); }));

            // One field of one page, with only the pages held.
            pages.first()->content += u" edited"_s;
            saveFew.append(timed([&] { context.save(); }));

            // Everything the journal has, held at once, as a long session ends up doing.
            const auto meetings = context.fetch<Meeting>();
            const auto items = context.fetch<ActionItem>();
            const auto tasks = context.fetch<TaskItem>();
            held = pages.size() + meetings.size() + items.size() + tasks.size();
            scanAll.append(timed([&] {
                               for (int i = 0; i < 100; ++i)
                                   (void)context.hasChanges();
                           }) /
                           100);
            tasks.first()->priority = (tasks.first()->priority + 1) % 4;
            saveAll.append(timed([&] { context.save(); }));
        }
        report("store open", open);
        report("store fetch all pages (first)", fetchCold);
        report("store fetch all pages (held)", fetchWarm);
        report("store save one field, pages held", saveFew, -1);
        report("store autosave check, all held", scanAll, held);
        report("store save one field, all held", saveAll, held);

        {
            ModelContainer running(StoreSchema::current(),
                                   ModelContainer::Configuration::atPath(path));
            QList<double> backups;
            for (int run = 0; run < runs; ++run) {
                // A new folder each run, as on different days.
                const JournalBackup::Request request{
                    path,
                    scratch.filePath(u"Images"_s),
                    scratch.filePath(u"Backups"_s),
                    u"Tovren Backup 2026-01-%1 0900"_s.arg(run % 28 + 1, 2, 10, QChar(u'0')),
                    std::nullopt,
                    u"bench"_s,
                    QDateTime::currentDateTimeUtc(),
                    {}};
                JournalBackup::Outcome outcome;
                backups.append(timed([&] { outcome = JournalBackup::make(request); }));
                if (!outcome.error.isEmpty()) {
                    std::fprintf(stderr, "store_bench: backup: %s\n", qPrintable(outcome.error));
                    return 1;
                }
            }
            report("store backup (online copy, integrity check, counts)", backups, -1, -1,
                   "<= 100");
        }

        for (const QString &term : std::as_const(terms)) {
            ModelContainer container(StoreSchema::current(),
                                     ModelContainer::Configuration::atPath(path));
            ModelContext &context = container.mainContext();
            QList<double> indexed, scanned;
            QList<JournalSearch::Hit> fast, slow;
            // The index first: the scan leaves every record it read in the context.
            for (int run = 0; run < runs; ++run)
                indexed.append(timed([&] { fast = JournalSearch::search(context, term, 20); }));
            for (int run = 0; run < runs; ++run)
                scanned.append(timed([&] { slow = JournalSearch::scan(context, term, 20); }));
            // Every record still in the context, as until the next autosave after a walk over all
            // of them: the check for unsaved changes then looks at each.
            QList<double> loaded;
            for (int run = 0; run < runs; ++run)
                loaded.append(timed([&] { fast = JournalSearch::search(context, term, 20); }));
            for (qsizetype i = 0; i < std::max(fast.size(), slow.size()); ++i) {
                if (i >= fast.size() || i >= slow.size() ||
                    fast.at(i).source != slow.at(i).source || fast.at(i).date != slow.at(i).date ||
                    fast.at(i).snippet != slow.at(i).snippet) {
                    std::fprintf(stderr, "store_bench: search and scan differ for \"%s\"\n",
                                 qPrintable(term));
                    return 1;
                }
            }
            const QByteArray figure = "store search '" + term.toUtf8() + "', first 20";
            report(QByteArray(figure + ", index").constData(), indexed, -1, fast.size());
            report(QByteArray(figure + ", reading every record").constData(), scanned, -1,
                   slow.size());
            report(QByteArray(figure + ", index, all loaded").constData(), loaded, -1, fast.size());
        }
    } catch (const StoreError &error) {
        std::fprintf(stderr, "store_bench: %s\n", qPrintable(error.description()));
        return 1;
    }
    return 0;
}
