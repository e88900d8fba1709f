// Times the store on its own, over a copy of a generated journal: opening it, fetching every
// page, and saving a one-field change, the last both with few records held and with every
// record of the journal held by the context (autosave checks every held record for changes).
//
//   store_bench STORE [--runs N]
//
// Prints one JSON line per figure: {"figure":..., "unit":"ms", "runs":N, "min":..., ...}.
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Meeting.h"
#include "core/records/StoreSchema.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

void report(const char *figure, QList<double> samples, qint64 held = -1)
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
    const int runs = args.size() > 3 && args.at(2) == u"--runs"_s ? args.at(3).toInt() : 7;
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
    } catch (const StoreError &error) {
        std::fprintf(stderr, "store_bench: %s\n", qPrintable(error.description()));
        return 1;
    }
    return 0;
}
