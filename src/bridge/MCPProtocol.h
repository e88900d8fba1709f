#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>

class MCPTools;
class ModelContext;
class Preferences;
struct RPCRequest;
struct RPCResponse;

// What one line from an assistant means: four methods, every failure kept inside the JSON-RPC
// error channel. Holds no state between lines; each request reads the current settings.
class MCPProtocol {
public:
    using ContextProvider = std::function<ModelContext *()>;

    static constexpr auto protocolVersion = "2024-11-05";
    static constexpr auto serverName = "tovren";
    static constexpr auto serverVersion = "0.1.0";

    // mainStore gives the journal's own store (or nothing), where the user's profile is read;
    // that is not necessarily the store a request works on.
    MCPProtocol(const Preferences &preferences, const MCPTools &tools, ContextProvider mainStore);

    // The bytes of one line in, the bytes of one response out, without the newline. Empty where
    // no response is due. Never raises.
    QByteArray handle(QByteArrayView line, ModelContext &context) const;

    // Sent with every initialize: how to write in this user's voice and how to treat what the
    // tools return.
    QString instructions() const;

    // "About them: <title> at <company>, on the <team> team. " from the About Me document, or
    // empty.
    static QString profileLine(ModelContext *mainStore);
    // The journal's writing style as one sentence; brief, balanced (also for anything unknown)
    // or detailed.
    static QString writingStyleSentence(const Preferences &preferences);

private:
    RPCResponse respond(const RPCRequest &request, ModelContext &context) const;
    RPCResponse callTool(const RPCRequest &request, ModelContext &context) const;

    const Preferences &m_preferences;
    const MCPTools &m_tools;
    ContextProvider m_mainStore;
};
