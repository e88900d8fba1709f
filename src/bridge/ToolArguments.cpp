#include "ToolArguments.h"

#include "RPCMessages.h"
#include "core/Clock.h"

#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace ToolArguments {

std::optional<QDate> date(const QJsonValue &value)
{
    static const QRegularExpression form(u"^([0-9]{4})-([0-9]{2})-([0-9]{2})$"_s);
    const std::optional<QString> text = RPCValue::text(value);
    if (!text)
        return std::nullopt;
    const QRegularExpressionMatch match = form.match(*text);
    if (!match.hasMatch())
        return std::nullopt;
    const QDate day(match.captured(1).toInt(), match.captured(2).toInt(),
                    match.captured(3).toInt());
    if (!day.isValid())
        return std::nullopt;
    return day;
}

QDateTime dayOrToday(const QJsonValue &value)
{
    const Calendar calendar = Calendar::current();
    if (const std::optional<QDate> day = date(value))
        return calendar.startOfDay(*day);
    return calendar.startOfDay(Clock::now());
}

qint64 limit(const QJsonValue &value, qint64 fallback, qint64 maximum)
{
    const std::optional<qint64> given = RPCValue::integer(value);
    if (!given)
        return fallback;
    return std::clamp<qint64>(*given, 1, maximum);
}

QString longDateWithWeekday(const QDateTime &instant, const QLocale &locale)
{
    return locale.toString(Calendar::current().day(instant), QLocale::LongFormat);
}

QString longDate(const QDateTime &instant, const QLocale &locale)
{
    // Qt has no pattern without the weekday, so the locale's long pattern loses its weekday
    // and the separator that went with it.
    static const QRegularExpression weekday(u"^d{4}[,\\s]*|[,\\s]*d{4}"_s);
    QString pattern = locale.dateFormat(QLocale::LongFormat);
    pattern.remove(weekday);
    return locale.toString(Calendar::current().day(instant), pattern.trimmed());
}

} // namespace ToolArguments
