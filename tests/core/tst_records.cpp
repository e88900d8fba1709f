#include "TestSupport.h"

#include "core/records/AIInteraction.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Document.h"
#include "core/records/EntryImage.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/PerformanceReview.h"
#include "core/records/Person.h"
#include "core/records/RecordDefaults.h"
#include "core/records/SavedStory.h"
#include "core/records/StoreSchema.h"
#include "core/records/Tag.h"
#include "core/records/TaskItem.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/Database.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QFile>
#include <QProcess>
#include <QSet>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

namespace {

std::unique_ptr<ModelContainer> openFile(const QString &path)
{
    return std::make_unique<ModelContainer>(StoreSchema::current(),
                                            ModelContainer::Configuration::atPath(path));
}

// What the optional fields of the sample records hold.
enum class Optionals { Distinct, Empty, Absent };

// Values nobody would pick by accident: every text differs from its neighbours and from the
// defaults, and carries non-ASCII letters, emoji and line breaks; times carry milliseconds.
struct Samples {
    Optionals optionals;

    QString text(const char *field) const
    {
        return QLatin1StringView(field) +
               u" · Grüße, Zoë — 日本語 👩🏽‍💻\n\"quoted\" 'x'"_s;
    }
    std::optional<QString> optionalText(const char *field) const
    {
        switch (optionals) {
        case Optionals::Distinct:
            return text(field);
        case Optionals::Empty:
            return u""_s;
        case Optionals::Absent:
            break;
        }
        return std::nullopt;
    }
    QDateTime time(int n) const
    {
        return QDateTime(QDate(2031, 7, 14), QTime(9, 26, 53, 478), Qt::UTC)
            .addMSecs(n * 86'400'123LL);
    }
    // The "empty" time is the last millisecond before 1970.
    std::optional<QDateTime> optionalTime(int n) const
    {
        if (optionals == Optionals::Absent)
            return std::nullopt;
        return optionals == Optionals::Empty ? QDateTime::fromMSecsSinceEpoch(-1, Qt::UTC)
                                             : time(n);
    }
    template<class N>
    std::optional<N> optionalNumber(N distinct) const
    {
        if (optionals == Optionals::Absent)
            return std::nullopt;
        return optionals == Optionals::Empty ? N(0) : distinct;
    }
    ExternalBytes bytes(int seed) const
    {
        if (optionals == Optionals::Absent)
            return ExternalBytes();
        if (optionals == Optionals::Empty)
            return ExternalBytes(QByteArray(""));
        QByteArray data(70'000, '\0');
        for (qsizetype i = 0; i < data.size(); ++i)
            data[i] = char((i * 31 + seed) % 256);
        return ExternalBytes(data);
    }
};

// One record of every type, each field set through its public member.
QList<std::shared_ptr<Record>> sampleRecords(const Samples &s)
{
    auto entry = std::make_shared<DailyEntry>(s.text("content"), s.time(0), true);
    entry->deviceId = s.text("deviceId");
    entry->summary = s.optionalText("summary");
    entry->summaryGeneratedAt = s.optionalTime(1);
    entry->summarizedContentHash = s.optionalNumber(std::numeric_limits<qint64>::min());
    entry->createdAt = s.time(2);
    entry->updatedAt = s.time(3);

    auto image = std::make_shared<EntryImage>(QByteArray(), s.optionalText("caption"), entry);
    image->imageData = s.bytes(1);
    image->createdAt = s.time(4);
    image->displayWidth = s.optionalNumber(1234.5678);
    image->displayHeight = s.optionalNumber(-0.000123);

    auto person = std::make_shared<Person>(s.text("name"), s.text("role"),
                                           RelationshipType::skipLevel, s.optionalText("Email"));
    person->relationshipRaw = s.optionalText("relationshipRaw");
    person->createdAt = s.time(5);
    person->isPinned = true;
    person->emoji = s.optionalText("emoji");

    auto meeting = std::make_shared<Meeting>(person, s.time(6), s.text("notes"), true);
    meeting->createdAt = s.time(7);
    meeting->updatedAt = s.time(8);

    auto action = std::make_shared<ActionItem>(s.text("title"), meeting, s.optionalTime(9));
    action->isCompleted = true;
    action->createdAt = s.time(10);

    auto goal = std::make_shared<Goal>(s.text("title"), s.text("notes"), s.optionalTime(11));
    goal->status = GoalStatus::onHold;
    goal->createdAt = s.time(12);
    goal->updatedAt = s.time(13);
    goal->coachingMarkdown = s.optionalText("coachingMarkdown");
    goal->coachingGeneratedAt = s.optionalTime(14);
    goal->isPinned = true;
    goal->emoji = s.optionalText("emoji");

    auto milestone = std::make_shared<GoalMilestone>(s.text("title"), -7, goal);
    milestone->isCompleted = true;
    milestone->completedAt = s.optionalTime(15);
    milestone->createdAt = s.time(16);

    auto document = std::make_shared<Document>(s.text("title"), DocumentCategory::careerLadder,
                                               s.text("content"), s.optionalText("fileName"),
                                               std::nullopt, s.optionalText("timePeriod"));
    document->fileData = s.bytes(2);
    document->createdAt = s.time(17);
    document->updatedAt = s.time(18);
    document->userName = s.optionalText("userName");
    document->userJobTitle = s.optionalText("userJobTitle");
    document->userCompany = s.optionalText("userCompany");
    document->userTeam = s.optionalText("userTeam");
    document->userEmail = s.optionalText("userEmail");
    document->avatarData = s.bytes(3);

    auto tag = std::make_shared<Tag>(u"Ünïcödé-🏷"_s);
    tag->displayName = s.text("displayName");
    tag->createdAt = s.time(19);

    auto task = std::make_shared<TaskItem>(s.text("title"), -3, s.optionalTime(20));
    task->isCompleted = true;
    task->completedAt = s.optionalTime(21);
    task->createdAt = s.time(22);

    auto brief = std::make_shared<WeeklyBrief>(
        s.time(23), s.time(24), s.text("content"), s.text("goalInsights"),
        std::numeric_limits<int>::max(), -1, BriefPeriod::monthly);
    brief->createdAt = s.time(25);
    brief->updatedAt = s.time(26);

    auto interaction = std::make_shared<AIInteraction>(
        s.text("feature"), s.text("prompt"), s.text("response"), s.optionalText("referenceId"),
        s.optionalText("referenceType"), s.optionalNumber<qint64>(9'007'199'254'740'993LL),
        s.text("promptVersion"), s.text("provider"));
    interaction->createdAt = s.time(27);

    auto inbox = std::make_shared<InboxItem>(
        InboxItemKind::milestoneUnlocked, s.text("title"), s.text("body"),
        s.optionalText("payload"), s.optionalText("actionLabel"), s.optionalText("actionRoute"));
    inbox->createdAt = s.time(28);
    inbox->readAt = s.optionalTime(29);

    auto story =
        std::make_shared<SavedStory>(s.text("title"), s.text("competency"), s.text("content"));
    story->createdAt = s.time(30);
    story->updatedAt = s.time(31);

    auto review = std::make_shared<PerformanceReview>(
        s.time(32), s.time(33), s.text("rangeLabel"), PerformanceFormat::competency,
        s.text("title"), s.text("content"), std::numeric_limits<int>::min(), 42);
    review->createdAt = s.time(34);
    review->updatedAt = s.time(35);

    return {entry, image, person, meeting,     action, goal,  milestone, document,
            tag,   task,  brief,  interaction, inbox,  story, review};
}

QString describe(const QVariant &value)
{
    if (value.isNull())
        return u"absent"_s;
    return u"%1 (%2)"_s.arg(value.toString(), QString::fromLatin1(value.typeName()));
}

} // namespace

class RecordsTest : public QObject {
    Q_OBJECT

private slots:
    void everyFieldSurvivesReopening_data()
    {
        QTest::addColumn<int>("optionals");
        QTest::newRow("optionals distinct") << int(Optionals::Distinct);
        QTest::newRow("optionals empty") << int(Optionals::Empty);
        QTest::newRow("optionals absent") << int(Optionals::Absent);
    }

    void everyFieldSurvivesReopening()
    {
        QFETCH(int, optionals);
        const Samples samples{Optionals(optionals)};
        const Schema &schema = StoreSchema::current();

        struct Stored {
            const Entity *entity;
            QString key;
            QVariantList columns;
            QList<std::optional<QByteArray>> external;
        };
        QList<Stored> stored;
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        {
            auto container = openFile(path);
            ModelContext &context = container->mainContext();
            const auto records = sampleRecords(samples);
            QSet<QString> covered;
            for (const auto &record : records) {
                context.insert(record);
                covered.insert(record->entity().name);
            }
            QCOMPARE(covered.size(), schema.entities.size());
            context.save();

            for (const auto &record : records) {
                const Entity &entity = record->entity();
                const auto blank = entity.make();
                Stored s{&entity, entity.keyOf(*record), {}, {}};
                for (const Attribute &attribute : entity.attributes) {
                    const QVariant value = attribute.read(*record);
                    s.columns.append(value);
                    if (attribute.kind == Attribute::Kind::External)
                        s.external.append(attribute.external(*record).optionalValue());
                    // A column left at its blank value would pass even if it were never stored.
                    if (samples.optionals == Optionals::Distinct)
                        QVERIFY2(value != attribute.read(*blank),
                                 qPrintable(entity.name + u'.' + attribute.name));
                }
                stored.append(std::move(s));
            }
        }

        auto container = openFile(path);
        ModelContext &context = container->mainContext();
        for (const Stored &s : std::as_const(stored)) {
            const auto record = context.recordForKey(*s.entity, s.key);
            QVERIFY2(record, qPrintable(s.entity->name));
            qsizetype external = 0;
            for (qsizetype i = 0; i < s.entity->attributes.size(); ++i) {
                const Attribute &attribute = s.entity->attributes.at(i);
                const QVariant before = s.columns.at(i);
                const QVariant after = attribute.read(*record);
                const QString where = s.entity->name + u'.' + attribute.name + u": "_s +
                                      describe(after) + u" instead of "_s + describe(before);
                QVERIFY2(after.isNull() == before.isNull() && after == before, qPrintable(where));
                if (attribute.kind == Attribute::Kind::External) {
                    const auto bytes = attribute.external(*record).optionalValue();
                    QVERIFY2(bytes == s.external.at(external++), qPrintable(where));
                }
            }
        }
    }

    void unknownStoredWordsFallBack_data()
    {
        // The stored word, and the word the computed value reads as.
        QTest::addColumn<QString>("table");
        QTest::addColumn<QString>("column");
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QString>("reads");

        const QVariant absent;
        const auto word = [](const QString &text) { return QVariant(text); };
        QTest::newRow("relationship known") << u"Person"_s << u"relationshipRaw"_s
                                            << word(u"Direct report"_s) << u"Direct report"_s;
        QTest::newRow("relationship absent")
            << u"Person"_s << u"relationshipRaw"_s << absent << u"Other"_s;
        QTest::newRow("relationship unknown")
            << u"Person"_s << u"relationshipRaw"_s << word(u"Intern"_s) << u"Other"_s;
        QTest::newRow("relationship in other case")
            << u"Person"_s << u"relationshipRaw"_s << word(u"direct report"_s) << u"Other"_s;
        QTest::newRow("relationship empty")
            << u"Person"_s << u"relationshipRaw"_s << word(QString()) << u"Other"_s;
        QTest::newRow("period known")
            << u"WeeklyBrief"_s << u"periodType"_s << word(u"Monthly"_s) << u"Monthly"_s;
        QTest::newRow("period unknown")
            << u"WeeklyBrief"_s << u"periodType"_s << word(u"Quarterly"_s) << u"Weekly"_s;
        QTest::newRow("period in other case")
            << u"WeeklyBrief"_s << u"periodType"_s << word(u"biweekly"_s) << u"Weekly"_s;
        QTest::newRow("period absent")
            << u"WeeklyBrief"_s << u"periodType"_s << absent << u"Weekly"_s;
        QTest::newRow("format known")
            << u"PerformanceReview"_s << u"formatRaw"_s << word(u"Narrative"_s) << u"Narrative"_s;
        QTest::newRow("format near miss") << u"PerformanceReview"_s << u"formatRaw"_s
                                          << word(u"Competency"_s) << u"STAR Impact"_s;
        QTest::newRow("format empty")
            << u"PerformanceReview"_s << u"formatRaw"_s << word(QString()) << u"STAR Impact"_s;
        QTest::newRow("kind known")
            << u"InboxItem"_s << u"kindRaw"_s << word(u"brief_ready"_s) << u"brief_ready"_s;
        QTest::newRow("kind unknown")
            << u"InboxItem"_s << u"kindRaw"_s << word(u"weekly_digest"_s) << u"system"_s;
        QTest::newRow("kind in other case")
            << u"InboxItem"_s << u"kindRaw"_s << word(u"Reminder"_s) << u"system"_s;
        QTest::newRow("category known")
            << u"Document"_s << u"category"_s << word(u"Self Review"_s) << u"Self Review"_s;
        QTest::newRow("category unknown")
            << u"Document"_s << u"category"_s << word(u"Résumé"_s) << u"Other"_s;
        QTest::newRow("category absent") << u"Document"_s << u"category"_s << absent << u"Other"_s;
        QTest::newRow("status known")
            << u"Goal"_s << u"status"_s << word(u"On Hold"_s) << u"On Hold"_s;
        QTest::newRow("status unknown")
            << u"Goal"_s << u"status"_s << word(u"Abandoned"_s) << u"Not Started"_s;
        QTest::newRow("status in other case")
            << u"Goal"_s << u"status"_s << word(u"in progress"_s) << u"Not Started"_s;
    }

    void unknownStoredWordsFallBack()
    {
        QFETCH(QString, table);
        QFETCH(QString, column);
        QFETCH(QVariant, stored);
        QFETCH(QString, reads);

        ModelContainer container(StoreSchema::current(),
                                 ModelContainer::Configuration::memoryOnly());
        ModelContext &context = container.mainContext();
        const QDateTime day(QDate(2026, 3, 2), QTime(9, 0), Qt::UTC);
        context.insert(std::make_shared<Person>(u"Ada"_s, u"CTO"_s, RelationshipType::peer));
        context.insert(std::make_shared<WeeklyBrief>(day, day, u"recap"_s, u"[]"_s, 1, 1));
        context.insert(std::make_shared<PerformanceReview>(
            day, day, u"H1"_s, PerformanceFormat::starImpact, u"Review"_s, u"text"_s, 1, 1));
        context.insert(std::make_shared<InboxItem>(InboxItemKind::reminder, u"t"_s, u"b"_s));
        context.insert(std::make_shared<Document>(u"CV"_s, DocumentCategory::aboutMe, u"text"_s));
        context.insert(std::make_shared<Goal>(u"Staff"_s, u"notes"_s, std::nullopt));
        context.save(); // nobody holds them, so the fetch below reads the rows again
        container.database().query(
            u"UPDATE %1 SET %2 = ?"_s.arg(quotedIdentifier(table), quotedIdentifier(column)),
            {stored});

        // Reads the computed value and then edits another field of the same record.
        QString read;
        if (table == u"Person") {
            const auto person = context.fetchFirst<Person>();
            read = rawValue(person->relationship());
            person->name = u"Ada L."_s;
        } else if (table == u"WeeklyBrief") {
            const auto brief = context.fetchFirst<WeeklyBrief>();
            read = rawValue(brief->period());
            brief->content = u"edited"_s;
        } else if (table == u"PerformanceReview") {
            const auto review = context.fetchFirst<PerformanceReview>();
            read = rawValue(review->format());
            review->content = u"edited"_s;
        } else if (table == u"InboxItem") {
            const auto item = context.fetchFirst<InboxItem>();
            read = rawValue(item->kind());
            item->title = u"edited"_s;
        } else if (table == u"Document") {
            const auto document = context.fetchFirst<Document>();
            read = rawValue(document->category);
            QVERIFY(!context.hasChanges());
            document->title = u"edited"_s;
        } else if (table == u"Goal") {
            const auto goal = context.fetchFirst<Goal>();
            read = rawValue(goal->status);
            QVERIFY(!context.hasChanges());
            goal->title = u"edited"_s;
        }
        QCOMPARE(read, reads);
        // A word from a later version outlives an edit made by this one.
        context.save();
        const QVariant after = container.database().scalar(
            u"SELECT %2 FROM %1"_s.arg(quotedIdentifier(table), quotedIdentifier(column)));
        QCOMPARE(after.isNull(), stored.isNull());
        QCOMPARE(after.toString(), stored.toString());
    }

    void summaryStaleness_data()
    {
        QTest::addColumn<bool>("summarised"); // summaryGeneratedAt is set
        QTest::addColumn<std::optional<QString>>("hashedText");
        QTest::addColumn<QString>("content");
        QTest::addColumn<bool>("stale");

        const QString page = u"Shipped the release ✅"_s;
        QTest::newRow("never summarised, hash set") << false << std::optional(page) << page << true;
        QTest::newRow("summarised without a hash")
            << true << std::optional<QString>() << page << true;
        QTest::newRow("summary of the text") << true << std::optional(page) << page << false;
        QTest::newRow("summary of the trimmed text")
            << true << std::optional(page) << u"\n  "_s + page + u" \t\n"_s << false;
        QTest::newRow("white space appended since")
            << true << std::optional(page) << page + u"\n\n   "_s << false;
        QTest::newRow("text changed since")
            << true << std::optional(page) << page + u" on time"_s << true;
        QTest::newRow("text emptied since") << true << std::optional(page) << u"  "_s << true;
    }

    void summaryStaleness()
    {
        QFETCH(bool, summarised);
        QFETCH(std::optional<QString>, hashedText);
        QFETCH(QString, content);
        QFETCH(bool, stale);

        DailyEntry entry(content, QDateTime(QDate(2026, 3, 2), QTime(9, 0), Qt::UTC), false);
        entry.summary = u"A release went out."_s;
        if (summarised)
            entry.summaryGeneratedAt = QDateTime(QDate(2026, 3, 2), QTime(18, 0), Qt::UTC);
        if (hashedText)
            entry.summarizedContentHash = DailyEntry::contentHash(*hashedText);
        QCOMPARE(entry.isSummaryStale(), stale);
    }

    // The hash is salted for each process, so that after a relaunch every summary counts as
    // stale and is made again. Two runs of this test as child processes must disagree.
    void summaryHashChangesWithEachLaunch()
    {
        const QString page = u"Shipped the release ✅"_s;
        if (const QString out = qEnvironmentVariable("TOVREN_CONTENT_HASH_OUT"); !out.isEmpty()) {
            QFile file(out);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(QByteArray::number(DailyEntry::contentHash(page)));
            return;
        }
        TempDataDir dir;
        QList<QByteArray> hashes;
        for (int run = 0; run < 2; ++run) {
            const QString out = dir.path() + u"/hash%1"_s.arg(run);
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert(u"TOVREN_CONTENT_HASH_OUT"_s, out);
            environment.remove(u"QT_HASH_SEED"_s);
            QProcess child;
            child.setProcessEnvironment(environment);
            child.start(QCoreApplication::applicationFilePath(),
                        {u"summaryHashChangesWithEachLaunch"_s});
            QVERIFY(child.waitForFinished(60'000));
            QCOMPARE(child.exitCode(), 0);
            QFile file(out);
            QVERIFY(file.open(QIODevice::ReadOnly));
            hashes.append(file.readAll());
        }
        QVERIFY(!hashes[0].isEmpty());
        QVERIFY(hashes[0] != hashes[1]);
    }

    void olderFileGainsTheMissingColumns()
    {
        const QDateTime written(QDate(2024, 5, 6), QTime(7, 8, 9, 10), Qt::UTC);
        const QDateTime opened(QDate(2026, 3, 2), QTime(10, 11, 12, 13), Qt::UTC);
        const QString id = QUuid::createUuid().toString(QUuid::WithoutBraces);
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        {
            Database old(path);
            // `mood` stands for a column this version doesn't know.
            old.exec(u"CREATE TABLE DailyEntry (id TEXT, date INTEGER, content TEXT, mood TEXT)"_s);
            old.query(u"INSERT INTO DailyEntry (id, date, content, mood) VALUES (?, ?, ?, ?)"_s,
                      {id, written.toMSecsSinceEpoch(), u"Old page ✍️"_s, u"calm"_s});
        }

        FixedClock clock(opened);
        const QString everything = u"SELECT * FROM DailyEntry ORDER BY id"_s;
        const QString catalogue = u"SELECT type, name, sql FROM sqlite_master ORDER BY name"_s;
        QList<QVariantList> rows, layout;
        {
            auto container = openFile(path);
            QCOMPARE(container->storedSchemaVersion(), u"1.0.0"_s);
            Database &db = container->database();
            for (const Entity *entity : StoreSchema::current().entities) {
                const QStringList columns = db.columns(entity->name);
                for (const Attribute &attribute : entity->attributes)
                    QVERIFY2(columns.contains(attribute.name),
                             qPrintable(entity->name + u'.' + attribute.name));
            }
            const auto entries = container->mainContext().fetch<DailyEntry>();
            QCOMPARE(entries.size(), 1);
            const auto &entry = entries.first();
            QCOMPARE(entry->id, QUuid::fromString(id));
            QCOMPARE(entry->date, written);
            QCOMPARE(entry->content, u"Old page ✍️"_s);
            QCOMPARE(entry->deviceId, RecordDefaults::localDeviceName());
            QCOMPARE(entry->isWin, false);
            QCOMPARE(entry->createdAt, opened);
            QCOMPARE(entry->updatedAt, opened);
            QVERIFY(!entry->summary);
            QVERIFY(!entry->summaryGeneratedAt);
            QVERIFY(!entry->summarizedContentHash);
            rows = db.query(everything);
            layout = db.query(catalogue);
        }

        clock.advance(3'600'000);
        auto container = openFile(path);
        Database &db = container->database();
        QCOMPARE(db.query(everything), rows);
        QCOMPARE(db.query(catalogue), layout);

        // The old table takes edits and new pages like one this version made.
        ModelContext &context = container->mainContext();
        context.fetchFirst<DailyEntry>()->isWin = true;
        context.insert(std::make_shared<DailyEntry>(u"New page"_s, opened, false));
        context.save();
        QCOMPARE(db.scalar(u"SELECT count(*) FROM DailyEntry"_s).toInt(), 2);
        QCOMPARE(db.scalar(u"SELECT isWin FROM DailyEntry WHERE id = ?"_s, {id}).toInt(), 1);
        QCOMPARE(db.scalar(u"SELECT mood FROM DailyEntry WHERE id = ?"_s, {id}).toString(),
                 u"calm"_s);
    }
};

QTEST_GUILESS_MAIN(RecordsTest)
#include "tst_records.moc"
