#pragma once

#include <QString>

#include <optional>

class Preferences;

// Brings the journal of an earlier install across when this install's data folder holds none.
// A sandboxed package sees a data folder of its own, while the earlier native install kept its
// journal under the account's real home. Works on files only, before any store is open; never
// changes the earlier journal and never overwrites a journal with content.
namespace LegacyJournalImport {

struct Locations {
    QString oldRoot;        // the earlier data folder
    QString oldPreferences; // the earlier preferences file
    QString newRoot;        // this process's data folder
};

// The account's home from the user database (not $HOME, which a sandbox replaces), with the
// native install's folders under it; nothing when the account has no home there or when
// TOVREN_DATA_DIR names the data folder.
std::optional<Locations> standardLocations();

// Once per install: the notice for the user when two journals were found, else nothing.
std::optional<QString> runIfNeeded(Preferences &preferences);
std::optional<QString> run(Preferences &preferences, const std::optional<Locations> &locations);

// The number of days, people, tasks, goals and meetings in a store file; nothing when the file
// isn't one of ours.
std::optional<qint64> journalSize(const QString &storePath);

// "https://{host}/support", the host being a build option.
QString supportPage();
QString twoJournalsNotice();

} // namespace LegacyJournalImport
