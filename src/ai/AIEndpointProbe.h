#pragma once

#include "ai/AIProvider.h"

#include <QJsonArray>
#include <QUrl>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

class QNetworkAccessManager;

// Finds out which shape a custom endpoint speaks: first from its model list, then by knocking
// on each chat path. Every failure reads as undecided.
namespace AIEndpointProbe {

QCoro::Task<std::optional<AIWireFormat>>
detect(QNetworkAccessManager &network, QUrl baseURL, QString apiKey,
       std::chrono::milliseconds timeout = std::chrono::seconds(10));

// The decision from a /models "data" array alone.
std::optional<AIWireFormat> formatFromModelList(const QJsonArray &models);

} // namespace AIEndpointProbe
