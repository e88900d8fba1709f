#include "UserProfile.h"

#include "PreferenceKeys.h"

#include <QFile>

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// The full name is the first comma-separated field of GECOS; the rest is room and phones.
QString gecosFullName()
{
    const long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
    passwd entry{};
    passwd *found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 || !found ||
        !found->pw_gecos)
        return {};
    return QFile::decodeName(found->pw_gecos).section(u',', 0, 0);
}

} // namespace

namespace UserProfile {

void mirror(Preferences &prefs, const std::optional<QString> &name,
            const std::optional<QByteArray> &avatar)
{
    prefs.set(Prefs::userProfileName, name);
    prefs.set(Prefs::userProfileAvatar, avatar);
}

QString fullName(const Preferences &prefs)
{
    return prefs.value(Prefs::userProfileName).value_or(QString()).trimmed();
}

QString email(const Preferences &prefs)
{
    return prefs.value(Prefs::userProfileEmail).value_or(QString()).trimmed();
}

QString firstName(const Preferences &prefs)
{
    return fullName(prefs).split(u' ', Qt::SkipEmptyParts).value(0);
}

std::optional<QString> suggestedName()
{
    return suggestedNameFrom(gecosFullName());
}

std::optional<QString> suggestedNameFrom(const QString &accountFullName)
{
    static const std::array<QLatin1StringView, 6> notAName = {
        "admin"_L1, "administrator"_L1, "user"_L1, "macbook"_L1, "imac"_L1, "mac"_L1};
    const QString name = accountFullName.trimmed();
    if (name.isEmpty())
        return std::nullopt;
    const QString lowered = name.toLower();
    for (QLatin1StringView generic : notAName) {
        if (lowered == generic)
            return std::nullopt;
    }
    return name;
}

} // namespace UserProfile
