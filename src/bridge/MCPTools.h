#pragma once

#include "MCPTool.h"
#include "MCPToolGroup.h"

#include <QJsonObject>
#include <QList>
#include <QString>

class ModelContext;
class Preferences;

// The registry of the tools an assistant may call. Each group of tools registers itself at
// start-up; what an assistant sees at any moment is worked out afresh from the groups switched
// on, so a change in Settings applies to the very next request.
class MCPTools {
public:
    // A tool of the published list must be registered under the group that list gives it.
    void add(MCPToolGroup::Group group, MCPTool tool);
    qsizetype size() const { return m_entries.size(); }

    // The tools of the enabled groups: the published list's order first, then any other tool
    // in the order it was added.
    QList<MCPTool> catalog(const Preferences &preferences) const;

    // Calls the first catalogued tool of exactly that name. Raises MCPError -32601 when there
    // is none, which includes a tool whose group is off; otherwise lets the handler's own
    // error through.
    QString invoke(const QString &name, const QJsonObject &arguments, ModelContext &context,
                   const Preferences &preferences) const;

private:
    struct Entry {
        MCPToolGroup::Group group;
        MCPTool tool;
    };
    QList<Entry> m_entries; // kept in catalogue order
};
