#pragma once

// Shared by the bridge tests: a journal with preferences, a registry of tools that count their
// calls, and clients that wait by running the event loop, since the listener under test lives
// on the same thread.

#include "TestSupport.h"

#include "bridge/MCPError.h"
#include "bridge/MCPProtocol.h"
#include "bridge/MCPTools.h"
#include "bridge/RPCMessages.h"
#include "core/Preferences.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "core/store/StoreError.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>
#include <QTest>

#include <optional>

namespace BridgeTest {

using namespace Qt::StringLiterals;

inline QJsonObject toolSchema()
{
    return QJsonObject{{"type"_L1, u"object"_s}, {"properties"_L1, QJsonObject()}};
}

// Preferences in a temporary folder, a store in memory and a registry with test tools.
struct Journal {
    TempDataDir dir;
    Preferences preferences{dir.configDir() + u"/preferences.json"_s};
    ModelContainer container{StoreSchema::current(), ModelContainer::Configuration::memoryOnly()};
    MCPTools tools;
    int calls = 0;
    // The context each call of "where" ran on.
    QList<ModelContext *> contexts;

    Journal()
    {
        add(MCPToolGroup::Group::journal, u"count"_s,
            [this](const QJsonObject &, ModelContext &) { return u"call %1"_s.arg(++calls); });
        add(MCPToolGroup::Group::journal, u"echo"_s, [this](const QJsonObject &arguments, auto &) {
            ++calls;
            return QString::fromUtf8(QJsonDocument(arguments).toJson(QJsonDocument::Compact));
        });
        add(MCPToolGroup::Group::journal, u"where"_s, [this](const QJsonObject &, auto &context) {
            contexts.append(&context);
            return QString();
        });
        add(MCPToolGroup::Group::journal, u"refuse"_s, [](const QJsonObject &, auto &) -> QString {
            throw MCPError(MCPError::invalidParams, u"No day called Blursday."_s);
        });
        add(MCPToolGroup::Group::journal, u"save_fails"_s,
            [](const QJsonObject &, auto &) -> QString {
                throw StoreError(u"The disk is full."_s);
            });
        add(MCPToolGroup::Group::journal, u"throws"_s, [](const QJsonObject &, auto &) -> QString {
            throw std::runtime_error("vector too long");
        });
        add(MCPToolGroup::Group::goals, u"get_goals"_s, [this](const QJsonObject &, auto &) {
            ++calls;
            return u"No goals yet."_s;
        });
    }

    void add(MCPToolGroup::Group group, const QString &name, MCPTool::Handler handler)
    {
        tools.add(group,
                  MCPTool{name, u"A tool for tests."_s, toolSchema(), std::move(handler), {}});
    }

    ModelContext &context() { return container.mainContext(); }
    MCPProtocol protocol()
    {
        return MCPProtocol(preferences, tools, [this] { return &container.mainContext(); });
    }
};

inline QByteArray request(const QByteArray &id, const QByteArray &method,
                          const QByteArray &params = QByteArray())
{
    QByteArray line = R"({"jsonrpc":"2.0",)";
    if (!id.isNull())
        line += R"("id":)" + id + ',';
    line += R"("method":")" + method + '"';
    if (!params.isNull())
        line += R"(,"params":)" + params;
    return line + '}';
}

inline QByteArray call(const QByteArray &id, const QByteArray &tool,
                       const QByteArray &arguments = "{}")
{
    return request(id, "tools/call", R"({"name":")" + tool + R"(","arguments":)" + arguments + '}');
}

// One response line in a form rows can compare: its id as it came back (or "-" for none), then
// "result" or "error <code> <message>"; "blank" for a bare newline; "not JSON" otherwise.
inline QString describe(const QByteArray &line)
{
    if (line.isEmpty())
        return u"blank"_s;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(line, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return u"not JSON"_s;
    const QJsonObject object = document.object();
    QString text;
    const QJsonValue id = object.value("id"_L1);
    if (id.isUndefined())
        text = u"-"_s;
    else if (id.isString())
        text = u'"' + id.toString() + u'"';
    else if (const auto number = RPCValue::integer(id))
        text = QString::number(*number);
    else
        text = u"odd id"_s;
    if (object.value("jsonrpc"_L1) != u"2.0"_s)
        text += u" no version"_s;
    if (object.contains("result"_L1))
        text += u" result"_s;
    if (object.contains("error"_L1)) {
        const QJsonObject body = object.value("error"_L1).toObject();
        text += u" error "_s + QString::number(body.value("code"_L1).toInteger()) + u' ' +
                body.value("message"_L1).toString();
    }
    return text;
}

inline QJsonObject resultOf(const QByteArray &line)
{
    return QJsonDocument::fromJson(line).object().value("result"_L1).toObject();
}

// A client that waits by turning the event loop, so the listener in this process keeps working.
class Client {
public:
    bool connectTo(quint16 port, const QHostAddress &address = QHostAddress::LocalHost)
    {
        m_socket.connectToHost(address, port);
        const QDeadlineTimer deadline(5000);
        while (m_socket.state() != QAbstractSocket::ConnectedState &&
               m_socket.state() != QAbstractSocket::UnconnectedState && !deadline.hasExpired())
            QTest::qWait(2);
        return m_socket.state() == QAbstractSocket::ConnectedState;
    }

    void send(const QByteArray &bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
    }

    // The next line without its newline, or nothing when none comes in time.
    std::optional<QByteArray> readLine(int timeoutMs = 5000)
    {
        const QDeadlineTimer deadline(timeoutMs);
        while (!m_socket.canReadLine() && !deadline.hasExpired()) {
            if (m_socket.state() == QAbstractSocket::UnconnectedState && !m_socket.canReadLine())
                return std::nullopt;
            QTest::qWait(1);
        }
        if (!m_socket.canReadLine())
            return std::nullopt;
        return m_socket.readLine().chopped(1);
    }

    // What came back before the answer to a probe sent now, each line described.
    QStringList describeUntilProbe()
    {
        send(request("\"probe\"", "tools/list") + '\n');
        QStringList lines;
        for (int i = 0; i < 1000; ++i) {
            const auto line = readLine();
            if (!line) {
                lines.append(u"(nothing more)"_s);
                break;
            }
            const QString description = describe(*line);
            if (description == u"\"probe\" result"_s)
                break;
            lines.append(description);
        }
        return lines;
    }

    bool waitForClose(int timeoutMs = 5000)
    {
        const QDeadlineTimer deadline(timeoutMs);
        while (m_socket.state() != QAbstractSocket::UnconnectedState && !deadline.hasExpired())
            QTest::qWait(2);
        return m_socket.state() == QAbstractSocket::UnconnectedState;
    }

    QTcpSocket &socket() { return m_socket; }

private:
    QTcpSocket m_socket;
};

} // namespace BridgeTest
