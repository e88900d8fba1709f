#include "JournalDraftStore.h"

#include "JournalTemplates.h"
#include "core/Clock.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype maxPlacementWork = 4'000'000;

// The nearest heading above a line of `lines`, or -1.
qsizetype sectionOf(const QStringList &lines, qsizetype index)
{
    for (qsizetype i = index - 1; i >= 0; --i) {
        if (JournalTemplates::isHeadingLine(lines.at(i)))
            return i;
    }
    return -1;
}

// Where a line goes at the end of the section headed `heading` in `lines`: after its last
// line with text, before the next heading.
qsizetype endOfSection(const QStringList &lines, qsizetype heading)
{
    qsizetype end = heading + 1;
    while (end < lines.size() && !JournalTemplates::isHeadingLine(lines.at(end)))
        ++end;
    while (end - 1 > heading && lines.at(end - 1).trimmed().isEmpty())
        --end;
    return end;
}

qsizetype endOfText(const QStringList &lines)
{
    qsizetype end = lines.size();
    while (end > 0 && lines.at(end - 1).trimmed().isEmpty())
        --end;
    return end;
}

} // namespace

qint64 JournalDraftStore::key(const QDateTime &day)
{
    return Calendar::current().startOfDay(day).toMSecsSinceEpoch();
}

QString JournalDraftStore::liveText(const QDateTime &day, const QString &fallback) const
{
    const auto found = m_byDay.constFind(key(day));
    if (found == m_byDay.cend())
        return fallback;
    return reconcile(*found, m_baseByDay.value(key(day), fallback), fallback);
}

QString JournalDraftStore::reconcile(const QString &draft, const QString &base,
                                     const QString &stored)
{
    const QString d = draft.trimmed();
    const QString b = base.trimmed();
    const QString s = stored.trimmed();
    if (d == s)
        return stored;
    if (b == s)
        return draft;
    if (d == b)
        return stored;
    return merge(base, draft, stored);
}

QString JournalDraftStore::merge(const QString &base, const QString &ours, const QString &theirs)
{
    QHash<QString, int> inBase;
    for (const QString &line : base.split(u'\n'))
        ++inBase[line];
    QHash<QString, int> inOurs;
    QStringList result = ours.split(u'\n');
    for (const QString &line : std::as_const(result))
        ++inOurs[line];

    const QStringList their = theirs.split(u'\n');
    QList<qsizetype> added;
    for (qsizetype i = 0; i < their.size(); ++i) {
        const QString &line = their.at(i);
        if (line.trimmed().isEmpty())
            continue;
        // A line of the base stands for the same line in ours, kept or deliberately removed;
        // a line ours has too was added on both sides.
        if (inBase.value(line) > 0) {
            --inBase[line];
            if (inOurs.value(line) > 0)
                --inOurs[line];
            continue;
        }
        if (inOurs.value(line) > 0) {
            --inOurs[line];
            continue;
        }
        added.append(i);
    }

    // Placing each line searches the page; for a flood of new lines that would be quadratic,
    // so they go to the end together, in their order.
    if (added.size() * result.size() > maxPlacementWork) {
        const qsizetype end = endOfText(result);
        QStringList tail{QString()};
        for (qsizetype i : std::as_const(added))
            tail.append(their.at(i));
        result = result.mid(0, end) + tail + result.mid(end);
        return result.join(u'\n');
    }

    for (qsizetype i : std::as_const(added)) {
        const QString &line = their.at(i);

        qsizetype previous = i - 1;
        while (previous >= 0 && their.at(previous).trimmed().isEmpty())
            --previous;
        const bool newParagraph = previous >= 0 && previous < i - 1;
        qsizetype at = -1;
        if (previous >= 0 && !JournalTemplates::isHeadingLine(their.at(previous))) {
            const qsizetype anchor = result.lastIndexOf(their.at(previous));
            if (anchor >= 0) {
                at = anchor + 1;
                // A line that opened a paragraph there goes after the paragraph here.
                if (newParagraph) {
                    while (at < result.size() && !result.at(at).trimmed().isEmpty() &&
                           !JournalTemplates::isHeadingLine(result.at(at)))
                        ++at;
                }
            }
        }
        bool separate = newParagraph;
        if (at < 0) {
            const qsizetype theirHeading = sectionOf(their, i);
            const qsizetype heading =
                theirHeading >= 0 ? result.indexOf(their.at(theirHeading)) : -1;
            at = heading >= 0 ? endOfSection(result, heading) : endOfText(result);
            separate = at > 0 && !result.at(at - 1).trimmed().isEmpty() &&
                       !JournalTemplates::isHeadingLine(result.at(at - 1));
        }
        if (separate && at > 0 && !result.at(at - 1).trimmed().isEmpty()) {
            result.insert(at, QString());
            ++at;
        }
        result.insert(at, line);
    }
    return result.join(u'\n');
}

void JournalDraftStore::recordStored(const QString &text, const QDateTime &day)
{
    m_byDay.insert(key(day), text);
    m_baseByDay.insert(key(day), text);
}

void JournalDraftStore::setDraft(const QDateTime &day, const QString &text)
{
    m_byDay.insert(key(day), text);
}

void JournalDraftStore::noteLoaded(const QDateTime &day, const QString &stored)
{
    if (!m_baseByDay.contains(key(day)))
        m_baseByDay.insert(key(day), stored);
}

std::optional<QString> JournalDraftStore::draft(const QDateTime &day) const
{
    const auto found = m_byDay.constFind(key(day));
    return found == m_byDay.cend() ? std::nullopt : std::optional(*found);
}

std::optional<QString> JournalDraftStore::base(const QDateTime &day) const
{
    const auto found = m_baseByDay.constFind(key(day));
    return found == m_baseByDay.cend() ? std::nullopt : std::optional(*found);
}

void JournalDraftStore::setActiveDay(const std::optional<QDateTime> &day)
{
    m_activeDay = day ? std::optional(Calendar::current().startOfDay(*day)) : std::nullopt;
}

void JournalDraftStore::forget(const QDateTime &day)
{
    m_byDay.remove(key(day));
    m_baseByDay.remove(key(day));
}

void JournalDraftStore::clear()
{
    m_byDay.clear();
    m_baseByDay.clear();
    m_activeDay.reset();
}
