#pragma once

#include <QUrl>

#include <qcoro/qcorotask.h>

class ModelContext;
class Preferences;
class QNetworkAccessManager;

// Tells the user once a week, through the inbox, when the on-device model they rely on can't
// answer.
namespace AIAvailabilityNotifier {

inline constexpr qint64 repeatAfterSeconds = 604800;
inline const QString payload = QStringLiteral("ai-unavailable");

// With `lifetime`, the check ends without a word once that object is gone.
QCoro::Task<> runIfNeeded(ModelContext &context, Preferences &preferences,
                          QNetworkAccessManager &network, QUrl onDeviceServer,
                          const QObject *lifetime = nullptr);

} // namespace AIAvailabilityNotifier
