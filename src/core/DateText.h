#pragma once

#include <QDateTime>
#include <QLocale>
#include <QString>

// Dates as Tovren writes them into text it hands out (tool replies, search results), in the
// user's locale and on the user's calendar day.
namespace DateText {

// "Jan 5, 2026": the locale's long date without the weekday, the month abbreviated.
QString shortDate(const QDateTime &instant, const QLocale &locale = QLocale());
// "Jan 5": the same without the year.
QString monthAndDay(const QDateTime &instant, const QLocale &locale = QLocale());

} // namespace DateText
