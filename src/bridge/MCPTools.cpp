#include "MCPTools.h"

#include "MCPError.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

qsizetype listPosition(const QString &name)
{
    const qsizetype index = MCPToolGroup::allToolNames().indexOf(name);
    return index < 0 ? MCPToolGroup::allToolNames().size() : index;
}

} // namespace

void MCPTools::add(MCPToolGroup::Group group, MCPTool tool)
{
    Q_ASSERT_X(!MCPToolGroup::groupOf(tool.name) || MCPToolGroup::groupOf(tool.name) == group,
               "MCPTools::add", "a published tool registered under another group");
    const qsizetype position = listPosition(tool.name);
    const auto after = std::upper_bound(
        m_entries.cbegin(), m_entries.cend(), position,
        [](qsizetype p, const Entry &entry) { return p < listPosition(entry.tool.name); });
    m_entries.insert(after - m_entries.cbegin(), Entry{group, std::move(tool)});
}

QList<MCPTool> MCPTools::catalog(const Preferences &preferences) const
{
    QList<MCPTool> tools;
    for (const Entry &entry : m_entries) {
        if (!MCPToolGroup::isEnabled(entry.group, preferences))
            continue;
        MCPTool tool = entry.tool;
        if (tool.describe)
            tool.description = tool.describe();
        tools.append(std::move(tool));
    }
    return tools;
}

QString MCPTools::invoke(const QString &name, const QJsonObject &arguments, ModelContext &context,
                         const Preferences &preferences) const
{
    for (const Entry &entry : m_entries) {
        if (entry.tool.name == name && MCPToolGroup::isEnabled(entry.group, preferences)) {
            if (!entry.tool.handler)
                break;
            return entry.tool.handler(arguments, context);
        }
    }
    throw MCPError(MCPError::methodNotFound, u"Unknown tool: "_s + name);
}
