#include "TaskTools.h"

#include "MCPError.h"
#include "MCPTools.h"
#include "RPCMessages.h"
#include "ToolArguments.h"
#include "core/Clock.h"
#include "core/DateText.h"
#include "core/JournalSearch.h"
#include "core/TagParser.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/InboxItem.h"
#include "core/records/Person.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContext.h"
#include "inbox/InboxService.h"

#include <QHash>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace TaskTools {

namespace {

QString trimmedText(const QJsonObject &arguments, QLatin1StringView key)
{
    return RPCValue::text(arguments.value(key)).value_or(QString()).trimmed();
}

QString requiredTitle(const QJsonObject &arguments)
{
    const QString title = trimmedText(arguments, "title"_L1);
    if (title.isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing required 'title' argument."_s);
    return title;
}

QString plural(qint64 count, const QString &one, const QString &many)
{
    return QString::number(count) + (count == 1 ? one : many);
}

// A failed count is nothing to count.
template<class T>
qint64 countOf(ModelContext &context, const Predicate<T> &predicate = {})
{
    try {
        return context.fetchCount<T>({predicate, {}, {}});
    } catch (const StoreError &) {
        return 0;
    }
}

// Whole days from one instant to a later one as the user's calendar counts them: a day is
// complete when the clock has come round to the same time of day, whatever the offset did.
qint64 wholeDays(const QDateTime &from, const QDateTime &to, const Calendar &calendar)
{
    const QDateTime start = from.toTimeZone(calendar.timeZone());
    const QDateTime end = to.toTimeZone(calendar.timeZone());
    qint64 days = start.date().daysTo(end.date());
    if (days > 0 && end.time() < start.time())
        --days;
    return days;
}

QString getOpenTasks(const QJsonObject &arguments, ModelContext &context)
{
    const bool includeCarrying =
        RPCValue::boolean(arguments.value("include_carrying"_L1)).value_or(true);
    const Calendar calendar = Calendar::current();
    const QDateTime now = Clock::now();
    const QDateTime today = calendar.startOfDay(now);
    auto tasks = context.tryFetch<TaskItem>(
        {field(&TaskItem::isCompleted) == false, {field(&TaskItem::createdAt).ascending()}, {}});
    if (!includeCarrying)
        tasks.removeIf([&](const auto &task) { return task->dueDate && *task->dueDate < today; });
    if (tasks.isEmpty())
        return u"No open tasks."_s;
    QStringList lines;
    for (const auto &task : std::as_const(tasks)) {
        QString line = u"- [ ] "_s + task->title;
        if (task->dueDate && *task->dueDate < today)
            line += u" (overdue %1d)"_s.arg(wholeDays(*task->dueDate, now, calendar));
        else if (task->dueDate)
            line += u" (due "_s + DateText::monthAndDay(*task->dueDate) + u')';
        lines.append(line);
    }
    return lines.join(u'\n');
}

QString addTask(const QJsonObject &arguments, ModelContext &context)
{
    const QString title = requiredTitle(arguments);
    std::optional<QDateTime> due;
    if (const std::optional<QDate> day = ToolArguments::date(arguments.value("due_date"_L1)))
        due = Calendar::current().startOfDay(*day);
    // Undated stays undated: the task list counts such a task as today's.
    context.insert(std::make_shared<TaskItem>(title, 0, due));
    context.trySave();
    QString reply = u"Added task: "_s + title;
    if (due)
        reply += u" (due "_s + DateText::monthAndDay(*due) + u')';
    return reply;
}

QString completeTask(const QJsonObject &arguments, ModelContext &context)
{
    const QString title = requiredTitle(arguments);
    auto tasks = context.tryFetch<TaskItem>({field(&TaskItem::isCompleted) == false, {}, {}});
    tasks.removeIf(
        [wanted = title.toLower()](const auto &task) { return task->title.toLower() != wanted; });
    if (tasks.isEmpty())
        throw MCPError(MCPError::invalidParams, u"No open task matches '"_s + title + u"'."_s);
    if (tasks.size() > 1)
        throw MCPError(MCPError::invalidParams, u"More than one open task matches '"_s + title +
                                                    u"'. Use more of the title."_s);
    const auto &task = tasks.first();
    task->isCompleted = true;
    task->completedAt = Clock::now();
    context.trySave();
    return u"Completed: "_s + task->title;
}

QString search(const QJsonObject &arguments, ModelContext &context)
{
    const QString query = trimmedText(arguments, "query"_L1);
    if (query.isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing required 'query' argument."_s);
    const qint64 limit = ToolArguments::limit(arguments.value("limit"_L1), 20, 100);
    const QList<JournalSearch::Hit> hits = JournalSearch::search(context, query, limit);
    if (hits.isEmpty())
        return u"No matches for \""_s + query + u"\"."_s;
    QStringList sections;
    for (const JournalSearch::Hit &hit : hits)
        sections.append(u"### "_s + hit.source + u'\n' + hit.snippet);
    return sections.join(u"\n\n"_s);
}

QString getInbox(const QJsonObject &arguments, ModelContext &context)
{
    const bool includeRead = RPCValue::boolean(arguments.value("include_read"_L1)).value_or(false);
    const qint64 limit = ToolArguments::limit(arguments.value("limit"_L1), 20, 100);
    // Four times what is asked for, so that leaving out read rows still leaves enough most of
    // the time; below that many read rows, older unread ones go unseen.
    auto items =
        context.tryFetch<InboxItem>({{}, {field(&InboxItem::createdAt).descending()}, 4 * limit});
    if (!includeRead)
        items.removeIf([](const auto &item) { return item->readAt.has_value(); });
    items = items.mid(0, limit);
    if (items.isEmpty())
        return includeRead ? u"The inbox is empty."_s : u"Nothing unread in the inbox."_s;
    const Calendar calendar = Calendar::current();
    QStringList rows;
    for (const auto &item : std::as_const(items)) {
        QString row = u'[' + calendar.day(item->createdAt).toString(u"yyyy-MM-dd"_s) + u"] "_s +
                      InboxService::kindLabel(item->kind()) + u" · "_s +
                      (item->readAt ? u"read"_s : u"unread"_s) + u"\n  "_s + item->title;
        if (!item->body.isEmpty())
            row += u"\n  "_s + item->body;
        rows.append(row);
    }
    return rows.join(u"\n\n"_s);
}

// Only readAt changes: the inbox's other reactions to reading (the badge, the banner) are the
// screen's business.
QString markInboxRead(const QJsonObject &arguments, ModelContext &context)
{
    auto unread = context.tryFetch<InboxItem>({field(&InboxItem::readAt).isNull(), {}, {}});
    const QDateTime now = Clock::now();
    const QString title = trimmedText(arguments, "title"_L1);
    if (!title.isEmpty()) {
        unread.removeIf([wanted = title.toLower()](const auto &item) {
            return item->title.toLower() != wanted;
        });
        if (unread.isEmpty())
            throw MCPError(MCPError::invalidParams,
                           u"No unread inbox item titled '"_s + title + u"'."_s);
        for (const auto &item : std::as_const(unread))
            item->readAt = now;
        context.trySave();
        return u"Marked "_s + plural(unread.size(), u" item"_s, u" items"_s) + u" as read."_s;
    }
    if (unread.isEmpty())
        return u"Nothing unread to mark."_s;
    for (const auto &item : std::as_const(unread))
        item->readAt = now;
    context.trySave();
    return u"Marked "_s + plural(unread.size(), u" inbox item"_s, u" inbox items"_s) +
           u" as read."_s;
}

QString getTags(ModelContext &context)
{
    QHash<QString, qint64> counts;
    for (const auto &entry : context.tryFetch<DailyEntry>()) {
        for (const QString &name : TagParser::extractTagNames(entry->content))
            ++counts[name.toLower()];
    }
    if (counts.isEmpty())
        return u"No tags yet. Introduce one only for a project or theme the user will come back "
               "to."_s;
    QList<std::pair<QString, qint64>> tags;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        tags.append({it.key(), it.value()});
    std::sort(tags.begin(), tags.end(), [](const auto &a, const auto &b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    });
    QStringList lines;
    for (const auto &[name, count] : tags.mid(0, 60))
        lines.append(u"- #"_s + name + u" ("_s + plural(count, u" entry"_s, u" entries"_s) + u')');
    return lines.join(u'\n');
}

QString getStats(ModelContext &context)
{
    const Calendar calendar = Calendar::current();
    const QDateTime now = Clock::now();
    const QDateTime weekAgo = calendar.addingDays(now, -7);
    const QDateTime monthAgo = calendar.addingDays(now, -30);
    qint64 thisWeek = 0;
    qint64 thisMonth = 0;
    QSet<QDate> days;
    for (const auto &entry : context.tryFetch<DailyEntry>()) {
        thisWeek += entry->date >= weekAgo ? 1 : 0;
        thisMonth += entry->date >= monthAgo ? 1 : 0;
        days.insert(calendar.day(entry->date));
    }
    // Only days written count; a streak is broken until today has an entry.
    qint64 streak = 0;
    for (QDate day = calendar.day(now); days.contains(day); day = day.addDays(-1))
        ++streak;
    return QStringList{
        u"- Writing streak: "_s + plural(streak, u" day"_s, u" days"_s),
        u"- Entries this week: "_s + QString::number(thisWeek),
        u"- Entries this month: "_s + QString::number(thisMonth),
        u"- People tracked: "_s + QString::number(countOf<Person>(context)),
        u"- Open tasks: "_s +
            QString::number(countOf<TaskItem>(context, field(&TaskItem::isCompleted) == false)),
        u"- Open 1:1 action items: "_s +
            QString::number(countOf<ActionItem>(context, field(&ActionItem::isCompleted) == false)),
    }
        .join(u'\n');
}

QJsonObject noProperties()
{
    return ToolSchema::schema(QJsonObject());
}

} // namespace

void registerAll(MCPTools &tools)
{
    const auto add = [&](MCPToolGroup::Group group, const QString &name, const QString &description,
                         QJsonObject inputSchema,
                         QString (*handler)(const QJsonObject &, ModelContext &)) {
        tools.add(group, MCPTool{name, description, std::move(inputSchema), handler, {}});
    };
    const MCPToolGroup::Group journal = MCPToolGroup::Group::journal;

    add(journal, u"get_open_tasks"_s,
        u"Return uncompleted tasks. By default includes today's tasks plus anything carrying over "
        "from earlier. Use this when the user asks what's on their plate or wants help "
        "prioritizing."_s,
        ToolSchema::schema(QJsonObject{
            {"include_carrying"_L1,
             ToolSchema::property(u"boolean"_s,
                                  u"Include overdue tasks from before today (default true)."_s)}}),
        getOpenTasks);

    add(journal, u"add_task"_s,
        u"Create a new task in the user's task list. Use this when the user wants Claude to "
        "remember a follow-up or to-do item on their behalf."_s,
        ToolSchema::schema(
            QJsonObject{
                {"title"_L1,
                 ToolSchema::property(u"string"_s, u"Short, action-oriented task title "
                                                   "(e.g. 'Reply to Sarah about RFC')."_s)},
                {"due_date"_L1,
                 ToolSchema::property(u"string"_s, u"ISO-8601 date (YYYY-MM-DD). Optional. Undated "
                                                   "tasks land in today's plan."_s)}},
            {u"title"_s}),
        addTask);

    add(journal, u"complete_task"_s,
        u"Mark a task as completed by exact title match. Returns an error if no match or more "
        "than one match, so the user can say which."_s,
        ToolSchema::schema(
            QJsonObject{{"title"_L1, ToolSchema::property(
                                         u"string"_s, u"Exact task title (case-insensitive)."_s)}},
            {u"title"_s}),
        completeTask);

    add(journal, u"search"_s,
        u"Full-text substring search across journal entries, meeting notes, and weekly reviews. "
        "Returns the top matching snippets. Case-insensitive. Use when the user asks about a "
        "specific topic, project, or person."_s,
        ToolSchema::schema(
            QJsonObject{
                {"query"_L1, ToolSchema::property(u"string"_s, u"Text to search for."_s)},
                {"limit"_L1, ToolSchema::property(u"integer"_s, u"Maximum hits to return "
                                                                "(default 20, max 100)."_s)}},
            {u"query"_s}),
        search);

    add(journal, u"get_inbox"_s,
        u"Read the user's Tovren inbox: recaps ready, milestones, reminders, suggestions. Use "
        "when they ask what is new. Unread only, by default."_s,
        ToolSchema::schema(QJsonObject{
            {"include_read"_L1,
             ToolSchema::property(u"boolean"_s,
                                  u"Include items already read. Defaults to false."_s)},
            {"limit"_L1,
             ToolSchema::property(u"integer"_s, u"Maximum items to return. Defaults to 20."_s)}}),
        getInbox);

    add(journal, u"mark_inbox_read"_s,
        u"Mark inbox items read after relaying them, so they are not repeated. Pass a title for "
        "one item; omit to mark all."_s,
        ToolSchema::schema(
            QJsonObject{{"title"_L1, ToolSchema::property(u"string"_s,
                                                          u"Exact title of a single item. Omit "
                                                          "to mark all unread items as read."_s)}}),
        markInboxRead);

    add(journal, u"get_tags"_s,
        u"List the #tags the user already uses in their journal, most used first, with how "
        "often. Check this before tagging an entry, and reuse an existing tag rather than "
        "inventing a near-duplicate."_s,
        noProperties(),
        [](const QJsonObject &, ModelContext &context) { return getTags(context); });

    add(MCPToolGroup::Group::goals, u"get_stats"_s,
        u"Return at-a-glance stats: current writing streak, entries this week/month, total "
        "people tracked, open action-item count."_s,
        noProperties(),
        [](const QJsonObject &, ModelContext &context) { return getStats(context); });
}

} // namespace TaskTools
