#pragma once

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

class ModelContext;
class QTextDocument;
class TaskItem;

// "From your day": things of the page's day the user may want to drop into their writing.
namespace InspirationTray {

struct Suggestion {
    QString id; // by which a used one stays hidden
    QString title;
    QString text;
    bool operator==(const Suggestion &) const = default;
};

inline const QString emptyText = QStringLiteral(
    "Completed tasks, today's meetings, and yesterday's plans show up here. Tap any to drop it "
    "into your writing.");

// Per source, so that one busy source can't crowd out the others.
inline constexpr int maxPerSource = 8;

// How a completed task reads in the page; its title until task phrasing can do better.
using TaskPhraser = std::function<QString(const TaskItem &)>;

// Tasks and goals completed on the day, its meetings with a person, and, for today, the open
// plan lines of the page before, in that order, without the used ones.
QList<Suggestion> suggestions(const QDateTime &day, ModelContext &context,
                              const QSet<QString> &usedIds = {}, const TaskPhraser &phrase = {});

// The bullet and open checklist lines of a page, without their markers.
QStringList carryOverLines(const QString &previousPage);

// A suggestion appended to stored text as a bullet on a new line.
QString insertSuggestion(const QString &page, const Suggestion &suggestion);
// The same in the editor's document, at its end.
void insertSuggestion(QTextDocument &document, const Suggestion &suggestion);

} // namespace InspirationTray
