#pragma once

#include <QList>
#include <QString>

class Preferences;

// How long generated text is: Tovren's own generators and the assistants writing through the
// bridge both follow it. Stored by raw value in journalWritingStyle.
enum class WritingStyle { brief, balanced, detailed };

namespace WritingStyles {

inline const QList<WritingStyle> all{WritingStyle::brief, WritingStyle::balanced,
                                     WritingStyle::detailed};

// Absent or unknown text reads as balanced.
WritingStyle current(const Preferences &preferences);
WritingStyle fromRaw(const QString &raw);
QString rawValue(WritingStyle style);
QString label(WritingStyle style);
// What the style adds to the system text of every generation; nothing for balanced.
QString systemAddition(WritingStyle style);
// The sentence assistants read in the bridge's instructions and tool descriptions.
QString assistantSentence(WritingStyle style);

} // namespace WritingStyles
