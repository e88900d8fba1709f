#pragma once

#include <QDateTime>
#include <QString>

#include <qcoro/qcorotask.h>

class ModelContext;
class NotificationCenter;

// Copies the desktop notifications the user never opened into the inbox, so that a banner that
// went by unseen is not lost. Each delivery becomes one item however often this runs.
namespace NotificationMirror {

struct Snapshot {
    QString identifier;
    QString title;
    QString body;
    QDateTime date; // when it was delivered
};

// True when the delivery is in the inbox now (new or already there), so the centre may forget
// it; false when the store couldn't say, so it stays for the next run.
bool mirror(const Snapshot &snapshot, ModelContext &context);

QCoro::Task<> reconcile(NotificationCenter &center, ModelContext &context);

} // namespace NotificationMirror
