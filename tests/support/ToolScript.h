#pragma once

#include "bridge/MCPError.h"
#include "bridge/MCPTools.h"

#include <QJsonDocument>
#include <QJsonObject>

// Tool calls written as a script, so that a data row reads as an assistant's session: each
// "> tool {arguments}" line is a call, with ' for " in its JSON, and the lines up to the next
// call are the reply it must give. A refusal reads "error <code> <message>".
namespace ToolScript {

struct Call {
    QString tool;
    QJsonObject arguments;
    QString expected;
};

inline QList<Call> parse(const QString &script)
{
    QList<Call> calls;
    for (const QString &block :
         QString(u'\n' + script).split(QStringLiteral("\n> "), Qt::SkipEmptyParts)) {
        const QString line = block.section(u'\n', 0, 0);
        const QString arguments = line.section(u' ', 1).replace(u'\'', u'"');
        calls.append({line.section(u' ', 0, 0),
                      QJsonDocument::fromJson(arguments.toUtf8()).object(),
                      block.section(u'\n', 1)});
    }
    return calls;
}

// The tool's reply, or its refusal written as above.
inline QString run(const MCPTools &tools, const Call &call, ModelContext &context,
                   const Preferences &preferences)
{
    try {
        return tools.invoke(call.tool, call.arguments, context, preferences);
    } catch (const MCPError &error) {
        return QStringLiteral("error ") + QString::number(error.code()) + u' ' + error.message();
    }
}

} // namespace ToolScript
