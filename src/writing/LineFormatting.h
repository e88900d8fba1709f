#pragma once

#include <QString>

#include <optional>

// The kind of one stored line. The raw words are stored nowhere but are the value the editor
// keeps on each line ("tovren.lineFormatting"), so other code can ask a line what it is.
enum class LineFormatting { body, h1, h2, h3, bullet, checklist, quote, divider, numbered, code };

QString rawValue(LineFormatting formatting);
std::optional<LineFormatting> lineFormattingFromRaw(const QString &raw);

// Bullet, checklist and numbered lines: they carry a marker and may be indented.
bool isListFormatting(LineFormatting formatting);
