#include "ai/PendingEndpoint.h"

#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

using namespace Qt::StringLiterals;

QString PendingEndpoint::shownHost() const
{
    return baseUrl.host().isEmpty() ? baseUrl.toString() : baseUrl.host();
}

void PendingEndpoint::approve(Preferences &preferences) const
{
    preferences.set(Prefs::aiProvider, u"custom"_s);
    preferences.set(Prefs::aiBaseUrlCustom, baseUrl.toString());
    const QString named = model.trimmed();
    if (!named.isEmpty())
        preferences.set(Prefs::aiModel(u"custom"_s), named);
}
