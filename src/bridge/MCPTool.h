#pragma once

#include <QJsonObject>
#include <QString>

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
