#pragma once

#include <QDate>
#include <QDateTime>
#include <QJsonValue>
#include <QLocale>
#include <QString>

#include <optional>

// How every tool reads the arguments an assistant sends: a value of the wrong JSON type counts
// as absent, never as an error, and dates are calendar days in the machine's time zone.
namespace ToolArguments {

// A strict YYYY-MM-DD that names a real day; anything else is no date.
std::optional<QDate> date(const QJsonValue &value);
// The start of the named day in the user's calendar, or of today's when there is none.
QDateTime dayOrToday(const QJsonValue &value);

// A JSON integer raised to at least 1 and cut to `maximum`; `fallback` when there is none.
qint64 limit(const QJsonValue &value, qint64 fallback, qint64 maximum);

// "January 5, 2026" and "Monday, January 5, 2026" in the user's locale.
QString longDate(const QDateTime &instant, const QLocale &locale = QLocale());
QString longDateWithWeekday(const QDateTime &instant, const QLocale &locale = QLocale());

} // namespace ToolArguments
