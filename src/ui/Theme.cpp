#include "Theme.h"

#include <QListWidget>

using namespace Qt::StringLiterals;

namespace Theme {

void styleSidebar(QListWidget *list)
{
    list->setFrameShape(QFrame::NoFrame);
    list->setFocusPolicy(Qt::NoFocus);
    list->setSpacing(1);
    list->setStyleSheet(u"QListWidget { background: palette(alternate-base); border: none;"
                        u"  padding: 10px 8px; }"
                        u"QListWidget::item { padding: 5px 10px; border-radius: 6px; }"
                        u"QListWidget::item:selected { background: palette(highlight);"
                        u"  color: palette(highlighted-text); }"_s);
}

} // namespace Theme
