#pragma once

#include "core/SidebarItem.h"
#include "ui/settings/OpenAtLoginToggle.h"

#include <QList>
#include <QMainWindow>
#include <QMessageBox>
#include <QPointer>
#include <QUrl>

class InboxUnreadBadge;
class QAction;
class QListWidget;
class QStackedWidget;
class SettingsWindow;
class TovrenApp;

// The main window: a quiet sidebar of the tabs and the chosen screen beside it. Each showing
// is a moment the page is up: a pending recovery notice is raised then.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(TovrenApp &app, QWidget *parent = nullptr);
    ~MainWindow() override;

    // The tabs that have a screen, in sidebar order.
    QList<SidebarItem> tabs() const { return m_tabs; }
    std::optional<SidebarItem> currentTab() const;
    // False when the tab has no screen (yet).
    bool selectTab(SidebarItem item);
    QWidget *screen(SidebarItem item) const;

    SettingsWindow *settingsWindow();

    // How "Open at login" reads and changes the desktop's autostart entry.
    static OpenAtLoginToggle::LoginItem loginItem();

public slots:
    // Shows the window on top, restoring it from minimised or closed, with today's page ready
    // for typing.
    void bringToFront();
    // A tovren:// link from the desktop, another instance or the page itself.
    void openLink(const QUrl &url);
    // Today's page, ready for typing.
    void newEntry();
    void showSettings();

public:
    // The alert raised for a recovered store, while it is open.
    QMessageBox *recoveryAlert() const { return m_recoveryAlert; }
    // The strip that says demo mode is on, with its Exit; hidden otherwise.
    QWidget *demoBanner() const { return m_demoBanner; }
    QAction *demoAction() const { return m_demoAction; }

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenus();
    // The tabs' screens over the store the shell works on now.
    void buildScreens();
    QWidget *makeDemoBanner(QWidget *parent);
    void showDemoState(bool active);
    void onDemoChanged(bool active);
    void shellAppeared();
    void addTab(SidebarItem item, QWidget *screen);
    void onNotice(const QString &name, const QVariantMap &info);

    TovrenApp &m_app;
    QListWidget *m_sidebar = nullptr;
    QStackedWidget *m_screens = nullptr;
    QList<SidebarItem> m_tabs;
    QPointer<SettingsWindow> m_settings;
    QPointer<QMessageBox> m_recoveryAlert;
    QPointer<InboxUnreadBadge> m_unreadBadge;
    QWidget *m_demoBanner = nullptr;
    QAction *m_demoAction = nullptr;
};
