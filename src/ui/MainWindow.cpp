#include "MainWindow.h"

#include "app/TovrenApp.h"

#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>

using namespace Qt::StringLiterals;

MainWindow::MainWindow(TovrenApp &app, QWidget *parent)
    : QMainWindow(parent)
    , m_app(app)
{
    setObjectName(u"main"_s);
    setWindowTitle(u"Tovren"_s);
    resize(1240, 800);

    QMenu *file = menuBar()->addMenu(tr("&File"));
    QAction *quit = file->addAction(tr("&Quit Tovren"));
    quit->setShortcut(QKeySequence::Quit);
    // Closing the window leaves Tovren running; quitting is a deliberate act.
    connect(quit, &QAction::triggered, qApp, &QApplication::quit);

    // The journal screen takes this place when it lands.
    auto *placeholder = new QLabel(this);
    setCentralWidget(placeholder);
}

void MainWindow::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    if (m_appeared)
        return;
    m_appeared = true;
    m_app.shellDidAppear();
    if (const auto alert = m_app.firstPageDidAppear()) {
        m_recoveryAlert =
            new QMessageBox(QMessageBox::Warning, alert->title, alert->text, QMessageBox::Ok, this);
        m_recoveryAlert->setAttribute(Qt::WA_DeleteOnClose);
        m_recoveryAlert->open();
    }
}

void MainWindow::bringToFront()
{
    if (isMinimized())
        showNormal();
    else
        show();
    raise();
    activateWindow();
}

void MainWindow::openLink(const QUrl &url)
{
    Q_UNUSED(url);
    bringToFront();
}

void MainWindow::newEntry()
{
    bringToFront();
}

void MainWindow::showSettings()
{
    bringToFront();
}
