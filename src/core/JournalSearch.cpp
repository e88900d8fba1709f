#include "JournalSearch.h"

#include "DateText.h"
#include "core/records/DailyEntry.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/Database.h"
#include "core/store/ModelContext.h"

#include <QTextBoundaryFinder>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace JournalSearch {

namespace {

constexpr qsizetype snippetContext = 120;
constexpr qsizetype leadLength = 240;

// The kinds of record searched, in the order they come on one date.
template<class T>
struct Source;

template<>
struct Source<DailyEntry> {
    static constexpr int rank = 0;
    static constexpr auto text = &DailyEntry::content;
    static constexpr auto date = &DailyEntry::date;
    static QString label(const DailyEntry &entry)
    {
        return u"Journal "_s + DateText::shortDate(entry.date);
    }
};

template<>
struct Source<Meeting> {
    static constexpr int rank = 1;
    static constexpr auto text = &Meeting::notes;
    static constexpr auto date = &Meeting::date;
    static QString label(const Meeting &meeting)
    {
        const QString when = DateText::shortDate(meeting.date);
        if (!meeting.person)
            return u"Meeting "_s + when;
        return u"1:1 with "_s + meeting.person->name + u' ' + when;
    }
};

template<>
struct Source<WeeklyBrief> {
    static constexpr int rank = 2;
    static constexpr auto text = &WeeklyBrief::content;
    static constexpr auto date = &WeeklyBrief::weekStart;
    static QString label(const WeeklyBrief &brief)
    {
        QString period;
        switch (brief.period()) {
        case BriefPeriod::weekly:
            period = u"Weekly"_s;
            break;
        case BriefPeriod::biweekly:
            period = u"Sprint"_s;
            break;
        case BriefPeriod::monthly:
            period = u"Monthly"_s;
            break;
        }
        return period + u" review "_s + DateText::shortDate(brief.weekStart);
    }
};

// Where a record stands in the results: newest first, then the kind, then the order the
// records were created in, then the key, so that no two records tie. Absent dates are NULL in
// the file and sort as SQL sorts them.
struct Position {
    std::optional<qint64> date;
    int rank = 0;
    std::optional<qint64> created;
    QString key;

    bool operator<(const Position &other) const
    {
        if (date != other.date)
            return date > other.date;
        if (rank != other.rank)
            return rank < other.rank;
        if (created != other.created)
            return created < other.created;
        return key < other.key;
    }
};

std::optional<qint64> milliseconds(const QDateTime &instant)
{
    return instant.isValid() ? std::optional(instant.toMSecsSinceEpoch()) : std::nullopt;
}

std::optional<qint64> milliseconds(const QVariant &column)
{
    return column.isNull() ? std::nullopt : std::optional(column.toLongLong());
}

template<class T>
Position positionOf(const T &record)
{
    return {milliseconds(record.*Source<T>::date), Source<T>::rank, milliseconds(record.createdAt),
            T::staticEntity().keyOf(record)};
}

template<class T>
bool matches(const T &record, const QString &lowerQuery)
{
    return (record.*Source<T>::text).toLower().contains(lowerQuery);
}

template<class T>
Hit hitFor(const T &record, const QString &query)
{
    return {Source<T>::label(record), record.*Source<T>::date,
            extractSnippet(record.*Source<T>::text, query)};
}

// Every record of the kind, in a fixed order: the order of the fetch itself is whatever the
// database or the context's unsaved changes make it.
template<class T>
QList<std::shared_ptr<T>> fetchInOrder(ModelContext &context)
{
    QList<std::pair<Position, std::shared_ptr<T>>> placed;
    for (auto &record : context.tryFetch<T>())
        placed.append({positionOf(*record), std::move(record)});
    std::sort(placed.begin(), placed.end(),
              [](const auto &a, const auto &b) { return a.first < b.first; });
    QList<std::shared_ptr<T>> records;
    records.reserve(placed.size());
    for (auto &[position, record] : placed)
        records.append(std::move(record));
    return records;
}

template<class T>
void scanKind(ModelContext &context, const QString &query, const QString &lowerQuery,
              QList<Hit> &hits)
{
    for (const auto &record : fetchInOrder<T>(context)) {
        if (matches(*record, lowerQuery))
            hits.append(hitFor(*record, query));
    }
}

// A record that may be a hit. Scanned ones are tested and loaded already; the index's are only
// keys until the walk over the results reaches them.
struct Candidate {
    Position position;
    std::shared_ptr<Record> record;
};

QString indexTable(const QString &table)
{
    return table + u"Search"_s;
}

template<class T>
const QString &textColumn()
{
    static const QString column = T::staticEntity().attributeFor(Source<T>::text)->name;
    return column;
}

template<class T>
QString column(auto T::*member)
{
    return quotedIdentifier(T::staticEntity().attributeFor(member)->name);
}

// The rows whose lower-cased text contains the query, from the index; none when the store has
// no index or can't answer.
template<class T>
std::optional<QList<Candidate>> indexedCandidates(Database &database, const QString &lowerQuery)
{
    const QString &table = T::staticEntity().name;
    static const QString sql = u"SELECT s."_s + quotedIdentifier(T::staticEntity().key().name) +
                               u", s."_s + column<T>(Source<T>::date) + u", s."_s +
                               column<T>(&T::createdAt) + u" FROM "_s + quotedIdentifier(table) +
                               u" AS s JOIN "_s + quotedIdentifier(indexTable(table)) +
                               u" AS f ON f.rowid = s.rowid WHERE f.body MATCH ?"_s;
    // One quoted phrase, so that the query's words are never read as operators.
    QString phrase = lowerQuery;
    phrase.replace(u'"', u"\"\""_s);
    try {
        QList<Candidate> found;
        for (const QVariantList &row : database.query(sql, {QString(u'"' + phrase + u'"')}))
            found.append({{milliseconds(row.at(1)), Source<T>::rank, milliseconds(row.at(2)),
                           row.at(0).toString()},
                          nullptr});
        return found;
    } catch (const StoreError &) {
        return std::nullopt;
    }
}

template<class T>
void collect(ModelContext &context, const QString &lowerQuery, bool indexable,
             QList<Candidate> &candidates)
{
    // The index holds what was saved, so a kind with unsaved changes is read from the records.
    if (indexable && !context.hasUnsavedChanges<T>()) {
        if (auto found = indexedCandidates<T>(context.database(), lowerQuery)) {
            candidates += *found;
            return;
        }
    }
    for (auto &record : context.tryFetch<T>()) {
        if (matches(*record, lowerQuery))
            candidates.append({positionOf(*record), std::move(record)});
    }
}

template<class T>
std::optional<Hit> confirm(ModelContext &context, const Candidate &candidate, const QString &query,
                           const QString &lowerQuery)
{
    if (candidate.record)
        return hitFor(static_cast<const T &>(*candidate.record), query);
    std::shared_ptr<Record> record;
    try {
        record = context.recordForKey(T::staticEntity(), candidate.position.key);
    } catch (const StoreError &) {
    }
    if (!record || !matches(static_cast<const T &>(*record), lowerQuery))
        return std::nullopt;
    return hitFor(static_cast<const T &>(*record), query);
}

// The trigram index finds any run of three or more characters. Shorter queries are scanned, and
// so is text the index would read differently: its query parser stops at a NUL, and a lone
// surrogate becomes U+FFFD on the way to UTF-8.
bool indexable(const QString &lowerQuery)
{
    qsizetype characters = 0;
    for (qsizetype i = 0; i < lowerQuery.size(); ++i) {
        const QChar c = lowerQuery.at(i);
        if (c.isNull() || c.isLowSurrogate())
            return false;
        if (c.isHighSurrogate()) {
            if (i + 1 == lowerQuery.size() || !lowerQuery.at(i + 1).isLowSurrogate())
                return false;
            ++i;
        }
        ++characters;
    }
    return characters >= 3;
}

QList<qsizetype> clusterBounds(const QString &text)
{
    QList<qsizetype> bounds{0};
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    while (finder.toNextBoundary() > 0)
        bounds.append(finder.position());
    if (bounds.last() != text.size())
        bounds.append(text.size());
    return bounds;
}

struct IndexedText {
    QString table;
    QString column;
};

QList<IndexedText> indexedTexts()
{
    return {{DailyEntry::staticEntity().name, textColumn<DailyEntry>()},
            {Meeting::staticEntity().name, textColumn<Meeting>()},
            {WeeklyBrief::staticEntity().name, textColumn<WeeklyBrief>()}};
}

QStringList triggerNames(const QString &table)
{
    const QString index = indexTable(table);
    return {index + u"_insert"_s, index + u"_update"_s, index + u"_delete"_s};
}

void buildIndex(Database &database, const IndexedText &source)
{
    const QString table = quotedIdentifier(source.table);
    const QString index = quotedIdentifier(indexTable(source.table));
    const QString column = quotedIdentifier(source.column);
    const QStringList triggers = triggerNames(source.table);
    for (const QString &trigger : triggers)
        database.exec(u"DROP TRIGGER IF EXISTS "_s + quotedIdentifier(trigger));
    database.exec(u"DROP TABLE IF EXISTS "_s + index);
    // Case-sensitive over text that is lower-cased already: the tokenizer's own folding knows
    // only ASCII and would disagree with QString's.
    database.exec(u"CREATE VIRTUAL TABLE "_s + index +
                  u" USING fts5(body, tokenize = 'trigram case_sensitive 1')"_s);
    database.exec(u"INSERT INTO "_s + index + u" (rowid, body) SELECT rowid, tovren_fold("_s +
                  column + u") FROM "_s + table);
    // Whatever the index holds under the rowid goes first: a row replaced with INSERT OR
    // REPLACE leaves its old entry behind, and a later row may be given that rowid again. (A
    // trigger's own OR REPLACE gives way to an upsert's conflict handling, so it can't do this.)
    const QString write = u"DELETE FROM "_s + index + u" WHERE rowid = new.rowid; INSERT INTO "_s +
                          index + u" (rowid, body) VALUES (new.rowid, tovren_fold(new."_s + column +
                          u")); END"_s;
    database.exec(u"CREATE TRIGGER "_s + quotedIdentifier(triggers.at(0)) + u" AFTER INSERT ON "_s +
                  table + u" BEGIN "_s + write);
    database.exec(u"CREATE TRIGGER "_s + quotedIdentifier(triggers.at(1)) + u" AFTER UPDATE OF "_s +
                  column + u" ON "_s + table + u" BEGIN DELETE FROM "_s + index +
                  u" WHERE rowid = old.rowid; "_s + write);
    database.exec(u"CREATE TRIGGER "_s + quotedIdentifier(triggers.at(2)) + u" AFTER DELETE ON "_s +
                  table + u" BEGIN DELETE FROM "_s + index + u" WHERE rowid = old.rowid; END"_s);
}

bool hasIndex(Database &database, const IndexedText &source)
{
    const QStringList triggers = triggerNames(source.table);
    return database.tableExists(indexTable(source.table)) &&
           database.scalar(u"SELECT count(*) FROM sqlite_master WHERE type = 'trigger' AND "
                           "name IN (?, ?, ?)"_s,
                           {triggers.at(0), triggers.at(1), triggers.at(2)})
                   .toLongLong() == triggers.size();
}

} // namespace

QList<Hit> scan(ModelContext &context, const QString &query, qsizetype limit)
{
    const QString lowerQuery = query.toLower();
    QList<Hit> hits;
    scanKind<DailyEntry>(context, query, lowerQuery, hits);
    scanKind<Meeting>(context, query, lowerQuery, hits);
    scanKind<WeeklyBrief>(context, query, lowerQuery, hits);
    std::stable_sort(hits.begin(), hits.end(), [](const Hit &a, const Hit &b) {
        return milliseconds(a.date) > milliseconds(b.date);
    });
    hits.resize(std::clamp<qsizetype>(limit, 0, hits.size()));
    return hits;
}

QList<Hit> search(ModelContext &context, const QString &query, qsizetype limit)
{
    if (limit <= 0)
        return {};
    const QString lowerQuery = query.toLower();
    const bool useIndex = indexable(lowerQuery);
    QList<Candidate> candidates;
    collect<DailyEntry>(context, lowerQuery, useIndex, candidates);
    collect<Meeting>(context, lowerQuery, useIndex, candidates);
    collect<WeeklyBrief>(context, lowerQuery, useIndex, candidates);
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate &a, const Candidate &b) { return a.position < b.position; });

    // A common word names thousands of rows; only as many as the answer needs are loaded.
    QList<Hit> hits;
    for (const Candidate &candidate : std::as_const(candidates)) {
        if (hits.size() == limit)
            break;
        std::optional<Hit> hit;
        switch (candidate.position.rank) {
        case Source<DailyEntry>::rank:
            hit = confirm<DailyEntry>(context, candidate, query, lowerQuery);
            break;
        case Source<Meeting>::rank:
            hit = confirm<Meeting>(context, candidate, query, lowerQuery);
            break;
        case Source<WeeklyBrief>::rank:
            hit = confirm<WeeklyBrief>(context, candidate, query, lowerQuery);
            break;
        }
        if (hit)
            hits.append(std::move(*hit));
    }
    return hits;
}

QString extractSnippet(const QString &text, const QString &query)
{
    const QString lowerText = text.toLower();
    const QString lowerQuery = query.toLower();
    const QList<qsizetype> bounds = clusterBounds(text);
    const qsizetype count = bounds.size() - 1;
    const qsizetype at = lowerText.indexOf(lowerQuery);
    if (at < 0)
        return text.first(bounds.at(std::min(leadLength, count)));

    // The match is found in the lower-cased text and its place carried over to the text itself
    // by counting characters; the two differ in length only where lower-casing changes a
    // letter's (İ becomes i and a combining dot).
    const QList<qsizetype> lowerBounds = clusterBounds(lowerText);
    const qsizetype matchStart =
        std::upper_bound(lowerBounds.cbegin(), lowerBounds.cend(), at) - lowerBounds.cbegin() - 1;
    const qsizetype matchEnd =
        std::lower_bound(lowerBounds.cbegin(), lowerBounds.cend(), at + lowerQuery.size()) -
        lowerBounds.cbegin();
    const qsizetype first = std::clamp<qsizetype>(matchStart - snippetContext, 0, count);
    const qsizetype last = std::clamp<qsizetype>(matchEnd + snippetContext, first, count);
    QString snippet = text.sliced(bounds.at(first), bounds.at(last) - bounds.at(first)).trimmed();
    if (first > 0)
        snippet.prepend(QChar(u'…'));
    if (last < count)
        snippet.append(QChar(u'…'));
    return snippet;
}

void prepareIndex(Database &database)
{
    // What the index was built with: its layout, and the Unicode tables that lower-cased its
    // text. A Qt with newer tables lower-cases some letters differently, so either change
    // builds it again.
    const QString layout = u"trigram 1, Unicode %1"_s.arg(int(QChar::currentUnicodeVersion()));
    const QList<IndexedText> sources = indexedTexts();
    bool complete =
        database.scalar(u"SELECT value FROM \"StoreMetadata\" WHERE key = 'searchIndex'"_s)
            .toString() == layout;
    for (const IndexedText &source : sources)
        complete = complete && hasIndex(database, source);
    if (complete)
        return;

    database.exec(u"SAVEPOINT search_index"_s);
    try {
        for (const IndexedText &source : sources)
            buildIndex(database, source);
        database.query(u"INSERT OR REPLACE INTO \"StoreMetadata\" (key, value) "
                       "VALUES ('searchIndex', ?)"_s,
                       {layout});
        database.exec(u"RELEASE search_index"_s);
    } catch (const StoreError &) {
        // An SQLite without the trigram tokenizer: the store opens without an index and search
        // reads every record. No trigger may be left to write into a table that isn't there.
        database.exec(u"ROLLBACK TO search_index"_s);
        database.exec(u"RELEASE search_index"_s);
        for (const IndexedText &source : sources) {
            for (const QString &trigger : triggerNames(source.table))
                database.exec(u"DROP TRIGGER IF EXISTS "_s + quotedIdentifier(trigger));
        }
    }
}

} // namespace JournalSearch
