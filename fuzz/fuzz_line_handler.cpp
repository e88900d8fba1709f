// One read's worth of bytes from an assistant, through the listener's framing and the protocol
// with the real journal tools over an in-memory store. Every answer must be one well-formed
// JSON-RPC line for its request.
#include "bridge/JournalTools.h"
#include "bridge/MCPProtocol.h"
#include "bridge/MCPServer.h"
#include "bridge/MCPTools.h"
#include "bridge/RPCMessages.h"
#include "core/Preferences.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "writing/JournalDraftStore.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
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

// Every answer is one JSON-RPC line that keeps its request's id, or a parse error without one
// when the line isn't a request; only the initialized notice goes unanswered.
bool wellFormed(QByteArrayView piece, const QByteArray &answer)
{
    const std::optional<RPCRequest> request = RPCRequest::decode(piece);
    if (answer.isEmpty())
        return request && request->method == "notifications/initialized"_L1;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(answer, &error);
    const QJsonObject object = document.object();
    const QJsonObject body = object.value("error"_L1).toObject();
    const QJsonValue id = object.value("id"_L1);
    if (answer.contains('\n') || error.error != QJsonParseError::NoError || !document.isObject() ||
        object.value("jsonrpc"_L1) != u"2.0"_s ||
        object.contains("result"_L1) == object.contains("error"_L1) ||
        (object.contains("error"_L1) &&
         (!RPCValue::integer(body.value("code"_L1)) || !body.value("message"_L1).isString())))
        return false;
    if (!request)
        return body.value("code"_L1) == -32700 && id.isUndefined();
    return request->id ? RPCID::decode(id) == request->id : id.isUndefined();
}

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
        if (!wellFormed(piece, answer)) {
            std::fprintf(stderr, "not a well-formed answer to %s: %s\n",
                         piece.toByteArray().toPercentEncoding().constData(), answer.constData());
            std::abort();
        }
    }
    return 0;
}
