#pragma once

class QListWidget;

// The look shared by the windows, drawn from the desktop's palette so light and dark both hold.
namespace Theme {

// A quiet list of places down the left of a window.
void styleSidebar(QListWidget *list);

} // namespace Theme
