#pragma once

#include "OpenAtLoginToggle.h"

#include <QWidget>

class Preferences;

// How Tovren sits on the desktop: the tray icon and starting at login.
class GeneralPane : public QWidget {
    Q_OBJECT
public:
    GeneralPane(Preferences &preferences, OpenAtLoginToggle::LoginItem loginItem,
                QWidget *parent = nullptr);
};
