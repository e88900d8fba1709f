#include "Autostart.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

using namespace Qt::StringLiterals;

namespace {

QString configHome()
{
    const QString given = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (!given.isEmpty() && QDir::isAbsolutePath(given))
        return given;
    return QDir::homePath() + u"/.config"_s;
}

// Exec quoting of desktop entries: an argument with a reserved character goes in double quotes
// with ", `, $ and \ escaped; then, as in every string value, each backslash is doubled.
QString execArgument(const QString &argument)
{
    static const QString reserved = u" \t\n\"'\\><~|&;$*?#()`"_s;
    bool needsQuotes = argument.isEmpty();
    for (const QChar c : argument)
        needsQuotes = needsQuotes || reserved.contains(c);
    if (!needsQuotes)
        return argument;
    QString quoted = u"\""_s;
    for (const QChar c : argument) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        quoted += c;
    }
    quoted += u'"';
    return quoted.replace(u"\\"_s, u"\\\\"_s);
}

bool isFalse(const QByteArray &value)
{
    return value.trimmed().toLower() == "false";
}

bool isTrue(const QByteArray &value)
{
    return value.trimmed().toLower() == "true";
}

} // namespace

namespace Autostart {

QString filePath()
{
    return configHome() + u"/autostart/tovren.desktop"_s;
}

QString program()
{
    const QString running =
        QCoreApplication::instance() ? QCoreApplication::applicationFilePath() : QString();
    if (!running.isEmpty() && QFileInfo(running).fileName() == u"tovren"_s)
        return running;
    return u"tovren"_s;
}

QByteArray entryText(const QString &program)
{
    const QString exec = execArgument(program) + u" --background"_s;
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Tovren\n"
           "Comment=Starts Tovren in the background so your assistant can reach it\n"
           "Exec=" +
           exec.toUtf8() +
           "\n"
           "Icon=tovren\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

bool isEnabled()
{
    QFile file(filePath());
    if (!file.open(QIODevice::ReadOnly))
        return false;
    // The desktop's startup settings switch an entry off in place rather than removing it.
    bool inMainGroup = false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line.startsWith('[')) {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!inMainGroup)
            continue;
        const qsizetype equals = line.indexOf('=');
        if (equals < 0)
            continue;
        const QByteArray key = line.left(equals).trimmed();
        const QByteArray value = line.mid(equals + 1);
        if (key == "Hidden" && isTrue(value))
            return false;
        if (key == "X-GNOME-Autostart-enabled" && isFalse(value))
            return false;
    }
    return true;
}

std::optional<QString> setEnabled(bool enabled)
{
    const QString path = filePath();
    if (!enabled) {
        QFile file(path);
        if (!file.exists() || file.remove())
            return std::nullopt;
        return u"Tovren couldn't stop opening at login: "_s + path + u" can't be removed ("_s +
               file.errorString() + u"). Remove it by hand or check the folder's permissions."_s;
    }
    const QString folder = QFileInfo(path).absolutePath();
    QSaveFile file(path);
    const QByteArray text = entryText(program());
    if (!QDir().mkpath(folder) || !file.open(QIODevice::WriteOnly) ||
        file.write(text) != text.size() || !file.commit()) {
        return u"Tovren couldn't set itself to open at login: "_s + path +
               u" can't be written ("_s + file.errorString() + u"). Check that the folder "_s +
               folder + u" is yours and writable."_s;
    }
    return std::nullopt;
}

} // namespace Autostart
