#include "Theme.h"

#include "platform/ColorScheme.h"

#include <QApplication>
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

QColor blend(const QColor &a, const QColor &b, double amountOfB)
{
    return QColor::fromRgbF(float(a.redF() * (1 - amountOfB) + b.redF() * amountOfB),
                            float(a.greenF() * (1 - amountOfB) + b.greenF() * amountOfB),
                            float(a.blueF() * (1 - amountOfB) + b.blueF() * amountOfB));
}

bool isDark(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < 128;
}

QPalette darkPalette()
{
    QPalette palette;
    const QColor text(0xe6, 0xe6, 0xe3);
    const QColor muted(0x9a, 0x9a, 0x96);
    palette.setColor(QPalette::Window, QColor(0x2a, 0x2a, 0x2c));
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, QColor(0x1f, 0x1f, 0x21));
    palette.setColor(QPalette::AlternateBase, QColor(0x26, 0x26, 0x28));
    palette.setColor(QPalette::ToolTipBase, QColor(0x33, 0x33, 0x36));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::PlaceholderText, muted);
    palette.setColor(QPalette::Button, QColor(0x36, 0x36, 0x39));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Highlight, QColor(0x3b, 0x78, 0x74));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x7f, 0xb8, 0xe6));
    palette.setColor(QPalette::LinkVisited, QColor(0xb3, 0x9d, 0xdb));
    palette.setColor(QPalette::Light, QColor(0x45, 0x45, 0x48));
    palette.setColor(QPalette::Midlight, QColor(0x3a, 0x3a, 0x3d));
    palette.setColor(QPalette::Mid, QColor(0x30, 0x30, 0x33));
    palette.setColor(QPalette::Dark, QColor(0x1a, 0x1a, 0x1c));
    palette.setColor(QPalette::Shadow, Qt::black);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, muted);
    return palette;
}

void followDesktop()
{
    if (!qApp || qApp->property("tovrenFollowsDesktop").toBool())
        return;
    qApp->setProperty("tovrenFollowsDesktop", true);
    // What the platform gave us: kept to go back to when the desktop turns light again.
    const QPalette platform = QApplication::palette();
    auto *scheme = new ColorScheme(qApp);
    QObject::connect(scheme, &ColorScheme::preferenceChanged, qApp,
                     [platform](ColorScheme::Preference preference) {
                         const bool wantDark = preference == ColorScheme::Preference::dark;
                         // A platform theme that already follows the desktop is left alone.
                         applyPalette(wantDark && !isDark(platform) ? darkPalette() : platform);
                     });
}

void applyPalette(const QPalette &palette)
{
    QApplication::setPalette(palette);
    // A style sheet takes its colours when its widget is polished, so a sidebar or button styled
    // before the desktop's answer arrived kept the old ones. Setting it again takes the new.
    const QList<QWidget *> widgets = QApplication::allWidgets();
    for (QWidget *widget : widgets) {
        if (!widget->styleSheet().isEmpty())
            widget->setStyleSheet(widget->styleSheet());
    }
}

} // namespace Theme
