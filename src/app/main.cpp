#include "BenchProbe.h"
#include "SignalWatcher.h"
#include "StdioBridge.h"
#include "TovrenApp.h"
#include "bridge/MCPServer.h"
#include "core/AppCalendar.h"
#include "core/DataLocations.h"
#include "core/store/StoreError.h"
#include "platform/LaunchOptions.h"
#include "platform/SingleInstance.h"
#include "safety/DataSafety.h"
#include "ui/MainWindow.h"
#include "ui/TrayIcon.h"

#include <QApplication>
#include <QCoreApplication>
#include <QFileInfo>
#include <QIcon>
#include <QTimer>

#include <cstdio>
#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

void nameApplication()
{
    QCoreApplication::setApplicationName(u"tovren"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(TOVREN_VERSION));
}

// A later start of tovren (or this one's own arguments) shown on the window.
void present(const LaunchOptions &options, MainWindow &window)
{
    const bool asksForSomething = options.show || options.quickCapture || !options.links.isEmpty();
    // Opening at login while Tovren already runs changes nothing on screen.
    if (options.background && !asksForSomething)
        return;
    window.bringToFront();
    for (const QUrl &link : options.links)
        window.openLink(link);
    if (options.quickCapture)
        window.newEntry();
}

// The arguments go to the Tovren that already has this journal open; this process ends.
int handOver(SingleInstance &instance, const LaunchOptions &options, const QStringList &arguments,
             int &argc, char **argv)
{
    if (options.headless) {
        std::fprintf(stderr, "%s\n",
                     qPrintable(SingleInstance::alreadyRunningMessage(DataLocations::dataRoot())));
        return 1;
    }
    QCoreApplication application(argc, argv);
    const SingleInstance::Answer answer = instance.forward(arguments.mid(1));
    if (answer.accepted)
        return 0;
    std::fprintf(stderr, "%s\n", qPrintable(answer.message));
    return 1;
}

// `tovren restore FOLDER`: the running Tovren backs its journal up, then restarts on the backup.
int askToRestore(int &argc, char **argv)
{
    const QString folder = QFileInfo(QString::fromLocal8Bit(argv[2])).absoluteFilePath();
    QCoreApplication application(argc, argv);
    SingleInstance instance(DataLocations::dataRoot());
    if (instance.claim() != SingleInstance::Role::secondary) {
        std::fprintf(stderr,
                     "tovren: Tovren isn't running for the journal in %s. Start it, then "
                     "ask again.\n",
                     qPrintable(DataLocations::dataRoot()));
        return 1;
    }
    const SingleInstance::Answer answer = instance.forward({u"restore"_s, folder});
    if (answer.accepted)
        return 0;
    std::fprintf(stderr, "tovren: %s\n", qPrintable(answer.message));
    return 1;
}

SingleInstance::Answer answerRestore(TovrenApp &tovren, const QString &folder)
{
    if (!JournalBackup::isBackup(folder))
        return {false, JournalBackup::text(JournalBackup::BackupError::notABackup)};
    // After the answer has gone: the restore ends this process.
    QTimer::singleShot(0, &tovren, [&tovren, folder] { tovren.safety().backup().restore(folder); });
    return {true, QString()};
}

void connectTray(TrayIcon &tray, MainWindow &window)
{
    QObject::connect(&tray, &TrayIcon::openRequested, &window, &MainWindow::bringToFront);
    QObject::connect(&tray, &TrayIcon::newEntryRequested, &window, &MainWindow::newEntry);
    QObject::connect(&tray, &TrayIcon::settingsRequested, &window, &MainWindow::showSettings);
    QObject::connect(&tray, &TrayIcon::quitRequested, qApp, &QCoreApplication::quit);
}

} // namespace

int main(int argc, char **argv)
{
    // The bridge for assistants runs beside the application: no application object, no store,
    // no display, and as many of them as assistants want.
    if (argc >= 2 && std::strcmp(argv[1], "mcp") == 0)
        return StdioBridge::run(MCPServer::configuredPort());
    if (argc == 3 && std::strcmp(argv[1], "restore") == 0)
        return askToRestore(argc, argv);

    const QStringList arguments = LaunchOptions::fromArgv(argc, argv);
    const LaunchOptions options = LaunchOptions::parse(arguments);
    if (!options.error.isEmpty()) {
        std::fprintf(stderr, "tovren: %s\n", qPrintable(options.error));
        return 1;
    }
    if (options.help || options.version) {
        QCoreApplication application(argc, argv);
        nameApplication();
        LaunchOptions::printAndExit(arguments);
    }

    // One Tovren per journal, settled before a display connection or the store exists.
    SingleInstance instance(DataLocations::dataRoot());
    const SingleInstance::Role role = instance.claim();
    switch (role) {
    case SingleInstance::Role::secondary:
        return handOver(instance, options, arguments, argc, argv);
    case SingleInstance::Role::unguarded:
        std::fprintf(stderr, "tovren: %s\n", qPrintable(instance.problem()));
        break;
    case SingleInstance::Role::primary:
        break;
    }

    // Without a window, no display connection is ever made.
    std::unique_ptr<QCoreApplication> application =
        options.headless ? std::make_unique<QCoreApplication>(argc, argv)
                         : std::make_unique<QApplication>(argc, argv);
    nameApplication();

    BenchProbe::install(*application);
    SignalWatcher watcher;
    QObject::connect(&watcher, &SignalWatcher::terminationRequested, application.get(),
                     &QCoreApplication::quit);
    // Later starts wait for their answer until the event loop runs.
    if (role == SingleInstance::Role::primary && !instance.listen())
        std::fprintf(stderr, "tovren: %s\n", qPrintable(instance.problem()));
    if (options.headless)
        instance.setRefusal(SingleInstance::windowlessMessage(DataLocations::dataRoot()));

    TovrenApp tovren;
    try {
        tovren.start();
    } catch (const StoreError &error) {
        std::fprintf(stderr,
                     "Tovren can't keep a journal on this computer: not even a database "
                     "in memory could be opened (%s).\n",
                     qPrintable(error.description()));
        return 1;
    }
    // Asked for by a later start, in either face.
    instance.setCommand(u"restore"_s, [&tovren](const QStringList &rest) {
        return answerRestore(tovren, rest.value(0));
    });

    std::unique_ptr<MainWindow> window;
    std::unique_ptr<TrayIcon> tray;
    if (options.headless) {
        tovren.shellDidAppear();
        // Nobody sees a window: say it now, where whoever started Tovren looks.
        if (const std::optional<QString> notice = tovren.noticeWithoutWindow())
            std::fprintf(stderr, "tovren: %s\n", qPrintable(*notice));
    } else {
        QGuiApplication::setApplicationDisplayName(u"Tovren"_s);
        QGuiApplication::setDesktopFileName(u"tovren"_s);
        QGuiApplication::setWindowIcon(QIcon(u":/icons/tovren.svg"_s));
        // The window may close; Tovren keeps running until asked to quit, reached again through
        // the tray or another start of tovren.
        QApplication::setQuitOnLastWindowClosed(false);
        QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, &tovren,
                         [&tovren](Qt::ApplicationState state) {
                             // A new day or time zone may have come while in the background.
                             if (state == Qt::ApplicationActive)
                                 tovren.appCalendar().update();
                             // Leaving the application is a moment to put typing on disk.
                             else
                                 tovren.saveNow();
                         });
        window = std::make_unique<MainWindow>(tovren);
        tray = std::make_unique<TrayIcon>(tovren.preferences());
        connectTray(*tray, *window);
        QObject::connect(&instance, &SingleInstance::received, window.get(),
                         [&window](const QStringList &forwarded) {
                             present(LaunchOptions::parse(QStringList{u"tovren"_s} + forwarded),
                                     *window);
                         });
        // Opened at login: the page stays hidden, but the start-up work runs as if it showed.
        if (options.background)
            tovren.shellDidAppear();
        else
            present(options, *window);
    }
    const int status = application->exec();
    tray.reset();
    window.reset();
    tovren.saveNow();
    return status;
}
