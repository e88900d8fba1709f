#pragma once

// Shared by the bridge tests: a journal with preferences, a registry of tools that count their
// calls, and ways to read answers.

#include "LineClient.h"
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

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace BridgeTest {

using namespace Qt::StringLiterals;

inline QJsonObject toolSchema()
{
    return QJsonObject{{"type"_L1, u"object"_s}, {"properties"_L1, QJsonObject()}};
}

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
        add(u"count"_s, [this](const QJsonObject &, auto &) { return u"call %1"_s.arg(++calls); });
        add(u"echo"_s, [this](const QJsonObject &arguments, auto &) {
            ++calls;
            return QString::fromUtf8(QJsonDocument(arguments).toJson(QJsonDocument::Compact));
        });
        add(u"where"_s, [this](const QJsonObject &, auto &context) {
            contexts.append(&context);
            return QString();
        });
        add(u"refuse"_s, [](const QJsonObject &, auto &) -> QString {
            throw MCPError(MCPError::invalidParams, u"No day called Blursday."_s);
        });
        add(u"save_fails"_s, [](const QJsonObject &, auto &) -> QString {
            throw StoreError(u"The disk is full."_s);
        });
        add(u"throws"_s, [](const QJsonObject &, auto &) -> QString {
            throw std::runtime_error("vector too long");
        });
        const auto goals = [this](const QJsonObject &, auto &) {
            return u"Goal %1"_s.arg(++calls);
        };
        add(u"get_goals"_s, goals, MCPToolGroup::Group::goals);
    }

    void add(const QString &name, MCPTool::Handler handler,
             MCPToolGroup::Group group = MCPToolGroup::Group::journal)
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

using Line::call;
using Line::request;

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

inline QByteArray calls(int count, const QByteArray &tool, const QByteArray &arguments = "{}")
{
    QByteArray lines;
    for (int i = 0; i < count; ++i)
        lines += call(QByteArray::number(i), tool, arguments) + '\n';
    return lines;
}

inline QStringList results(int count)
{
    QStringList lines;
    for (int i = 0; i < count; ++i)
        lines.append(u"%1 result"_s.arg(i));
    return lines;
}

inline QString ask(LineClient &client, const QByteArray &line)
{
    client.send(line + '\n');
    return describe(client.readLine().value_or("(nothing)"));
}

// What came back before the answer to a probe sent now, each line described.
inline QStringList describeUntilProbe(LineClient &client)
{
    client.send(request("\"probe\"", "tools/list") + '\n');
    QStringList lines;
    while (const auto line = client.readLine(5000)) {
        if (describe(*line) == u"\"probe\" result"_s)
            return lines;
        lines.append(describe(*line));
    }
    return lines << u"(nothing more)"_s;
}

} // namespace BridgeTest
