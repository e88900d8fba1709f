#include "TestSupport.h"

#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/EntryImage.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/records/Tag.h"
#include "core/records/TaskItem.h"
#include "core/store/Database.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QRandomGenerator>
#include <QTest>

#include <map>

using namespace Qt::StringLiterals;

namespace {

QDateTime at(int day, int hour = 12)
{
    return QDateTime(QDate(2026, 3, 1).addDays(day), QTime(hour, 0), Qt::UTC);
}

std::unique_ptr<ModelContainer> openFile(const QString &path)
{
    return std::make_unique<ModelContainer>(StoreSchema::current(),
                                            ModelContainer::Configuration::atPath(path));
}

QStringList titles(const QList<std::shared_ptr<TaskItem>> &tasks)
{
    QStringList result;
    for (const auto &task : tasks)
        result.append(task->title);
    return result;
}

} // namespace

class StoreTest : public QObject {
    Q_OBJECT

private slots:
    void oneRowIsOneObject()
    {
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        auto container = openFile(path);
        ModelContext &context = container->mainContext();
        auto task = std::make_shared<TaskItem>(u"Write the design doc"_s, 0, std::nullopt);
        context.insert(task);
        QCOMPARE(context.fetch<TaskItem>().value(0), task);
        context.save();
        QCOMPARE(context.fetch<TaskItem>().value(0), task);

        container = openFile(path);
        const auto first = container->mainContext().fetch<TaskItem>();
        const auto second = container->mainContext().fetch<TaskItem>(
            {field(&TaskItem::title) == u"Write the design doc"_s, {}, {}});
        QCOMPARE(first.size(), 1);
        QCOMPARE(second.value(0), first.value(0));
        QVERIFY(first.value(0).get() != task.get());
        QCOMPARE(first.value(0)->id, task->id);
    }

    void fetchSeesUnsavedWork()
    {
        ModelContainer container(StoreSchema::current(),
                                 ModelContainer::Configuration::memoryOnly());
        ModelContext &context = container.mainContext();
        auto a = std::make_shared<TaskItem>(u"a"_s, 0, at(1));
        auto b = std::make_shared<TaskItem>(u"b"_s, 0, at(2));
        context.insert(a);
        context.insert(b);
        context.save();

        const auto due = [&](QDateTime before) {
            return titles(context.fetch<TaskItem>(
                {field(&TaskItem::dueDate) < before, {field(&TaskItem::title).ascending()}, {}}));
        };
        QCOMPARE(due(at(3)), QStringList({u"a"_s, u"b"_s}));

        b->dueDate = at(10); // changed, unsaved: no longer matches
        QCOMPARE(due(at(3)), QStringList({u"a"_s}));
        auto c = std::make_shared<TaskItem>(u"c"_s, 0, at(0)); // inserted, unsaved
        context.insert(c);
        QCOMPARE(due(at(3)), QStringList({u"a"_s, u"c"_s}));
        context.remove(a); // deleted, unsaved
        QCOMPARE(due(at(3)), QStringList({u"c"_s}));
        QCOMPARE(context.fetchCount<TaskItem>(), 2);
        QVERIFY(context.hasChanges());
        context.save();
        QVERIFY(!context.hasChanges());
        QCOMPARE(due(at(3)), QStringList({u"c"_s}));
        QCOMPARE(context.fetchCount<TaskItem>({field(&TaskItem::dueDate) < at(3), {}, {}}), 1);
    }

    // The database answers clean fetches and memory answers the others; both must agree with a
    // plain model of the same operations, whatever the order of inserts, edits, deletes and saves.
    void fetchAgreesWithAModel()
    {
        TempDataDir dir;
        auto container = openFile(dir.dataRoot() + u"/default.store"_s);
        ModelContext &context = container->mainContext();
        struct Row {
            QString title;
            bool done;
            std::optional<QDateTime> due;
        };
        std::map<QUuid, Row> model;
        QRandomGenerator random(20261121);
        QList<std::shared_ptr<TaskItem>> held;

        for (int step = 0; step < 1500; ++step) {
            const int op = int(random.bounded(10));
            if (op < 3 || held.isEmpty()) {
                std::optional<QDateTime> due;
                if (random.bounded(3) != 0)
                    due = at(int(random.bounded(20)));
                auto task = std::make_shared<TaskItem>(u"t%1"_s.arg(random.bounded(50)), 0, due);
                context.insert(task);
                held.append(task);
                model[task->id] = {task->title, false, due};
            } else if (op < 6) {
                auto &task = held[int(random.bounded(int(held.size())))];
                task->isCompleted = !task->isCompleted;
                task->dueDate =
                    random.bounded(2) ? std::optional(at(int(random.bounded(20)))) : std::nullopt;
                model[task->id].done = task->isCompleted;
                model[task->id].due = task->dueDate;
            } else if (op < 7) {
                const int index = int(random.bounded(int(held.size())));
                model.erase(held[index]->id);
                context.remove(held.takeAt(index));
            } else if (op < 8) {
                context.save();
                if (random.bounded(4) == 0)
                    held.clear(); // let the context forget them; the next fetch reads them again
                if (held.isEmpty())
                    held = context.fetch<TaskItem>();
            } else {
                const QDateTime bound = at(int(random.bounded(20)));
                const bool done = random.bounded(2);
                const qsizetype limit = random.bounded(8);
                const auto fetched = context.fetch<TaskItem>(
                    {field(&TaskItem::isCompleted) == done && field(&TaskItem::dueDate) >= bound,
                     {field(&TaskItem::title).descending(), field(&TaskItem::id).ascending()},
                     limit});
                QList<std::pair<QString, QUuid>> expected;
                for (const auto &[id, row] : model) {
                    if (row.done == done && row.due && *row.due >= bound)
                        expected.append({row.title, id});
                }
                std::sort(expected.begin(), expected.end(), [](const auto &x, const auto &y) {
                    return x.first != y.first ? x.first > y.first : x.second < y.second;
                });
                expected = expected.mid(0, limit);
                QCOMPARE(fetched.size(), expected.size());
                for (qsizetype i = 0; i < fetched.size(); ++i)
                    QCOMPARE(fetched[i]->id, expected[i].second);
                QCOMPARE(
                    context.fetchCount<TaskItem>({field(&TaskItem::isCompleted) == done, {}, {}}),
                    qint64(std::count_if(model.begin(), model.end(),
                                         [&](const auto &e) { return e.second.done == done; })));
            }
        }
    }

    void cascadesDeleteChildren()
    {
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        auto container = openFile(path);
        ModelContext &context = container->mainContext();

        auto person = std::make_shared<Person>(u"Ada"_s, u"Manager"_s, RelationshipType::manager);
        auto other = std::make_shared<Person>(u"Grace"_s, u"Peer"_s, RelationshipType::peer);
        auto meeting = std::make_shared<Meeting>(person, at(1), u"notes"_s);
        auto scratchpad =
            std::make_shared<Meeting>(person, Meeting::distantFuture(), QString(), true);
        auto kept = std::make_shared<Meeting>(other, at(1), u"kept"_s);
        auto action = std::make_shared<ActionItem>(u"follow up"_s, meeting);
        auto keptAction = std::make_shared<ActionItem>(u"kept"_s, kept);
        auto goal = std::make_shared<Goal>(u"Staff"_s, QString(), std::nullopt);
        auto milestone = std::make_shared<GoalMilestone>(u"Lead a project"_s, 0, goal);
        auto entry = std::make_shared<DailyEntry>(u"page"_s, at(1), false);
        auto image = std::make_shared<EntryImage>(QByteArray(70000, 'x'), std::nullopt, entry);
        // Children alone are inserted; their parents come along on save.
        for (const std::shared_ptr<Record> &record : std::initializer_list<std::shared_ptr<Record>>{
                 meeting, scratchpad, kept, action, keptAction, milestone, image})
            context.insert(record);
        context.save();
        QCOMPARE(context.fetchCount<Person>(), 2);
        QCOMPARE(person->meetings().size(), 2);
        QCOMPARE(meeting->actionItems().size(), 1);
        QCOMPARE(goal->milestones().size(), 1);
        QCOMPARE(entry->images().size(), 1);

        context.remove(person);
        context.remove(goal);
        context.remove(entry);
        // The cascade is visible before the save...
        QCOMPARE(context.fetchCount<Meeting>(), 1);
        QCOMPARE(context.fetchCount<ActionItem>(), 1);
        context.save();
        person.reset(), meeting.reset(), scratchpad.reset(), action.reset(), goal.reset();
        milestone.reset(), entry.reset(), image.reset();

        // ...and in the file after a reopen.
        container = openFile(path);
        ModelContext &reopened = container->mainContext();
        QCOMPARE(reopened.fetchCount<Person>(), 1);
        QCOMPARE(reopened.fetch<Meeting>().value(0)->notes, u"kept"_s);
        QCOMPARE(reopened.fetch<ActionItem>().value(0)->title, u"kept"_s);
        QCOMPARE(reopened.fetchCount<GoalMilestone>(), 0);
        QCOMPARE(reopened.fetchCount<EntryImage>(), 0);
        QCOMPARE(container->database().scalar(u"SELECT count(*) FROM LargeValue"_s).toInt(), 0);
    }

    void largeValuesStayOutOfTheTable()
    {
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        QByteArray picture(300000, '\0');
        for (qsizetype i = 0; i < picture.size(); ++i)
            picture[i] = char(i * 7);
        {
            auto container = openFile(path);
            auto entry = std::make_shared<DailyEntry>(u"page"_s, at(1), false);
            container->mainContext().insert(std::make_shared<EntryImage>(picture, u"cap"_s, entry));
            container->mainContext().save();
        }
        auto container = openFile(path);
        QCOMPARE(
            container->database().scalar(u"SELECT typeof(imageData) FROM EntryImage"_s).toString(),
            u"integer"_s);
        const auto images = container->mainContext().fetch<EntryImage>();
        QCOMPARE(images.size(), 1);
        QVERIFY(images[0]->imageData.hasValue());
        QCOMPARE(images[0]->imageData.value(), picture);
        QCOMPARE(images[0]->entry->content, u"page"_s);

        images[0]->imageData = QByteArray("small");
        container->mainContext().save();
        container = openFile(path);
        QCOMPARE(container->mainContext().fetch<EntryImage>().value(0)->imageData.value(),
                 QByteArray("small"));
    }

    // A save that fails part-way writes nothing and keeps its changes for the next attempt.
    void failedSaveLeavesTheFileAsItWas()
    {
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        auto container = openFile(path);
        ModelContext &context = container->mainContext();
        auto kept = std::make_shared<TaskItem>(u"kept"_s, 0, std::nullopt);
        context.insert(kept);
        context.save();
        container->database().exec(
            u"CREATE TRIGGER poison BEFORE INSERT ON TaskItem WHEN NEW.title = 'poison' "
            "BEGIN SELECT RAISE(ABORT, 'poisoned row'); END"_s);

        kept->title = u"renamed"_s;
        context.insert(std::make_shared<TaskItem>(u"fine"_s, 0, std::nullopt));
        auto poison = std::make_shared<TaskItem>(u"poison"_s, 0, std::nullopt);
        context.insert(poison);
        try {
            context.save();
            QFAIL("the save should have failed");
        } catch (const StoreError &error) {
            QCOMPARE(error.description(), u"poisoned row"_s);
        }
        QVERIFY(!context.trySave());
        QCOMPARE(
            container->database().scalar(u"SELECT group_concat(title) FROM TaskItem"_s).toString(),
            u"kept"_s);
        QVERIFY(context.hasChanges());

        context.remove(poison);
        context.save();
        QCOMPARE(
            container->database()
                .scalar(
                    u"SELECT group_concat(title, ',') FROM (SELECT title FROM TaskItem ORDER BY title)"_s)
                .toString(),
            u"fine,renamed"_s);
    }

    void uniqueTagNameMergesIntoTheExistingRow()
    {
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        {
            auto container = openFile(path);
            container->mainContext().insert(std::make_shared<Tag>(u"Swift"_s));
            container->mainContext().save();
        }
        auto container = openFile(path);
        container->mainContext().insert(std::make_shared<Tag>(u"SWIFT"_s));
        container->mainContext().save();
        const auto tags = container->mainContext().fetch<Tag>();
        QCOMPARE(tags.size(), 1);
        QCOMPARE(tags[0]->name, u"swift"_s);
    }

    void autosaveWritesWithoutBeingAsked()
    {
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        auto container = openFile(path);
        ModelContext &context = container->mainContext();
        context.setAutosaveEnabled(true);
        auto task = std::make_shared<TaskItem>(u"remember me"_s, 0, std::nullopt);
        context.insert(task);
        Database observer(path);
        QTRY_COMPARE_WITH_TIMEOUT(observer.scalar(u"SELECT count(*) FROM TaskItem"_s).toInt(), 1,
                                  5000);
        task->title = u"changed later"_s;
        QTRY_COMPARE_WITH_TIMEOUT(observer.scalar(u"SELECT title FROM TaskItem"_s).toString(),
                                  u"changed later"_s, 5000);
    }

    void unopenableFilesRaiseReadableErrors_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::newRow("garbage") << QByteArray(8192, 'z');
        QTest::newRow("truncated header") << QByteArray("SQLite format 3\0\x10\0", 18);
    }
    void unopenableFilesRaiseReadableErrors()
    {
        QFETCH(QByteArray, contents);
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(contents);
        file.close();
        try {
            openFile(path);
            QFAIL("opening should fail");
        } catch (const StoreError &error) {
            QVERIFY(!error.description().isEmpty());
        }
    }

    void storeUsesDurableWriteAheadLog()
    {
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        auto container = openFile(path);
        QCOMPARE(container->database().scalar(u"PRAGMA journal_mode"_s).toString(), u"wal"_s);
        QCOMPARE(container->database().scalar(u"PRAGMA synchronous"_s).toInt(), 2); // FULL
        QCOMPARE(container->storedSchemaVersion(), u"1.0.0"_s);
    }
};

QTEST_GUILESS_MAIN(StoreTest)
#include "tst_store.moc"
