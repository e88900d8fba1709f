#pragma once

#include <QMainWindow>
#include <QPointer>

#include <QMessageBox>
#include <QUrl>

class TovrenApp;

// The main window. Its first showing is the moment the first page is up: the recovery notice
// of this launch is raised then.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(TovrenApp &app, QWidget *parent = nullptr);

public slots:
    // Shows the window on top, restoring it from minimised or closed.
    void bringToFront();
    // A tovren:// link from the desktop, another instance or the page itself.
    void openLink(const QUrl &url);
    // Today's page, ready for typing.
    void newEntry();
    void showSettings();

public:
    // The alert raised for a recovered store, while it is open.
    QMessageBox *recoveryAlert() const { return m_recoveryAlert; }

protected:
    void showEvent(QShowEvent *event) override;

private:
    TovrenApp &m_app;
    bool m_appeared = false;
    QPointer<QMessageBox> m_recoveryAlert;
};
