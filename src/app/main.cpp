#include "BenchProbe.h"
#include "SignalWatcher.h"
#include "StdioBridge.h"
#include "TovrenApp.h"
#include "bridge/MCPServer.h"
#include "core/AppCalendar.h"
#include "core/store/StoreError.h"
#include "ui/MainWindow.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>
#include <cstring>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

// Without a window (headless, or only printing help or the version) no display is needed.
bool needsWindow(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        for (const char *option : {"--headless", "-h", "--help", "--help-all", "-v", "--version"}) {
            if (std::strcmp(argv[i], option) == 0)
                return false;
        }
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    // The bridge for assistants runs beside the application: no application object, no store,
    // no display.
    if (argc >= 2 && std::strcmp(argv[1], "mcp") == 0)
        return StdioBridge::run(MCPServer::configuredPort());

    // The face is chosen before the application object exists: without a window, no display
    // connection is ever made.
    std::unique_ptr<QCoreApplication> application =
        needsWindow(argc, argv) ? std::make_unique<QApplication>(argc, argv)
                                : std::make_unique<QCoreApplication>(argc, argv);
    QCoreApplication::setApplicationName(u"tovren"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(TOVREN_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Tovren, a private work journal."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption headlessOption(u"headless"_s,
                                            u"Run without a window, until SIGINT or SIGTERM."_s);
    parser.addOption(headlessOption);
    parser.process(*application);
    const bool headless = parser.isSet(headlessOption);

    BenchProbe::install(*application);
    SignalWatcher watcher;
    QObject::connect(&watcher, &SignalWatcher::terminationRequested, application.get(),
                     &QCoreApplication::quit);

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

    std::unique_ptr<MainWindow> window;
    if (headless) {
        tovren.shellDidAppear();
    } else {
        QGuiApplication::setApplicationDisplayName(u"Tovren"_s);
        // The window may close; Tovren keeps running until asked to quit.
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
        window->show();
    }
    const int status = application->exec();
    window.reset();
    tovren.saveNow();
    return status;
}
