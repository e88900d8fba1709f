#include "DateText.h"

#include "Clock.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace DateText {

namespace {

// Qt has no abbreviated pattern without the weekday, so the locale's long one loses the
// weekday, its separator and, when asked, the year.
QString datePattern(const QLocale &locale, bool withYear)
{
    static const QRegularExpression weekday(u"^d{4}[,\\s]*|[,\\s]*d{4}"_s);
    static const QRegularExpression year(u"^y+[,.\\s/-]*|[,\\s]*y+"_s);
    QString pattern = locale.dateFormat(QLocale::LongFormat);
    pattern.remove(weekday);
    pattern.replace(u"MMMM"_s, u"MMM"_s);
    if (!withYear)
        pattern.remove(year);
    return pattern.trimmed();
}

} // namespace

QString shortDate(const QDateTime &instant, const QLocale &locale)
{
    return locale.toString(Calendar::current().day(instant), datePattern(locale, true));
}

QString monthAndDay(const QDateTime &instant, const QLocale &locale)
{
    return locale.toString(Calendar::current().day(instant), datePattern(locale, false));
}

} // namespace DateText
