#pragma once

#include <QString>
#include <QUrl>

#include <array>
#include <optional>

class Preferences;

// Where generated text comes from. The raw values are stored in preferences and key accounts and
// never change; the order is the picker's.
enum class AIProvider { appleFoundation, claude, openai, gemini, custom };

// Which request and response shape a custom endpoint speaks. Only the first two are ever stored.
enum class AIWireFormat { openai, anthropic };

// The public hosts of the three named providers. Tests point them at a local server.
struct ProviderHosts {
    QUrl anthropic;
    QUrl openai;
    QUrl gemini;

    static ProviderHosts standard();
};

namespace AIProviders {

inline constexpr std::array<AIProvider, 5> all{AIProvider::appleFoundation, AIProvider::claude,
                                               AIProvider::openai, AIProvider::gemini,
                                               AIProvider::custom};

QString rawValue(AIProvider provider);
std::optional<AIProvider> fromRaw(const QString &raw);
// The stored provider; absent or unknown means the on-device model.
AIProvider stored(const Preferences &preferences);

QString displayName(AIProvider provider);
QString defaultModel(AIProvider provider);
bool keyRequired(AIProvider provider);
bool isRemote(AIProvider provider);
// "ai-key-" and the raw value: the key store's account.
QString keyAccount(AIProvider provider);

// The stored model when there is one, even an empty one; otherwise the provider's default.
QString model(const Preferences &preferences, AIProvider provider);

// Turns what the user typed as an address into a base URL, or nothing when it isn't one.
std::optional<QUrl> normalizedBase(const QString &text);

// The sentence under the picker that says where text goes.
QString endpointDescription(AIProvider provider, const Preferences &preferences,
                            const ProviderHosts &hosts = ProviderHosts::standard());

QString wireFormatRaw(AIWireFormat format);
// What the custom endpoint speaks; OpenAI's shape until a detection stored something else.
AIWireFormat detectedWireFormat(const Preferences &preferences);
void storeDetectedWireFormat(Preferences &preferences, AIWireFormat format);

} // namespace AIProviders

namespace AIProviders {

// The key a terminal session exports for this provider, for "Use the key from your terminal":
// the first of its variables that isn't blank.
std::optional<QString> environmentKey(AIProvider provider);

} // namespace AIProviders
