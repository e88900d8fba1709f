#include "AssistantInstructionGuard.h"

#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace AssistantInstructionGuard {

namespace {

bool isInstructionFileName(const QString &lowerName)
{
    static const QStringList names{
        u"agents.md"_s,
        u"agent.md"_s,
        u"claude.md"_s,
        u"claude.local.md"_s,
        u"memory.md"_s,
        u"gemini.md"_s,
        u"copilot-instructions.md"_s,
        u".cursorrules"_s,
        u".windsurfrules"_s,
        u".clinerules"_s,
        u"system-prompt.md"_s,
        u"system_prompt.md"_s,
        u"systemprompt.md"_s,
        u"llms.txt"_s,
        u"llms-full.txt"_s,
    };
    return names.contains(lowerName) || lowerName.endsWith(".mdc"_L1);
}

bool isInAssistantFolder(const QStringList &path)
{
    static const QStringList folders{u".claude"_s, u".cursor"_s, u".codex"_s, u".gemini"_s,
                                     u".windsurf"_s};
    return std::any_of(path.cbegin(), path.cend(), [](const QString &component) {
        return folders.contains(component.toLower());
    });
}

bool readsLikeInstructions(const QString &text)
{
    static const QList<QRegularExpression> patterns = [] {
        QList<QRegularExpression> compiled;
        for (const QString &source : {
                 u"\\b(ignore|disregard|forget)\\s+(all\\s+|any\\s+)?(of\\s+)?(the\\s+|your\\s+)?"
                 "(previous|prior|above|earlier)\\s+(instructions|prompts|rules|messages)"_s,
                 u"\\byou\\s+are\\s+(now\\s+)?(an?\\s+)?(ai|assistant|language model|large "
                 "language model|llm|claude|chatgpt|gpt|gemini|copilot)\\b"_s,
                 u"\\bsystem\\s+prompt\\b"_s,
                 u"</?\\s*(system|instructions)\\s*>"_s,
             })
            compiled.append(QRegularExpression(source, QRegularExpression::CaseInsensitiveOption));
        return compiled;
    }();
    return std::any_of(patterns.cbegin(), patterns.cend(), [&](const QRegularExpression &pattern) {
        return pattern.match(text).hasMatch();
    });
}

} // namespace

std::optional<QString> refusal(const QString &fileName, const QStringList &path,
                               const QString &text)
{
    if (isInstructionFileName(fileName.toLower()) || isInAssistantFolder(path))
        return fileName +
               u" is a set of instructions for an AI assistant, not a document about your work. "
               "Tovren keeps those out of the Library, because everything here is read when "
               "summaries and reviews are written."_s;
    if (readsLikeInstructions(text))
        return fileName +
               u" reads like instructions for an AI assistant. Tovren keeps those out of the "
               "Library, because everything here is read when summaries and reviews are "
               "written. If it's a real document, remove those lines and import it again."_s;
    return std::nullopt;
}

} // namespace AssistantInstructionGuard
