#pragma once

#include <QObject>

class Preferences;
class QAction;
class QMenu;
class QSystemTrayIcon;

// Tovren's entry in the desktop's system tray: the way back to the window once it is closed.
// Present while the user keeps showMenuBarIcon on and the desktop has a tray at all; where
// there is none, nothing pretends to be one.
class TrayIcon : public QObject {
    Q_OBJECT
public:
    explicit TrayIcon(Preferences &preferences, QObject *parent = nullptr);
    ~TrayIcon() override;

    // Whether the icon is in the tray now.
    bool isShown() const;
    QMenu *menu() const { return m_menu; }

signals:
    void openRequested();
    void newEntryRequested();
    void settingsRequested();
    void quitRequested();

private:
    void update();

    Preferences &m_preferences;
    QMenu *m_menu = nullptr;
    QSystemTrayIcon *m_icon = nullptr;
};
