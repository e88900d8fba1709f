#pragma once

#include <QString>

#include <stdexcept>

// A refusal or failure that a tool handler raises; it reaches the assistant unchanged as the
// JSON-RPC error of its call, so the message is written for the assistant to relay.
class MCPError : public std::runtime_error {
public:
    MCPError(int code, const QString &message)
        : std::runtime_error(message.toStdString())
        , m_code(code)
        , m_message(message)
    {
    }

    int code() const { return m_code; }
    const QString &message() const { return m_message; }

    // The codes this layer uses.
    static constexpr int parseError = -32700;
    static constexpr int methodNotFound = -32601;
    static constexpr int invalidParams = -32602;
    static constexpr int internalError = -32603;

private:
    int m_code;
    QString m_message;
};
