#include "DataLocations.h"

#include <QDir>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

QString fromEnvironment(const char *name)
{
    const QString value = qEnvironmentVariable(name);
    return value.isEmpty() ? QString() : QDir::cleanPath(QDir(value).absolutePath());
}

QString xdgFolder(const char *variable, const QString &fallbackBelowHome)
{
    QString base = qEnvironmentVariable(variable);
    if (base.isEmpty() || QDir::isRelativePath(base))
        base = QDir::homePath() + fallbackBelowHome;
    return QDir::cleanPath(base + u"/tovren"_s);
}

} // namespace

namespace DataLocations {

QString dataRoot()
{
    const QString overridden = fromEnvironment("TOVREN_DATA_DIR");
    return overridden.isEmpty() ? xdgFolder("XDG_DATA_HOME", u"/.local/share"_s) : overridden;
}

QString configDir()
{
    const QString overridden = fromEnvironment("TOVREN_CONFIG_DIR");
    return overridden.isEmpty() ? xdgFolder("XDG_CONFIG_HOME", u"/.config"_s) : overridden;
}

QString storePath()
{
    return dataRoot() + u"/default.store"_s;
}

QString imagesDir()
{
    return dataRoot() + u"/Tovren/Images"_s;
}

QString backupsDir()
{
    return dataRoot() + u"/Tovren/Backups"_s;
}

QString preferencesPath()
{
    return configDir() + u"/preferences.json"_s;
}

} // namespace DataLocations
