#pragma once

#include "core/Clock.h"
#include "platform/NotificationCenter.h"

#include <QDateTime>
#include <QList>
#include <QStringList>

#include <optional>

// The requests that wait for their time, and when each one is due. Shared by the desktop centre
// and the in-memory one so that both fire at the same instants.
class NotificationSchedule {
public:
    using Request = NotificationCenter::Request;
    using Trigger = NotificationCenter::Trigger;

    // A check that comes later than this after a request's time (the machine was asleep) lets
    // the time go by without a banner: a reminder hours late is noise.
    static constexpr qint64 staleAfterSeconds = 3600;

    // Adds a scheduled request, replacing a pending one with the same identifier. An interval
    // becomes the instant it ends. False for an immediate request or a trigger that can't fire.
    bool add(Request request, const QDateTime &now);
    // A request as it was saved: an interval's end is already in `fireAt`. One-shots whose time
    // passed while nothing ran are refused, since a stale nudge is worse than none.
    bool restore(Request request, const QDateTime &now);
    // True when any was pending.
    bool remove(const QStringList &identifiers);
    QList<Request> requests() const;

    // Takes what is due at `now`, earliest first: one-shots leave, weekly requests move on to
    // their next week. Stale ones are passed over without being returned.
    QList<Request> takeDue(const QDateTime &now);
    std::optional<QDateTime> nextDue() const;

    // The first occurrence of a weekly trigger strictly after `after`, at its wall-clock time in
    // the calendar's zone (on the day clocks spring forward, a time in the gap moves past it).
    static QDateTime nextWeekly(const Trigger &trigger, const QDateTime &after,
                                const Calendar &calendar);
    static bool isValid(const Trigger &trigger);

private:
    struct Entry {
        Request request;
        // Weekly requests fire at their first occurrence after this instant.
        QDateTime notBefore;
    };
    QDateTime dueOf(const Entry &entry) const;
    void insert(Entry entry);

    QList<Entry> m_entries;
};
