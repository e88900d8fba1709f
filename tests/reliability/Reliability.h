#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

namespace Reliability {

// A count from the environment for the long runs, else the short default CI uses.
inline int scaled(const char *variable, int fallback)
{
    bool ok = false;
    const int value = qEnvironmentVariableIntValue(variable, &ok);
    return ok && value > 0 ? value : fallback;
}

// Resident memory of a process in KiB, from /proc; 0 when it is gone.
inline qint64 residentKiB(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    return 0;
}

} // namespace Reliability
