#include "WritingStyle.h"

#include "PreferenceKeys.h"
#include "Preferences.h"

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

QString rawValue(WritingStyle style)
{
    switch (style) {
    case WritingStyle::brief:
        return u"brief"_s;
    case WritingStyle::detailed:
        return u"detailed"_s;
    case WritingStyle::balanced:
        break;
    }
    return u"balanced"_s;
}

QString label(WritingStyle style)
{
    switch (style) {
    case WritingStyle::brief:
        return u"Brief"_s;
    case WritingStyle::detailed:
        return u"Detailed"_s;
    case WritingStyle::balanced:
        break;
    }
    return u"Balanced"_s;
}

QString systemAddition(WritingStyle style)
{
    switch (style) {
    case WritingStyle::brief:
        return u"\n\nKeep output short: one or two sentences unless the surface explicitly asks "
               "for more. Cut context the user already knows."_s;
    case WritingStyle::detailed:
        return u"\n\nWrite fuller output. Include the reasoning and context behind what happened, "
               "not only the outcome, while staying grounded in what the user actually wrote."_s;
    case WritingStyle::balanced:
        break;
    }
    return QString();
}

QString assistantSentence(WritingStyle style)
{
    switch (style) {
    case WritingStyle::brief:
        return u"The user prefers brief entries: one or two sentences, plain prose, no headings "
               "or bullets."_s;
    case WritingStyle::detailed:
        return u"The user prefers detailed entries: several paragraphs covering what happened, "
               "why, and what it means, in plain prose."_s;
    case WritingStyle::balanced:
        break;
    }
    return u"The user prefers a short paragraph or two: plain prose, specific about what "
           "happened, no headings."_s;
}

} // namespace WritingStyles
