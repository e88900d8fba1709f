#include "AIConnector.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace {

QString quoted(const QString &text)
{
    QString escaped = text;
    escaped.replace(u"\\"_s, u"\\\\"_s).replace(u"\""_s, u"\\\""_s);
    return u'"' + escaped + u'"';
}

// Every argument is a JSON string, the port too: clients pass arguments through as text.
QString jsonSnippet(const AIConnector::Bridge &bridge)
{
    QStringList arguments;
    for (const QString &argument : bridge.arguments)
        arguments << quoted(argument);
    return u"{\n"
           u"  \"mcpServers\": {\n"
           u"    \"tovren\": {\n"
           u"      \"command\": "_s +
           quoted(bridge.program) + u",\n      \"args\": ["_s + arguments.join(u", "_s) +
           u"]\n"
           u"    }\n"
           u"  }\n"
           u"}"_s;
}

QList<AIConnector::Field> formFields(const AIConnector::Bridge &bridge)
{
    QList<AIConnector::Field> fields{{u"Name"_s, u"Tovren"_s, true},
                                     {u"Type"_s, u"STDIO"_s, false},
                                     {u"Command to launch"_s, bridge.program, true}};
    for (qsizetype i = 0; i < bridge.arguments.size(); ++i)
        fields.append({i == 0 ? u"Arguments"_s : u"Add argument"_s, bridge.arguments.at(i), true});
    fields.append({u"Everything else"_s, u"Leave empty"_s, false});
    return fields;
}

} // namespace

QString AIConnector::Bridge::shellCommand() const
{
    const QString name = program.section(u'/', -1);
    return (QStringList{name} + arguments).join(u' ');
}

AIConnector::Bridge AIConnector::Bridge::netcat(int port)
{
    return {u"/usr/bin/nc"_s, {u"127.0.0.1"_s, QString::number(port)}};
}

AIConnector::Bridge AIConnector::Bridge::ownBridge(const QString &executable)
{
    return {executable, {u"mcp"_s}};
}

AIConnector::Bridge AIConnector::Bridge::detect(int port, const QString &executable)
{
    if (QFileInfo(u"/usr/bin/nc"_s).isExecutable())
        return netcat(port);
    return ownBridge(executable);
}

QList<AIConnector> AIConnector::all(const Bridge &bridge)
{
    const QString command = bridge.shellCommand();
    return {
        {u"chatgpt"_s, u"ChatGPT"_s,
         u"In the ChatGPT app, open Settings, then Plugins, then MCPs, and connect a custom MCP. "
         u"Fill in the form like this, then save it:"_s,
         Fields{formFields(bridge)},
         u"custom instructions, in ChatGPT's Settings under Personalization"_s},
        {u"codex-cli"_s, u"Codex"_s,
         u"Run this in your terminal, then start `codex`. `tovren` will be connected:"_s,
         Command{u"codex mcp add tovren -- "_s + command}, u"~/.codex/AGENTS.md"_s},
        {u"claude-desktop"_s, u"Claude"_s,
         u"Click Add to Claude. Claude asks whether to install Tovren; choose Install, then "
         u"Install again to confirm."_s,
         ClaudeExtension{jsonSnippet(bridge)},
         u"your personal preferences, in Claude's Settings under Profile"_s},
        {u"claude-code"_s, u"Claude Code"_s,
         u"Run this in your terminal, then check the connection with `/mcp` inside Claude Code:"_s,
         Command{u"claude mcp add --scope user tovren -- "_s + command}, u"~/.claude/CLAUDE.md"_s},
        {u"cursor"_s, u"Cursor"_s,
         u"Create or open `~/.cursor/mcp.json` and paste this (use `.cursor/mcp.json` in a project "
         u"to scope it there):"_s,
         Json{jsonSnippet(bridge)}, u"User Rules, in Cursor's settings"_s},
        {u"custom"_s, u"Other"_s,
         u"Any MCP client that speaks stdio. Point it at this command, which bridges stdio to "
         u"Tovren's local listener (use the full path `"_s +
             bridge.program +
             u"` in a JSON config, since apps launched from the desktop don't inherit your "
             u"shell's PATH):"_s,
         Command{command}, u"your assistant's standing instructions"_s},
    };
}

QString AIConnector::standingLineSentence(bool compact) const
{
    const QString home = instructionsHome.value_or(QString());
    return compact ? u"Add one line to "_s + home + u", and it logs your work as you go."_s
                   : u"Add this line to "_s + home + u", and it logs your work as you go:"_s;
}

std::optional<QString> AIConnector::copyableText() const
{
    if (const auto *command = std::get_if<Command>(&payload))
        return command->text;
    if (const auto *json = std::get_if<Json>(&payload))
        return json->text;
    if (const auto *extension = std::get_if<ClaudeExtension>(&payload))
        return extension->text;
    return std::nullopt;
}
