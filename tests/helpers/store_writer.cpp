// Writes journal pages into a store one save at a time and says so on standard output after
// each save returns, so that a test can kill it at any moment and check what was promised.
#include "core/records/DailyEntry.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QCoreApplication>
#include <QDateTime>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 4) {
        std::fprintf(stderr, "usage: store_writer STORE COUNT PREFIX\n");
        return 2;
    }
    ModelContainer container(StoreSchema::current(),
                             ModelContainer::Configuration::atPath(args.at(1)));
    ModelContext &context = container.mainContext();
    const int count = args.at(2).toInt();
    for (int i = 0; i < count; ++i) {
        // Big enough that a page spans more than one database page.
        const QString content =
            args.at(3) + u" entry %1 "_s.arg(i) + QString(6000, QChar(u'a' + i % 26));
        context.insert(
            std::make_shared<DailyEntry>(content, QDateTime::currentDateTimeUtc(), i % 2 == 0));
        context.save();
        std::printf("saved %d\n", i);
        std::fflush(stdout);
    }
    return 0;
}
