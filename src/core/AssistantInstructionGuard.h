#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Everything in the library is read into prompts, so instruction files written for AI
// assistants are kept out at the door: by name, by suffix, by folder, or by what they say.
namespace AssistantInstructionGuard {

// The sentence that refuses the document, or nothing when it may enter. `path` holds the
// folders the file came from, outermost first.
std::optional<QString> refusal(const QString &fileName, const QStringList &path,
                               const QString &text);

} // namespace AssistantInstructionGuard
