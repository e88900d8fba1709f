#pragma once

#include <QString>

// Where Tovren keeps its files. The data root is $XDG_DATA_HOME/tovren unless TOVREN_DATA_DIR
// names another folder; preferences live in $XDG_CONFIG_HOME/tovren unless TOVREN_CONFIG_DIR
// does. The environment is read on every call so that a test can point each case elsewhere.
namespace DataLocations {

QString dataRoot();
QString configDir();

QString storePath();       // <data root>/default.store
QString imagesDir();       // <data root>/Tovren/Images
QString backupsDir();      // <data root>/Tovren/Backups
QString preferencesPath(); // <config dir>/preferences.json

} // namespace DataLocations
