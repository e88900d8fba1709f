#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

class Preferences;

// The profile's name, picture and address, copied into preferences for code that has no store
// at hand (notification titles, the assistant's instructions).
namespace UserProfile {

// Writes the name and the picture; an absent one is removed.
void mirror(Preferences &prefs, const std::optional<QString> &name,
            const std::optional<QByteArray> &avatar);

// Trimmed, or empty.
QString fullName(const Preferences &prefs);
QString email(const Preferences &prefs);
// The first word of the full name, or empty.
QString firstName(const Preferences &prefs);

// The account's full name from the system's user database, if it looks like a person's name.
std::optional<QString> suggestedName();
// The filter behind it: generic account and machine names are no one's name and must not be
// offered as the user's.
std::optional<QString> suggestedNameFrom(const QString &accountFullName);

} // namespace UserProfile
