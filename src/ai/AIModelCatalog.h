#pragma once

#include "ai/AIProvider.h"

#include <QDateTime>
#include <QStringList>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

struct AIContext;
class Preferences;

// The models a provider offers, fetched with a read-only request and kept in preferences for
// fifteen days.
namespace AIModelCatalog {

inline constexpr qint64 refreshAfterSeconds = 1296000;

// The sorted model names. Throws AIClientError when the list can't be had. For the custom
// provider, customBase stands in for the stored address, as while one is being typed.
QCoro::Task<QStringList> fetch(const AIContext &context, AIProvider provider, QString apiKey,
                               std::optional<QUrl> customBase = std::nullopt,
                               std::chrono::milliseconds timeout = std::chrono::seconds(60));

QStringList cached(const Preferences &preferences, AIProvider provider);
// An empty cache, or one older than fifteen days.
bool isStale(const Preferences &preferences, AIProvider provider, const QDateTime &now);
// A key, or for the custom provider an address, is needed to ask.
bool canLoadModels(const Preferences &preferences, AIProvider provider, const QString &apiKey);
// Fetches and keeps the list and the time; a failure leaves the cache as it was and is
// reported as false.
QCoro::Task<bool> refresh(const AIContext &context, AIProvider provider, QString apiKey,
                          std::optional<QUrl> customBase = std::nullopt);

} // namespace AIModelCatalog
