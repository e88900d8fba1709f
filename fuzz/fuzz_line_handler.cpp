// One read's worth of bytes from an assistant, through the listener's framing and the protocol
// with the real journal tools over an in-memory store. Every answer must be one line of JSON.
#include "bridge/JournalTools.h"
#include "bridge/MCPProtocol.h"
#include "bridge/MCPServer.h"
#include "bridge/MCPTools.h"
#include "core/Preferences.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "writing/JournalDraftStore.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

struct Harness {
    Harness()
        : preferences(folder.filePath(u"preferences.json"_s))
        , container(StoreSchema::current(), ModelContainer::Configuration::memoryOnly())
        , protocol(preferences, tools, [this] { return &container.mainContext(); })
    {
        JournalTools::registerAll(tools, drafts, preferences);
    }

    QTemporaryDir folder;
    Preferences preferences;
    MCPTools tools;
    JournalDraftStore drafts;
    ModelContainer container;
    MCPProtocol protocol;
};

Harness *harness = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    harness = new Harness;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView unit(data, qsizetype(std::min<size_t>(size, MCPServer::readSize)));
    for (QByteArrayView piece : MCPServer::splitLines(unit)) {
        if (MCPServer::looksLikeHttp(piece))
            return 0; // the connection ends here
        const QByteArray answer = harness->protocol.handle(piece, harness->container.mainContext());
        if (answer.isEmpty())
            continue;
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(answer, &error);
        if (answer.contains('\n') || error.error != QJsonParseError::NoError ||
            !document.isObject()) {
            std::fprintf(stderr, "not one line of JSON: %s\n", answer.constData());
            std::abort();
        }
    }
    return 0;
}
