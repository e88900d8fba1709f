#include "JournalLanguage.h"

#include "PreferenceKeys.h"
#include "Preferences.h"

#include <QLocale>

#include <algorithm>
#include <cld2/public/compact_lang_det.h>
#include <climits>
#include <cstdio> // the recogniser's header uses FILE without including it

using namespace Qt::StringLiterals;

namespace JournalLanguage {

namespace {

struct Hypothesis {
    QString id;
    double probability = 0;
};

std::optional<Hypothesis> dominantLanguage(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    CLD2::Language languages[3];
    int percents[3] = {0, 0, 0};
    double scores[3] = {0, 0, 0};
    int textBytes = 0;
    bool reliable = false;
    int validBytes = 0;
    CLD2::ExtDetectLanguageSummaryCheckUTF8(
        utf8.constData(), int(std::min<qsizetype>(utf8.size(), INT_MAX)), true, nullptr, 0,
        languages, percents, scores, nullptr, &textBytes, &reliable, &validBytes);
    const CLD2::Language top = languages[0];
    if (top == CLD2::UNKNOWN_LANGUAGE || top == CLD2::TG_UNKNOWN_LANGUAGE)
        return std::nullopt;
    QString id = QString::fromLatin1(CLD2::LanguageCode(top));
    if (id == "zh"_L1)
        id = u"zh-Hans"_s;
    // CLD2 has no probability of its own: the share of the text written in the top language
    // stands in for one, and an answer CLD2 itself calls unreliable counts as no certainty.
    return Hypothesis{id, reliable ? percents[0] / 100.0 : 0.0};
}

// A choice of "" can only come from a hand-edited file; it reads as no choice.
std::optional<QString> nonEmpty(std::optional<QString> value)
{
    if (value && value->isEmpty())
        return std::nullopt;
    return value;
}

} // namespace

const QList<Choice> &choices()
{
    static const QList<Choice> table{
        {u"en"_s, u"English"_s},       {u"es"_s, u"Español"_s}, {u"pt"_s, u"Português"_s},
        {u"fr"_s, u"Français"_s},      {u"de"_s, u"Deutsch"_s}, {u"it"_s, u"Italiano"_s},
        {u"nl"_s, u"Nederlands"_s},    {u"pl"_s, u"Polski"_s},  {u"tr"_s, u"Türkçe"_s},
        {u"ru"_s, u"Русский"_s},       {u"ar"_s, u"العربية"_s}, {u"hi"_s, u"हिन्दी"_s},
        {u"ja"_s, u"日本語"_s},        {u"ko"_s, u"한국어"_s},  {u"zh-Hans"_s, u"简体中文"_s},
        {u"zh-Hant"_s, u"繁體中文"_s},
    };
    return table;
}

std::optional<QString> resolved(const Preferences &preferences)
{
    const std::optional<QString> chosen = nonEmpty(preferences.value(Prefs::aiOutputLanguage));
    if (chosen && *chosen != "auto"_L1)
        return chosen;
    return nonEmpty(preferences.value(Prefs::aiDetectedJournalLanguage));
}

QString instruction(const Preferences &preferences)
{
    const std::optional<QString> language = resolved(preferences);
    if (!language)
        return QString();
    return u"\nWrite all of your output in "_s + englishName(*language) +
           u", regardless of the language of these instructions. Keep names of people, "
           "companies, products, and projects exactly as the user wrote them \u2014 do not "
           "translate them."_s;
}

std::optional<QString> identify(const QString &text)
{
    const std::optional<Hypothesis> hypothesis = dominantLanguage(text);
    if (!hypothesis || hypothesis->probability < minimumProbability)
        return std::nullopt;
    return hypothesis->id;
}

void observe(Preferences &preferences, const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.size() < minimumObservedLength)
        return;
    if (const std::optional<QString> language = identify(trimmed))
        preferences.set(Prefs::aiDetectedJournalLanguage, *language);
}

QString displayName(const QString &code)
{
    if (code == "auto"_L1)
        return u"Automatic"_s;
    for (const Choice &choice : choices()) {
        if (choice.id == code)
            return choice.name;
    }
    // Qt names languages only in English or in themselves; English matches the words around
    // the picker.
    return englishName(code);
}

QString englishName(const QString &code)
{
    const QLocale locale(code);
    if (locale.language() == QLocale::C || locale.language() == QLocale::AnyLanguage)
        return code;
    QString name = QLocale::languageToString(locale.language());
    // A script or region the identifier names tells variants apart ("zh-Hant", "pt-BR").
    const QStringList parts = QString(code).replace(u'_', u'-').split(u'-', Qt::SkipEmptyParts);
    if (parts.size() > 1) {
        const bool isScript = parts[1].size() == 4;
        const QString qualifier = isScript ? QLocale::scriptToString(locale.script())
                                           : QLocale::territoryToString(locale.territory());
        if (!qualifier.isEmpty())
            name += u" ("_s + qualifier + u')';
    }
    return name;
}

} // namespace JournalLanguage
