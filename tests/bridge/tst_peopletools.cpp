// The people tools as an assistant meets them: replies and refusals word for word over one small
// team, and what each write leaves for the next call to read.

#include "TestSupport.h"

#include "bridge/MCPError.h"
#include "bridge/MCPTools.h"
#include "bridge/PeopleTools.h"
#include "core/PeopleQueries.h"
#include "core/Preferences.h"
#include "core/records/ActionItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QLocale>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const Calendar calendar = testCalendar();

QDateTime day(int month, int dayOfMonth, int year = 2026, int hour = 0)
{
    return calendar.at(QDate(year, month, dayOfMonth), hour, 0);
}

// One call of a row: the tool, its arguments and the reply (or "error <code> <message>").
QJsonArray step(const QString &tool, const QJsonObject &arguments, const QString &reply)
{
    return QJsonArray{tool, arguments, reply};
}

using Steps = QList<QJsonArray>;

} // namespace

class PeopleToolsTest : public QObject {
    Q_OBJECT

    // Dana has two meetings, one with an open and a done item; Ana only an empty scratchpad;
    // Pat 2 a scratchpad holding two open items; Pat 10 one meeting; one meeting and one item
    // belong to no one.
    struct Team {
        TempDataDir dir;
        FixedClock clock{day(1, 5, 2026, 10), calendar};
        Preferences preferences{dir.configDir() + u"/preferences.json"_s};
        ModelContainer container{StoreSchema::current(),
                                 ModelContainer::Configuration::memoryOnly()};
        MCPTools tools;

        Team()
        {
            PeopleTools::registerAll(tools);
            auto pat10 = person(u"Pat 10"_s, u"Intern"_s, RelationshipType::mentee);
            meet(pat10, day(11, 3, 2025), u"Intro."_s);
            auto dana = person(u"Dana Reyes"_s, u"Staff Engineer"_s, RelationshipType::manager,
                               u"Dana@Example.com"_s);
            meet(dana, day(12, 15, 2025), u"Career chat."_s);
            auto recent = meet(dana, day(1, 2, 2026, 15), u"\n  Talked roadmap.\n"_s);
            owe(recent, u"Send deck"_s, day(1, 9));
            owe(recent, u"Book room"_s)->isCompleted = true;
            meet(dana, Meeting::distantFuture(), QString(), true);
            auto pat2 = person(u"Pat 2"_s, QString(), RelationshipType::peer);
            auto pad = meet(pat2, Meeting::distantFuture(), u" \n"_s, true);
            owe(pad, u"Draft intro"_s);
            owe(pad, u"Find mentor"_s, day(1, 7));
            auto ana = person(u"Ana Ito"_s, QString(), RelationshipType::peer);
            ana->relationshipRaw.reset();
            meet(ana, Meeting::distantFuture(), QString(), true);
            meet(nullptr, day(10, 1, 2025), u"Orphan."_s);
            owe(nullptr, u"Loose end"_s);
            context().save();
        }

        ModelContext &context() { return container.mainContext(); }

        // Each record a second after the last, so that creation order is unambiguous.
        template<class T>
        std::shared_ptr<T> keep(std::shared_ptr<T> record)
        {
            context().insert(record);
            clock.advance(1000);
            return record;
        }
        std::shared_ptr<Person> person(const QString &name, const QString &role,
                                       RelationshipType relationship,
                                       std::optional<QString> email = std::nullopt)
        {
            return keep(std::make_shared<Person>(name, role, relationship, email));
        }
        std::shared_ptr<Meeting> meet(const std::shared_ptr<Person> &who, const QDateTime &date,
                                      const QString &notes, bool scratchpad = false)
        {
            return keep(std::make_shared<Meeting>(who, date, notes, scratchpad));
        }
        std::shared_ptr<ActionItem> owe(const std::shared_ptr<Meeting> &meeting,
                                        const QString &title,
                                        std::optional<QDateTime> due = std::nullopt)
        {
            return keep(std::make_shared<ActionItem>(title, meeting, due));
        }

        QString call(const QString &tool, const QJsonObject &arguments)
        {
            try {
                return tools.invoke(tool, arguments, context(), preferences);
            } catch (const MCPError &error) {
                return u"error "_s + QString::number(error.code()) + u' ' + error.message();
            }
        }
    };

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void calls_data()
    {
        QTest::addColumn<Steps>("steps");

        const QString dana = u"# Dana Reyes, Staff Engineer\nRelationship: Manager\nEmail: "
                             "dana@example.com\n\n## Recent meetings\n### Jan 2, 2026\nTalked "
                             "roadmap.\n\nAction items:\n- [ ] Send deck\n- [x] Book room"_s;
        const QString older = u"\n\n### Dec 15, 2025\nCareer chat.\n"_s;
        const QString jan2 = u"## Dana Reyes, Jan 2, 2026\n\nTalked roadmap."_s;
        const QString dec15 = u"## Dana Reyes, Dec 15, 2025\n\nCareer chat."_s;
        const QString rest = u"## Pat 10, Nov 3, 2025\n\nIntro.\n\n---\n\n## Unknown, Oct 1, "
                             "2025\n\nOrphan."_s;
        const QString rule = u"\n\n---\n\n"_s;
        const QString noMeetings = u"No meetings matched."_s;
        const QString open = u"- [ ] Find mentor (Pat 2) (due Jan 7)\n- [ ] Send deck (Dana "
                             "Reyes) (due Jan 9)\n- [ ] Draft intro (Pat 2)"_s;
        const QString bad = u"error -32602 "_s;

        QTest::newRow("get_people: by name, numbers by value, scratchpads with items count")
            << Steps{step(u"get_people"_s, {},
                          u"- Ana Ito\n- Dana Reyes (Staff Engineer) · last met Jan 2, 2026 · 1 "
                          "open action\n- Pat 2 · last met Jan 1, 4001 · 2 open actions\n- Pat "
                          "10 (Intern) · last met Nov 3, 2025"_s)};

        QTest::newRow("get_person: any case, items in order")
            << Steps{step(u"get_person"_s, {{"name"_L1, u"  dana REYES "_s}}, dana + older)};
        QTest::newRow("get_person: meeting_limit 0 shows one") << Steps{
            step(u"get_person"_s, {{"name"_L1, u"Dana Reyes"_s}, {"meeting_limit"_L1, 0}}, dana)};
        QTest::newRow("get_person: a negative meeting_limit shows one") << Steps{
            step(u"get_person"_s, {{"name"_L1, u"Dana Reyes"_s}, {"meeting_limit"_L1, -4}}, dana)};
        QTest::newRow("get_person: only an empty scratchpad, no relationship stored") << Steps{step(
            u"get_person"_s, {{"name"_L1, u"ana ito"_s}}, u"# Ana Ito\nRelationship: Other"_s)};
        QTest::newRow("get_person: a scratchpad with items")
            << Steps{step(u"get_person"_s, {{"name"_L1, u"Pat 2"_s}},
                          u"# Pat 2\nRelationship: Peer\n\n## Recent meetings\n### Jan 1, "
                          "4001\n\nAction items:\n- [ ] Draft intro\n- [ ] Find mentor"_s)};
        QTest::newRow("get_person: no partial match") << Steps{
            step(u"get_person"_s, {{"name"_L1, u"Dan"_s}}, bad + u"No person named 'Dan'."_s)};
        QTest::newRow("get_person: blank name") << Steps{step(
            u"get_person"_s, {{"name"_L1, u" "_s}}, bad + u"Missing required 'name' argument."_s)};

        QTest::newRow("get_meetings: all, no scratchpads")
            << Steps{step(u"get_meetings"_s, {}, jan2 + rule + dec15 + rule + rest)};
        QTest::newRow("get_meetings: by person in any case") << Steps{
            step(u"get_meetings"_s, {{"person_name"_L1, u"DANA reyes"_s}}, jan2 + rule + dec15)};
        QTest::newRow("get_meetings: no partial person")
            << Steps{step(u"get_meetings"_s, {{"person_name"_L1, u"Dana"_s}}, noMeetings)};
        QTest::newRow("get_meetings: to is the day's midnight, not its end")
            << Steps{step(u"get_meetings"_s, {{"to"_L1, u"2026-01-02"_s}}, dec15 + rule + rest)};
        QTest::newRow("get_meetings: a meeting at midnight is inside both bounds") << Steps{step(
            u"get_meetings"_s, {{"from"_L1, u"2025-12-15"_s}, {"to"_L1, u"2025-12-15"_s}}, dec15)};
        QTest::newRow("get_meetings: an unparsable from is no bound") << Steps{
            step(u"get_meetings"_s, {{"from"_L1, u"2025-13-01"_s}, {"limit"_L1, 1}}, jan2)};
        QTest::newRow("get_meetings: limit 0 gives one") << Steps{
            step(u"get_meetings"_s, {{"limit"_L1, 0}, {"from"_L1, u"2025-12-01"_s}}, jan2)};

        QTest::newRow("get_action_items: open, by due date, undated last")
            << Steps{step(u"get_action_items"_s, {}, open + u"\n- [ ] Loose end (no one)"_s)};
        QTest::newRow("get_action_items: with completed, by person")
            << Steps{step(u"get_action_items"_s,
                          {{"person_name"_L1, u"dana reyes"_s}, {"include_completed"_L1, true}},
                          u"- [ ] Send deck (Dana Reyes) (due Jan 9)\n- [x] Book room (Dana "
                          "Reyes)"_s)};
        QTest::newRow("get_action_items: include_completed as text is false") << Steps{
            step(u"get_action_items"_s,
                 {{"person_name"_L1, u"Dana Reyes"_s}, {"include_completed"_L1, u"true"_s}},
                 u"- [ ] Send deck (Dana Reyes) (due Jan 9)"_s)};
        QTest::newRow("get_action_items: nobody")
            << Steps{step(u"get_action_items"_s, {{"person_name"_L1, u"Nobody"_s}},
                          u"No action items matched."_s)};

        QTest::newRow("log_meeting: dated, notes trimmed")
            << Steps{step(u"log_meeting"_s,
                          {{"person_name"_L1, u" dana reyes"_s},
                           {"notes"_L1, u"\n Went well. \n"_s},
                           {"date"_L1, u"2026-01-04"_s}},
                          u"Logged meeting with Dana Reyes on Jan 4, 2026."_s),
                     step(u"get_meetings"_s, {{"limit"_L1, 1}},
                          u"## Dana Reyes, Jan 4, 2026\n\nWent well."_s)};
        QTest::newRow("log_meeting: now when the date is bad, past the to bound") << Steps{
            step(u"log_meeting"_s,
                 {{"person_name"_L1, u"Pat 10"_s},
                  {"notes"_L1, u"Quick sync."_s},
                  {"date"_L1, u"2026-02-30"_s}},
                 u"Logged meeting with Pat 10 on Jan 5, 2026."_s),
            step(u"get_meetings"_s, {{"to"_L1, u"2026-01-05"_s}, {"limit"_L1, 1}}, jan2),
            step(u"get_meetings"_s, {{"limit"_L1, 1}}, u"## Pat 10, Jan 5, 2026\n\nQuick sync."_s)};
        QTest::newRow("log_meeting: the earlier of two names differing in case") << Steps{
            step(u"add_person"_s, {{"name"_L1, u"DANA REYES"_s}}, u"Added DANA REYES."_s),
            step(u"log_meeting"_s, {{"person_name"_L1, u"Dana reyes"_s}, {"notes"_L1, u"Hi."_s}},
                 u"Logged meeting with Dana Reyes on Jan 5, 2026."_s)};
        QTest::newRow("log_meeting: an unknown name is refused")
            << Steps{step(u"log_meeting"_s, {{"person_name"_L1, u"Dan"_s}, {"notes"_L1, u"x"_s}},
                          bad + u"No one named 'Dan' in People. Add them there first."_s),
                     step(u"get_meetings"_s, {{"limit"_L1, 1}}, jan2)};
        QTest::newRow("log_meeting: no person")
            << Steps{step(u"log_meeting"_s, {{"notes"_L1, u"x"_s}},
                          bad + u"Missing required 'person_name' argument."_s)};
        QTest::newRow("log_meeting: blank notes")
            << Steps{step(u"log_meeting"_s, {{"person_name"_L1, u"Pat 2"_s}, {"notes"_L1, u" "_s}},
                          bad + u"Missing required 'notes' argument."_s)};

        const auto relationship = [](const QJsonValue &given, const QString &label) {
            QJsonObject arguments{{"name"_L1, u" Kim Lo "_s}};
            if (!given.isUndefined())
                arguments.insert("relationship"_L1, given);
            return Steps{step(u"add_person"_s, arguments, u"Added Kim Lo."_s),
                         step(u"get_person"_s, {{"name"_L1, u"kim lo"_s}},
                              u"# Kim Lo\nRelationship: "_s + label)};
        };
        QTest::newRow("add_person: no relationship")
            << relationship(QJsonValue::Undefined, u"Other"_s);
        QTest::newRow("add_person: MANAGER") << relationship(u"MANAGER"_s, u"Manager"_s);
        QTest::newRow("add_person: peer") << relationship(u"peer"_s, u"Peer"_s);
        QTest::newRow("add_person: recruiter") << relationship(u"recruiter"_s, u"Recruiter"_s);
        QTest::newRow("add_person: report") << relationship(u"report"_s, u"Other"_s);
        QTest::newRow("add_person: direct report") << relationship(u"direct report"_s, u"Other"_s);
        QTest::newRow("add_person: skip-level") << relationship(u"skip-level"_s, u"Other"_s);
        QTest::newRow("add_person: mentor") << relationship(u"mentor"_s, u"Other"_s);
        QTest::newRow("add_person: a number") << relationship(3, u"Other"_s);
        QTest::newRow("add_person: role and email")
            << Steps{step(u"add_person"_s,
                          {{"name"_L1, u"Kim Lo"_s},
                           {"role"_L1, u"PM"_s},
                           {"email"_L1, u"Kim@Example.com"_s}},
                          u"Added Kim Lo."_s),
                     step(u"get_person"_s, {{"name"_L1, u"Kim Lo"_s}},
                          u"# Kim Lo, PM\nRelationship: Other\nEmail: kim@example.com"_s)};
        QTest::newRow("add_person: blank name") << Steps{
            step(u"add_person"_s, {{"name"_L1, u"  "_s}}, bad + u"Missing required 'name'."_s)};

        QTest::newRow("add_action_item: on the newest meeting")
            << Steps{step(u"add_action_item"_s,
                          {{"person_name"_L1, u"dana reyes"_s}, {"title"_L1, u" Review doc "_s}},
                          u"Added action for Dana Reyes: Review doc"_s),
                     step(u"get_person"_s, {{"name"_L1, u"Dana Reyes"_s}, {"meeting_limit"_L1, 1}},
                          dana + u"\n- [ ] Review doc"_s)};
        QTest::newRow("add_action_item: no meetings makes a scratchpad, then reuses it")
            << Steps{step(u"add_person"_s, {{"name"_L1, u"Kim Lo"_s}}, u"Added Kim Lo."_s),
                     step(u"add_action_item"_s,
                          {{"person_name"_L1, u"Kim Lo"_s},
                           {"title"_L1, u"Call back"_s},
                           {"due_date"_L1, u"2026-01-06"_s}},
                          u"Added action for Kim Lo: Call back"_s),
                     step(u"add_action_item"_s,
                          {{"person_name"_L1, u"Kim Lo"_s}, {"title"_L1, u"Follow up"_s}},
                          u"Added action for Kim Lo: Follow up"_s),
                     step(u"get_person"_s, {{"name"_L1, u"Kim Lo"_s}},
                          u"# Kim Lo\nRelationship: Other\n\n## Recent meetings\n### Jan 5, "
                          "2026\n\nAction items:\n- [ ] Call back\n- [ ] Follow up"_s),
                     step(u"get_meetings"_s, {{"person_name"_L1, u"Kim Lo"_s}}, noMeetings),
                     step(u"get_action_items"_s, {{"person_name"_L1, u"kim lo"_s}},
                          u"- [ ] Call back (Kim Lo) (due Jan 6)\n- [ ] Follow up (Kim Lo)"_s)};
        QTest::newRow("add_action_item: an empty scratchpad takes it")
            << Steps{step(u"add_action_item"_s,
                          {{"person_name"_L1, u"Ana Ito"_s}, {"title"_L1, u"Share notes"_s}},
                          u"Added action for Ana Ito: Share notes"_s),
                     step(u"get_people"_s, {},
                          u"- Ana Ito · last met Jan 1, 4001 · 1 open action\n- Dana Reyes (Staff "
                          "Engineer) · last met Jan 2, 2026 · 1 open action\n- Pat 2 · last met "
                          "Jan 1, 4001 · 2 open actions\n- Pat 10 (Intern) · last met Nov 3, "
                          "2025"_s)};
        QTest::newRow("add_action_item: an unknown name is refused") << Steps{
            step(u"add_action_item"_s, {{"person_name"_L1, u"Dan"_s}, {"title"_L1, u"x"_s}},
                 bad + u"No person named 'Dan'."_s)};
        QTest::newRow("add_action_item: no title")
            << Steps{step(u"add_action_item"_s, {{"person_name"_L1, u"Pat 2"_s}},
                          bad + u"Missing 'person_name' or 'title'."_s)};

        QTest::newRow("complete_action_item: any case")
            << Steps{step(u"complete_action_item"_s, {{"title"_L1, u" send DECK"_s}},
                          u"Completed: Send deck"_s),
                     step(u"get_action_items"_s, {{"person_name"_L1, u"Dana Reyes"_s}},
                          u"No action items matched."_s)};
        QTest::newRow("complete_action_item: a done item is no match")
            << Steps{step(u"complete_action_item"_s, {{"title"_L1, u"Book room"_s}},
                          bad + u"No open action matches 'Book room'."_s)};
        QTest::newRow("complete_action_item: no partial match")
            << Steps{step(u"complete_action_item"_s, {{"title"_L1, u"Send"_s}},
                          bad + u"No open action matches 'Send'."_s)};
        QTest::newRow("complete_action_item: two matches are refused")
            << Steps{step(u"add_action_item"_s,
                          {{"person_name"_L1, u"Pat 2"_s}, {"title"_L1, u"send deck"_s}},
                          u"Added action for Pat 2: send deck"_s),
                     step(u"complete_action_item"_s, {{"title"_L1, u"Send Deck"_s}},
                          bad + u"More than one action matches. Use more of the title."_s),
                     step(u"get_action_items"_s, {},
                          open + u"\n- [ ] Loose end (no one)\n- [ ] "
                                 "send deck (Pat 2)"_s)};
        QTest::newRow("complete_action_item: no title")
            << Steps{step(u"complete_action_item"_s, {}, bad + u"Missing 'title'."_s)};
    }

    // Each row starts from the same team; every write is saved before its reply.
    void calls()
    {
        QFETCH(Steps, steps);
        Team team;
        for (const QJsonArray &s : steps) {
            QCOMPARE(team.call(s.at(0).toString(), s.at(1).toObject()), s.at(2).toString());
            QVERIFY(!team.context().hasChanges());
        }
    }

    void limitsAreCapped()
    {
        Team team;
        auto lee = team.person(u"Lee"_s, QString(), RelationshipType::peer);
        for (int i = 0; i < 101; ++i)
            team.meet(lee, day(1, 1, 2020).addDays(i), u"Week %1."_s.arg(i));
        team.context().save();
        const auto count = [&](const QString &tool, const QJsonObject &arguments,
                               const QString &mark) {
            return team.call(tool, arguments).count(mark);
        };
        const QJsonObject lees{{"name"_L1, u"Lee"_s}};
        QCOMPARE(count(u"get_person"_s, lees, u"\n### "_s), 5);
        QCOMPARE(
            count(u"get_person"_s, {{"name"_L1, u"Lee"_s}, {"meeting_limit"_L1, 50}}, u"\n### "_s),
            20);
        QCOMPARE(count(u"get_meetings"_s, {}, u"## "_s), 20);
        QCOMPARE(count(u"get_meetings"_s, {{"limit"_L1, 1000}}, u"## "_s), 100);
    }

    // The list's counts for everyone agree with the count for each person.
    void openActionCounts()
    {
        Team team;
        const QHash<QUuid, qsizetype> counts = PeopleQueries::openActionCounts(team.context());
        for (const auto &person : team.context().fetch<Person>())
            QCOMPARE(counts.value(person->id), PeopleQueries::openActionCount(*person));
        QCOMPARE(counts.size(), 2);
    }
};

QTEST_GUILESS_MAIN(PeopleToolsTest)
#include "tst_peopletools.moc"
