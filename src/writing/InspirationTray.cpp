#include "InspirationTray.h"

#include "EntryMarkup.h"
#include "core/Clock.h"
#include "core/records/DailyEntry.h"
#include "core/records/Goal.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContext.h"

#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

using namespace Qt::StringLiterals;

namespace InspirationTray {

namespace {

QString firstLine(const QString &text)
{
    for (QStringView line : QStringView(text).split(u'\n')) {
        const QStringView trimmed = line.trimmed();
        if (!trimmed.isEmpty())
            return trimmed.toString();
    }
    return QString();
}

void add(QList<Suggestion> &out, int &count, const QSet<QString> &used, Suggestion suggestion)
{
    if (count >= maxPerSource || used.contains(suggestion.id) || suggestion.text.isEmpty())
        return;
    out.append(std::move(suggestion));
    ++count;
}

} // namespace

QStringList carryOverLines(const QString &previousPage)
{
    QStringList lines;
    for (QStringView raw : QStringView(previousPage).split(u'\n')) {
        const QStringView line = raw.trimmed();
        if (line.startsWith(u'#') || line.startsWith(u"- [x] ") || line.startsWith(u"- [X] "))
            continue;
        QStringView rest;
        if (line.startsWith(u"- [ ] "))
            rest = line.mid(6);
        else if (line.startsWith(u"- ") || line.startsWith(u"* "))
            rest = line.mid(2);
        else if (line.startsWith(u"•"))
            rest = line.mid(1);
        else
            continue;
        rest = rest.trimmed();
        if (!rest.isEmpty())
            lines.append(rest.toString());
    }
    return lines;
}

QList<Suggestion> suggestions(const QDateTime &day, ModelContext &context,
                              const QSet<QString> &usedIds, const TaskPhraser &phrase)
{
    const Calendar calendar = Calendar::current();
    const QDateTime start = calendar.startOfDay(day);
    const QDateTime end = calendar.startOfDay(calendar.day(start).addDays(1));
    const auto idText = [](const QUuid &id) { return id.toString(QUuid::WithoutBraces); };
    QList<Suggestion> result;

    int count = 0;
    const auto tasks = context.tryFetch<TaskItem>(
        {field(&TaskItem::isCompleted) == true && field(&TaskItem::completedAt).inRange(start, end),
         {field(&TaskItem::completedAt).ascending()},
         {}});
    for (const auto &task : tasks) {
        const QString text = phrase ? phrase(*task) : task->title.trimmed();
        add(result, count, usedIds, {u"task-"_s + idText(task->id), u"Completed task"_s, text});
    }

    count = 0;
    const auto goals = context.tryFetch<Goal>({field(&Goal::updatedAt).inRange(start, end) &&
                                                   Predicate<Goal>::where([](const Goal &goal) {
                                                       return goal.status == GoalStatus::completed;
                                                   }),
                                               {field(&Goal::updatedAt).ascending()},
                                               {}});
    for (const auto &goal : goals)
        add(result, count, usedIds,
            {u"goal-"_s + idText(goal->id), u"Goal completed"_s,
             u"Goal completed: "_s + goal->title.trimmed()});

    count = 0;
    const auto meetings = context.tryFetch<Meeting>(
        {field(&Meeting::date).inRange(start, end) && field(&Meeting::isScratchpad) == false,
         {field(&Meeting::date).ascending()},
         {}});
    for (const auto &meeting : meetings) {
        if (!meeting->person)
            continue;
        QString text = u"1:1 with "_s + meeting->person->name.trimmed();
        if (const QString note = firstLine(meeting->notes); !note.isEmpty())
            text += u": "_s + note;
        add(result, count, usedIds,
            {u"meeting-"_s + idText(meeting->id), u"Meeting today"_s, text});
    }

    if (calendar.isSameDay(start, Clock::now())) {
        count = 0;
        const auto previous = context.tryFetch<DailyEntry>(
            {field(&DailyEntry::date) < start, {field(&DailyEntry::date).descending()}, 1});
        if (!previous.isEmpty()) {
            for (const QString &line : carryOverLines(previous.first()->content))
                add(result, count, usedIds, {u"carry-"_s + line, u"From yesterday's plan"_s, line});
        }
    }
    return result;
}

QString insertSuggestion(const QString &page, const Suggestion &suggestion)
{
    if (page.isEmpty())
        return u"- "_s + suggestion.text;
    return page + (page.endsWith(u'\n') ? QString() : u"\n"_s) + u"- "_s + suggestion.text;
}

void insertSuggestion(QTextDocument &document, const Suggestion &suggestion)
{
    QTextCursor cursor(&document);
    cursor.movePosition(QTextCursor::End);
    if (!cursor.block().text().isEmpty()) {
        cursor.insertBlock();
        EntryMarkup::setLineFormatting(cursor, LineFormatting::body);
    }
    EntryMarkup::insertMarkdown(cursor, u"- "_s + suggestion.text);
}

} // namespace InspirationTray
