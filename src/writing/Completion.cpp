#include "Completion.h"

#include "core/records/Person.h"
#include "core/store/ModelContext.h"

#include <QCollator>
#include <QTextBlock>
#include <QTextCursor>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace Completion {

namespace {

// Names are short; a query that runs on this long is text, not a name being typed.
constexpr int maxQueryLength = 64;

bool isQueryCharacter(QChar c)
{
    return c.isLetterOrNumber() || c.isMark() || c == u'.' || c == u'-' || c == u'_' || c == u' ';
}

} // namespace

std::optional<Query> activeQuery(const QTextCursor &cursor)
{
    if (cursor.hasSelection())
        return std::nullopt;
    const QTextBlock block = cursor.block();
    const QString text = block.text();
    const int caret = cursor.position() - block.position();
    for (int at = caret - 1; at >= 0 && caret - at <= maxQueryLength + 1; --at) {
        const QChar c = text[at];
        if (c == u'@' || c == u'#') {
            if (at > 0 && !text[at - 1].isSpace())
                return std::nullopt;
            return Query{c == u'@' ? Trigger::mention : Trigger::tag, block.position() + at,
                         text.mid(at + 1, caret - at - 1)};
        }
        if (!isQueryCharacter(c))
            return std::nullopt;
    }
    return std::nullopt;
}

QList<MentionSuggestion> mentionSuggestions(ModelContext &context)
{
    QList<MentionSuggestion> result;
    for (const auto &person : context.tryFetch<Person>())
        result.append({person->id, person->name, person->role, person->emoji, person->isPinned});
    return result;
}

QList<MentionSuggestion> mentionCandidates(const QString &query,
                                           const QList<MentionSuggestion> &people)
{
    const QString wanted = query.toLower();
    QList<MentionSuggestion> result;
    for (const MentionSuggestion &person : people) {
        if (person.name.toLower().contains(wanted))
            result.append(person);
    }
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(result.begin(), result.end(), [&](const auto &a, const auto &b) {
        if (a.isPinned != b.isPinned)
            return a.isPinned;
        return collator.compare(a.name, b.name) < 0;
    });
    return result;
}

QStringList tagCandidates(const QString &query, const QStringList &tagNames)
{
    const QString wanted = query.toLower();
    QStringList result;
    for (const QString &name : tagNames) {
        if (name.toLower().contains(wanted))
            result.append(name);
    }
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(result.begin(), result.end(), [&](const QString &a, const QString &b) {
        return collator.compare(a, b) < 0;
    });
    return result;
}

void insert(QTextCursor &cursor, const Query &query, const QString &name)
{
    cursor.beginEditBlock();
    QTextCursor replace(cursor);
    replace.setPosition(query.start);
    replace.setPosition(cursor.position(), QTextCursor::KeepAnchor);
    const QChar trigger = query.trigger == Trigger::mention ? u'@' : u'#';
    replace.insertText(trigger + name.trimmed() + u' ');
    cursor.setPosition(replace.position());
    cursor.endEditBlock();
}

} // namespace Completion

void CompletionList::setCount(int count)
{
    m_count = std::max(0, count);
    m_selected = std::clamp(m_selected, 0, std::max(0, m_count - 1));
}

CompletionList::Outcome CompletionList::handleKey(Key key)
{
    if (!isOpen())
        return Outcome::ignored;
    switch (key) {
    case Key::tab:
    case Key::enter:
        return Outcome::chosen;
    case Key::escape:
        close();
        return Outcome::closed;
    case Key::up:
        m_selected = (m_selected + m_count - 1) % m_count;
        return Outcome::moved;
    case Key::down:
        m_selected = (m_selected + 1) % m_count;
        return Outcome::moved;
    case Key::other:
        break;
    }
    return Outcome::ignored;
}
