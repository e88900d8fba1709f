#pragma once

#include <QColor>

#include <QPalette>

class QListWidget;

// The look shared by the windows, drawn from the desktop's palette so light and dark both hold.
namespace Theme {

// A quiet list of places down the left of a window.
void styleSidebar(QListWidget *list);

// Follows the desktop's light or dark choice where the platform's own palette doesn't.
// Called once the application object exists; later calls do nothing.
void followDesktop();

// The application's colours now, for every widget, styled ones included.
void applyPalette(const QPalette &palette);

bool isDark(const QPalette &palette);
// a with amountOfB of b mixed in: quiet shades drawn from the palette, never literals.
QColor blend(const QColor &a, const QColor &b, double amountOfB);
// A calm dark palette in the same roles the light one uses.
QPalette darkPalette();

} // namespace Theme
