#include "TrayIcon.h"

#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

TrayIcon::TrayIcon(Preferences &preferences, QObject *parent)
    : QObject(parent)
    , m_preferences(preferences)
    , m_menu(new QMenu)
{
    m_menu->addAction(tr("Open Tovren"), this, &TrayIcon::openRequested);
    m_menu->addAction(tr("New Entry"), this, &TrayIcon::newEntryRequested);
    m_menu->addAction(tr("Settings…"), this, &TrayIcon::settingsRequested);
    m_menu->addSeparator();
    m_menu->addAction(tr("Quit Tovren"), this, &TrayIcon::quitRequested);

    m_preferences.onChanged(Prefs::showMenuBarIcon.name, this, [this] { update(); });
    update();
}

TrayIcon::~TrayIcon()
{
    delete m_icon;
    delete m_menu;
}

bool TrayIcon::isShown() const
{
    return m_icon && m_icon->isVisible();
}

void TrayIcon::update()
{
    const bool wanted = m_preferences.value(Prefs::showMenuBarIcon);
    // Without a tray the icon would be shown to no one; the window stays the way in.
    if (!wanted || !QSystemTrayIcon::isSystemTrayAvailable()) {
        if (m_icon)
            m_icon->hide();
        return;
    }
    if (!m_icon) {
        m_icon = new QSystemTrayIcon(QIcon(u":/icons/tovren.svg"_s));
        m_icon->setToolTip(u"Tovren"_s);
        m_icon->setContextMenu(m_menu);
        connect(m_icon, &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason reason) {
                    // A plain click opens the window; the menu has the rest.
                    if (reason == QSystemTrayIcon::Trigger ||
                        reason == QSystemTrayIcon::DoubleClick)
                        emit openRequested();
                });
    }
    m_icon->show();
}
