#include "TagParser.h"

#include "core/store/ModelContext.h"

#include <QHash>
#include <QRegularExpression>
#include <QSet>

using namespace Qt::StringLiterals;

namespace TagParser {

QStringList extractTagNames(const QString &text)
{
    // PCRE's \w is ASCII-only, and its Unicode mode leaves out combining marks, so "#café"
    // would end at "caf" or at a decomposed accent. Spell out a word character of any script.
    static const QRegularExpression pattern(
        u"#([a-zA-Z][\\p{L}\\p{Nl}\\p{M}\\p{Nd}\\p{Pc}\\x{200C}\\x{200D}]*)"_s);
    QStringList names;
    for (auto it = pattern.globalMatch(text); it.hasNext();)
        names.append(it.next().captured(1));
    return names;
}

QList<std::shared_ptr<Tag>> resolveTags(const QStringList &names, ModelContext &context)
{
    QHash<QString, std::shared_ptr<Tag>> byName;
    for (auto &tag : context.tryFetch<Tag>())
        byName.insert(tag->name, std::move(tag));

    QList<std::shared_ptr<Tag>> result;
    QSet<QString> handled;
    for (const QString &typed : names) {
        const QString name = typed.toLower();
        if (handled.contains(name))
            continue;
        handled.insert(name);

        std::shared_ptr<Tag> &tag = byName[name];
        if (tag) {
            if (tag->displayName.isEmpty())
                tag->displayName = typed;
        } else {
            tag = std::make_shared<Tag>(typed);
            context.insert(tag);
        }
        result.append(tag);
    }
    return result;
}

} // namespace TagParser
