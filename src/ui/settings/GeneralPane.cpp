#include "GeneralPane.h"

#include "SettingsUi.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

#include <QCheckBox>
#include <QLabel>
#include <QSignalBlocker>
#include <QSystemTrayIcon>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

GeneralPane::GeneralPane(Preferences &preferences, OpenAtLoginToggle::LoginItem loginItem,
                         QWidget *parent)
    : QWidget(parent)
{
    setObjectName(u"generalPane"_s);
    QVBoxLayout *column = SettingsUi::paneColumn(this);
    column->addWidget(SettingsUi::sectionHeading(u"Desktop"_s, this));
    auto *trayIcon = new QCheckBox(u"Show Tovren in the system tray"_s, this);
    trayIcon->setObjectName(u"showMenuBarIcon"_s);
    trayIcon->setChecked(preferences.value(Prefs::showMenuBarIcon));
    column->addWidget(trayIcon);
    column->addWidget(SettingsUi::hint(u"A new entry or your settings in one click, and the way "
                                       u"back to Tovren after its window is closed."_s,
                                       this));
    connect(trayIcon, &QCheckBox::toggled, this,
            [&preferences](bool on) { preferences.set(Prefs::showMenuBarIcon, on); });
    preferences.onChanged(Prefs::showMenuBarIcon.name, trayIcon, [trayIcon, &preferences] {
        const QSignalBlocker blocker(trayIcon);
        trayIcon->setChecked(preferences.value(Prefs::showMenuBarIcon));
    });

    column->addSpacing(8);
    column->addWidget(new OpenAtLoginToggle(std::move(loginItem), this));
    column->addStretch();
}
