#pragma once

#include <QList>
#include <QString>

#include <optional>

class Preferences;

// Which language generated text is written in: the user's choice, or the language last
// recognised in their own writing.
namespace JournalLanguage {

struct Choice {
    QString id;   // BCP-47 style identifier
    QString name; // the language named in itself
};
// The languages offered in Settings, in the picker's order.
const QList<Choice> &choices();

// Recognition must be at least this sure, and texts shorter than this are not looked at.
inline constexpr double minimumProbability = 0.65;
inline constexpr int minimumObservedLength = 120;

// The chosen language unless "auto", else the detected one, else none.
std::optional<QString> resolved(const Preferences &preferences);
// The line that forces the output language, starting with a line feed; empty with none in force.
QString instruction(const Preferences &preferences);
// The dominant language of a text, when recognised with enough certainty.
std::optional<QString> identify(const QString &text);
// Recognises a long enough text and remembers its language; an unsure result changes nothing.
void observe(Preferences &preferences, const QString &text);
// "Automatic" for "auto", the table's name for a listed language, else the locale's name.
QString displayName(const QString &code);
// The language's name in English, or the identifier when there is none.
QString englishName(const QString &code);

} // namespace JournalLanguage
