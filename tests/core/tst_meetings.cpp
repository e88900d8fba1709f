#include "TestSupport.h"

#include "core/MeetingTimeline.h"
#include "core/records/ActionItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

const QString rule = u"\n\n---\n\n"_s;

// March 2026 in UTC; Berlin, the test calendar's zone, is an hour ahead.
QDateTime utc(int day, int hour, int minute = 0)
{
    return QDateTime(QDate(2026, 3, day), QTime(hour, minute), Qt::UTC);
}

std::unique_ptr<ModelContainer> openFile(const QString &path)
{
    return std::make_unique<ModelContainer>(StoreSchema::current(),
                                            ModelContainer::Configuration::atPath(path));
}

std::shared_ptr<Person> personWithId(ModelContext &context, const QUuid &id)
{
    return context.fetchFirst<Person>({field(&Person::id) == id, {}, {}});
}

QList<std::shared_ptr<Meeting>> meetingsOf(ModelContext &context,
                                           const std::shared_ptr<Person> &person, bool scratchpads)
{
    return context.fetch<Meeting>(
        {field(&Meeting::person) == person && field(&Meeting::isScratchpad) == scratchpads,
         {field(&Meeting::date).ascending(), field(&Meeting::createdAt).ascending()},
         {}});
}

QStringList sortedTitles(const QList<std::shared_ptr<ActionItem>> &items)
{
    QStringList titles;
    for (const auto &item : items)
        titles.append(item->title);
    titles.sort();
    return titles;
}

QStringList notesOf(const QList<std::shared_ptr<Meeting>> &meetings)
{
    QStringList notes;
    for (const auto &meeting : meetings)
        notes.append(meeting->notes);
    return notes;
}

} // namespace

class MeetingsTest : public QObject {
    Q_OBJECT

private slots:
    void consolidation_data()
    {
        // Meetings are created in the order given and stored in the reverse order. `groups` says
        // which remaining meeting (by date) each one ends up in, `kept` which of them survives.
        QTest::addColumn<QList<QDateTime>>("dates");
        QTest::addColumn<QStringList>("notes");
        QTest::addColumn<QList<int>>("groups");
        QTest::addColumn<QList<int>>("kept");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("two on one day")
            << QList{utc(2, 9), utc(2, 15)} << QStringList{u"Roadmap"_s, u"Hiring plan"_s}
            << QList{0, 0} << QList{0} << QStringList{u"Roadmap"_s + rule + u"Hiring plan"_s};
        QTest::newRow("three created out of order")
            << QList{utc(2, 16), utc(2, 8), utc(2, 11)} << QStringList{u"c"_s, u"a"_s, u"b"_s}
            << QList{0, 0, 0} << QList{1} << QStringList{u"a"_s + rule + u"b"_s + rule + u"c"_s};
        QTest::newRow("same time, first written kept")
            << QList{utc(2, 9), utc(2, 9)} << QStringList{u"first"_s, u"second"_s} << QList{0, 0}
            << QList{0} << QStringList{u"first"_s + rule + u"second"_s};
        QTest::newRow("empty and blank notes leave no rule")
            << QList{utc(2, 8), utc(2, 9), utc(2, 10), utc(2, 11)}
            << QStringList{QString(), u"  one  "_s, u" \n\t"_s, u"two\n"_s} << QList{0, 0, 0, 0}
            << QList{0} << QStringList{u"one"_s + rule + u"two"_s};
        QTest::newRow("all empty") << QList{utc(2, 8), utc(2, 9)} << QStringList{QString(), u"  "_s}
                                   << QList{0, 0} << QList{0} << QStringList{QString()};
        QTest::newRow("different days untouched")
            << QList{utc(2, 9), utc(3, 9)} << QStringList{u" a "_s, u"b\n"_s} << QList{0, 1}
            << QList{0, 1} << QStringList{u" a "_s, u"b\n"_s};
        QTest::newRow("local midnight splits one UTC day")
            << QList{utc(2, 22, 30), utc(2, 23, 30)} << QStringList{u"late"_s, u"early"_s}
            << QList{0, 1} << QList{0, 1} << QStringList{u"late"_s, u"early"_s};
        QTest::newRow("one local day spans two UTC days")
            << QList{utc(2, 23, 30), utc(3, 10)} << QStringList{u"early"_s, u"later"_s}
            << QList{0, 0} << QList{0} << QStringList{u"early"_s + rule + u"later"_s};
        QTest::newRow("two days of two")
            << QList{utc(2, 9), utc(4, 9), utc(2, 10), utc(4, 10)}
            << QStringList{u"a"_s, u"c"_s, u"b"_s, u"d"_s} << QList{0, 1, 0, 1} << QList{0, 1}
            << QStringList{u"a"_s + rule + u"b"_s, u"c"_s + rule + u"d"_s};
    }

    void consolidation()
    {
        QFETCH(QList<QDateTime>, dates);
        QFETCH(QStringList, notes);
        QFETCH(QList<int>, groups);
        QFETCH(QList<int>, kept);
        QFETCH(QStringList, expected);

        FixedClock clock(utc(1, 8), testCalendar("Europe/Berlin"));
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        QUuid personId;
        QList<QUuid> ids;
        {
            auto container = openFile(path);
            ModelContext &context = container->mainContext();
            auto person = std::make_shared<Person>(u"Ada"_s, u"CTO"_s, RelationshipType::manager);
            personId = person->id;
            // Someone else's meeting on the same day stays out of it.
            auto other = std::make_shared<Person>(u"Grace"_s, u"Peer"_s, RelationshipType::peer);
            auto theirs = std::make_shared<Meeting>(other, dates.first(), u"theirs"_s);
            context.insert(std::make_shared<ActionItem>(u"their item"_s, theirs));

            QList<std::shared_ptr<Record>> records;
            for (qsizetype i = 0; i < dates.size(); ++i) {
                auto meeting = std::make_shared<Meeting>(person, dates[i], notes[i]);
                ids.append(meeting->id);
                records.append(meeting);
                records.append(std::make_shared<ActionItem>(u"m%1 first"_s.arg(i), meeting));
                records.append(std::make_shared<ActionItem>(u"m%1 second"_s.arg(i), meeting));
                clock.advance(1000);
            }
            std::reverse(records.begin(), records.end());
            for (const auto &record : std::as_const(records))
                context.insert(record);
            context.save();
        }
        {
            auto container = openFile(path);
            ModelContext &context = container->mainContext();
            MeetingTimeline::consolidateSameDayMeetings(personWithId(context, personId), context);
            context.save();
        }

        auto container = openFile(path);
        ModelContext &context = container->mainContext();
        const auto person = personWithId(context, personId);
        const auto remaining = meetingsOf(context, person, false);
        QCOMPARE(notesOf(remaining), expected);
        for (qsizetype r = 0; r < remaining.size(); ++r) {
            QCOMPARE(remaining[r]->id, ids[kept[r]]);
            QStringList absorbed;
            for (qsizetype i = 0; i < groups.size(); ++i) {
                if (groups[i] == r)
                    absorbed << u"m%1 first"_s.arg(i) << u"m%1 second"_s.arg(i);
            }
            absorbed.sort();
            QCOMPARE(sortedTitles(remaining[r]->actionItems()), absorbed);
        }
        QCOMPARE(context.fetchCount<ActionItem>(), 2 * dates.size() + 1);
        const auto theirs = context.fetch<Meeting>({field(&Meeting::notes) == u"theirs"_s, {}, {}});
        QCOMPARE(theirs.size(), 1);
        QCOMPARE(sortedTitles(theirs[0]->actionItems()), QStringList{u"their item"_s});

        MeetingTimeline::consolidateSameDayMeetings(person, context);
        QVERIFY(!context.hasChanges());
    }

    void scratchpad_data()
    {
        QTest::addColumn<QStringList>(
            "pads"); // the notes of the scratchpads there are, oldest first
        QTest::addColumn<QString>("expected");

        QTest::newRow("none") << QStringList() << QString();
        QTest::newRow("one") << QStringList{u"ask about the offsite "_s}
                             << u"ask about the offsite "_s;
        QTest::newRow("two") << QStringList{u"promotion case"_s, u"roadmap 🚀"_s}
                             << u"promotion case"_s + rule + u"roadmap 🚀"_s;
        QTest::newRow("three, one blank")
            << QStringList{u" first "_s, u"\n"_s, u"third"_s} << u"first"_s + rule + u"third"_s;
        QTest::newRow("surplus blank")
            << QStringList{u" as typed "_s, QString()} << u" as typed "_s;
        QTest::newRow("oldest blank") << QStringList{QString(), u"carried"_s} << u"carried"_s;
    }

    void scratchpad()
    {
        QFETCH(QStringList, pads);
        QFETCH(QString, expected);

        FixedClock clock(utc(1, 8), testCalendar("Europe/Berlin"));
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        auto container = openFile(path);
        ModelContext &context = container->mainContext();
        auto person = std::make_shared<Person>(u"Ada"_s, u"CTO"_s, RelationshipType::manager);
        auto real = std::make_shared<Meeting>(person, utc(2, 9), u"real"_s);
        context.insert(real);
        QList<std::shared_ptr<Meeting>> existing;
        QStringList items;
        for (qsizetype i = 0; i < pads.size(); ++i) {
            existing.append(
                std::make_shared<Meeting>(person, Meeting::distantFuture(), pads[i], true));
            items.append(u"pad%1 item"_s.arg(i));
            context.insert(std::make_shared<ActionItem>(items.last(), existing.last()));
            clock.advance(1000);
        }
        std::for_each(existing.rbegin(), existing.rend(),
                      [&](const auto &m) { context.insert(m); });
        context.save();

        MeetingTimeline::tidy(person, context);
        context.save();
        MeetingTimeline::tidy(person, context);
        QVERIFY(!context.hasChanges());

        container = openFile(path);
        ModelContext &reopened = container->mainContext();
        person = personWithId(reopened, person->id);
        const auto scratchpads = meetingsOf(reopened, person, true);
        QCOMPARE(scratchpads.size(), 1);
        const auto &pad = scratchpads.first();
        QCOMPARE(pad->notes, expected);
        QCOMPARE(pad->date, Meeting::distantFuture());
        if (!existing.isEmpty())
            QCOMPARE(pad->id, existing.first()->id);
        QCOMPARE(sortedTitles(pad->actionItems()), items);
        QCOMPARE(notesOf(meetingsOf(reopened, person, false)), QStringList{u"real"_s});
        QCOMPARE(person->meetings().last(), pad);

        MeetingTimeline::tidy(person, reopened);
        QVERIFY(!reopened.hasChanges());
    }

    void deletingThePersonAfterTidyTakesEverything_data()
    {
        QTest::addColumn<bool>("savedBetween");
        QTest::newRow("tidy saved first") << true;
        QTest::newRow("tidy still pending") << false;
    }

    void deletingThePersonAfterTidyTakesEverything()
    {
        QFETCH(bool, savedBetween);

        FixedClock clock(utc(1, 8), testCalendar("Europe/Berlin"));
        TempDataDir dir;
        const QString path = dir.dataRoot() + u"/default.store"_s;
        auto container = openFile(path);
        ModelContext &context = container->mainContext();
        auto person = std::make_shared<Person>(u"Ada"_s, u"CTO"_s, RelationshipType::manager);
        auto other = std::make_shared<Person>(u"Grace"_s, u"Peer"_s, RelationshipType::peer);
        auto morning = std::make_shared<Meeting>(person, utc(2, 9), u"morning"_s);
        auto afternoon = std::make_shared<Meeting>(person, utc(2, 15), u"afternoon"_s);
        auto theirs = std::make_shared<Meeting>(other, utc(2, 9), u"theirs"_s);
        for (const auto &meeting : {morning, afternoon, theirs})
            context.insert(std::make_shared<ActionItem>(meeting->notes + u" item"_s, meeting));
        context.save();

        MeetingTimeline::tidy(person, context);
        MeetingTimeline::tidy(other, context);
        if (savedBetween)
            context.save();
        QCOMPARE(context.fetchCount<Meeting>(), 4); // two merged, two scratchpads
        context.remove(person);
        context.save();
        person.reset(), morning.reset(), afternoon.reset();

        container = openFile(path);
        ModelContext &reopened = container->mainContext();
        QCOMPARE(reopened.fetchCount<Person>(), 1);
        const auto meetings =
            reopened.fetch<Meeting>({{}, {field(&Meeting::date).ascending()}, {}});
        QCOMPARE(notesOf(meetings), (QStringList{u"theirs"_s, QString()}));
        QCOMPARE(meetings[1]->isScratchpad, true);
        QCOMPARE(sortedTitles(reopened.fetch<ActionItem>()), QStringList{u"theirs item"_s});
    }
};

QTEST_GUILESS_MAIN(MeetingsTest)
#include "tst_meetings.moc"
