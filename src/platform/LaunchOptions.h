#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

class QCommandLineParser;

// What a start of tovren asks for. The same words arrive at a running Tovren when a later start
// forwards them, so both read them through here.
struct LaunchOptions {
    // No window at all: store, services and the assistant listener only.
    bool headless = false;
    // The window stays hidden until asked for (the login start).
    bool background = false;
    bool show = false;
    bool quickCapture = false;
    bool help = false;
    bool version = false;
    // tovren:// links, as the desktop hands them over.
    QList<QUrl> links;
    // Set when the arguments make no sense; the words say which one and why.
    QString error;

    // arguments begin with the program name, as QCoreApplication::arguments() does. Needs no
    // application object.
    static LaunchOptions parse(const QStringList &arguments);
    // Prints the help or the version for these arguments and ends the process.
    static void printAndExit(const QStringList &arguments);
    static QStringList fromArgv(int argc, char **argv);

private:
    static void describe(QCommandLineParser &parser);
};
