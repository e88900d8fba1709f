#include "SignalWatcher.h"
#include "TovrenApp.h"
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

bool wantsHeadless(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--headless") == 0)
            return true;
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    // The face is chosen before the application object exists: without a window, no display
    // connection is ever made.
    const bool headless = wantsHeadless(argc, argv);
    std::unique_ptr<QCoreApplication> application =
        headless ? std::make_unique<QCoreApplication>(argc, argv)
                 : std::make_unique<QApplication>(argc, argv);
    QCoreApplication::setApplicationName(u"tovren"_s);
    QCoreApplication::setApplicationVersion(QStringLiteral(TOVREN_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Tovren, a private work journal."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption({u"headless"_s, u"Run without a window, until SIGINT or SIGTERM."_s});
    parser.process(*application);

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
        // A new day or time zone may have come while Tovren was in the background.
        QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, &tovren,
                         [&tovren](Qt::ApplicationState state) {
                             if (state == Qt::ApplicationActive)
                                 tovren.appCalendar().update();
                         });
        window = std::make_unique<MainWindow>(tovren);
        window->show();
    }
    const int status = application->exec();
    window.reset();
    tovren.shutdown();
    return status;
}
