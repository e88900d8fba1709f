#include "PeopleTools.h"

#include "MCPError.h"
#include "MCPTools.h"
#include "RPCMessages.h"
#include "ToolArguments.h"
#include "core/Clock.h"
#include "core/DateText.h"
#include "core/PeopleQueries.h"
#include "core/records/ActionItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"

#include <QCollator>
#include <QJsonArray>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace PeopleTools {

namespace {

using DateText::monthAndDay;
using DateText::shortDate;
using People = QList<std::shared_ptr<Person>>;

QString trimmedText(const QJsonObject &arguments, QLatin1StringView key)
{
    return RPCValue::text(arguments.value(key)).value_or(QString()).trimmed();
}

// Oldest first, so that of two people whose names differ only in case the earlier one wins.
std::shared_ptr<Person> personNamed(const QString &name, ModelContext &context)
{
    const QString wanted = name.toLower();
    for (const auto &person :
         context.tryFetch<Person>({{}, {field(&Person::createdAt).ascending()}, {}})) {
        if (person->name.toLower() == wanted)
            return person;
    }
    return nullptr;
}

bool isPerson(const std::shared_ptr<Person> &person, const std::optional<QString> &name)
{
    return !name || (person && person->name.toLower() == name->toLower());
}

// The stored label whose word-by-word capitalisation the argument matches. Labels with a
// lower-case word ("Direct report") and hyphenated ones ("Skip-level") never do, nor does a
// word the enumeration lacks; those are Other.
RelationshipType relationshipFrom(const QString &argument)
{
    QString word = argument.toLower();
    bool startOfWord = true;
    for (QChar &c : word) {
        if (c.isLetterOrNumber()) {
            if (startOfWord)
                c = c.toUpper();
            startOfWord = false;
        } else {
            startOfWord = true;
        }
    }
    return enumFromRawOrFallback<RelationshipType>(word);
}

QString getPeople(ModelContext &context)
{
    People people = context.tryFetch<Person>({{}, {field(&Person::createdAt).ascending()}, {}});
    if (people.isEmpty())
        return u"No people tracked yet."_s;
    QCollator collator;
    collator.setNumericMode(true);
    std::stable_sort(people.begin(), people.end(),
                     [&](const auto &a, const auto &b) { return collator(a->name, b->name); });
    const QHash<QUuid, QDateTime> lastMet = PeopleQueries::lastMeetingDates(context);
    const QHash<QUuid, qsizetype> openActions = PeopleQueries::openActionCounts(context);
    QStringList lines;
    for (const auto &person : people) {
        QString line = u"- "_s + person->name;
        if (!person->role.isEmpty())
            line += u" ("_s + person->role + u')';
        if (const auto met = lastMet.constFind(person->id); met != lastMet.cend())
            line += u" · last met "_s + shortDate(*met);
        if (const qsizetype open = openActions.value(person->id); open > 0)
            line += u" · %1 open action"_s.arg(open) + (open == 1 ? u""_s : u"s"_s);
        lines.append(line);
    }
    return lines.join(u'\n');
}

QString describeMeeting(const Meeting &meeting)
{
    QString text = u"### "_s + shortDate(meeting.date) + u'\n';
    if (const QString notes = meeting.notes.trimmed(); !notes.isEmpty())
        text += notes + u'\n';
    const auto items = meeting.actionItems();
    if (!items.isEmpty()) {
        QStringList lines;
        for (const auto &item : items)
            lines.append((item->isCompleted ? u"- [x] "_s : u"- [ ] "_s) + item->title);
        text += u"\nAction items:\n"_s + lines.join(u'\n');
    }
    return text;
}

QString getPerson(const QJsonObject &arguments, ModelContext &context)
{
    const QString name = trimmedText(arguments, "name"_L1);
    if (name.isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing required 'name' argument."_s);
    const qint64 limit = ToolArguments::limit(arguments.value("meeting_limit"_L1), 5, 20);
    const auto person = personNamed(name, context);
    if (!person)
        throw MCPError(MCPError::invalidParams, u"No person named '"_s + name + u"'."_s);

    QString reply = u"# "_s + person->name;
    if (!person->role.isEmpty())
        reply += u", "_s + person->role;
    reply += u"\nRelationship: "_s + rawValue(person->relationship());
    if (person->email && !person->email->isEmpty())
        reply += u"\nEmail: "_s + *person->email;

    const auto meetings = PeopleQueries::realMeetings(*person).mid(0, limit);
    if (meetings.isEmpty())
        return reply;
    QStringList sections;
    for (const auto &meeting : meetings)
        sections.append(describeMeeting(*meeting));
    return reply + u"\n\n## Recent meetings\n"_s + sections.join(u"\n\n"_s);
}

QString addPerson(const QJsonObject &arguments, ModelContext &context)
{
    const QString name = trimmedText(arguments, "name"_L1);
    if (name.isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing required 'name'."_s);
    const QString role = RPCValue::text(arguments.value("role"_L1)).value_or(QString());
    const std::optional<QString> email = RPCValue::text(arguments.value("email"_L1));
    const RelationshipType relationship =
        relationshipFrom(RPCValue::text(arguments.value("relationship"_L1)).value_or(u"other"_s));
    context.insert(std::make_shared<Person>(name, role, relationship, email));
    context.trySave();
    return u"Added "_s + name + u"."_s;
}

QString getMeetings(const QJsonObject &arguments, ModelContext &context)
{
    const Calendar calendar = Calendar::current();
    const qint64 limit = ToolArguments::limit(arguments.value("limit"_L1), 20, 100);
    const std::optional<QDate> from = ToolArguments::date(arguments.value("from"_L1));
    const std::optional<QDate> to = ToolArguments::date(arguments.value("to"_L1));
    const std::optional<QString> personName = RPCValue::text(arguments.value("person_name"_L1));

    QStringList sections;
    for (const auto &meeting :
         context.tryFetch<Meeting>({{}, {field(&Meeting::date).descending()}, {}})) {
        if (sections.size() == limit)
            break;
        // The bounds are the midnights that open the named days, so a meeting later on the
        // `to` day falls outside.
        if (!isPerson(meeting->person, personName) ||
            (from && meeting->date < calendar.startOfDay(*from)) ||
            (to && meeting->date > calendar.startOfDay(*to)) || meeting->isScratchpad)
            continue;
        sections.append(u"## "_s + (meeting->person ? meeting->person->name : u"Unknown"_s) +
                        u", "_s + shortDate(meeting->date) + u"\n\n"_s + meeting->notes.trimmed());
    }
    if (sections.isEmpty())
        return u"No meetings matched."_s;
    return sections.join(u"\n\n---\n\n"_s);
}

QString logMeeting(const QJsonObject &arguments, ModelContext &context)
{
    const QString name = trimmedText(arguments, "person_name"_L1);
    if (name.isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing required 'person_name' argument."_s);
    const QString notes = trimmedText(arguments, "notes"_L1);
    if (notes.isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing required 'notes' argument."_s);
    const auto person = personNamed(name, context);
    if (!person)
        throw MCPError(MCPError::invalidParams,
                       u"No one named '"_s + name + u"' in People. Add them there first."_s);
    const std::optional<QDate> day = ToolArguments::date(arguments.value("date"_L1));
    const QDateTime date = day ? Calendar::current().startOfDay(*day) : Clock::now();
    context.insert(std::make_shared<Meeting>(person, date, notes, false));
    context.trySave();
    return u"Logged meeting with "_s + person->name + u" on "_s + shortDate(date) + u"."_s;
}

QString getActionItems(const QJsonObject &arguments, ModelContext &context)
{
    const bool includeCompleted =
        RPCValue::boolean(arguments.value("include_completed"_L1)).value_or(false);
    const std::optional<QString> personName = RPCValue::text(arguments.value("person_name"_L1));
    auto items = context.tryFetch<ActionItem>(
        {includeCompleted ? Predicate<ActionItem>() : field(&ActionItem::isCompleted) == false,
         {field(&ActionItem::createdAt).ascending()},
         {}});
    items.removeIf([&](const std::shared_ptr<ActionItem> &item) {
        return personName && !(item->meeting && isPerson(item->meeting->person, personName));
    });
    std::stable_sort(items.begin(), items.end(), [](const auto &a, const auto &b) {
        return a->dueDate && (!b->dueDate || *a->dueDate < *b->dueDate);
    });
    if (items.isEmpty())
        return u"No action items matched."_s;
    QStringList lines;
    for (const auto &item : items) {
        const auto &person = item->meeting ? item->meeting->person : nullptr;
        QString line = (item->isCompleted ? u"- [x] "_s : u"- [ ] "_s) + item->title + u" ("_s +
                       (person ? person->name : u"no one"_s) + u')';
        if (item->dueDate)
            line += u" (due "_s + monthAndDay(*item->dueDate) + u')';
        lines.append(line);
    }
    return lines.join(u'\n');
}

QString addActionItem(const QJsonObject &arguments, ModelContext &context)
{
    const QString name = trimmedText(arguments, "person_name"_L1);
    const QString title = trimmedText(arguments, "title"_L1);
    if (name.isEmpty() || title.isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing 'person_name' or 'title'."_s);
    const auto person = personNamed(name, context);
    if (!person)
        throw MCPError(MCPError::invalidParams, u"No person named '"_s + name + u"'."_s);
    std::optional<QDateTime> due;
    if (const std::optional<QDate> day = ToolArguments::date(arguments.value("due_date"_L1)))
        due = Calendar::current().startOfDay(*day);

    const auto meetings = PeopleQueries::realMeetings(*person);
    std::shared_ptr<Meeting> target = meetings.isEmpty() ? nullptr : meetings.first();
    if (!target) {
        // Always a new scratchpad dated now, even beside an empty one: the timeline's tidy-up
        // folds the two together when the person's page next opens.
        target = std::make_shared<Meeting>(person, Clock::now(), QString(), true);
        context.insert(target);
    }
    context.insert(std::make_shared<ActionItem>(title, target, due));
    context.trySave();
    return u"Added action for "_s + person->name + u": "_s + title;
}

QString completeActionItem(const QJsonObject &arguments, ModelContext &context)
{
    const QString title = trimmedText(arguments, "title"_L1);
    if (title.isEmpty())
        throw MCPError(MCPError::invalidParams, u"Missing 'title'."_s);
    auto items = context.tryFetch<ActionItem>({field(&ActionItem::isCompleted) == false, {}, {}});
    items.removeIf([wanted = title.toLower()](const std::shared_ptr<ActionItem> &item) {
        return item->title.toLower() != wanted;
    });
    if (items.isEmpty())
        throw MCPError(MCPError::invalidParams, u"No open action matches '"_s + title + u"'."_s);
    if (items.size() > 1)
        throw MCPError(MCPError::invalidParams,
                       u"More than one action matches. Use more of the title."_s);
    items.first()->isCompleted = true;
    context.trySave();
    return u"Completed: "_s + items.first()->title;
}

} // namespace

void registerAll(MCPTools &tools)
{
    const MCPToolGroup::Group people = MCPToolGroup::Group::people;
    const auto add = [&](const QString &name, const QString &description, QJsonObject inputSchema,
                         QString (*handler)(const QJsonObject &, ModelContext &)) {
        tools.add(people, MCPTool{name, description, std::move(inputSchema), handler, {}});
    };

    add(u"get_people"_s,
        u"List everyone in the user's People tab (1:1 partners). Each row includes name, role, "
        "relationship, last-meeting date, and open action-item count."_s,
        ToolSchema::schema(QJsonObject()),
        [](const QJsonObject &, ModelContext &context) { return getPeople(context); });

    add(u"get_person"_s,
        u"Return a single person's profile plus their last N meetings (notes + action items). "
        "Use this when the user is preparing for a 1:1 or asking about someone specific."_s,
        ToolSchema::schema(
            QJsonObject{{"name"_L1,
                         ToolSchema::property(u"string"_s, u"Person's name (case-insensitive)."_s)},
                        {"meeting_limit"_L1,
                         ToolSchema::property(u"integer"_s, u"Number of recent meetings to include "
                                                            "(default 5, max 20)."_s)}},
            {u"name"_s}),
        getPerson);

    add(u"add_person"_s,
        u"Add a new person to the user's People tab. Use when the user explicitly asks to start "
        "tracking someone new for 1:1s."_s,
        ToolSchema::schema(
            QJsonObject{
                {"name"_L1, ToolSchema::property(u"string"_s, u"Full name."_s)},
                {"role"_L1, ToolSchema::property(u"string"_s, u"Job title or role."_s)},
                {"email"_L1, ToolSchema::property(u"string"_s, u"Optional email."_s)},
                {"relationship"_L1,
                 ToolSchema::property(u"string"_s, u"One of: manager, report, peer, mentor, "
                                                   "mentee, skip-level, other."_s)}},
            {u"name"_s}),
        addPerson);

    add(u"get_meetings"_s,
        u"Return logged meetings, optionally filtered by person and/or date range. Newest "
        "first."_s,
        ToolSchema::schema(QJsonObject{
            {"person_name"_L1,
             ToolSchema::property(u"string"_s, u"Optional. Filter to a single person."_s)},
            {"from"_L1, ToolSchema::property(u"string"_s, u"ISO date lower bound."_s)},
            {"to"_L1, ToolSchema::property(u"string"_s, u"ISO date upper bound."_s)},
            {"limit"_L1, ToolSchema::property(u"integer"_s, u"Default 20, max 100."_s)}}),
        getMeetings);

    add(u"log_meeting"_s,
        u"Log a meeting note against a person in the user's People tab. Person is matched by "
        "case-insensitive name. Refuses if the person doesn't exist. Claude shouldn't be "
        "creating new people on the user's behalf."_s,
        ToolSchema::schema(
            QJsonObject{
                {"person_name"_L1,
                 ToolSchema::property(u"string"_s, u"Existing person's name as recorded in the "
                                                   "People tab."_s)},
                {"notes"_L1,
                 ToolSchema::property(u"string"_s, u"Markdown notes from the meeting."_s)},
                {"date"_L1, ToolSchema::property(u"string"_s, u"ISO-8601 date (YYYY-MM-DD). "
                                                              "Defaults to today."_s)}},
            {u"person_name"_s, u"notes"_s}),
        logMeeting);

    add(u"get_action_items"_s,
        u"Return action items from the user's 1:1s. Defaults to open only. Use when the user "
        "asks 'what do I owe Sarah' or 'what's outstanding from my 1:1s'."_s,
        ToolSchema::schema(QJsonObject{
            {"person_name"_L1, ToolSchema::property(u"string"_s, u"Optional filter by person."_s)},
            {"include_completed"_L1, ToolSchema::property(u"boolean"_s, u"Default false."_s)}}),
        getActionItems);

    add(u"add_action_item"_s,
        u"Attach an action item to the most recent logged meeting with a given person. Creates a "
        "scratchpad meeting if none exists yet."_s,
        ToolSchema::schema(
            QJsonObject{
                {"person_name"_L1, ToolSchema::property(u"string"_s, u"Existing person's name."_s)},
                {"title"_L1, ToolSchema::property(u"string"_s, u"Action item title."_s)},
                {"due_date"_L1, ToolSchema::property(u"string"_s, u"Optional ISO date."_s)}},
            {u"person_name"_s, u"title"_s}),
        addActionItem);

    add(u"complete_action_item"_s,
        u"Mark an action item as completed by exact title match. Refuses if multiple match."_s,
        ToolSchema::schema(
            QJsonObject{{"title"_L1,
                         ToolSchema::property(u"string"_s, u"Exact title (case-insensitive)."_s)}},
            {u"title"_s}),
        completeActionItem);
}

} // namespace PeopleTools
