#pragma once

#include <QDateTime>
#include <QString>

class Preferences;

// The frame every generation stands on: one system text, and what goes ahead of each prompt.
namespace AIInstructionBuilder {

// The fixed text, the language line, the style's addition and the level sentence; read afresh
// for each call so a change in Settings counts on the next one.
QString systemInstruction(const Preferences &preferences);
// The non-empty texts joined by a blank line and followed by one; empty when both are.
QString referenceMaterials(const QString &profile, const QString &knowledge);
// "Today is yyyy-MM-dd." in the user's calendar.
QString todayLine(const QDateTime &date);

} // namespace AIInstructionBuilder
