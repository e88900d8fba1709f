#include "generators/TaskPhrasing.h"

#include "core/records/TaskItem.h"

#include <QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace TaskPhrasing {

namespace {

// Links as a reader would see them: an address with a scheme, an e-mail address, a "www." host
// or a host under a common top-level domain, each with whatever path follows.
const QRegularExpression &linkPattern()
{
    static const QRegularExpression pattern(
        u"\\b[a-z][a-z0-9+.-]*://[^\\s<>\"]+"
        u"|\\bmailto:[^\\s<>\"]+"
        u"|[\\w.+-]+@[\\w-]+(?:\\.[\\w-]+)+"
        u"|\\bwww\\.[^\\s<>\"]+"
        u"|\\b[\\w-]+(?:\\.[\\w-]+)*\\.(?:com|org|net|edu|gov|io|dev|co|app|ai|me|info|biz)"
        u"(?::\\d+)?(?:/[^\\s<>\"]*)?(?![\\w.-]*\\w)"_s,
        QRegularExpression::CaseInsensitiveOption | QRegularExpression::UseUnicodePropertiesOption);
    return pattern;
}

const QStringList &commandNames()
{
    static const QStringList names{
        u"npm"_s,       u"npx"_s,    u"yarn"_s,   u"pnpm"_s,   u"node"_s,    u"deno"_s,
        u"bun"_s,       u"git"_s,    u"gh"_s,     u"brew"_s,   u"make"_s,    u"cargo"_s,
        u"go"_s,        u"rustup"_s, u"pip"_s,    u"pip3"_s,   u"python"_s,  u"python3"_s,
        u"ruby"_s,      u"gem"_s,    u"bundle"_s, u"docker"_s, u"kubectl"_s, u"helm"_s,
        u"terraform"_s, u"aws"_s,    u"gcloud"_s, u"az"_s,     u"ssh"_s,     u"scp"_s,
        u"curl"_s,      u"wget"_s,   u"rsync"_s,  u"sudo"_s,   u"swift"_s,   u"xcodebuild"_s,
    };
    return names;
}

bool hasBlank(const QString &text)
{
    return std::any_of(text.cbegin(), text.cend(), [](QChar c) { return c.isSpace(); });
}

QString firstWord(const QString &title)
{
    const QString trimmed = title.trimmed();
    const qsizetype blank =
        std::find_if(trimmed.cbegin(), trimmed.cend(), [](QChar c) { return c.isSpace(); }) -
        trimmed.cbegin();
    return trimmed.left(blank);
}

} // namespace

QString key(const TaskItem &task)
{
    return task.id.toString(QUuid::WithoutBraces).toUpper() + u'|' + task.title;
}

bool hasPhrasableContent(const QString &title)
{
    const QString trimmed = title.trimmed();
    if (!hasBlank(trimmed) &&
        (trimmed.startsWith(u'/') || trimmed.startsWith(u"~/"_s) || trimmed.startsWith(u"./"_s)))
        return false;

    static const QRegularExpression domains(u"\\S+\\.(com|org|net|io|dev|co|app)\\S*"_s);
    static const QRegularExpression punctuation(u"[/#?=&._-]+"_s);
    QString text = title;
    text.replace(linkPattern(), u" "_s);
    text.replace(domains, u" "_s);
    text.replace(punctuation, u" "_s);

    int words = 0;
    qsizetype length = 0;
    bool letter = false;
    const auto endPart = [&] {
        if (length >= 2 && letter)
            ++words;
        length = 0;
        letter = false;
    };
    for (const char32_t c : text.toUcs4()) {
        if (QChar::isLetterOrNumber(c) || QChar::isMark(c)) {
            ++length;
            letter = letter || QChar::isLetter(c);
        } else {
            endPart();
        }
    }
    endPart();
    return words > 1;
}

bool startsWithAWord(const QString &title)
{
    const QString word = firstWord(title);
    if (word.isEmpty())
        return false;
    for (const QChar c : {u':', u'/', u'@', u'\\'}) {
        if (word.contains(c))
            return false;
    }
    if (word.startsWith(u'~') || word.startsWith(u'-'))
        return false;
    const qsizetype dot = word.indexOf(u'.');
    if (dot >= 0 && dot != word.size() - 1)
        return false;
    for (const char32_t c : word.toUcs4()) {
        if (!QChar::isLower(c))
            return false;
    }
    return !commandNames().contains(word);
}

QString plainTitle(const QString &title)
{
    const QString trimmed = title.trimmed();
    if (trimmed.isEmpty() || !startsWithAWord(trimmed))
        return trimmed;
    const qsizetype first = trimmed.at(0).isHighSurrogate() && trimmed.size() > 1 ? 2 : 1;
    return trimmed.left(first).toUpper() + trimmed.mid(first);
}

QString prompt(const QStringList &titles)
{
    QStringList numbered;
    for (qsizetype i = 0; i < titles.size(); ++i)
        numbered.append(QString::number(i + 1) + u". "_s + titles.at(i));
    return u"Rewrite each completed to-do below as a short past-tense phrase for a work journal.\n"
           u"\n"
           u"Rules:\n"
           u"- Keep the user's own words, names, ticket IDs, and capitalization exactly as written "
           u"(API stays API, JIRA-4821 stays JIRA-4821).\n"
           u"- Only change the verb to past tense. If the title has no verb (for example \"API "
           u"cleanup\" or \"Q3 planning doc\"), put it in a natural phrase instead, like "
           u"\"Finished the API cleanup\".\n"
           u"- Never invent detail that isn't in the title. Never add a period.\n"
           u"- Keep it as short as the original.\n"
           u"\n"
           u"Return exactly "_s +
           QString::number(titles.size()) +
           u" line(s), numbered to match the input, and nothing else.\n\n"_s + numbered.join(u'\n');
}

QStringList parseNumbered(const QString &answer)
{
    static const QRegularExpression wholeNumber(u"^[+-]?[0-9]+$"_s);
    QStringList lines;
    for (const QString &raw : answer.split(u'\n')) {
        QString line = raw.trimmed();
        if (line.isEmpty())
            continue;
        const qsizetype dot = line.indexOf(u'.');
        if (dot >= 0) {
            const QString number = line.left(dot).trimmed();
            bool whole = false;
            if (wholeNumber.match(number).hasMatch())
                number.toLongLong(&whole);
            if (whole)
                line = line.mid(dot + 1).trimmed();
        }
        lines.append(line);
    }
    return lines;
}

} // namespace TaskPhrasing
