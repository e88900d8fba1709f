#include "TestSupport.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/store/Database.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "safety/DataExporter.h"

#include <QCryptographicHash>
#include <QDir>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(ImportSummary)
Q_DECLARE_METATYPE(GoalStatus)
Q_DECLARE_METATYPE(std::optional<QString>)

namespace {

QDateTime utc(int day, int hour, int minute = 0, int second = 0)
{
    return QDateTime(QDate(2026, 3, day), QTime(hour, minute, second), Qt::UTC);
}

const QDateTime importTime = utc(20, 12);

std::unique_ptr<ModelContainer> openStore(const QString &path)
{
    return std::make_unique<ModelContainer>(StoreSchema::current(),
                                            ModelContainer::Configuration::atPath(path));
}

// Every row of every table, the search index's included: equal digests mean an unchanged store.
QByteArray digest(ModelContainer &container)
{
    Database &db = container.database();
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const QVariantList &table :
         db.query(u"SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name"_s)) {
        hash.addData(table.at(0).toString().toUtf8());
        for (const QVariantList &row :
             db.query(u"SELECT * FROM "_s + quotedIdentifier(table.at(0).toString()))) {
            for (const QVariant &value : row) {
                hash.addData(value.toString().toUtf8());
                hash.addData("\x1f");
            }
        }
    }
    return hash.result();
}

// Two people, three meetings (one a scratchpad, one without a person), two goals, two pages,
// two inbox rows; every optional value once present and once absent.
void fillSample(ModelContext &context)
{
    auto ana = std::make_shared<Person>(u"Ana Ruiz"_s, u"Lead"_s, RelationshipType::manager);
    context.insert(ana);
    auto page = std::make_shared<DailyEntry>(u"## Done\n- shipped \"it\" #launch 👩🏽‍💻"_s,
                                             utc(9, 17, 0, 5), true);
    page->summary = u"Shipped the launch."_s;
    context.insert(page);
    context.insert(std::make_shared<DailyEntry>(u"Quiet day, Grüße"_s, utc(10, 8), false));

    auto meeting = std::make_shared<Meeting>(ana, utc(9, 10), u"Talked about Q2"_s);
    context.insert(meeting);
    auto done = std::make_shared<ActionItem>(u"Send notes"_s, meeting, utc(12, 0));
    done->isCompleted = true;
    context.insert(done);
    Clock::advance(1000);
    context.insert(std::make_shared<ActionItem>(u"Book a room"_s, meeting));
    Clock::advance(1000);
    context.insert(std::make_shared<ActionItem>(u"Ask for budget"_s, meeting));
    context.insert(
        std::make_shared<Meeting>(ana, Meeting::distantFuture(), u"Ask about travel"_s, true));
    context.insert(std::make_shared<Meeting>(nullptr, utc(11, 15), u"Hallway chat"_s));

    auto goal = std::make_shared<Goal>(u"Lead the migration"_s, u"By summer"_s, utc(30, 0));
    goal->status = GoalStatus::inProgress;
    context.insert(goal);
    auto step = std::make_shared<GoalMilestone>(u"Plan"_s, 0, goal);
    step->isCompleted = true;
    step->completedAt = utc(5, 9);
    context.insert(step);
    context.insert(std::make_shared<GoalMilestone>(u"Cut over"_s, 1, goal));
    auto paused = std::make_shared<Goal>(u"Speak at a meetup"_s, QString(), std::nullopt);
    paused->status = GoalStatus::onHold;
    context.insert(paused);

    auto recap =
        std::make_shared<InboxItem>(InboxItemKind::briefReady, u"Your week"_s, u"Recap ready"_s,
                                    u"brief:2026-W11"_s, u"Open"_s, u"tab:recaps"_s);
    recap->readAt = utc(15, 9);
    context.insert(recap);
    context.insert(std::make_shared<InboxItem>(InboxItemKind::system, u"Hello"_s, QString()));
    context.save();
}

// What an import can keep of an export: not the ids, not the pages' creation times, and not
// the order, which a save doesn't keep.
ExportData withoutIdentity(ExportData data)
{
    auto byText = [](auto &list, auto key) {
        std::sort(list.begin(), list.end(),
                  [&](const auto &a, const auto &b) { return key(a) < key(b); });
    };
    data.exportedAt.clear();
    for (ExportedEntry &e : data.entries)
        e.id.clear(), e.createdAt.clear();
    byText(data.entries, [](const ExportedEntry &e) { return e.date + e.content; });
    for (ExportedMeeting &m : data.meetings)
        m.id.clear();
    byText(data.meetings, [](const ExportedMeeting &m) { return m.date + m.notes; });
    for (ExportedGoal &g : data.goals) {
        g.id.clear();
        for (ExportedMilestone &m : g.milestones)
            m.id.clear();
    }
    byText(data.goals, [](const ExportedGoal &g) { return g.title; });
    for (ExportedInboxItem &i : data.inbox)
        i.id.clear();
    byText(data.inbox, [](const ExportedInboxItem &i) { return i.title; });
    return data;
}

// One record of each kind with every date field set to the same text.
ExportData datedRecords(const QString &date)
{
    ExportData data;
    data.exportedAt = date;
    data.entries = {{u"E1"_s, date, u"page"_s, date, std::nullopt}};
    data.meetings = {{u"M1"_s, u"Ana"_s, date, u"notes"_s, {{u"call"_s, false, date}}}};
    data.goals = {{u"G1"_s,
                   u"goal"_s,
                   QString(),
                   u"In Progress"_s,
                   date,
                   {{u"S1"_s, u"step"_s, true, 0, date}}}};
    data.inbox = {{u"I1"_s, u"system"_s, u"hi"_s, QString(), date, date, {}, {}, {}}};
    return data;
}

QString refusal(const QString &detail)
{
    return u"This file isn't a valid Tovren backup. ("_s + detail + u')';
}

} // namespace

class TestDataExporter : public QObject {
    Q_OBJECT

private slots:
    void exportText_data()
    {
        QTest::addColumn<bool>("filled");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("empty store") << false << QByteArray(R"({
  "entries": [],
  "exportedAt": "2026-03-10T09:30:00Z",
  "goals": [],
  "inbox": [],
  "meetings": [],
  "schemaVersion": 2
}
)");
        // moc reads raw strings as plain ones, so the escaped quotes are put in afterwards.
        QTest::newRow("one of each") << true
                                     << QByteArray(R"({
  "entries": [
    {
      "content": "Shipped QitQ\n\tüber 👍 \\ \u0001",
      "createdAt": "2026-03-10T09:30:00Z",
      "date": "2026-03-09T17:00:05Z",
      "id": "6F9619FF-8B86-D011-B42D-00C04FC964FF",
      "summary": "A launch"
    }
  ],
  "exportedAt": "2026-03-10T09:30:00Z",
  "goals": [
    {
      "id": "0A1B2C3D-0000-4000-8000-00000000000A",
      "milestones": [
        {
          "id": "0A1B2C3D-0000-4000-8000-00000000000C",
          "isCompleted": false,
          "orderIndex": 1,
          "title": "Draft"
        },
        {
          "completedAt": "2026-03-01T08:00:00Z",
          "id": "0A1B2C3D-0000-4000-8000-00000000000B",
          "isCompleted": true,
          "orderIndex": 2,
          "title": "Ship"
        }
      ],
      "notes": "",
      "status": "In Progress",
      "title": "Lead the migration"
    }
  ],
  "inbox": [
    {
      "body": "Your week is ready",
      "createdAt": "2026-03-10T09:30:00Z",
      "id": "0A1B2C3D-0000-4000-8000-00000000000D",
      "kind": "brief_ready",
      "payload": "brief:2026-W10",
      "title": "Recap"
    }
  ],
  "meetings": [
    {
      "actionItems": [
        {
          "isCompleted": false,
          "title": "Send notes"
        },
        {
          "dueDate": "2026-03-12T00:00:00Z",
          "isCompleted": true,
          "title": "Book a room"
        }
      ],
      "date": "4001-01-01T00:00:00Z",
      "id": "0A1B2C3D-0000-4000-8000-00000000000E",
      "notes": "",
      "person": "Unknown"
    }
  ],
  "schemaVersion": 2
}
)")
                                            .replace("Q", "\\\"");
    }
    // Sorted keys, two-space indents, UTC seconds without fractions, upper-case ids, absent
    // optional values left out, milestones by orderIndex, action items as they were added.
    void exportText()
    {
        QFETCH(bool, filled);
        QFETCH(QByteArray, expected);
        TempDataDir dir;
        FixedClock clock(utc(10, 9, 30));
        auto store = openStore(dir.path() + u"/a.store"_s);
        ModelContext &context = store->mainContext();
        if (filled) {
            auto page = std::make_shared<DailyEntry>(
                u"Shipped \"it\"\n\tüber 👍 \\ \x01"_s,
                QDateTime(QDate(2026, 3, 9), QTime(18, 0, 5, 478), QTimeZone(3600)), true);
            page->id = QUuid(u"{6f9619ff-8b86-d011-b42d-00c04fc964ff}"_s);
            page->summary = u"A launch"_s;
            context.insert(page);
            auto goal = std::make_shared<Goal>(u"Lead the migration"_s, QString(), std::nullopt);
            goal->id = QUuid(u"0a1b2c3d-0000-4000-8000-00000000000a"_s);
            goal->status = GoalStatus::inProgress;
            context.insert(goal);
            auto ship = std::make_shared<GoalMilestone>(u"Ship"_s, 2, goal);
            ship->id = QUuid(u"0a1b2c3d-0000-4000-8000-00000000000b"_s);
            ship->isCompleted = true;
            ship->completedAt = QDateTime(QDate(2026, 3, 1), QTime(8, 0, 0, 999), Qt::UTC);
            context.insert(ship);
            auto draft = std::make_shared<GoalMilestone>(u"Draft"_s, 1, goal);
            draft->id = QUuid(u"0a1b2c3d-0000-4000-8000-00000000000c"_s);
            context.insert(draft);
            auto recap = std::make_shared<InboxItem>(InboxItemKind::briefReady, u"Recap"_s,
                                                     u"Your week is ready"_s, u"brief:2026-W10"_s);
            recap->id = QUuid(u"0a1b2c3d-0000-4000-8000-00000000000d"_s);
            context.insert(recap);
            auto scratchpad =
                std::make_shared<Meeting>(nullptr, Meeting::distantFuture(), QString(), true);
            scratchpad->id = QUuid(u"0a1b2c3d-0000-4000-8000-00000000000e"_s);
            context.insert(scratchpad);
            context.insert(std::make_shared<ActionItem>(u"Send notes"_s, scratchpad));
            clock.advance(1000);
            auto booked = std::make_shared<ActionItem>(u"Book a room"_s, scratchpad, utc(12, 0));
            booked->isCompleted = true;
            context.insert(booked);
            clock.set(utc(10, 9, 30));
            context.save();
        }
        QCOMPARE(DataExporter::exportData(context), expected);
        QCOMPARE(DataExporter::restoreSummaryMessage(DataExporter::importData(expected, context)),
                 filled ? u"Nothing new to add. Skipped 3 duplicates."_s
                        : u"Nothing new to add."_s);
    }

    void exportThenImportIntoAnEmptyStore()
    {
        TempDataDir dir;
        FixedClock clock(utc(16, 9));
        auto source = openStore(dir.path() + u"/a.store"_s);
        fillSample(source->mainContext());
        const QString file = dir.path() + u"/export.json"_s;
        DataExporter::exportToFile(source->mainContext(), file);

        clock.set(importTime);
        auto target = openStore(dir.path() + u"/b.store"_s);
        ModelContext &context = target->mainContext();
        const ImportSummary summary = DataExporter::importFromFile(file, context);
        QCOMPARE(summary, (ImportSummary{2, 3, 2, 2, 2, 0, 0, 0}));
        QCOMPARE(DataExporter::restoreSummaryMessage(summary),
                 u"Added 2 entries, 3 meetings, 2 goals."_s);

        // Read back from the file, not from what the import still holds.
        auto reopened = openStore(dir.path() + u"/b.store"_s);
        ModelContext &copy = reopened->mainContext();
        const ExportData before = DataExporter::collect(source->mainContext());
        QCOMPARE(DataExportFormat::encode(withoutIdentity(DataExporter::collect(copy))),
                 DataExportFormat::encode(withoutIdentity(before)));

        // New ids throughout; pages are new records of the import's time, never wins.
        const QSet<QString> oldIds = [&] {
            QSet<QString> ids;
            for (const auto &e : before.entries)
                ids.insert(e.id);
            for (const auto &m : before.meetings)
                ids.insert(m.id);
            return ids;
        }();
        for (const auto &page : copy.fetch<DailyEntry>()) {
            QVERIFY(!oldIds.contains(page->id.toString(QUuid::WithoutBraces).toUpper()));
            QCOMPARE(page->createdAt, importTime);
            QVERIFY(!page->isWin);
            QVERIFY(!page->summaryGeneratedAt);
        }
        for (const auto &meeting : copy.fetch<Meeting>())
            QVERIFY(!meeting->isScratchpad);
        QStringList people;
        for (const auto &person : copy.fetch<Person>({{}, {field(&Person::name).ascending()}, {}}))
            people.append(person->name + u'/' + person->role + u'/' +
                          rawValue(person->relationship()) + u'/' + person->email.value_or(u"-"_s));
        QCOMPARE(people, (QStringList{u"Ana Ruiz//Other/-"_s, u"Unknown//Other/-"_s}));

        // Into the store it came from, it adds nothing; into the copy, everything again, since
        // the copy's records bear new ids.
        const QByteArray untouched = digest(*source);
        const ImportSummary again = DataExporter::importFromFile(file, source->mainContext());
        QCOMPARE(again, (ImportSummary{0, 0, 0, 0, 0, 2, 3, 2}));
        QCOMPARE(DataExporter::restoreSummaryMessage(again),
                 u"Nothing new to add. Skipped 7 duplicates."_s);
        QCOMPARE(digest(*source), untouched);
        QCOMPARE(DataExporter::importFromFile(file, copy), summary);
        QCOMPARE(copy.fetchCount<DailyEntry>(), qint64(4));
    }

    void existingRecordsAreNeverOverwritten_data()
    {
        QTest::addColumn<bool>("lowerCaseIds");
        QTest::newRow("ids as written") << false;
        QTest::newRow("ids in lower case") << true;
    }
    void existingRecordsAreNeverOverwritten()
    {
        QFETCH(bool, lowerCaseIds);
        TempDataDir dir;
        FixedClock clock(importTime);
        auto store = openStore(dir.path() + u"/a.store"_s);
        fillSample(store->mainContext());
        ExportData changed = DataExporter::collect(store->mainContext());
        auto rewrite = [&](QString &id, QString &text) {
            if (lowerCaseIds)
                id = id.toLower();
            text = u"theirs"_s;
        };
        for (ExportedEntry &e : changed.entries)
            rewrite(e.id, e.content), e.date = u"2020-01-01T00:00:00Z"_s;
        for (ExportedMeeting &m : changed.meetings)
            rewrite(m.id, m.notes), m.actionItems.append({u"more"_s, false, {}});
        for (ExportedGoal &g : changed.goals)
            rewrite(g.id, g.title), g.milestones.append({u"S9"_s, u"more"_s, false, 9, {}});
        for (ExportedInboxItem &i : changed.inbox)
            rewrite(i.id, i.body);

        const QByteArray before = digest(*store);
        const ImportSummary summary =
            DataExporter::importData(DataExportFormat::encode(changed), store->mainContext());
        QCOMPARE(summary, (ImportSummary{0, 0, 0, 0, 0, 2, 3, 2}));
        QCOMPARE(digest(*store), before);
    }

    void datesThatDontParseFallBack_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QDateTime>("instant"); // invalid: the date doesn't parse
        QTest::newRow("UTC") << u"2026-03-09T18:00:05Z"_s << utc(9, 18, 0, 5);
        QTest::newRow("an offset") << u"2026-03-09T20:00:05+02:00"_s << utc(9, 18, 0, 5);
        QTest::newRow("fractions")
            << u"2026-03-09T18:00:05.250Z"_s << utc(9, 18, 0, 5).addMSecs(250);
        QTest::newRow("words") << u"next Tuesday"_s << QDateTime();
        QTest::newRow("month 13") << u"2026-13-09T18:00:05Z"_s << QDateTime();
        QTest::newRow("empty") << QString() << QDateTime();
    }
    // A required date falls back to the time of the import, an optional one to absent.
    void datesThatDontParseFallBack()
    {
        QFETCH(QString, text);
        QFETCH(QDateTime, instant);
        TempDataDir dir;
        FixedClock clock(importTime);
        auto store = openStore(dir.path() + u"/a.store"_s);
        ModelContext &context = store->mainContext();
        DataExporter::importData(DataExportFormat::encode(datedRecords(text)), context);

        const QDateTime required = instant.isValid() ? instant : importTime;
        const std::optional<QDateTime> optional =
            instant.isValid() ? std::optional(instant) : std::nullopt;
        QCOMPARE(context.fetchFirst<DailyEntry>()->date, required);
        QCOMPARE(context.fetchFirst<DailyEntry>()->createdAt, importTime);
        QCOMPARE(context.fetchFirst<Meeting>()->date, required);
        QCOMPARE(context.fetchFirst<InboxItem>()->createdAt, required);
        QCOMPARE(context.fetchFirst<InboxItem>()->readAt, optional);
        QCOMPARE(context.fetchFirst<ActionItem>()->dueDate, optional);
        QCOMPARE(context.fetchFirst<Goal>()->targetDate, optional);
        QCOMPARE(context.fetchFirst<GoalMilestone>()->completedAt, optional);
    }

    void wordsTheStoreDoesntKnow_data()
    {
        QTest::addColumn<QString>("status");
        QTest::addColumn<GoalStatus>("goalStatus");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("kindRaw");
        QTest::newRow("known") << u"On Hold"_s << GoalStatus::onHold << u"ai_suggestion"_s
                               << u"ai_suggestion"_s;
        QTest::newRow("unknown") << u"Paused"_s << GoalStatus::notStarted << u"banner"_s
                                 << u"system"_s;
        QTest::newRow("case differs")
            << u"in progress"_s << GoalStatus::notStarted << u"Reminder"_s << u"system"_s;
    }
    void wordsTheStoreDoesntKnow()
    {
        QFETCH(QString, status);
        QFETCH(GoalStatus, goalStatus);
        QFETCH(QString, kind);
        QFETCH(QString, kindRaw);
        TempDataDir dir;
        auto store = openStore(dir.path() + u"/a.store"_s);
        ModelContext &context = store->mainContext();
        ExportData data = datedRecords(u"2026-03-09T18:00:05Z"_s);
        data.goals[0].status = status;
        data.inbox[0].kind = kind;
        data.inbox[0].payload = u"key:1"_s;
        DataExporter::importData(DataExportFormat::encode(data), context);
        QCOMPARE(context.fetchFirst<Goal>()->status, goalStatus);
        QCOMPARE(context.fetchFirst<InboxItem>()->kindRaw, kindRaw);
        QCOMPARE(context.fetchFirst<InboxItem>()->payload, std::optional(u"key:1"_s));
    }

    // By exact name; an unknown name gets one new person however many meetings name it.
    void meetingsFindTheirPeopleByName()
    {
        TempDataDir dir;
        auto store = openStore(dir.path() + u"/a.store"_s);
        ModelContext &context = store->mainContext();
        auto first = std::make_shared<Person>(u"Ana Ruiz"_s, u"Lead"_s, RelationshipType::peer);
        context.insert(first);
        context.save();
        context.insert(
            std::make_shared<Person>(u"Ana Ruiz"_s, u"Other Ana"_s, RelationshipType::peer));
        context.save();
        ExportData data;
        for (const QString &name : {u"Ana Ruiz"_s, u"ana ruiz"_s, u"Bo"_s, u"Bo"_s})
            data.meetings.append({name + u"-id"_s + QString::number(data.meetings.size()),
                                  name,
                                  QString(),
                                  QString(),
                                  {}});
        DataExporter::importData(DataExportFormat::encode(data), context);

        QStringList names;
        for (const auto &meeting : context.fetch<Meeting>()) {
            names.append(meeting->person->name);
            if (meeting->person->name == u"Ana Ruiz"_s)
                QCOMPARE(meeting->person, first);
        }
        names.sort();
        QCOMPARE(names, (QStringList{u"Ana Ruiz"_s, u"Bo"_s, u"Bo"_s, u"ana ruiz"_s}));
        QCOMPARE(context.fetchCount<Person>(), qint64(4));
    }

    void filesOfOtherShapesImport_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<std::optional<QString>>("summary");
        const QByteArray rest = R"("exportedAt":"x","goals":[],"inbox":[],"meetings":[])";
        QTest::newRow("schemaVersion 99")
            << QByteArray(
                   R"({"entries":[{"id":"A","date":"","content":"c","createdAt":"","summary":"s"}],)" +
                   rest + R"(,"schemaVersion":99})")
            << std::optional(u"s"_s);
        QTest::newRow("keys of a later version, null for absent")
            << QByteArray(
                   R"({"entries":[{"id":"A","date":"","content":"c","createdAt":"","summary":null,"mood":{"x":[1.5e300,true]}}],"tags":[],)" +
                   rest + R"(,"schemaVersion":2.0})")
            << std::optional<QString>();
        QTest::newRow("byte-order mark, empty summary")
            << QByteArray(
                   "\xEF\xBB\xBF"
                   R"( { "entries" : [ {"id":"A","date":"","content":"c","createdAt":"","summary":""} ] ,)" +
                   rest + R"(,"schemaVersion":-1} )")
            << std::optional<QString>();
    }
    void filesOfOtherShapesImport()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(std::optional<QString>, summary);
        TempDataDir dir;
        auto store = openStore(dir.path() + u"/a.store"_s);
        ModelContext &context = store->mainContext();
        QCOMPARE(DataExporter::importData(bytes, context).entriesAdded, 1);
        QCOMPARE(context.fetchFirst<DailyEntry>()->content, u"c"_s);
        QCOMPARE(context.fetchFirst<DailyEntry>()->summary, summary);
    }

    void hostileFilesChangeNothing_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("detail");
        const QByteArray head = R"({"exportedAt":"x","goals":[],"meetings":[],"schemaVersion":2,)";
        auto withEntries = [&](const QByteArray &entries) -> QByteArray {
            return head + R"("inbox":[],"entries":)" + entries + '}';
        };
        QTest::newRow("no inbox") << QByteArray(head + R"("entries":[]})")
                                  << u"\"inbox\" is missing"_s;
        QTest::newRow("no date") << withEntries(R"([{"id":"A","content":"","createdAt":""}])")
                                 << u"\"entries[0].date\" is missing"_s;
        QTest::newRow("text for a list") << QByteArray(head + R"("inbox":"none","entries":[]})")
                                         << u"\"inbox\" should be a list at line 1, column 70"_s;
        QTest::newRow("date as a number")
            << withEntries(R"([{"id":"A","date":20260309,"content":"","createdAt":""}])")
            << u"\"entries[0].date\" should be text at line 1, column 101"_s;
        QTest::newRow("null content")
            << withEntries(R"([{"id":"A","date":"","content":null,"createdAt":""}])")
            << u"\"entries[0].content\" should be text at line 1, column 114"_s;
        QTest::newRow("a flag in quotes")
            << QByteArray(
                   R"({"entries":[],"exportedAt":"x","goals":[],"inbox":[],"schemaVersion":2,"meetings":[{"id":"M","person":"","date":"","notes":"","actionItems":[{"title":"t","isCompleted":"true"}]}]})")
            << u"\"meetings[0].actionItems[0].isCompleted\" should be true or false at line 1, column 169"_s;
        const QByteArray goals =
            R"({"entries":[],"exportedAt":"x","inbox":[],"meetings":[],"schemaVersion":2,"goals":[{"id":"G","title":"","notes":"","status":"","milestones":[{"id":"S","title":"","isCompleted":false,"orderIndex":)";
        QTest::newRow("a fraction for a whole number")
            << QByteArray(goals + "2.5}]}]}")
            << u"\"goals[0].milestones[0].orderIndex\" should be a whole number at line 1, column 196"_s;
        QTest::newRow("beyond an int")
            << QByteArray(goals + "4294967296}]}]}")
            << u"\"goals[0].milestones[0].orderIndex\" is out of range at line 1, column 196"_s;
        QTest::newRow("a number beyond a double")
            << QByteArray(
                   R"({"entries":[],"exportedAt":"x","goals":[],"inbox":[],"meetings":[],"schemaVersion":1e400})")
            << u"\"schemaVersion\" should be a whole number at line 1, column 84"_s;
        QTest::newRow("deep nesting")
            << QByteArray(R"({"x":)" + QByteArray(40, '[') + QByteArray(40, ']') + "}")
            << u"data nested deeper than 32 levels at line 1, column 37"_s;
        QTest::newRow("100 MB of text")
            << withEntries(R"([{"id":"A","date":"","content":")" + QByteArray(100 << 20, 'a') +
                           R"(","createdAt":""}])")
            << u"the file is larger than 64 MB"_s;
        QTest::newRow("not UTF-8")
            << withEntries("[\"\xC3\x28\"]") << u"text that isn't UTF-8 at line 1, column 85"_s;
        QTest::newRow("overlong UTF-8")
            << withEntries("[\"\xC0\xAF\"]") << u"text that isn't UTF-8 at line 1, column 85"_s;
        QTest::newRow("half a surrogate pair")
            << withEntries(R"([{"id":"A","date":"","content":"\ud83d x","createdAt":""}])")
            << u"half of a surrogate pair at line 1, column 115"_s;
        QTest::newRow("raw control character")
            << withEntries("[{\"id\":\"A\",\"date\":\"\",\"content\":\"a\tb\",\"createdAt\":\"\"}]")
            << u"a control character inside text at line 1, column 116"_s;
        QTest::newRow("a key twice") << QByteArray(head + R"("inbox":[],"entries":[],"inbox":[]})")
                                     << u"\"inbox\" is given twice at line 1, column 94"_s;
        QTest::newRow("one id twice")
            << withEntries(
                   R"([{"id":"a1","date":"","content":"","createdAt":""},{"id":"A1","date":"","content":"","createdAt":""}])")
            << u"\"entries[1].id\" repeats the id of entries[0]"_s;
        QTest::newRow("text after the end")
            << QByteArray(withEntries("[]") + "\n{}")
            << u"more text after the end of the data at line 2, column 1"_s;
        QTest::newRow("cut short")
            << withEntries("[]").chopped(1) << u"the file ends in the middle of the data"_s;
        QTest::newRow("empty file") << QByteArray() << u"the file ends in the middle of the data"_s;
        QTest::newRow("a list at the top")
            << QByteArray(" []") << u"the file should hold an object at line 1, column 2"_s;
    }
    void hostileFilesChangeNothing()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, detail);
        TempDataDir dir;
        auto store = openStore(dir.path() + u"/a.store"_s);
        fillSample(store->mainContext());
        const QByteArray before = digest(*store);
        try {
            DataExporter::importData(bytes, store->mainContext());
            QFAIL("the file should have been refused");
        } catch (const ImportError &error) {
            QCOMPARE(error.kind(), ImportError::Kind::decodingFailed);
            QCOMPARE(error.errorDescription(), refusal(detail));
        }
        QVERIFY(!store->mainContext().hasChanges());
        QCOMPARE(digest(*store), before);
    }

    void unreadableFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("missing") << u"nothing-here.json"_s;
        QTest::newRow("a folder") << u"folder.json"_s;
    }
    void unreadableFiles()
    {
        QFETCH(QString, name);
        TempDataDir dir;
        QDir(dir.path()).mkdir(u"folder.json"_s);
        auto store = openStore(dir.path() + u"/a.store"_s);
        try {
            DataExporter::importFromFile(dir.path() + u'/' + name, store->mainContext());
            QFAIL("the file should not have been read");
        } catch (const ImportError &error) {
            QCOMPARE(error.errorDescription(), u"The selected file isn't readable."_s);
        }
    }

    // A failed save is reported, and nothing of the import is left for a later save to write.
    void failedSaveLeavesTheStoreAsItWas()
    {
        TempDataDir dir;
        auto source = openStore(dir.path() + u"/a.store"_s);
        fillSample(source->mainContext());
        auto store = openStore(dir.path() + u"/b.store"_s);
        ModelContext &context = store->mainContext();
        context.insert(std::make_shared<Person>(u"Ana Ruiz"_s, u"Lead"_s, RelationshipType::peer));
        context.save();
        store->database().exec(u"CREATE TRIGGER poison BEFORE INSERT ON GoalMilestone "
                               "BEGIN SELECT RAISE(ABORT, 'poisoned row'); END"_s);
        const QByteArray before = digest(*store);
        try {
            DataExporter::importData(DataExporter::exportData(source->mainContext()), context);
            QFAIL("the save should have failed");
        } catch (const ImportError &error) {
            QCOMPARE(error.errorDescription(), u"Couldn't save the imported data: poisoned row"_s);
        }
        QCOMPARE(digest(*store), before);
        store->database().exec(u"DROP TRIGGER poison"_s);
        QVERIFY(!context.hasChanges());
        context.save();
        QCOMPARE(digest(*store), before);
    }

    void exportFiles()
    {
        TempDataDir dir;
        FixedClock clock(utc(10, 9, 30), testCalendar());
        const QLocale locale;
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        const QString proposed = DataExporter::proposedFileName();
        QLocale::setDefault(locale);
        QCOMPARE(proposed, u"tovren-export-Mar 10, 2026.json"_s);

        auto store = openStore(dir.path() + u"/a.store"_s);
        const QString path = dir.path() + u"/out.json"_s;
        writeFile(path, QByteArray(100000, 'x'));
        DataExporter::exportToFile(store->mainContext(), path);
        QCOMPARE(fileContents(path), DataExporter::exportData(store->mainContext()));
        try {
            DataExporter::exportToFile(store->mainContext(), dir.path() + u"/no/such/x.json"_s);
            QFAIL("the export should have failed");
        } catch (const ExportError &error) {
            QVERIFY2(error.errorDescription().startsWith(u"Couldn't write the export file: "_s) &&
                         error.errorDescription().size() > 35,
                     qPrintable(error.errorDescription()));
        }
    }

    void summaryMessage_data()
    {
        QTest::addColumn<ImportSummary>("summary");
        QTest::addColumn<QString>("message");
        QTest::newRow("nothing") << ImportSummary{} << u"Nothing new to add."_s;
        QTest::newRow("milestones and inbox aren't told")
            << ImportSummary{0, 0, 0, 4, 3, 0, 0, 0} << u"Nothing new to add."_s;
        QTest::newRow("one of each, one skipped")
            << ImportSummary{1, 1, 1, 0, 0, 0, 0, 1}
            << u"Added 1 entry, 1 meeting, 1 goal. Skipped 1 duplicate."_s;
        QTest::newRow("one entry, two skipped")
            << ImportSummary{1, 0, 0, 0, 0, 1, 1, 0} << u"Added 1 entry. Skipped 2 duplicates."_s;
        QTest::newRow("many") << ImportSummary{0, 2, 3, 0, 0, 0, 0, 0}
                              << u"Added 2 meetings, 3 goals."_s;
    }
    void summaryMessage()
    {
        QFETCH(ImportSummary, summary);
        QFETCH(QString, message);
        QCOMPARE(DataExporter::restoreSummaryMessage(summary), message);
    }
};

QTEST_GUILESS_MAIN(TestDataExporter)
#include "tst_dataexporter.moc"
