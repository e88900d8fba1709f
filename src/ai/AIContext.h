#pragma once

#include "ai/AIProvider.h"
#include "ai/OnDeviceModel.h"

#include <QUrl>

class AIKeyStore;
class Preferences;
class QNetworkAccessManager;

// What the AI engine needs from the application: the preferences, the key store and the one
// network manager of the main thread. Owned by the composition root; hosts stay as they are
// except in tests.
struct AIContext {
    Preferences &preferences;
    AIKeyStore &keys;
    QNetworkAccessManager &network;
    ProviderHosts hosts = ProviderHosts::standard();
    QUrl onDeviceServer = OnDeviceModel::defaultServer();
};
