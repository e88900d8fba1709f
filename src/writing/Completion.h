#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

class ModelContext;
class QTextCursor;

// Completing "@" with people and "#" with tags while typing.
namespace Completion {

enum class Trigger { mention, tag };

// The text from the trigger to the caret, while it is a query.
struct Query {
    Trigger trigger = Trigger::mention;
    int start = 0; // document position of the "@" or "#"
    QString text;
};

// A trigger at the start of a line or after white space, followed by letters, digits, ".",
// "-", "_" and blanks up to the caret.
std::optional<Query> activeQuery(const QTextCursor &cursor);

struct MentionSuggestion {
    QUuid id;
    QString name;
    QString role;
    std::optional<QString> emoji;
    bool isPinned = false;
};

QList<MentionSuggestion> mentionSuggestions(ModelContext &context);
// People whose name contains the query, ignoring case; pinned first, then by name as the
// user's language sorts it.
QList<MentionSuggestion> mentionCandidates(const QString &query,
                                           const QList<MentionSuggestion> &people);
QStringList tagCandidates(const QString &query, const QStringList &tagNames);

// Puts the trigger, the chosen name and a blank in place of the query.
void insert(QTextCursor &cursor, const Query &query, const QString &name);

} // namespace Completion

// The open list of candidates and its keys: Tab or Return choose, Escape closes, the arrows
// move. An empty list is closed.
class CompletionList {
public:
    enum class Key { tab, enter, escape, up, down, other };
    enum class Outcome { ignored, moved, chosen, closed };

    void setCount(int count);
    bool isOpen() const { return m_count > 0; }
    int selected() const { return m_selected; }
    Outcome handleKey(Key key);
    void close() { setCount(0); }

private:
    int m_count = 0;
    int m_selected = 0;
};
