#include "RecordDefaults.h"

#include "core/Clock.h"

#include <QSysInfo>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace RecordDefaults {

QVariant newId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QVariant now()
{
    return QVariant::fromValue<qint64>(Clock::now().toMSecsSinceEpoch());
}

QVariant emptyText()
{
    return QString(u""_s);
}

QVariant zero()
{
    return QVariant::fromValue<qint64>(0);
}

QVariant no()
{
    return QVariant::fromValue<qint64>(0);
}

QVariant deviceName()
{
    return localDeviceName();
}

QString localDeviceName()
{
    const QString name = QSysInfo::machineHostName().trimmed();
    return name.isEmpty() ? u"Unknown"_s : name;
}

} // namespace RecordDefaults
