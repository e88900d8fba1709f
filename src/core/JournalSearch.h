#pragma once

#include <QDateTime>
#include <QList>
#include <QString>

class Database;
class ModelContext;

// One text search over everything written: journal pages, meeting notes and reviews. A record
// is a hit when its lower-cased text contains the lower-cased query; there is no tokenising and
// no scoring. Hits come newest first; on one date pages come before meetings before reviews, and
// records of one kind on one date in the order they were created.
namespace JournalSearch {

struct Hit {
    QString source; // "Journal Jan 5, 2026", "1:1 with Dana Reyes Jan 5, 2026", "Weekly review …"
    QDateTime date;
    QString snippet;
};

// The first `limit` hits, exactly as scan() finds them, but without reading every record: the
// store's trigram index names the candidates and each one is checked against its record. What
// the index can't answer (queries under three characters, kinds of record with unsaved changes)
// is scanned.
QList<Hit> search(ModelContext &context, const QString &query, qsizetype limit);

// The same by reading and testing every record.
QList<Hit> scan(ModelContext &context, const QString &query, qsizetype limit);

// The text around the first match, up to 120 characters either side and trimmed, with "…" where
// it was cut; the first 240 characters when nothing matches. Characters are what a reader counts
// as one, so a letter and its accents or an emoji sequence are never split.
QString extractSnippet(const QString &text, const QString &query);

// Gives the store its index and the triggers that keep it in step with every save, filling it
// from the rows already there. Runs at every open inside the schema's transaction; a store whose
// index is complete is left alone.
void prepareIndex(Database &database);

} // namespace JournalSearch
