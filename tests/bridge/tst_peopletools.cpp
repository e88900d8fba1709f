// The people tools as an assistant meets them: replies and refusals word for word over one small
// team, and what each write leaves for the next call to read.

#include "TestSupport.h"
#include "ToolScript.h"

#include "bridge/MCPTools.h"
#include "bridge/PeopleTools.h"
#include "core/Preferences.h"
#include "core/records/ActionItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

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

// Dana has two meetings, the newer with an open and a done item, and an empty scratchpad; Ana
// only an empty scratchpad and no stored relationship; Pat 2 a scratchpad holding two open items;
// Pat 10 one meeting. One meeting and one item belong to no one.
struct Team {
    TempDataDir dir;
    FixedClock clock{day(1, 5, 2026, 10), calendar};
    Preferences preferences{dir.configDir() + u"/preferences.json"_s};
    ModelContainer container{StoreSchema::current(), ModelContainer::Configuration::memoryOnly()};
    MCPTools tools;

    Team()
    {
        PeopleTools::registerAll(tools);
        using R = RelationshipType;
        const QDateTime pad = Meeting::distantFuture();
        add<Meeting>(add<Person>(u"Pat 10"_s, u"Intern"_s, R::mentee), day(11, 3, 2025),
                     u"Intro."_s);
        auto dana = add<Person>(u"Dana Reyes"_s, u"Staff Engineer"_s, R::manager, u"D@X.com"_s);
        add<Meeting>(dana, day(12, 15, 2025), u"Career chat."_s);
        auto recent = add<Meeting>(dana, day(1, 2, 2026, 15), u"\n  Talked roadmap.\n"_s);
        add<ActionItem>(u"Send deck"_s, recent, day(1, 9));
        add<ActionItem>(u"Book room"_s, recent)->isCompleted = true;
        add<Meeting>(dana, pad, QString(), true);
        auto pat2 = add<Meeting>(add<Person>(u"Pat 2"_s, QString(), R::peer), pad, u" \n"_s, true);
        add<ActionItem>(u"Draft intro"_s, pat2);
        add<ActionItem>(u"Find mentor"_s, pat2, day(1, 7));
        auto ana = add<Person>(u"Ana Ito"_s, QString(), R::peer);
        ana->relationshipRaw.reset();
        add<Meeting>(ana, pad, QString(), true);
        add<Meeting>(nullptr, day(10, 1, 2025), u"Orphan."_s);
        add<ActionItem>(u"Loose end"_s, nullptr);
        context().save();
    }

    ModelContext &context() { return container.mainContext(); }

    // Each record a second after the last, so that creation order is unambiguous.
    template<class T, class... Args>
    std::shared_ptr<T> add(Args &&...args)
    {
        auto record = std::make_shared<T>(std::forward<Args>(args)...);
        context().insert(record);
        clock.advance(1000);
        return record;
    }

    QString call(const QString &tool, const QJsonObject &arguments)
    {
        return ToolScript::run(tools, {tool, arguments, {}}, context(), preferences);
    }
};

const QString dana = u"# Dana Reyes, Staff Engineer\nRelationship: Manager\nEmail: d@x.com\n\n"
                     "## Recent meetings\n### Jan 2, 2026\nTalked roadmap.\n\nAction items:\n"
                     "- [ ] Send deck\n- [x] Book room"_s;
const QString people = u"- Dana Reyes (Staff Engineer) · last met Jan 2, 2026 · 1 open action\n"
                       "- Pat 2 · last met Jan 1, 4001 · 2 open actions\n"
                       "- Pat 10 (Intern) · last met Nov 3, 2025"_s;
const QString jan2 = u"## Dana Reyes, Jan 2, 2026\n\nTalked roadmap."_s;
const QString dec15 = u"## Dana Reyes, Dec 15, 2025\n\nCareer chat."_s;
const QString openItems = u"- [ ] Find mentor (Pat 2) (due Jan 7)\n- [ ] Send deck (Dana Reyes) "
                          "(due Jan 9)\n- [ ] Draft intro (Pat 2)\n- [ ] Loose end (no one)"_s;

} // namespace

class PeopleToolsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    // A row is a script of calls and replies (ToolScript).
    void calls_data()
    {
        QTest::addColumn<QString>("script");
        const auto row = [](const char *name, const QString &script) {
            QTest::newRow(name) << script;
        };

        row("get_people: by name, numbers by value", u"> get_people\n- Ana Ito\n"_s + people);
        row("get_person: any case; meeting_limit 0 shows one",
            u"> get_person {'name':'  dana REYES '}\n"_s + dana +
                u"\n\n### Dec 15, 2025\nCareer chat.\n\n"
                "> get_person {'name':'Dana Reyes','meeting_limit':0}\n"_s +
                dana);
        row("get_person: scratchpads count once they hold something",
            u"> get_person {'name':'ana ito'}\n# Ana Ito\nRelationship: Other\n"
            "> get_person {'name':'Pat 2'}\n# Pat 2\nRelationship: Peer\n\n## Recent meetings\n"
            "### Jan 1, 4001\n\nAction items:\n- [ ] Draft intro\n- [ ] Find mentor"_s);
        row("get_person: refusals",
            u"> get_person {'name':'Dan'}\nerror -32602 No person named 'Dan'.\n"
            "> get_person {'name':' '}\nerror -32602 Missing required 'name' argument."_s);

        row("get_meetings: all but scratchpads",
            u"> get_meetings\n"_s + jan2 + u"\n\n---\n\n"_s + dec15 + u"\n\n---\n\n"_s +
                u"## Pat 10, Nov 3, 2025\n\nIntro.\n\n---\n\n## Unknown, Oct 1, 2025\n\nOrphan."_s);
        // Both bounds are midnights, so the afternoon of the last day is outside.
        row("get_meetings: whole names in any case; the to bound",
            u"> get_meetings {'person_name':'Dana'}\nNo meetings matched.\n"
            "> get_meetings {'person_name':'DANA reyes','limit':1}\n"_s +
                jan2 + u"\n> get_meetings {'from':'2025-12-15','to':'2026-01-02'}\n"_s + dec15);

        row("get_action_items: open, by due date", u"> get_action_items\n"_s + openItems);
        row("get_action_items: completed, by person",
            u"> get_action_items {'person_name':'dana reyes','include_completed':true}\n"
            "- [ ] Send deck (Dana Reyes) (due Jan 9)\n- [x] Book room (Dana Reyes)\n"
            "> get_action_items {'person_name':'Dana Reyes','include_completed':'true'}\n"
            "- [ ] Send deck (Dana Reyes) (due Jan 9)\n"
            "> get_action_items {'person_name':'Nobody'}\nNo action items matched."_s);

        row("log_meeting: dated",
            u"> log_meeting {'person_name':'dana REYES','notes':' Good.\\n','date':'2026-01-04'}\n"
            "Logged meeting with Dana Reyes on Jan 4, 2026.\n"
            "> get_meetings {'limit':1}\n## Dana Reyes, Jan 4, 2026\n\nGood."_s);
        row("log_meeting: now when the date is bad",
            u"> log_meeting {'person_name':'Pat 10','notes':'Sync.','date':'2026-02-30'}\n"
            "Logged meeting with Pat 10 on Jan 5, 2026.\n"
            "> get_meetings {'limit':1}\n## Pat 10, Jan 5, 2026\n\nSync.\n"
            "> get_meetings {'to':'2026-01-05','limit':1}\n"_s +
                jan2);
        row("log_meeting: the earlier of two names in different case",
            u"> add_person {'name':'DANA REYES'}\nAdded DANA REYES.\n"
            "> log_meeting {'person_name':'Dana reyes','notes':'Hi.'}\n"
            "Logged meeting with Dana Reyes on Jan 5, 2026."_s);
        row("log_meeting: refusals",
            u"> log_meeting {'person_name':'Dan','notes':'x'}\n"
            "error -32602 No one named 'Dan' in People. Add them there first.\n"
            "> log_meeting {'notes':'x'}\nerror -32602 Missing required 'person_name' argument.\n"
            "> log_meeting {'person_name':'Pat 2','notes':' '}\n"
            "error -32602 Missing required 'notes' argument.\n> get_meetings {'limit':1}\n"_s +
                jan2);

        // Words are capitalised and looked up among the labels; whatever misses is Other.
        for (const char *given :
             {"null Other", "'MANAGER' Manager", "'peer' Peer", "'recruiter' Recruiter",
              "'report' Other", "'direct report' Other", "'skip-level' Other", "'mentor' Other",
              "3 Other"}) {
            const QString word = QString::fromUtf8(given);
            QTest::addRow("add_person %s", given)
                << u"> add_person {'name':' Kim Lo ','relationship':%1}\nAdded Kim Lo.\n"
                   "> get_person {'name':'kim lo'}\n# Kim Lo\nRelationship: %2"_s.arg(
                       word.section(u' ', 0, -2), word.section(u' ', -1));
        }
        row("add_person: role and email",
            u"> add_person {'name':'Kim Lo','role':'PM','email':'Kim@Example.com'}\nAdded Kim Lo.\n"
            "> get_person {'name':'Kim Lo'}\n# Kim Lo, PM\nRelationship: Other\n"
            "Email: kim@example.com\n"
            "> add_person {'name':'  '}\nerror -32602 Missing required 'name'."_s);

        row("add_action_item: on the newest meeting",
            u"> add_action_item {'person_name':'dana reyes','title':' Review doc '}\n"
            "Added action for Dana Reyes: Review doc\n"
            "> get_person {'name':'Dana Reyes','meeting_limit':1}\n"_s +
                dana + u"\n- [ ] Review doc"_s);
        row("add_action_item: a scratchpad made, then reused",
            u"> add_person {'name':'Kim Lo'}\nAdded Kim Lo.\n"
            "> add_action_item {'person_name':'Kim Lo','title':'Call','due_date':'2026-01-06'}\n"
            "Added action for Kim Lo: Call\n"
            "> add_action_item {'person_name':'Kim Lo','title':'Follow up'}\n"
            "Added action for Kim Lo: Follow up\n"
            "> get_person {'name':'Kim Lo'}\n# Kim Lo\nRelationship: Other\n\n## Recent meetings\n"
            "### Jan 5, 2026\n\nAction items:\n- [ ] Call\n- [ ] Follow up\n"
            "> get_meetings {'person_name':'Kim Lo'}\nNo meetings matched."_s);
        row("add_action_item: a new scratchpad beside an empty one",
            u"> add_action_item {'person_name':'Ana Ito','title':'Share'}\n"
            "Added action for Ana Ito: Share\n"
            "> get_people\n- Ana Ito · last met Jan 5, 2026 · 1 open action\n"_s +
                people);
        row("add_action_item: refusals",
            u"> add_action_item {'person_name':'Dan','title':'x'}\n"
            "error -32602 No person named 'Dan'.\n> add_action_item {'person_name':'Pat 2'}\n"
            "error -32602 Missing 'person_name' or 'title'."_s);

        row("complete_action_item: any case",
            u"> complete_action_item {'title':' send DECK'}\nCompleted: Send deck\n"
            "> get_action_items {'person_name':'Dana Reyes'}\nNo action items matched."_s);
        row("complete_action_item: refusals",
            u"> complete_action_item {'title':'Book room'}\n"
            "error -32602 No open action matches 'Book room'.\n"
            "> complete_action_item {'title':'Send'}\nerror -32602 No open action matches 'Send'.\n"
            "> complete_action_item {}\nerror -32602 Missing 'title'.\n"
            "> add_action_item {'person_name':'Pat 2','title':'send deck'}\n"
            "Added action for Pat 2: send deck\n> complete_action_item {'title':'Send Deck'}\n"
            "error -32602 More than one action matches. Use more of the title.\n"
            "> get_action_items\n"_s +
                openItems + u"\n- [ ] send deck (Pat 2)"_s);
    }

    // Each row starts from the same team; every write is saved before it answers.
    void calls()
    {
        QFETCH(QString, script);
        Team team;
        for (const ToolScript::Call &call : ToolScript::parse(script)) {
            QCOMPARE(team.call(call.tool, call.arguments), call.expected);
            QVERIFY(!team.context().hasChanges());
        }
    }

    void nobodyYet()
    {
        Team team;
        for (const auto &person : team.context().fetch<Person>())
            team.context().remove(person);
        QCOMPARE(team.call(u"get_people"_s, {}), u"No people tracked yet."_s);
    }

    void limitsAreCapped()
    {
        Team team;
        auto lee = team.add<Person>(u"Lee"_s, QString(), RelationshipType::peer);
        for (int i = 0; i < 101; ++i)
            team.add<Meeting>(lee, day(1, 1, 2020).addDays(i), u"Week."_s);
        team.context().save();
        const auto count = [&](const QString &tool, const QJsonObject &arguments) {
            return team.call(tool, arguments).count(u"## "_s);
        };
        QCOMPARE(count(u"get_person"_s, {{"name"_L1, u"Lee"_s}}), 1 + 5);
        QCOMPARE(count(u"get_person"_s, {{"name"_L1, u"Lee"_s}, {"meeting_limit"_L1, 50}}), 1 + 20);
        QCOMPARE(count(u"get_meetings"_s, {}), 20);
        QCOMPARE(count(u"get_meetings"_s, {{"limit"_L1, 1000}}), 100);
    }
};

QTEST_GUILESS_MAIN(PeopleToolsTest)
#include "tst_peopletools.moc"
