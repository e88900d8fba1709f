#include "generators/EntrySummaryGenerator.h"

#include "ai/PromptFrame.h"
#include "core/Clock.h"
#include "core/DataGeneration.h"
#include "core/JournalLanguage.h"
#include "core/records/DailyEntry.h"
#include "core/store/ModelContext.h"

#include <QMap>
#include <QPointer>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTextBoundaryFinder>

#include <algorithm>

using namespace Qt::StringLiterals;

const QString EntrySummaryGenerator::instruction =
    u"\n\nSummarize this journal entry in plain prose — no headings, no bullets, no bold, no "
    u"labels.\n\nLength: 2 sentences, around 30–50 words total.\nVoice: use the user's own words "
    u"and project names where you can. First-person (\"I\" or implied).\nSkip: dates, weekdays, "
    u"week numbers.\n\nIf the entry is empty, vague, or only contains a template heading, respond "
    u"with exactly: insufficient\n\nEntry:\n"_s;

namespace {

// Where each user-perceived character ends, so that an emoji or an accented letter counts once
// and a cut never splits one.
QList<qsizetype> characterEnds(const QString &text)
{
    QList<qsizetype> ends;
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    while (finder.toNextBoundary() > 0)
        ends.append(finder.position());
    return ends;
}

QList<std::shared_ptr<DailyEntry>> byCreation(QList<std::shared_ptr<DailyEntry>> entries)
{
    entries.removeAll(nullptr);
    std::stable_sort(entries.begin(), entries.end(),
                     [](const auto &a, const auto &b) { return a->createdAt < b->createdAt; });
    return entries;
}

qsizetype characterCount(const QString &text)
{
    return characterEnds(text).size();
}

QString idText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

EntrySummaryGenerator::EntrySummaryGenerator(AIContext ai, ModelContext &context,
                                             const QObject *lifetime, QObject *parent)
    : QObject(parent)
    , m_ai(std::move(ai))
    , m_context(context)
    , m_lifetime(lifetime)
{
}

QList<EntrySummaryGenerator::Day>
EntrySummaryGenerator::staleDays(const QList<std::shared_ptr<DailyEntry>> &entries, int limit)
{
    const Calendar calendar = Calendar::current();
    QMap<QDateTime, Day> days;
    for (const auto &entry : entries) {
        if (!entry || !entry->date.isValid())
            continue;
        const QDateTime start = calendar.startOfDay(entry->date);
        Day &day = days[start];
        day.start = start;
        day.entries.append(entry);
    }
    const QList<Day> oldestFirst = days.values();
    QList<Day> stale;
    for (auto it = oldestFirst.crbegin(); it != oldestFirst.crend() && stale.size() < limit; ++it) {
        if (std::any_of(it->entries.cbegin(), it->entries.cend(),
                        [](const auto &entry) { return entry->isSummaryStale(); }))
            stale.append(*it);
    }
    return stale;
}

QList<EntrySummaryGenerator::Day> EntrySummaryGenerator::staleDays(ModelContext &context, int limit)
{
    const auto newest =
        context.tryFetch<DailyEntry>({{}, {field(&DailyEntry::date).descending()}, 1});
    const auto oldest =
        context.tryFetch<DailyEntry>({{}, {field(&DailyEntry::date).ascending()}, 1});
    if (newest.isEmpty() || oldest.isEmpty())
        return {};
    const Calendar calendar = Calendar::current();
    const QDate first = calendar.day(oldest.first()->date);
    QDate end = calendar.day(newest.first()->date).addDays(1);
    QList<Day> found;
    // Windows of whole days, so that a day is never split between two of them. A month is
    // enough for a journal written most days; a sparse one gets wider windows.
    for (qint64 span = 31; found.size() < limit && end > first; span *= 2) {
        const QDate start = end.addDays(-span);
        const auto window = context.tryFetch<DailyEntry>(
            {field(&DailyEntry::date).inRange(calendar.startOfDay(start), calendar.startOfDay(end)),
             {},
             {}});
        found += staleDays(window, limit - int(found.size()));
        end = start;
    }
    return found;
}

void EntrySummaryGenerator::generateMissingSummaries(
    const QList<std::shared_ptr<DailyEntry>> &entries)
{
    for (const Day &day : staleDays(entries))
        generateSummary(day.entries, day.start);
}

void EntrySummaryGenerator::generateMissingSummaries()
{
    for (const Day &day : staleDays(m_context))
        generateSummary(day.entries, day.start);
}

void EntrySummaryGenerator::generateSummary(const QList<std::shared_ptr<DailyEntry>> &entries,
                                            const QDateTime &day)
{
    summarize(entries, day);
}

void EntrySummaryGenerator::regenerateSummary(const QList<std::shared_ptr<DailyEntry>> &entries,
                                              const QDateTime &day)
{
    for (const auto &entry : entries) {
        if (!entry)
            continue;
        entry->summary.reset();
        entry->summarizedContentHash.reset();
        entry->summaryGeneratedAt.reset();
    }
    m_context.trySave();
    generateSummary(entries, day);
}

QCoro::Task<> EntrySummaryGenerator::summarize(QList<std::shared_ptr<DailyEntry>> entries,
                                               QDateTime day)
{
    entries = byCreation(std::move(entries));
    const QString text = dayText(entries);
    if (!isLong(text))
        co_return;
    JournalLanguage::observe(m_ai.preferences, text);

    QSet<QUuid> ids;
    for (const auto &entry : std::as_const(entries))
        ids.insert(entry->id);
    // Saves come faster than answers; the text of a dropped one is picked up on the next pass,
    // as its hash won't match.
    if (ids.intersects(m_pendingEntryIds))
        co_return;
    m_pendingEntryIds.unite(ids);
    setRunning(m_running + 1);

    const QPointer<EntrySummaryGenerator> self(this);
    const QPointer<const QObject> alive(m_lifetime);
    const bool bound = m_lifetime;
    const AIContext ai = m_ai;
    ModelContext &context = m_context;
    const int generation = DataGeneration::current();

    // Built outside the co_await: GCC 12 destroys temporaries there twice.
    FramedRequest request{FrameBlocks::profile, day, instruction + text};
    std::optional<Generation> generated;
    try {
        generated = co_await PromptFrame::generate(ai, context, std::move(request));
    } catch (const std::exception &) {
        // Silent: the day stays as it was and a later pass may try again.
    }
    if (!self || (bound && !alive))
        co_return;
    const auto release = qScopeGuard([&] {
        if (!self)
            return;
        m_pendingEntryIds.subtract(ids);
        setRunning(m_running - 1);
    });
    // An erase while the model was writing took these pages with it.
    if (!generated || generation != DataGeneration::current())
        co_return;

    const QString answer = generated->answer.trimmed();
    if (answer.compare(u"insufficient"_s, Qt::CaseInsensitive) == 0)
        co_return;
    const QString summary = truncateForDisplay(answer, displayCharLimit);
    if (summary.isEmpty())
        co_return;
    QList<std::shared_ptr<DailyEntry>> live;
    for (const auto &entry : std::as_const(entries)) {
        if (entry->modelContext() == &context)
            live.append(entry);
    }
    if (live.isEmpty())
        co_return;

    PromptFrame::log(context, ai.preferences, *generated,
                     InteractionLog{feature, summary, promptVersion, idText(entries.first()->id),
                                    u"DailyEntry"_s});
    const qint64 hash = DailyEntry::contentHash(text);
    const QDateTime now = Clock::now();
    for (const auto &entry : std::as_const(live)) {
        entry->summary = summary;
        entry->summaryGeneratedAt = now;
        entry->summarizedContentHash = hash;
    }
    context.trySave();
    emit summaryStored(Calendar::current().startOfDay(day));
}

void EntrySummaryGenerator::setRunning(int running)
{
    const bool was = isGenerating();
    m_running = running;
    if (was != isGenerating())
        emit isGeneratingChanged(isGenerating());
}

QString EntrySummaryGenerator::dayText(const QList<std::shared_ptr<DailyEntry>> &entries)
{
    QStringList contents;
    for (const auto &entry : byCreation(entries))
        contents.append(entry->content);
    return contents.join(u'\n').trimmed();
}

QString EntrySummaryGenerator::measuredText(const QString &text)
{
    static const QRegularExpression image(u"\\{\\{img:[^}]+\\}\\}"_s);
    QStringList kept;
    for (const QString &raw : text.split(u'\n')) {
        QString line = raw.trimmed();
        qsizetype marks = 0;
        while (marks < line.size() && line.at(marks) == u'#')
            ++marks;
        line.remove(0, marks);
        for (const QString &bullet : {u"- [ ] "_s, u"- [x] "_s, u"- "_s}) {
            if (line.startsWith(bullet)) {
                line.remove(0, bullet.size());
                break;
            }
        }
        line = line.remove(image).trimmed();
        if (!line.isEmpty())
            kept.append(line);
    }
    return kept.join(u' ');
}

bool EntrySummaryGenerator::isLong(const QString &text)
{
    return characterCount(measuredText(text)) > minimumLength;
}

QString EntrySummaryGenerator::truncateForDisplay(const QString &text, int limit)
{
    const QList<qsizetype> ends = characterEnds(text);
    if (ends.size() <= limit)
        return text;
    const QString cut = text.left(limit > 0 ? ends.at(limit - 1) : 0);
    const qsizetype mark =
        std::max({cut.lastIndexOf(u'.'), cut.lastIndexOf(u'!'), cut.lastIndexOf(u'?')});
    if (mark >= 0) {
        const QString sentence = cut.left(mark + 1);
        if (characterCount(sentence) > limit / 2)
            return sentence.trimmed();
    }
    return cut.trimmed() + u"…"_s;
}
