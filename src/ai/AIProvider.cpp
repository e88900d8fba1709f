#include "ai/AIProvider.h"

#include "core/PreferenceKeys.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

ProviderHosts ProviderHosts::standard()
{
    return {QUrl(u"https://api.anthropic.com"_s), QUrl(u"https://api.openai.com"_s),
            QUrl(u"https://generativelanguage.googleapis.com"_s)};
}

namespace AIProviders {

QString rawValue(AIProvider provider)
{
    switch (provider) {
    case AIProvider::appleFoundation:
        return u"appleFoundation"_s;
    case AIProvider::claude:
        return u"claude"_s;
    case AIProvider::openai:
        return u"openai"_s;
    case AIProvider::gemini:
        return u"gemini"_s;
    case AIProvider::custom:
        return u"custom"_s;
    }
    return u"appleFoundation"_s;
}

std::optional<AIProvider> fromRaw(const QString &raw)
{
    for (AIProvider provider : all) {
        if (rawValue(provider) == raw)
            return provider;
    }
    return std::nullopt;
}

AIProvider stored(const Preferences &preferences)
{
    return fromRaw(preferences.value(Prefs::aiProvider)).value_or(AIProvider::appleFoundation);
}

QString displayName(AIProvider provider)
{
    switch (provider) {
    case AIProvider::appleFoundation:
        return u"On-device model"_s;
    case AIProvider::claude:
        return u"Anthropic Claude"_s;
    case AIProvider::openai:
        return u"OpenAI"_s;
    case AIProvider::gemini:
        return u"Google Gemini"_s;
    case AIProvider::custom:
        return u"Other…"_s;
    }
    return QString();
}

QString defaultModel(AIProvider provider)
{
    switch (provider) {
    case AIProvider::claude:
        return u"claude-opus-5"_s;
    case AIProvider::openai:
        return u"gpt-4o"_s;
    case AIProvider::gemini:
        return u"gemini-2.5-flash"_s;
    case AIProvider::appleFoundation:
    case AIProvider::custom:
        break;
    }
    return QString();
}

bool keyRequired(AIProvider provider)
{
    return provider == AIProvider::claude || provider == AIProvider::openai ||
           provider == AIProvider::gemini;
}

bool isRemote(AIProvider provider)
{
    return provider != AIProvider::appleFoundation;
}

QString keyAccount(AIProvider provider)
{
    return u"ai-key-"_s + rawValue(provider);
}

QString model(const Preferences &preferences, AIProvider provider)
{
    return preferences.value(Prefs::aiModel(rawValue(provider))).value_or(defaultModel(provider));
}

std::optional<QUrl> normalizedBase(const QString &text)
{
    QString address = text.trimmed();
    if (address.isEmpty())
        return std::nullopt;
    // Anything typed without a scheme is a host, even one whose name begins with "http".
    static const QRegularExpression scheme(u"^[A-Za-z][A-Za-z0-9+.-]*://"_s);
    if (!scheme.match(address).hasMatch())
        address.prepend(u"https://"_s);
    auto dropTrailingSlashes = [&address] {
        while (address.endsWith(u'/'))
            address.chop(1);
    };
    dropTrailingSlashes();
    // "/messages" goes before "/v1/messages" on purpose: the version segment stays in the base.
    for (const QString &suffix : {u"/chat/completions"_s, u"/messages"_s, u"/v1/messages"_s}) {
        if (address.endsWith(suffix))
            address.chop(suffix.size());
    }
    dropTrailingSlashes();
    const QUrl url(address, QUrl::StrictMode);
    const QString given = url.scheme().toLower();
    if (!url.isValid() || (given != u"https"_s && given != u"http"_s) || url.host().isEmpty())
        return std::nullopt;
    return url;
}

QString endpointDescription(AIProvider provider, const Preferences &preferences,
                            const ProviderHosts &hosts)
{
    switch (provider) {
    case AIProvider::appleFoundation:
        return u"The on-device model. Your writing is processed on this computer."_s;
    case AIProvider::claude:
        return u"Your prompts go to Anthropic, at "_s + hosts.anthropic.host() + u'.';
    case AIProvider::openai:
        return u"Your prompts go to OpenAI, at "_s + hosts.openai.host() + u'.';
    case AIProvider::gemini:
        return u"Your prompts go to Google, at "_s + hosts.gemini.host() + u'.';
    case AIProvider::custom:
        if (const auto base =
                normalizedBase(preferences.value(Prefs::aiBaseUrlCustom).value_or(QString())))
            return u"Your prompts go to "_s + base->host() + u", and nowhere else."_s;
        return u"Your prompts go straight from this computer to the endpoint you enter above. "
               u"Nothing routes through Tovren."_s;
    }
    return QString();
}

QString wireFormatRaw(AIWireFormat format)
{
    return format == AIWireFormat::anthropic ? u"anthropic"_s : u"openai"_s;
}

AIWireFormat detectedWireFormat(const Preferences &preferences)
{
    return preferences.value(Prefs::aiWireFormatCustom) == u"anthropic"_s ? AIWireFormat::anthropic
                                                                          : AIWireFormat::openai;
}

void storeDetectedWireFormat(Preferences &preferences, AIWireFormat format)
{
    preferences.set(Prefs::aiWireFormatCustom, wireFormatRaw(format));
}

} // namespace AIProviders

namespace AIProviders {

std::optional<QString> environmentKey(AIProvider provider)
{
    QList<const char *> names;
    switch (provider) {
    case AIProvider::claude:
        names = {"ANTHROPIC_API_KEY", "CLAUDE_API_KEY"};
        break;
    case AIProvider::openai:
        names = {"OPENAI_API_KEY"};
        break;
    case AIProvider::gemini:
        names = {"GEMINI_API_KEY", "GOOGLE_API_KEY"};
        break;
    case AIProvider::custom:
        names = {"ANTHROPIC_AUTH_TOKEN", "OPENAI_API_KEY", "ANTHROPIC_API_KEY"};
        break;
    case AIProvider::appleFoundation:
        break;
    }
    for (const char *name : names) {
        const QString value = qEnvironmentVariable(name).trimmed();
        if (!value.isEmpty())
            return value;
    }
    return std::nullopt;
}

} // namespace AIProviders
