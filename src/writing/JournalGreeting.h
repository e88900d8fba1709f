#pragma once

#include <QDateTime>
#include <QString>

class Calendar;

// The line above the page: the time of day's greeting and the streak beside it.
namespace JournalGreeting {

// "Good morning" before noon, "Good afternoon" before five, then "Good evening"; with a first
// name, ", " and the name.
QString greeting(const QDateTime &now, const Calendar &calendar, const QString &firstName);
QString streakText(int weeks);
inline const QString streakHelp = QStringLiteral("Weeks in a row with at least one entry");

} // namespace JournalGreeting
