#include "LaunchOptions.h"

#include <QCommandLineParser>

using namespace Qt::StringLiterals;

void LaunchOptions::describe(QCommandLineParser &parser)
{
    parser.setApplicationDescription(u"Tovren, a private work journal."_s);
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption({u"headless"_s, u"Run without a window, until SIGINT or SIGTERM."_s});
    parser.addOption(
        {u"background"_s, u"Start without showing the window (as when opening at login)."_s});
    parser.addOption({u"show"_s, u"Bring the Tovren window to the front."_s});
    parser.addOption({u"quick-capture"_s, u"Open today's page, ready for a quick note."_s});
    parser.addPositionalArgument(u"link"_s, u"A tovren:// link to open."_s, u"[link...]"_s);

    // The toolkit's own options (a session manager restarts programs with -session, say). A
    // window takes them out of the arguments itself, but a start that only forwards never
    // builds one, so they are accepted and ignored here.
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    for (const char *name : {"platform", "platformpluginpath", "platformtheme", "plugin",
                             "qwindowgeometry", "qwindowicon", "qwindowtitle", "display",
                             "geometry", "style", "stylesheet", "session", "name", "title"}) {
        QCommandLineOption option(QString::fromLatin1(name), QString(), u"value"_s);
        option.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(option);
    }
    for (const char *name : {"reverse", "nograb", "dograb", "sync", "widgetcount"}) {
        QCommandLineOption option(QString::fromLatin1(name));
        option.setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(option);
    }
}

LaunchOptions LaunchOptions::parse(const QStringList &arguments)
{
    QCommandLineParser parser;
    describe(parser);
    LaunchOptions options;
    if (!parser.parse(arguments)) {
        options.error = parser.errorText();
        return options;
    }
    options.help = parser.isSet(u"help"_s) || parser.isSet(u"help-all"_s);
    options.version = parser.isSet(u"version"_s);
    options.headless = parser.isSet(u"headless"_s);
    options.background = parser.isSet(u"background"_s);
    options.show = parser.isSet(u"show"_s);
    options.quickCapture = parser.isSet(u"quick-capture"_s);
    for (const QString &argument : parser.positionalArguments()) {
        const QUrl link(argument, QUrl::StrictMode);
        if (!link.isValid() || link.scheme() != u"tovren"_s) {
            options.error =
                u"Tovren opens tovren:// links only; \""_s + argument + u"\" is not one."_s;
            return options;
        }
        options.links.append(link);
    }
    const bool asksForWindow =
        options.background || options.show || options.quickCapture || !options.links.isEmpty();
    if (options.headless && asksForWindow)
        options.error = u"--headless runs Tovren without a window, so it can't be combined "
                        u"with --background, --show, --quick-capture or a link."_s;
    return options;
}

void LaunchOptions::printAndExit(const QStringList &arguments)
{
    QCommandLineParser parser;
    describe(parser);
    // process() prints the help or the version and ends the process, as it does for errors.
    parser.process(arguments);
}

QStringList LaunchOptions::fromArgv(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return arguments;
}
