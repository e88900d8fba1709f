#pragma once

#include <QString>
#include <QStringList>

class TaskItem;

// Tests on a to-do's title and the text of the request that turns completed to-dos into
// past-tense phrases for the page.
namespace TaskPhrasing {

// "{id}|{title}": a renamed task is a new one to phrase.
QString key(const TaskItem &task);

// The title holds at least two words worth rewriting, rather than a command, a path or a link.
bool hasPhrasableContent(const QString &title);
// The first word looks like an English word in lower case, not a command or a code.
bool startsWithAWord(const QString &title);
// The title as the page shows it without a phrase: trimmed, and a plain first word capitalised.
QString plainTitle(const QString &title);

// The request for these titles, numbered from 1 in this order.
QString prompt(const QStringList &titles);
// The answer's non-empty lines, each without a leading "{n}." where the number is whole.
QStringList parseNumbered(const QString &answer);

} // namespace TaskPhrasing
