#pragma once

#include <QString>
#include <QVariant>

// What a stored row that lacks a field holds once the file is opened by this version.
namespace RecordDefaults {

inline QVariant absent()
{
    return QVariant();
}
QVariant newId();
QVariant now();
QVariant emptyText();
QVariant zero();
QVariant no();
QVariant deviceName();
inline auto text(const char *value)
{
    return [value] { return QVariant(QString::fromLatin1(value)); };
}

// The name of this computer, or "Unknown" when it has none.
QString localDeviceName();

} // namespace RecordDefaults
