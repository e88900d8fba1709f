#include "WritingStyle.h"

#include "PreferenceKeys.h"
#include "Preferences.h"

#include <array>

using namespace Qt::StringLiterals;

namespace WritingStyles {

WritingStyle current(const Preferences &preferences)
{
    return fromRaw(preferences.value(Prefs::journalWritingStyle));
}

WritingStyle fromRaw(const QString &raw)
{
    for (WritingStyle style : all) {
        if (rawValue(style) == raw)
            return style;
    }
    return WritingStyle::balanced;
}

namespace {

// Everything a style means, one row per style in the enum's order.
struct StyleWords {
    QString raw;
    QString label;
    QString systemAddition;
    QString assistantSentence;
};

const StyleWords &words(WritingStyle style)
{
    static const std::array<StyleWords, 3> rows{{
        {u"brief"_s, u"Brief"_s,
         u"\n\nKeep output short: one or two sentences unless the surface explicitly asks for "
         "more. Cut context the user already knows."_s,
         u"The user prefers brief entries: one or two sentences, plain prose, no headings or "
         "bullets."_s},
        {u"balanced"_s, u"Balanced"_s, QString(),
         u"The user prefers a short paragraph or two: plain prose, specific about what happened, "
         "no headings."_s},
        {u"detailed"_s, u"Detailed"_s,
         u"\n\nWrite fuller output. Include the reasoning and context behind what happened, not "
         "only the outcome, while staying grounded in what the user actually wrote."_s,
         u"The user prefers detailed entries: several paragraphs covering what happened, why, "
         "and what it means, in plain prose."_s},
    }};
    return rows[static_cast<size_t>(style)];
}

} // namespace

QString rawValue(WritingStyle style)
{
    return words(style).raw;
}

QString label(WritingStyle style)
{
    return words(style).label;
}

QString systemAddition(WritingStyle style)
{
    return words(style).systemAddition;
}

QString assistantSentence(WritingStyle style)
{
    return words(style).assistantSentence;
}

} // namespace WritingStyles
