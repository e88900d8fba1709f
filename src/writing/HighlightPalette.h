#pragma once

#include <QColor>
#include <QString>
#include <QStringList>

// The highlighter colours, by the names the stored text uses. Yellow is the default and is
// stored without its name; a name or colour that matches nothing counts as yellow.
namespace HighlightPalette {

const QStringList &entries();
inline const QString defaultName = QStringLiteral("yellow");

QColor color(const QString &name);
QString name(const QColor &color);
// The name as the stored text should carry it: known names as they are, anything else yellow.
QString canonicalName(const QString &name);

} // namespace HighlightPalette
