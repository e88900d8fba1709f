#pragma once

#include "ai/AIContext.h"

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUuid>

#include <qcoro/qcorotask.h>

#include <memory>

class DailyEntry;
class ModelContext;

// Keeps a two-sentence summary on the days the user writes at length, for the top of long
// pages and for later recaps. Works in the background and never reports a failure: a day
// simply stays without a summary until a later pass.
class EntrySummaryGenerator : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isGenerating READ isGenerating NOTIFY isGeneratingChanged)
public:
    static constexpr int displayCharLimit = 220;
    // A day whose cleaned text is no longer than this reads fine without a summary.
    static constexpr int minimumLength = 200;
    // Each pass starts at most this many calls; older days wait for a later pass.
    static constexpr int maxDaysPerPass = 5;
    static inline const QString promptVersion = QStringLiteral("v2");
    static inline const QString feature = QStringLiteral("entry_summary");
    static const QString instruction;

    // With `lifetime`, work under way ends without a word once that object is gone.
    EntrySummaryGenerator(AIContext ai, ModelContext &context, const QObject *lifetime = nullptr,
                          QObject *parent = nullptr);

    struct Day {
        QDateTime start;
        QList<std::shared_ptr<DailyEntry>> entries;
    };
    // The newest days on which some entry's summary is stale, at most `limit`, newest first.
    static QList<Day> staleDays(const QList<std::shared_ptr<DailyEntry>> &entries,
                                int limit = maxDaysPerPass);
    // The same over the whole store, read back from the newest day in widening windows so that
    // years of pages aren't read to find five days.
    static QList<Day> staleDays(ModelContext &context, int limit = maxDaysPerPass);

    // Summarises the newest days whose summary is stale.
    void generateMissingSummaries(const QList<std::shared_ptr<DailyEntry>> &entries);
    void generateMissingSummaries();
    // Summarises one day's entries, unless the day is short or already being summarised; the
    // work goes on after this returns.
    void generateSummary(const QList<std::shared_ptr<DailyEntry>> &entries, const QDateTime &day);
    // The same, finishing when the summary is stored or given up.
    QCoro::Task<> summarize(QList<std::shared_ptr<DailyEntry>> entries, QDateTime day);
    // The user asked for a new summary: the old one goes first.
    void regenerateSummary(const QList<std::shared_ptr<DailyEntry>> &entries, const QDateTime &day);

    bool isGenerating() const { return m_running > 0; }
    const QSet<QUuid> &pendingEntryIds() const { return m_pendingEntryIds; }

    // The day's entries oldest first, joined by line feeds, trimmed.
    static QString dayText(const QList<std::shared_ptr<DailyEntry>> &entries);
    // The text as it is measured: headings, bullets, checkboxes and images don't count.
    static QString measuredText(const QString &text);
    // Long enough to be worth a summary.
    static bool isLong(const QString &text);
    // Cut to `limit` characters, at the last sentence end when that keeps more than half.
    static QString truncateForDisplay(const QString &text, int limit = displayCharLimit);

signals:
    void isGeneratingChanged(bool generating);
    // The summary of the day starting at `day` was stored.
    void summaryStored(const QDateTime &day);

private:
    void setRunning(int running);

    AIContext m_ai;
    ModelContext &m_context;
    const QObject *m_lifetime;
    QSet<QUuid> m_pendingEntryIds;
    int m_running = 0;
};
