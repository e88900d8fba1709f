#include "DemoSeeder.h"

#include "core/Clock.h"
#include "core/TagParser.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Document.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/SavedStory.h"
#include "core/records/TaskItem.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/ModelContext.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QSet>

#include <algorithm>
#include <optional>
#include <tuple>

using namespace Qt::StringLiterals;

namespace {

QDate today()
{
    return Calendar::current().day(Clock::now());
}

bool isWeekday(QDate day)
{
    const int weekday = Calendar::weekday(day);
    return weekday >= 2 && weekday <= 6;
}

// The n-th weekday before today, 0 being the nearest.
QDate workday(int n)
{
    QDate day = today();
    for (int found = -1; found < n;) {
        day = day.addDays(-1);
        if (isWeekday(day))
            ++found;
    }
    return day;
}

// The n-th weekday after today, for things due.
QDate workdayAhead(int n)
{
    QDate day = today();
    for (int found = 0; found < n;) {
        day = day.addDays(1);
        if (isWeekday(day))
            ++found;
    }
    return day;
}

QDateTime at(QDate day, int hour, int minute = 0)
{
    return Calendar::current().at(day, hour, minute);
}

QDateTime startOf(QDate day)
{
    return Calendar::current().startOfDay(day);
}

// Things "this morning" are never stamped later than the moment the demo opens.
QDateTime notAfterNow(const QDateTime &instant)
{
    return std::min(instant, Clock::now());
}

QString monthAndDay(QDate day)
{
    return QLocale().toString(day, u"MMM d"_s);
}

struct PersonSeed {
    QStringView name;
    QStringView role;
    RelationshipType relationship;
    QStringView email;
    bool pinned;
};

const PersonSeed people[] = {
    {u"Priya Raman", u"Engineering Manager", RelationshipType::manager,
     u"priya.raman@lumenfield.example", true},
    {u"Tomás Herrera", u"Staff Engineer", RelationshipType::peer,
     u"tomas.herrera@lumenfield.example", true},
    {u"Kwame Mensah", u"Software Engineer", RelationshipType::mentee,
     u"kwame.mensah@lumenfield.example", false},
    {u"Lena Fischer", u"Director of Engineering", RelationshipType::skipLevel,
     u"lena.fischer@lumenfield.example", false},
    {u"Sofia Lindqvist", u"Product Manager", RelationshipType::peer,
     u"sofia.lindqvist@lumenfield.example", false},
    {u"Aiko Tanaka", u"Product Designer", RelationshipType::peer, u"aiko.tanaka@lumenfield.example",
     false},
    {u"Ravi Anand", u"Customer Success Lead", RelationshipType::other,
     u"ravi.anand@lumenfield.example", false},
};

enum Cast { priya, tomas, kwame, lena, sofia, aiko, ravi };

struct ActionSeed {
    QStringView title;
    std::optional<int> dueInWorkdays; // negative: already past
    bool done;
};

struct MeetingSeed {
    Cast person;
    int workday;
    int hour;
    QStringView notes;
    QList<ActionSeed> actions;
};

const QList<MeetingSeed> &meetings()
{
    static const QList<MeetingSeed> seeds = {
        {priya,
         1,
         10,
         u"- Promotion packet: the latency work and the ledger migration are the two anchors\n"
         "- \"Staff scope\" on this team means owning a problem across two or more teams\n"
         "- She'll ask Lena to sit in on the packet review",
         {{u"Send Priya the first draft of the promotion packet", 3, false},
          {u"Share the latency dashboard link", std::nullopt, true}}},
        {priya,
         10,
         10,
         u"- Agreed I own checkout latency end to end this quarter\n"
         "- She wants a short written update every Friday",
         {{u"Write the first Friday update", -7, true}}},
        {tomas,
         8,
         14,
         u"- Ledger schema: one table per account type, shared audit columns\n"
         "- Rollback must work without a deploy; a flag flip only\n"
         "- He takes on-call the week of the cutover",
         {{u"Draft the rollback plan for the ledger cutover", -8, true},
          {u"Rehearse the rollback together on staging", 4, false}}},
        {kwame,
         5,
         15,
         u"- Read a flame graph together: most of the time goes to JSON encoding\n"
         "- He wants to try a first on-call shadow next month\n"
         "- Reading list: the payments glossary, the incident write-ups",
         {{u"Pick a second ticket from the retry queue", std::nullopt, true}}},
        {kwame,
         11,
         15,
         u"- First week: dev setup done, first ticket picked\n"
         "- Pairing twice a week for now",
         {}},
        {lena,
         7,
         16,
         u"- She asked what slows the team down: flaky integration tests and review latency\n"
         "- Interested in the guild talk on safe schema migrations",
         {{u"Send Lena the list of the five flakiest tests", 2, false}}},
        {sofia,
         5,
         11,
         u"- Q3 roadmap: refunds v2 is the top bet\n"
         "- Needs a backend estimate before planning week",
         {{u"Estimate the refunds v2 backend work", 5, false}}},
        {aiko,
         2,
         13,
         u"- Receipt screen: the totals block moves above the fold\n"
         "- Empty state for saved cards gets a short explanation, no illustration",
         {}},
        {ravi, 18, 11, u"- Merchants ask why some refunds take five days", {}},
        {ravi, 28, 11, u"- Walked through the payout schedule for enterprise merchants", {}},
        {ravi, 38, 11, u"- Intro call: how support escalates payment issues", {}},
    };
    return seeds;
}

struct PageSeed {
    int workday;
    bool win;
    QStringView text;
};

// The pages in the journal's own dialect: section headings, bullets, checkboxes, emphasis,
// #tags and @mentions of the cast.
const PageSeed pages[] = {
    {0, false,
     u"Wrote the cutover runbook for the #ledger migration and walked @Tomás Herrera through "
     "the rollback steps. Paired with @Kwame Mensah on his first production change: he drove, "
     "I watched. #mentoring\n"
     "\n"
     "Decided that dual-write stays on for a **full week** after cutover, not three days.\n"
     "\n"
     "## Tomorrow\n"
     "- [ ] Send the runbook to finance and chase the reconciliation sign-off\n"
     "- [ ] Review the retry-queue pull requests\n"
     "- [x] Book the rollback rehearsal with Tomás"},
    {1, true,
     u"## What I did\n"
     "- 1:1 with @Priya Raman about the promotion packet and what staff scope means here "
     "#career\n"
     "- ==Cut p95 checkout latency from 840 ms to 510 ms== by batching the fraud-score calls "
     "#perf\n"
     "- Ramped the batching flag to 100% with no error-rate change\n"
     "\n"
     "## Who I helped\n"
     "- Helped @Sofia Lindqvist size the refunds work for next quarter"},
    {2, false,
     u"## What I did\n"
     "- Ran the review of last week's duplicate-charge alert #incident: timeline, root cause, "
     "three follow-ups\n"
     "- Design review with @Aiko Tanaka on the new receipt screen #design\n"
     "\n"
     "## Next\n"
     "- [ ] Ask @Ravi Anand which merchants saw the duplicate emails\n"
     "- [x] Post the incident summary in the team channel"},
    {3, false,
     u"Quiet heads-down day on the #ledger backfill.\n"
     "\n"
     "- The backfill now moves 2.1M rows an hour, up from 600k, after moving the checksum into "
     "the database\n"
     "- Found an off-by-one in the month-boundary partitioning that would have dropped the rows "
     "of December 31"},
    {4, false,
     u"## What I did\n"
     "- Handed #oncall over to @Tomás Herrera: a quiet week, two pages, both from the noisy "
     "disk alert\n"
     "- Interviewed a backend candidate with @Lena Fischer #hiring: strong on systems design, "
     "thinner on testing\n"
     "\n"
     "## Decisions I made\n"
     "- The disk alert becomes a ticket instead of a page"},
    {5, false,
     u"## What I did\n"
     "- Mentoring hour with @Kwame Mensah: reading a flame graph together #mentoring\n"
     "- Drafted the RFC for idempotency keys on the payments API #ledger\n"
     "- Roadmap sync with @Sofia Lindqvist: refunds v2 is the top bet for Q3"},
    {6, true,
     u"## What I did\n"
     "- **Launched saved cards** for returning customers #launch: 12% of checkouts used them "
     "on the first day\n"
     "- Thanked @Aiko Tanaka in the team channel for the empty-state design\n"
     "\n"
     "> Small launch, big relief. The flag plan worked exactly as written."},
    {7, false,
     u"## What I did\n"
     "- Skip-level with @Lena Fischer: she asked what slows us down; I named flaky integration "
     "tests and review latency\n"
     "- Fixed the currency-rounding test that failed one run in twenty #quality"},
    {9, false,
     u"## What I did\n"
     "- Paired with @Tomás Herrera on the #ledger schema: one table per account type\n"
     "- Started the self-review draft #career\n"
     "\n"
     "## Blockers / friction\n"
     "- Staging was down for two hours and took the afternoon's test run with it"},
    {10, false,
     u"- Checkout latency investigation #perf: the fraud-score service is called three times "
     "per order\n"
     "- 1:1 with @Priya Raman: I own the latency work end to end this quarter"},
    {11, false,
     u"## What I did\n"
     "- Onboarded @Kwame Mensah: dev setup, a tour of the codebase, a first ticket #mentoring\n"
     "- Reviewed the retry-queue design and asked for a dead-letter queue"},
    {13, false,
     u"## What I did\n"
     "- Ran the payments guild: fourteen people, safe schema migrations\n"
     "- Answered @Ravi Anand's questions about why some refunds take five days #support"},
    {14, false,
     u"## What I did\n"
     "- Closed the #incident follow-ups: an alert on webhook backlog, the runbook linked from "
     "the page\n"
     "- Lunch with @Sofia Lindqvist and @Aiko Tanaka to plan refunds discovery"},
    {16, false,
     u"## What I did\n"
     "- Kicked off the #ledger migration with @Tomás Herrera and @Priya Raman\n"
     "- Wrote the one-page brief: why now, the risks, three milestones"},
};

template<class T>
QList<std::shared_ptr<T>> all(ModelContext &context)
{
    return context.tryFetch<T>();
}

} // namespace

namespace DemoSeeder {

void seed(ModelContext &context)
{
    const auto cast = seedPeople(context);
    seedMeetings(context, cast);
    seedEntries(context);
    seedTags(context);
    seedTasks(context);
    seedGoals(context);
    seedRecaps(context);
    seedStories(context);
    seedDocuments(context);
    seedInbox(context);
}

QList<std::shared_ptr<Person>> seedPeople(ModelContext &context)
{
    QList<std::shared_ptr<Person>> cast;
    int weeksAgo = 12;
    for (const PersonSeed &seed : people) {
        auto person = std::make_shared<Person>(seed.name.toString(), seed.role.toString(),
                                               seed.relationship, seed.email.toString());
        // No emoji marks: initials show on every desktop, emoji only where a font has them.
        person->isPinned = seed.pinned;
        person->createdAt = at(today().addDays(-7 * weeksAgo--), 9);
        context.insert(person);
        cast.append(person);
    }
    return cast;
}

void seedMeetings(ModelContext &context, const QList<std::shared_ptr<Person>> &cast)
{
    for (const MeetingSeed &seed : meetings()) {
        const QDateTime when = at(workday(seed.workday), seed.hour);
        auto meeting =
            std::make_shared<Meeting>(cast.at(seed.person), when, seed.notes.toString(), false);
        meeting->createdAt = meeting->updatedAt = when.addSecs(45 * 60);
        context.insert(meeting);
        for (const ActionSeed &action : seed.actions) {
            std::optional<QDateTime> due;
            if (action.dueInWorkdays)
                due = startOf(*action.dueInWorkdays >= 0 ? workdayAhead(*action.dueInWorkdays)
                                                         : workday(-*action.dueInWorkdays - 1));
            auto item = std::make_shared<ActionItem>(action.title.toString(), meeting, due);
            item->isCompleted = action.done;
            item->createdAt = meeting->createdAt;
            context.insert(item);
        }
    }
    // The running notes for the next conversation with the people met most.
    const QList<std::pair<Cast, QString>> nextTime = {
        {priya, u"- Show the latency before and after\n- Ask about the promotion timeline"_s},
        {kwame, u"- How did the first on-call shadow go?"_s},
    };
    for (const auto &[who, notes] : nextTime) {
        auto pad = std::make_shared<Meeting>(cast.at(who), Meeting::distantFuture(), notes, true);
        pad->createdAt = pad->updatedAt = notAfterNow(at(workday(0), 18));
        context.insert(pad);
    }
}

void seedEntries(ModelContext &context)
{
    for (const PageSeed &seed : pages) {
        const QDate day = workday(seed.workday);
        auto entry = std::make_shared<DailyEntry>(seed.text.toString(), startOf(day), seed.win);
        entry->createdAt = at(day, 17, 40);
        entry->updatedAt = at(day, 18, 5);
        context.insert(entry);
    }
}

void seedTags(ModelContext &context)
{
    QStringList names;
    for (const auto &entry : all<DailyEntry>(context))
        names += TagParser::extractTagNames(entry->content);
    TagParser::resolveTags(names, context);
}

void seedTasks(ModelContext &context)
{
    struct TaskSeed {
        QStringView title;
        int priority;
        std::optional<QDate> due;
        std::optional<QDateTime> completedAt;
        int createdWorkdaysAgo;
    };
    const TaskSeed tasks[] = {
        {u"Send the ledger cutover runbook to finance", 2, today(), std::nullopt, 1},
        {u"Finish the self-review draft", 1, workdayAhead(2), std::nullopt, 9},
        {u"Book the refunds discovery workshop", 0, workdayAhead(4), std::nullopt, 5},
        {u"Renew the staging TLS certificate", 2, workday(1), std::nullopt, 6},
        {u"Read the comments on the idempotency RFC", 0, std::nullopt, std::nullopt, 4},
        {u"Reply to Lena about the interview loop", 0, std::nullopt,
         notAfterNow(at(today(), 9, 15)), 2},
        {u"Ramp the fraud-score batching to 100%", 1, std::nullopt, at(workday(1), 15, 30), 3},
        {u"Write the incident timeline", 1, std::nullopt, at(workday(2), 11), 3},
        {u"Tune the disk alert threshold", 0, std::nullopt, at(workday(4), 16), 6},
    };
    for (const TaskSeed &seed : tasks) {
        auto task =
            std::make_shared<TaskItem>(seed.title.toString(), seed.priority,
                                       seed.due ? std::optional(startOf(*seed.due)) : std::nullopt);
        task->createdAt = at(workday(seed.createdWorkdaysAgo), 9, 30);
        task->isCompleted = seed.completedAt.has_value();
        task->completedAt = seed.completedAt;
        context.insert(task);
    }
}

void seedGoals(ModelContext &context)
{
    struct MilestoneSeed {
        QStringView title;
        std::optional<int> doneWorkdaysAgo;
    };
    struct GoalSeed {
        QStringView title;
        QStringView notes;
        GoalStatus status;
        int targetInDays;
        bool pinned;
        QList<MilestoneSeed> milestones;
        QStringView coaching;
    };
    const GoalSeed goals[] = {
        {u"Lead the ledger migration to launch",
         u"Move every account to the new ledger without a minute of downtime.",
         GoalStatus::inProgress,
         42,
         true,
         {{u"Write the migration brief", 16},
          {u"Agree the schema with Tomás", 9},
          {u"Backfill the historical rows", 3},
          {u"Cut over with dual-write on", std::nullopt},
          {u"Turn off the old ledger", std::nullopt}},
         u"**What's working:** the brief, the schema and a backfill fast enough to finish over a "
         "weekend.\n\n**What's stuck:** finance's sign-off on the reconciliation report.\n\n"
         "**Next moves:**\n- Book twenty minutes with finance this week\n- Rehearse the rollback "
         "with Tomás before the cutover"},
        {u"Grow into a staff engineer",
         u"Priya's bar: own a problem across teams, and make the people around me faster.",
         GoalStatus::inProgress,
         120,
         false,
         {{u"Own one cross-team project end to end", 1},
          {u"Mentor a new engineer through onboarding", 11},
          {u"Write two RFCs the org adopts", std::nullopt},
          {u"Review the promotion packet with Priya", std::nullopt}},
         {}},
        {u"Bring p95 checkout latency under 500 ms",
         u"Where it stood at the start of the quarter: 840 ms.",
         GoalStatus::inProgress,
         30,
         false,
         {{u"Find where the time goes", 10},
          {u"Batch the fraud-score calls", 1},
          {u"Cache merchant settings", std::nullopt}},
         {}},
        {u"Run the payments guild for a quarter",
         u"Monthly sessions, one topic each, notes shared afterwards.",
         GoalStatus::completed,
         -5,
         false,
         {{u"Pick three topics", 30}, {u"Hold three sessions", 13}},
         {}},
        {u"Give a conference talk",
         u"Maybe on safe schema migrations, once the ledger is done.",
         GoalStatus::onHold,
         200,
         false,
         {},
         {}},
    };
    int weeksAgo = 10;
    for (const GoalSeed &seed : goals) {
        auto goal = std::make_shared<Goal>(seed.title.toString(), seed.notes.toString(),
                                           startOf(today().addDays(seed.targetInDays)));
        goal->status = seed.status;
        goal->isPinned = seed.pinned;
        goal->createdAt = at(today().addDays(-7 * weeksAgo--), 9);
        goal->updatedAt = at(workday(1), 12);
        if (!seed.coaching.isEmpty()) {
            goal->coachingMarkdown = seed.coaching.toString();
            goal->coachingGeneratedAt = at(workday(1), 8);
        }
        context.insert(goal);
        int order = 0;
        for (const MilestoneSeed &step : seed.milestones) {
            auto milestone = std::make_shared<GoalMilestone>(step.title.toString(), order++, goal);
            milestone->createdAt = goal->createdAt;
            milestone->isCompleted = step.doneWorkdaysAgo.has_value();
            if (step.doneWorkdaysAgo)
                milestone->completedAt = at(workday(*step.doneWorkdaysAgo), 16);
            context.insert(milestone);
        }
    }
}

void seedRecaps(ModelContext &context)
{
    const QList<QString> texts = {
        u"## Highlights\nYou brought p95 checkout latency from 840 ms to 510 ms and got the ledger "
        "migration ready for its cutover.\n\n## Shipped\n- You batched the fraud-score calls and "
        "ramped the change to every checkout.\n- You wrote the cutover runbook and walked Tomás "
        "Herrera through the rollback.\n\n## Decisions\n- You kept dual-write on for a full week "
        "after cutover rather than three days.\n\n## People\n- Priya Raman and you talked "
        "through the promotion packet and what staff scope means on the team.\n- You paired with "
        "Kwame Mensah on his first production change.\n\n## Open & Blocked\n- The "
        "reconciliation report still waits on finance's sign-off."_s,
        u"## Highlights\nYou launched saved cards for returning customers and handed over a "
        "quiet on-call week.\n\n## Shipped\n- Saved cards went live, and 12% of checkouts used "
        "them on the first day.\n- You fixed the currency-rounding test that failed one run in "
        "twenty.\n\n## Decisions\n- You turned the noisy disk alert from a page into a "
        "ticket.\n\n## People\n- Lena Fischer asked what slows the team down; you named flaky "
        "tests and review latency.\n- Kwame Mensah and you read a flame graph together.\n\n## "
        "Open & Blocked\n- The idempotency RFC is drafted and waiting for comments."_s,
    };
    // Weeks start on Monday, the sprint start a new journal has.
    const QDate boundary = today().addDays(-((Calendar::weekday(today()) - 2 + 7) % 7));
    const auto entries = all<DailyEntry>(context);
    for (qsizetype i = 0; i < texts.size(); ++i) {
        const QDateTime start = startOf(boundary.addDays(-7 * (i + 1)));
        const QDateTime end = startOf(boundary.addDays(-7 * i));
        QSet<QDate> days;
        int count = 0;
        for (const auto &entry : entries) {
            if (entry->date >= start && entry->date < end) {
                ++count;
                days.insert(Calendar::current().day(entry->date));
            }
        }
        QString insights;
        if (i == 0) {
            const QJsonObject suggestion{
                {u"title"_s, u"Publish a checkout latency playbook"_s},
                {u"description"_s,
                 u"You wrote that batching cut p95 from 840 ms to 510 ms; a short playbook would "
                 "let other teams repeat it."_s},
                {u"target_date"_s, workdayAhead(20).toString(Qt::ISODate)},
                {u"confidence"_s, u"medium"_s}};
            insights = QString::fromUtf8(
                QJsonDocument(QJsonObject{{u"suggestions"_s, QJsonArray{suggestion}}})
                    .toJson(QJsonDocument::Compact));
        }
        auto recap = std::make_shared<WeeklyBrief>(start, end, texts.at(i), insights, count,
                                                   int(days.size()), BriefPeriod::weekly);
        recap->createdAt = recap->updatedAt = notAfterNow(end.addSecs(9 * 3600));
        context.insert(recap);
    }
}

void seedStories(ModelContext &context)
{
    const auto story = [](const QString &situation, const QString &task, const QString &action,
                          const QString &result, const QStringList &evidence) -> QString {
        QString text = u"## Situation\n"_s + situation + u"\n\n## Task\n"_s + task +
                       u"\n\n## Action\n"_s + action + u"\n\n## Result\n"_s + result +
                       u"\n\n## Evidence\n"_s;
        for (const QString &line : evidence)
            text += u"- "_s + line + u'\n';
        return text.trimmed();
    };
    const auto quote = [](int workdayIndex, const QString &words) -> QString {
        return u'[' + monthAndDay(workday(workdayIndex)) + u"] "_s + words;
    };
    const QList<std::pair<QStringList, QString>> stories = {
        {{u"Cutting checkout latency by 40%"_s, u"Technical ownership"_s},
         story(u"Checkout p95 latency had crept to 840 ms, and conversion dipped with it."_s,
               u"I took the latency work on end to end for the quarter."_s,
               u"I traced each order and found the fraud-score service called three times. I "
               "batched the calls behind a flag and ramped it up while watching error rates."_s,
               u"p95 fell from 840 ms to 510 ms with no change in errors."_s,
               {quote(10, u"the fraud-score service is called three times per order"_s),
                quote(1, u"Cut p95 checkout latency from 840 ms to 510 ms"_s)})},
        {{u"A calm review after duplicate charges"_s, u"Incident leadership"_s},
         story(u"An alert fired on duplicate charges during a busy afternoon."_s,
               u"I ran the review and owned the follow-ups."_s,
               u"I wrote the timeline with the on-call engineers, kept the meeting "
               "blameless, and turned the causes into three follow-ups with owners."_s,
               u"All three shipped within two weeks, including an alert on webhook backlog."_s,
               {quote(2, u"Ran the review of last week's duplicate-charge alert"_s),
                quote(14, u"Closed the incident follow-ups"_s)})},
        {{u"Onboarding a new engineer in a week"_s, u"Mentoring"_s},
         story(u"Kwame joined the team in the middle of the ledger work."_s,
               u"I was his onboarding buddy."_s,
               u"I set up his environment with him, gave him a tour of the codebase and paired "
               "on his first change, letting him drive."_s,
               u"He shipped to production in his second week."_s,
               {quote(11, u"Onboarded Kwame Mensah: dev setup, a tour of the codebase"_s),
                quote(0, u"Paired with Kwame Mensah on his first production change"_s)})},
    };
    int daysAgo = 12;
    for (const auto &[heading, text] : stories) {
        auto saved = std::make_shared<SavedStory>(heading.at(0), heading.at(1), text);
        saved->createdAt = saved->updatedAt = at(today().addDays(-daysAgo), 11);
        daysAgo -= 4;
        context.insert(saved);
    }
}

void seedDocuments(ModelContext &context)
{
    auto profile = std::make_shared<Document>(
        u"About Me"_s, DocumentCategory::aboutMe,
        u"Senior software engineer on the Payments Platform team at Lumenfield. I lead the "
        "ledger migration and own checkout latency this quarter. Working towards staff: more "
        "cross-team work, more mentoring. I like writing things down before building them."_s);
    profile->userName = u"Jordan Avery"_s;
    profile->userJobTitle = u"Senior Software Engineer"_s;
    profile->userCompany = u"Lumenfield"_s;
    profile->userTeam = u"Payments Platform"_s;
    profile->userEmail = u"jordan.avery@lumenfield.example"_s;
    context.insert(profile);

    const std::tuple<QString, DocumentCategory, QString, std::optional<QString>> library[] = {
        {u"Engineering Leveling Guide"_s, DocumentCategory::levelingGuide,
         u"Senior: owns a system end to end, unblocks their team, writes designs others build "
         "on.\nStaff: owns problems that span teams, sets technical direction for an area, "
         "grows other engineers deliberately.\nPrincipal: shapes the direction of the whole "
         "organisation."_s,
         std::nullopt},
        {u"Performance review, last cycle"_s, DocumentCategory::performanceReview,
         u"Exceeds expectations. Jordan shipped the payouts rewrite ahead of plan and became the "
         "team's go-to person for the payments data model. To grow: take on work that crosses "
         "team lines, and write more of the thinking down for others."_s,
         u"Last cycle"_s},
        {u"Peer feedback from the ledger kickoff"_s, DocumentCategory::peerFeedback,
         u"\"The one-page brief made the risks obvious to everyone in the room.\" (Tomás)\n"
         "\"Would love earlier drafts, even rough ones.\" (Sofia)"_s,
         std::nullopt},
    };
    int weeksAgo = 8;
    for (const auto &[title, category, content, period] : library) {
        auto document = std::make_shared<Document>(title, category, content, std::nullopt,
                                                   std::nullopt, period);
        document->createdAt = document->updatedAt = at(today().addDays(-7 * weeksAgo--), 10);
        context.insert(document);
    }
}

void seedInbox(ModelContext &context)
{
    const auto post = [&context](InboxItemKind kind, const QString &title, const QString &body,
                                 const QDateTime &createdAt, bool read,
                                 std::optional<QString> payload = std::nullopt,
                                 std::optional<QString> actionLabel = std::nullopt,
                                 std::optional<QString> actionRoute = std::nullopt) {
        auto item =
            std::make_shared<InboxItem>(kind, title, body, payload, actionLabel, actionRoute);
        item->createdAt = createdAt;
        if (read)
            item->readAt = createdAt.addSecs(3600);
        context.insert(item);
    };
    const QDateTime now = Clock::now();

    const auto people = all<Person>(context);
    const auto ravi = std::find_if(people.cbegin(), people.cend(), [](const auto &person) {
        return person->name == u"Ravi Anand";
    });
    post(InboxItemKind::aiSuggestion, u"Prep ready for Priya Raman at 10:00 AM"_s,
         u"Show the latency before and after: p95 from 840 ms to 510 ms\nAsk where the "
         "promotion packet stands\nRaise finance's pending sign-off on the reconciliation "
         "report"_s,
         now.addSecs(-40 * 60), false, u"prep-ready:demo-priya"_s, u"Open 1:1"_s, u"tab:people"_s);
    if (ravi != people.cend()) {
        post(InboxItemKind::reminder, u"Haven't met Ravi Anand in 3 weeks"_s,
             u"Typical cadence is around 2 weeks. Worth scheduling?"_s, now.addDays(-1), false,
             u"stale-"_s + (*ravi)->id.toString(QUuid::WithoutBraces).toUpper(), std::nullopt,
             u"tab:people"_s);
    }

    const auto recaps =
        context.tryFetch<WeeklyBrief>({{}, {field(&WeeklyBrief::weekStart).descending()}, 1});
    if (!recaps.isEmpty()) {
        const auto &recap = recaps.first();
        const QDate first = Calendar::current().day(recap->weekStart);
        post(InboxItemKind::briefReady, u"Your weekly review is ready"_s,
             u"A fresh summary of "_s + monthAndDay(first) + u" – "_s +
                 monthAndDay(first.addDays(6)) +
                 u": what you shipped, who you worked with, decisions you made. Worth a "
                 "30-second skim."_s,
             recap->createdAt, false, u"brief:"_s + recap->id.toString(QUuid::WithoutBraces),
             std::nullopt, u"tab:recaps"_s);
    }

    const auto goals = context.tryFetch<Goal>({field(&Goal::isPinned) == true, {}, 1});
    if (!goals.isEmpty()) {
        post(InboxItemKind::aiSuggestion, u"Insight: "_s + goals.first()->title,
             u"Open Goals to see what's working, what's stuck, and your next moves."_s,
             at(workday(1), 8), true,
             u"goal-coach-"_s + goals.first()->id.toString(QUuid::WithoutBraces), std::nullopt,
             u"tab:goals"_s);
    }

    const QString badgeBody =
        u"A meaningful moment in your work. Tucked away here so you can find it again whenever "
        "you need a quiet reminder of how far you've come."_s;
    post(InboxItemKind::milestoneUnlocked, u"Milestone · 2 Week Streak"_s, badgeBody,
         at(workday(5), 18), true, u"milestone:2 Week Streak"_s);
    post(InboxItemKind::milestoneUnlocked, u"Milestone · Getting Started"_s, badgeBody,
         at(workday(10), 18), true, u"milestone:Getting Started"_s);
}

} // namespace DemoSeeder
