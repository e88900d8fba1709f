#include "platform/NotificationSchedule.h"

#include <algorithm>

using Kind = NotificationCenter::Trigger::Kind;

bool NotificationSchedule::isValid(const Trigger &trigger)
{
    switch (trigger.kind) {
    case Kind::immediately:
        return false;
    case Kind::at:
        return trigger.fireAt.isValid();
    case Kind::afterInterval:
        return trigger.seconds >= 0;
    case Kind::weekly:
        return trigger.weekday >= 1 && trigger.weekday <= 7 && trigger.hour >= 0 &&
               trigger.hour <= 23 && trigger.minute >= 0 && trigger.minute <= 59;
    }
    return false;
}

bool NotificationSchedule::add(Request request, const QDateTime &now)
{
    if (!isValid(request.trigger))
        return false;
    if (request.trigger.kind == Kind::afterInterval)
        request.trigger.fireAt = now.addSecs(request.trigger.seconds);
    insert({std::move(request), now});
    return true;
}

bool NotificationSchedule::restore(Request request, const QDateTime &now)
{
    const Trigger &trigger = request.trigger;
    if (!isValid(trigger) || (trigger.kind != Kind::weekly && !trigger.fireAt.isValid()))
        return false;
    if (trigger.kind != Kind::weekly && trigger.fireAt < now)
        return false;
    insert({std::move(request), now});
    return true;
}

void NotificationSchedule::insert(Entry entry)
{
    remove({entry.request.identifier});
    entry.request.trigger.fireAt = entry.request.trigger.fireAt.toUTC();
    m_entries.append(std::move(entry));
}

bool NotificationSchedule::remove(const QStringList &identifiers)
{
    return m_entries.removeIf([&](const Entry &entry) {
        return identifiers.contains(entry.request.identifier);
    }) > 0;
}

QList<NotificationSchedule::Request> NotificationSchedule::requests() const
{
    QList<Request> result;
    result.reserve(m_entries.size());
    for (const Entry &entry : m_entries)
        result.append(entry.request);
    return result;
}

QDateTime NotificationSchedule::dueOf(const Entry &entry) const
{
    if (entry.request.trigger.kind == Kind::weekly)
        return nextWeekly(entry.request.trigger, entry.notBefore, Calendar::current());
    return entry.request.trigger.fireAt;
}

QList<NotificationSchedule::Request> NotificationSchedule::takeDue(const QDateTime &now)
{
    struct Due {
        QDateTime at;
        qsizetype index;
    };
    QList<Due> due;
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        const QDateTime at = dueOf(m_entries[i]);
        if (at.isValid() && at <= now)
            due.append({at, i});
    }
    std::stable_sort(due.begin(), due.end(),
                     [](const Due &a, const Due &b) { return a.at < b.at; });

    QList<Request> result;
    QList<qsizetype> finished;
    for (const Due &item : std::as_const(due)) {
        Entry &entry = m_entries[item.index];
        if (item.at.secsTo(now) <= staleAfterSeconds)
            result.append(entry.request);
        if (entry.request.trigger.kind == Kind::weekly)
            entry.notBefore = now;
        else
            finished.append(item.index);
    }
    std::sort(finished.begin(), finished.end(), std::greater<>());
    for (qsizetype index : std::as_const(finished))
        m_entries.removeAt(index);
    return result;
}

std::optional<QDateTime> NotificationSchedule::nextDue() const
{
    std::optional<QDateTime> earliest;
    for (const Entry &entry : m_entries) {
        const QDateTime at = dueOf(entry);
        if (at.isValid() && (!earliest || at < *earliest))
            earliest = at;
    }
    return earliest;
}

QDateTime NotificationSchedule::nextWeekly(const Trigger &trigger, const QDateTime &after,
                                           const Calendar &calendar)
{
    const QDate first = calendar.day(after);
    // Eight days reach the same weekday of next week when this week's time has just passed.
    for (int i = 0; i <= 7; ++i) {
        const QDate day = first.addDays(i);
        if (Calendar::weekday(day) != trigger.weekday)
            continue;
        QDateTime at = calendar.at(day, trigger.hour, trigger.minute);
        if (!at.isValid())
            at = calendar.startOfDay(day).addSecs(trigger.hour * 3600 + trigger.minute * 60);
        if (at > after)
            return at.toUTC();
    }
    return {};
}
