#pragma once

#include "MemorySecretStore.h"
#include "TestSupport.h"
#include "ai/AIContext.h"
#include "ai/AIKeyStore.h"
#include "ai/HttpExchange.h"
#include "core/Preferences.h"

#include <QNetworkAccessManager>

// What the AI engine needs, for one test: preferences and a key store in memory over a
// temporary folder, and a network manager whose requests end with the test.
struct AITestBed {
    TempDataDir dir;
    Preferences preferences{dir.configDir() + QStringLiteral("/preferences.json")};
    MemorySecretStore secrets;
    AIKeyStore keys{secrets, dir.configDir() + QStringLiteral("/ai-keys.json")};
    QNetworkAccessManager network;

    ~AITestBed() { HttpExchange::endAll(network); }

    // Every provider's host and the model server at one local server.
    AIContext context(const QUrl &server)
    {
        return context(ProviderHosts{server, server, server}, server);
    }
    AIContext context(const ProviderHosts &hosts, const QUrl &onDevice)
    {
        return AIContext{preferences, keys, network, hosts, onDevice};
    }
};
