// The task, search, inbox, tag and stats tools as an assistant meets them: replies and refusals
// word for word over one small desk, and what each write leaves for the next call to read.

#include "TestSupport.h"
#include "ToolScript.h"

#include "bridge/MCPToolGroup.h"
#include "bridge/MCPTools.h"
#include "bridge/TaskTools.h"
#include "core/Preferences.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/records/TaskItem.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QLocale>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const Calendar calendar = testCalendar();

QDateTime at(int year, int month, int day, int hour = 0, int minute = 0)
{
    return calendar.at(QDate(year, month, day), hour, minute);
}

const QDateTime monday = at(2026, 1, 5, 10);

// Tasks, pages, meetings, reviews and inbox rows around Monday 5 January 2026. Pages sit on
// Jan 5 (two), 4, 3, Dec 31, and on Dec 29, 7 and 6 at midnight, just either side of the rolling
// week and month. Records are made a second apart, so creation order is unambiguous.
struct Desk {
    TempDataDir dir;
    FixedClock clock{at(2025, 11, 1), calendar};
    Preferences preferences{dir.configDir() + u"/preferences.json"_s};
    ModelContainer container{StoreSchema::current(), ModelContainer::Configuration::memoryOnly()};
    MCPTools tools;

    explicit Desk(bool empty = false)
    {
        TaskTools::registerAll(tools);
        MCPToolGroup::setEnabled(MCPToolGroup::Group::goals, true, preferences);
        if (!empty)
            fill();
        context().save();
        clock.set(monday);
    }

    void fill()
    {
        for (const auto &[title, due] : std::initializer_list<std::pair<QString, QDateTime>>{
                 {u"Renew passport"_s, at(2026, 1, 20)},
                 {u"Send invoice"_s, at(2026, 1, 4)},
                 {u"Water plants"_s, {}},
                 {u"Plan offsite"_s, at(2026, 1, 1)},
                 {u"Book flights"_s, at(2026, 1, 5)},
                 {u"Old thing"_s, at(2026, 1, 2)},
                 {u"Call back"_s, at(2026, 1, 4, 18)},
                 {u"File taxes"_s, at(2026, 3, 28, 12)}})
            task(title, due.isValid() ? std::optional(due) : std::nullopt)->isCompleted =
                title == u"Old thing"_s;
        for (const auto &[text, date] : std::initializer_list<std::pair<QString, QDateTime>>{
                 {u"Call with ACME went well. #Launch is next."_s, at(2026, 1, 5)},
                 {u"Wrote the acme follow-up. #launch #hiring"_s, at(2026, 1, 5)},
                 {u"Quiet day. #hiring"_s, at(2026, 1, 4)},
                 {u"#budget review, then #Zeta planning."_s, at(2026, 1, 3)},
                 {u"Year end. #launch #launch"_s, at(2025, 12, 31)},
                 {u"Back from the break."_s, at(2025, 12, 29)},
                 {u"Early December."_s, at(2025, 12, 7)},
                 {u"Just outside."_s, at(2025, 12, 6)}})
            add<DailyEntry>(text, date, false);

        auto dana = add<Person>(u"Dana Reyes"_s, u"Staff Engineer"_s, RelationshipType::manager);
        add<Person>(u"Lee Park"_s, QString(), RelationshipType::peer);
        auto oneOnOne = add<Meeting>(dana, at(2026, 1, 5, 14), u"Dana: acme pricing."_s);
        add<ActionItem>(u"Send deck"_s, oneOnOne);
        add<ActionItem>(u"Book room"_s, oneOnOne)->isCompleted = true;
        add<Meeting>(nullptr, at(2026, 1, 5), u"ACME sync."_s);
        for (const auto &[start, text, period] :
             std::initializer_list<std::tuple<QDateTime, QString, BriefPeriod>>{
                 {at(2026, 1, 5), u"Acme renewal closed."_s, BriefPeriod::weekly},
                 {at(2025, 12, 22), u"Sprint went to acme."_s, BriefPeriod::biweekly},
                 {at(2025, 12, 1), u"Month of ACME."_s, BriefPeriod::monthly}})
            add<WeeklyBrief>(start, start.addDays(6), text, QString(), 1, 1, period);

        using K = InboxItemKind;
        for (const auto &[made, kind, title, body, read] :
             std::initializer_list<std::tuple<QDateTime, K, QString, QString, bool>>{
                 {at(2026, 1, 5, 9), K::reminder, u"Write the entry"_s, {}, false},
                 {at(2026, 1, 4, 9), K::briefReady, u"Your weekly recap is ready"_s,
                  u"Open it from Reviews."_s, true},
                 {at(2026, 1, 3, 9), K::milestoneUnlocked, u"10-day streak"_s, u"Keep going."_s,
                  false},
                 {at(2026, 1, 2, 9), K::system, u"Backup finished"_s, {}, true},
                 {at(2026, 1, 1, 9), K::aiSuggestion, u"Try a goal"_s,
                  u"You mention #launch a lot."_s, false},
                 {at(2025, 12, 30, 9), K::aiSuggestion, u"try a GOAL"_s, {}, false}}) {
            clock.set(made);
            if (read)
                add<InboxItem>(kind, title, body)->readAt = made.addSecs(3600);
            else
                add<InboxItem>(kind, title, body);
        }
    }

    ModelContext &context() { return container.mainContext(); }

    template<class T, class... Args>
    std::shared_ptr<T> add(Args &&...args)
    {
        auto record = std::make_shared<T>(std::forward<Args>(args)...);
        context().insert(record);
        clock.advance(1000);
        return record;
    }
    std::shared_ptr<TaskItem> task(const QString &title, std::optional<QDateTime> due)
    {
        return add<TaskItem>(title, 0, std::move(due));
    }

    QString call(const QString &tool, const QJsonObject &arguments = {})
    {
        return ToolScript::run(tools, {tool, arguments, {}}, context(), preferences);
    }
};

const QStringList acmeHits{
    u"### 1:1 with Dana Reyes Jan 5, 2026\nDana: acme pricing."_s,
    u"### Journal Jan 5, 2026\nCall with ACME went well. #Launch is next."_s,
    u"### Journal Jan 5, 2026\nWrote the acme follow-up. #launch #hiring"_s,
    u"### Meeting Jan 5, 2026\nACME sync."_s,
    u"### Weekly review Jan 5, 2026\nAcme renewal closed."_s,
    u"### Sprint review Dec 22, 2025\nSprint went to acme."_s,
    u"### Monthly review Dec 1, 2025\nMonth of ACME."_s,
};

QString acme(qsizetype count)
{
    return acmeHits.mid(0, count).join(u"\n\n"_s);
}

const QString carried = u"- [ ] Renew passport (due Jan 20)\n- [ ] Water plants\n"
                        "- [ ] Book flights (due Jan 5)\n- [ ] File taxes (due Mar 28)"_s;

const QString unreadInsights = u"[2026-01-01] Insight · unread\n  Try a goal\n"
                               "  You mention #launch a lot.\n\n"
                               "[2025-12-30] Insight · unread\n  try a GOAL"_s;

QString stats(int streak, int week, int month, int people = 2, int tasks = 7, int actions = 1)
{
    return u"- Writing streak: %1\n- Entries this week: %2\n- Entries this month: %3\n"
           "- People tracked: %4\n- Open tasks: %5\n- Open 1:1 action items: %6"_s
               .arg(streak == 1 ? u"1 day"_s : u"%1 days"_s.arg(streak))
               .arg(week)
               .arg(month)
               .arg(people)
               .arg(tasks)
               .arg(actions);
}

} // namespace

class TaskToolsTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void calls_data()
    {
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<bool>("empty");
        QTest::addColumn<QString>("script");
        const auto row = [](const char *name, const QString &script, const QDateTime &now = monday,
                            bool empty = false) { QTest::newRow(name) << now << empty << script; };

        // Call back was due at 18:00 yesterday: not a whole day ago at 10:00.
        row("get_open_tasks: oldest first; overdue by whole days, due today is not",
            u"> get_open_tasks\n- [ ] Renew passport (due Jan 20)\n- [ ] Send invoice (overdue "
            "1d)\n- [ ] Water plants\n- [ ] Plan offsite (overdue 4d)\n- [ ] Book flights (due "
            "Jan 5)\n- [ ] Call back (overdue 0d)\n- [ ] File taxes (due Mar 28)\n"
            "> get_open_tasks {'include_carrying':false}\n"_s +
                carried);
        // Noon to noon across the change to summer time is 23 hours and one calendar day.
        row("get_open_tasks: days as the calendar counts them",
            u"> get_open_tasks\n- [ ] Renew passport (overdue 68d)\n- [ ] Send invoice (overdue "
            "84d)\n- [ ] Water plants\n- [ ] Plan offsite (overdue 87d)\n- [ ] Book flights "
            "(overdue 83d)\n- [ ] Call back (overdue 83d)\n- [ ] File taxes (overdue 1d)"_s,
            at(2026, 3, 29, 12));

        row("add_task: trimmed, dated when the date is real, no duplicate check",
            u"> add_task {'title':'  Call Dana  ','due_date':'2026-01-09'}\n"
            "Added task: Call Dana (due Jan 9)\n"
            "> add_task {'title':'Call Dana','due_date':'2026-02-30'}\nAdded task: Call Dana\n"
            "> add_task {'title':'call dana','due_date':20260109}\nAdded task: call dana\n"
            "> get_open_tasks {'include_carrying':false}\n"_s +
                carried +
                u"\n- [ ] Call Dana (due Jan 9)\n- [ ] Call Dana\n- [ ] call dana\n"
                "> complete_task {'title':'CALL DANA'}\nerror -32602 More than one open task "
                "matches 'CALL DANA'. Use more of the title.\n"
                "> add_task {'title':' '}\nerror -32602 Missing required 'title' argument.\n"
                "> add_task {'title':7,'due_date':'2026-01-09'}\n"
                "error -32602 Missing required 'title' argument."_s);

        row("complete_task: whole title in any case, open tasks only",
            u"> complete_task {'title':' send INVOICE '}\nCompleted: Send invoice\n"
            "> complete_task {'title':'Send invoice'}\n"
            "error -32602 No open task matches 'Send invoice'.\n"
            "> complete_task {'title':'Old thing'}\nerror -32602 No open task matches 'Old "
            "thing'.\n"
            "> complete_task {'title':'Send'}\nerror -32602 No open task matches 'Send'.\n"
            "> complete_task {}\nerror -32602 Missing required 'title' argument.\n"
            "> get_stats\n"_s +
                stats(3, 5, 7, 2, 6));

        row("search: newest first; on one date pages, meetings, then reviews",
            u"> search {'query':'acme'}\n"_s + acme(7));
        row("search: any case, the text's own case in the snippet; limit 0 gives one",
            u"> search {'query':' ACME ','limit':0}\n"_s + acme(1) +
                u"\n> search {'query':'AcMe','limit':2}\n"_s + acme(2) +
                u"\n> search {'query':'#launch'}\n"_s + acmeHits.at(1) + u"\n\n"_s +
                acmeHits.at(2) + u"\n\n### Journal Dec 31, 2025\nYear end. #launch #launch"_s);
        row("search: refusals and no match",
            u"> search {'query':'  '}\nerror -32602 Missing required 'query' argument.\n"
            "> search {'limit':3}\nerror -32602 Missing required 'query' argument.\n"
            "> search {'query':' Zebra '}\nNo matches for \"Zebra\"."_s);

        row("get_inbox: unread, newest first, body when there is one",
            u"> get_inbox\n[2026-01-05] Reminder · unread\n  Write the entry\n\n"
            "[2026-01-03] Milestone · unread\n  10-day streak\n  Keep going.\n\n"_s +
                unreadInsights +
                u"\n> get_inbox {'include_read':true,'limit':2}\n"
                "[2026-01-05] Reminder · unread\n  Write the entry\n\n"
                "[2026-01-04] Review · read\n  Your weekly recap is ready\n"
                "  Open it from Reviews."_s);
        // Four times the limit is all it reads, so unread rows below that many read ones stay
        // unseen.
        row("get_inbox: reads four times the limit",
            u"> mark_inbox_read {'title':'  write the ENTRY '}\nMarked 1 item as read.\n"
            "> mark_inbox_read {'title':'10-day streak'}\nMarked 1 item as read.\n"
            "> get_inbox {'limit':1}\nNothing unread in the inbox.\n"
            "> get_inbox {'limit':2}\n"_s +
                unreadInsights);

        row("mark_inbox_read: every unread row of the title, or all",
            u"> mark_inbox_read {'title':'Try a goal'}\nMarked 2 items as read.\n"
            "> mark_inbox_read {'title':'Write the entry'}\nMarked 1 item as read.\n"
            "> mark_inbox_read {'title':' '}\nMarked 1 inbox item as read.\n"
            "> mark_inbox_read\nNothing unread to mark.\n"
            "> mark_inbox_read {'title':'Backup finished'}\n"
            "error -32602 No unread inbox item titled 'Backup finished'.\n"
            "> get_inbox {'include_read':true,'limit':1}\n"
            "[2026-01-05] Reminder · read\n  Write the entry"_s);
        row("mark_inbox_read: all of them", u"> mark_inbox_read\nMarked 4 inbox items as read.\n"
                                            "> get_inbox\nNothing unread in the inbox."_s);

        row("get_tags: case folded, each mention counted, ties by name",
            u"> get_tags\n- #launch (4 entries)\n- #hiring (2 entries)\n- #budget (1 entry)\n"
            "- #zeta (1 entry)"_s);

        // The week and the month are rolling: they start at this hour 7 and 30 days back.
        row("get_stats: streak up to today", u"> get_stats\n"_s + stats(3, 5, 7));
        row("get_stats: nothing written today is no streak", u"> get_stats\n"_s + stats(0, 5, 6),
            at(2026, 1, 6, 10));
        row("get_stats: one day; later pages count too", u"> get_stats\n"_s + stats(1, 6, 8),
            at(2025, 12, 31, 12));

        row("an empty journal",
            u"> get_open_tasks\nNo open tasks.\n> get_inbox\nNothing unread in the inbox.\n"
            "> get_inbox {'include_read':true}\nThe inbox is empty.\n"
            "> get_tags\nNo tags yet. Introduce one only for a project or theme the user will "
            "come back to.\n> search {'query':'acme'}\nNo matches for \"acme\".\n"
            "> mark_inbox_read\nNothing unread to mark.\n"
            "> mark_inbox_read {'title':'x'}\nerror -32602 No unread inbox item titled 'x'.\n"
            "> get_stats\n"_s +
                stats(0, 0, 0, 0, 0, 0),
            monday, true);
    }

    // Each row starts from the same desk; every write is saved before it answers, which is
    // what makes an open Tasks screen show it.
    void calls()
    {
        QFETCH(QDateTime, now);
        QFETCH(bool, empty);
        QFETCH(QString, script);
        Desk desk(empty);
        desk.clock.set(now);
        for (const ToolScript::Call &call : ToolScript::parse(script)) {
            QCOMPARE(ToolScript::run(desk.tools, call, desk.context(), desk.preferences),
                     call.expected);
            QVERIFY(!desk.context().hasChanges());
            // Apart, so that what the calls create has an order.
            desk.clock.advance(1000);
        }
    }

    void completingOneOfTwoTwinsLeavesTheOther()
    {
        Desk desk;
        auto twin = desk.task(u"water PLANTS"_s, std::nullopt);
        desk.context().save();
        QCOMPARE(desk.call(u"complete_task"_s, {{"title"_L1, u"Water plants"_s}}),
                 u"error -32602 More than one open task matches 'Water plants'. Use more of the "
                 "title."_s);
        twin->isCompleted = true;
        desk.context().save();
        desk.clock.set(monday.addSecs(60));
        QCOMPARE(desk.call(u"complete_task"_s, {{"title"_L1, u"Water plants"_s}}),
                 u"Completed: Water plants"_s);
        const auto done =
            desk.context().fetch<TaskItem>({field(&TaskItem::title) == u"Water plants"_s, {}, {}});
        QCOMPARE(done.size(), 1);
        QVERIFY(done.first()->isCompleted);
        QCOMPARE(done.first()->completedAt, std::optional(monday.addSecs(60)));
    }

    void limitsAreCapped()
    {
        Desk desk(true);
        QStringList tags;
        for (int i = 0; i < 61; ++i)
            tags.append(u"#t%1"_s.arg(i, 2, 10, QChar(u'0')));
        for (int i = 0; i < 120; ++i) {
            desk.add<DailyEntry>(u"acme "_s + tags.join(u' '), at(2025, 1, 1).addDays(i), false);
            desk.add<InboxItem>(InboxItemKind::system, u"Row"_s, QString());
        }
        desk.context().save();
        const auto count = [&](const QString &tool, const QJsonObject &arguments,
                               const QString &mark) {
            return desk.call(tool, arguments).count(mark);
        };
        QCOMPARE(count(u"search"_s, {{"query"_L1, u"acme"_s}}, u"### "_s), 20);
        QCOMPARE(count(u"search"_s, {{"query"_L1, u"acme"_s}, {"limit"_L1, 1000}}, u"### "_s), 100);
        QCOMPARE(count(u"get_inbox"_s, {}, u"] System"_s), 20);
        QCOMPARE(count(u"get_inbox"_s, {{"limit"_L1, 1000}}, u"] System"_s), 100);
        QCOMPARE(count(u"get_tags"_s, {}, u"- #"_s), 60);
        QVERIFY(desk.call(u"get_tags"_s).endsWith(u"- #t59 (120 entries)"_s));
    }

    // Each tool under its group, in the published order: get_stats only while goals is on.
    void catalogue()
    {
        Desk desk(true);
        const auto listed = [&] {
            QStringList names;
            for (const MCPTool &tool : desk.tools.catalog(desk.preferences))
                names.append(tool.name);
            return names.join(u' ');
        };
        QCOMPARE(listed(), u"get_open_tasks search add_task complete_task get_tags get_stats "
                           "get_inbox mark_inbox_read"_s);
        MCPToolGroup::setEnabled(MCPToolGroup::Group::goals, false, desk.preferences);
        QCOMPARE(listed(), u"get_open_tasks search add_task complete_task get_tags get_inbox "
                           "mark_inbox_read"_s);
    }
};

QTEST_GUILESS_MAIN(TaskToolsTest)
#include "tst_tasktools.moc"
