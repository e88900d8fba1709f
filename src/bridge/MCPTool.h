#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>

class ModelContext;

// One tool as an assistant sees it, and the handler that does its work. The handler runs on the
// main thread with the store context of the call; what it returns is the whole result text, and
// a refusal is an MCPError.
struct MCPTool {
    using Handler = std::function<QString(const QJsonObject &arguments, ModelContext &context)>;

    QString name;
    QString description;
    // {"type":"object","properties":{...}} and, where some are required, "required":[...].
    QJsonObject inputSchema;
    Handler handler;
    // For a row that speaks of the user's current settings: rebuilds the description each time
    // the catalogue is read, instead of the fixed text above.
    std::function<QString()> describe;
};

// The pieces of an input schema, as the tool rows write them.
namespace ToolSchema {

inline QJsonObject property(const QString &type, const QString &description)
{
    return QJsonObject{{QLatin1StringView("type"), type},
                       {QLatin1StringView("description"), description}};
}

inline QJsonObject schema(const QJsonObject &properties, const QStringList &required = {})
{
    QJsonObject object{{QLatin1StringView("type"), QStringLiteral("object")},
                       {QLatin1StringView("properties"), properties}};
    if (!required.isEmpty())
        object.insert(QLatin1StringView("required"), QJsonArray::fromStringList(required));
    return object;
}

} // namespace ToolSchema
