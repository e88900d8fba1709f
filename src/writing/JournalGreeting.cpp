#include "JournalGreeting.h"

#include "core/Clock.h"

using namespace Qt::StringLiterals;

namespace JournalGreeting {

QString greeting(const QDateTime &now, const Calendar &calendar, const QString &firstName)
{
    const int hour = now.toTimeZone(calendar.timeZone()).time().hour();
    QString text = hour < 12   ? u"Good morning"_s
                   : hour < 17 ? u"Good afternoon"_s
                               : u"Good evening"_s;
    const QString name = firstName.trimmed();
    if (!name.isEmpty())
        text += u", "_s + name;
    return text;
}

QString streakText(int weeks)
{
    return weeks == 1 ? u"1 week"_s : QString::number(weeks) + u" weeks"_s;
}

} // namespace JournalGreeting
