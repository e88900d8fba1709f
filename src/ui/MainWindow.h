#pragma once

#include <QMainWindow>
#include <QPointer>

#include <QMessageBox>
class TovrenApp;

// The main window. Its first showing is the moment the first page is up: the recovery notice
// of this launch is raised then.
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(TovrenApp &app, QWidget *parent = nullptr);

    // The alert raised for a recovered store, while it is open.
    QMessageBox *recoveryAlert() const { return m_recoveryAlert; }

protected:
    void showEvent(QShowEvent *event) override;

private:
    TovrenApp &m_app;
    bool m_appeared = false;
    QPointer<QMessageBox> m_recoveryAlert;
};
