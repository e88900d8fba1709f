// Times the JSON export of a journal and the import of that export: into an empty store, which
// adds everything, and back into the journal it came from, which recognises everything. Each run
// opens the stores afresh, so fetching the records is part of the time, as it is for the user.
//
//   export_bench STORE [--runs N]
//
// Prints one JSON line per figure: {"figure":..., "unit":"ms", "runs":N, "min":..., ...}.
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "safety/DataExporter.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>

using namespace Qt::StringLiterals;

namespace {

void report(const char *figure, QList<double> samples, const char *target, qint64 bytes = -1)
{
    std::sort(samples.begin(), samples.end());
    const double median =
        samples.size() % 2
            ? samples.at(samples.size() / 2)
            : (samples.at(samples.size() / 2 - 1) + samples.at(samples.size() / 2)) / 2;
    std::printf("{\"figure\":\"%s\",\"unit\":\"ms\",\"runs\":%d,\"min\":%.3f,\"median\":%.3f,"
                "\"max\":%.3f,\"target\":\"%s\"",
                figure, int(samples.size()), samples.first(), median, samples.last(), target);
    if (bytes >= 0)
        std::printf(",\"file_bytes\":%lld", static_cast<long long>(bytes));
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

std::unique_ptr<ModelContainer> open(const QString &path)
{
    return std::make_unique<ModelContainer>(StoreSchema::current(),
                                            ModelContainer::Configuration::atPath(path));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 2) {
        std::fprintf(stderr, "usage: export_bench STORE [--runs N]\n");
        return 2;
    }
    int runs = 5;
    if (args.size() >= 4 && args.at(2) == u"--runs"_s)
        runs = std::max(1, args.at(3).toInt());
    QTemporaryDir scratch;
    const QString journal = scratch.filePath(u"journal.store"_s);
    if (!QFile::copy(args.at(1), journal)) {
        std::fprintf(stderr, "export_bench: can't copy %s\n", qPrintable(args.at(1)));
        return 1;
    }

    try {
        QList<double> exported, intoEmpty, intoSame;
        QByteArray file;
        for (int run = 0; run < runs; ++run) {
            auto source = open(journal);
            exported.append(timed([&] { file = DataExporter::exportData(source->mainContext()); }));
        }
        for (int run = 0; run < runs; ++run) {
            auto target = open(scratch.filePath(u"empty-%1.store"_s.arg(run)));
            ImportSummary summary;
            intoEmpty.append(
                timed([&] { summary = DataExporter::importData(file, target->mainContext()); }));
            if (summary.entriesSkipped + summary.meetingsSkipped + summary.goalsSkipped != 0) {
                std::fprintf(stderr, "export_bench: an empty store had duplicates\n");
                return 1;
            }
        }
        for (int run = 0; run < runs; ++run) {
            auto source = open(journal);
            ImportSummary summary;
            intoSame.append(
                timed([&] { summary = DataExporter::importData(file, source->mainContext()); }));
            if (summary.entriesAdded + summary.meetingsAdded + summary.goalsAdded != 0) {
                std::fprintf(stderr, "export_bench: the journal took its own export twice\n");
                return 1;
            }
        }
        report("json export, whole journal", exported, "<= 500", file.size());
        report("json import into an empty store", intoEmpty, "<= 1000", file.size());
        report("json import into its own journal (all skipped)", intoSame, "<= 1000");
    } catch (const ImportError &error) {
        std::fprintf(stderr, "export_bench: %s\n", qPrintable(error.errorDescription()));
        return 1;
    } catch (const StoreError &error) {
        std::fprintf(stderr, "export_bench: %s\n", qPrintable(error.description()));
        return 1;
    }
    return 0;
}
