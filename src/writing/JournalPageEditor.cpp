#include "JournalPageEditor.h"

#include "JournalDraftStore.h"
#include "JournalTemplates.h"
#include "SaveDebouncer.h"
#include "core/AppCalendar.h"
#include "core/Clock.h"
#include "core/DataGeneration.h"
#include "core/ImageStorage.h"
#include "core/Notices.h"
#include "core/Preferences.h"
#include "core/TagParser.h"
#include "core/records/DailyEntry.h"
#include "core/records/EntryImage.h"
#include "core/store/ModelContext.h"

#include <QRegularExpression>
#include <QScopeGuard>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

QHash<QString, int> lineCounts(const QString &text)
{
    QHash<QString, int> counts;
    for (const QString &line : text.split(u'\n')) {
        if (!line.trimmed().isEmpty())
            ++counts[line];
    }
    return counts;
}

} // namespace

JournalPageEditor::JournalPageEditor(ModelContext &context, Preferences &preferences,
                                     JournalDraftStore &drafts, SaveDebouncer &debouncer,
                                     QObject *parent)
    : QObject(parent)
    , m_context(context)
    , m_preferences(preferences)
    , m_drafts(drafts)
    , m_debouncer(debouncer)
    , m_date(Calendar::current().startOfDay(Clock::now()))
{
    connect(&NoticeCenter::shared(), &NoticeCenter::posted, this, &JournalPageEditor::onNotice);
}

JournalPageEditor::~JournalPageEditor()
{
    save();
}

QDateTime JournalPageEditor::dayStart() const
{
    return Calendar::current().startOfDay(m_date);
}

bool JournalPageEditor::isSameDay(const QDateTime &a, const QDateTime &b) const
{
    return Calendar::current().isSameDay(a, b);
}

void JournalPageEditor::setDate(const QDateTime &date)
{
    save();
    const QDateTime day = Calendar::current().startOfDay(date);
    const QDateTime previous = dayStart();
    m_date = day;
    if (m_drafts.activeDay() == previous && previous != day)
        m_drafts.setActiveDay(std::nullopt);
    load();
}

void JournalPageEditor::followToday(AppCalendar &calendar)
{
    m_followedToday = calendar.today();
    connect(&calendar, &AppCalendar::changed, this, [this, &calendar] {
        const QDateTime ended = std::exchange(m_followedToday, calendar.today());
        if (isSameDay(m_date, ended) && !isSameDay(ended, m_followedToday))
            setDate(m_followedToday);
    });
}

QList<std::shared_ptr<DailyEntry>> JournalPageEditor::storedEntries(const QDateTime &date,
                                                                    ModelContext &context)
{
    const Calendar calendar = Calendar::current();
    const QDateTime start = calendar.startOfDay(date);
    const QDateTime end = calendar.startOfDay(calendar.day(start).addDays(1));
    return context.tryFetch<DailyEntry>({field(&DailyEntry::date).inRange(start, end),
                                         {field(&DailyEntry::createdAt).ascending()},
                                         {}});
}

QString JournalPageEditor::joinedText(const QList<std::shared_ptr<DailyEntry>> &entries)
{
    QStringList parts;
    for (const auto &entry : entries)
        parts.append(entry->content);
    return parts.join(u"\n\n"_s);
}

QSet<QUuid> JournalPageEditor::imageIds(const QString &text)
{
    static const QRegularExpression token(u"\\{\\{img:([0-9A-Fa-f-]{36})"_s);
    QSet<QUuid> ids;
    for (auto it = token.globalMatch(text); it.hasNext();) {
        const QUuid id = QUuid::fromString(it.next().captured(1));
        if (!id.isNull())
            ids.insert(id);
    }
    return ids;
}

void JournalPageEditor::showText(const QString &text)
{
    m_text = text;
    emit textReplaced(text);
}

void JournalPageEditor::load()
{
    m_debouncer.cancel(this);
    const QDateTime day = dayStart();
    m_entries = storedEntries(day, m_context);
    const QString stored = joinedText(m_entries);
    QString text;
    if (m_entries.isEmpty() && !m_drafts.draft(day)) {
        // A new page shows today's headings; nothing is stored until the user writes.
        if (isSameDay(day, Clock::now()))
            text = JournalTemplates::content(JournalTemplates::currentTemplateId(m_preferences),
                                             m_preferences);
    } else {
        text = m_drafts.liveText(day, stored);
    }
    m_drafts.noteLoaded(day, stored);
    m_drafts.setActiveDay(day);
    m_knownStored = stored;
    m_generation = DataGeneration::current();
    m_loaded = true;
    // Unsaved words of an earlier visit (a save that failed) are saved again.
    m_dirty = m_drafts.draft(day) && text.trimmed() != stored.trimmed();
    showText(text);
    if (m_dirty)
        scheduleSave();
}

void JournalPageEditor::scheduleSave()
{
    // The day is fixed now: a save that fires after a change of day must not write this
    // text into the new one.
    m_debouncer.schedule(this, [this, day = dayStart()] {
        if (dayStart() == day && m_dirty)
            saveContent(m_text);
    });
}

void JournalPageEditor::setText(const QString &text)
{
    if (!m_loaded || text == m_text)
        return;
    m_text = text;
    m_dirty = true;
    m_drafts.setDraft(dayStart(), text);
    scheduleSave();
}

void JournalPageEditor::save()
{
    m_debouncer.cancel(this);
    if (m_loaded && m_dirty)
        saveContent(m_text);
}

void JournalPageEditor::saveContent(const QString &text)
{
    if (!m_loaded)
        return;
    if (m_generation != DataGeneration::current()) {
        // Typing from before an erase: the page it belonged to is gone.
        m_dirty = false;
        return;
    }
    const QDateTime day = dayStart();
    const QList<std::shared_ptr<DailyEntry>> entries = storedEntries(day, m_context);
    const QString stored = joinedText(entries);
    // Reconciling compares trimmed text, which would drop an edit of white space at either end
    // (indenting the first line): when nobody else wrote since, the page's text stands as is.
    const QString base = m_drafts.base(day).value_or(stored);
    const QString kept = base == stored ? text : JournalDraftStore::reconcile(text, base, stored);
    const auto recordStored = qScopeGuard([&] {
        m_drafts.recordStored(kept, day);
        m_knownStored = kept;
    });

    const QString skeleton = JournalTemplates::content(
        JournalTemplates::currentTemplateId(m_preferences), m_preferences);
    std::shared_ptr<DailyEntry> written;
    if (kept.trimmed().isEmpty() || kept.trimmed() == skeleton.trimmed()) {
        // An untouched skeleton never becomes a record, and emptying a page deletes it.
        for (const auto &entry : entries)
            m_context.remove(entry);
    } else {
        if (entries.isEmpty()) {
            written = std::make_shared<DailyEntry>(kept, day, false);
            m_context.insert(written);
        } else {
            written = entries.first();
            if (written->content != kept)
                written->content = kept;
            // The later entries' text is in the first now; their images go with it.
            for (qsizetype i = 1; i < entries.size(); ++i) {
                for (const auto &image : entries.at(i)->images())
                    image->entry = written;
                m_context.remove(entries.at(i));
            }
            written->updatedAt = Clock::now();
        }
        TagParser::resolveTags(TagParser::extractTagNames(kept), m_context);

        const QSet<QUuid> named = imageIds(kept);
        bool orphans = false;
        for (const auto &image : written->images())
            orphans |= !named.contains(image->id);
        if (orphans) {
            // Kept a while, so that an undo brings the image back.
            QTimer::singleShot(imageGraceMs, this, [this, day] { pruneImages(day); });
        }
    }

    const bool saved = m_context.trySave();
    m_dirty = !saved;
    m_entries = storedEntries(day, m_context);
    if (saved && written)
        emit entrySaved(written->id);
    if (kept != m_text)
        showText(kept);
}

void JournalPageEditor::pruneOrphanedImages()
{
    pruneImages(dayStart());
}

void JournalPageEditor::pruneImages(const QDateTime &day)
{
    if (m_generation != DataGeneration::current())
        return;
    const auto entries = storedEntries(day, m_context);
    QSet<QUuid> named = imageIds(joinedText(entries));
    if (dayStart() == day)
        named += imageIds(m_text);
    if (const auto draft = m_drafts.draft(day))
        named += imageIds(*draft);
    bool removed = false;
    for (const auto &entry : entries) {
        for (const auto &image : entry->images()) {
            if (named.contains(image->id))
                continue;
            ImageStorage::remove(image->id.toString(QUuid::WithoutBraces).toUpper());
            m_context.remove(image);
            removed = true;
        }
    }
    if (removed)
        m_context.trySave();
}

void JournalPageEditor::deleteDay(const QDateTime &day)
{
    const bool shown = isSameDay(day, m_date);
    if (shown) {
        m_debouncer.cancel(this);
        m_dirty = false;
    }
    for (const auto &entry : storedEntries(day, m_context)) {
        for (const auto &image : entry->images())
            ImageStorage::remove(image->id.toString(QUuid::WithoutBraces).toUpper());
        m_context.remove(entry);
    }
    m_context.trySave();
    m_drafts.forget(day);
    if (shown && m_loaded)
        load();
}

void JournalPageEditor::onNotice(const QString &name, const QVariantMap &info)
{
    if (name == QLatin1StringView(Notices::dataErased)) {
        m_debouncer.cancel(this);
        m_dirty = false;
        if (m_loaded)
            load();
        return;
    }
    if (name != QLatin1StringView(Notices::journalReplaced) || !m_loaded)
        return;
    const QDateTime day = info.value(u"day"_s).toDateTime();
    if (day.isValid() && isSameDay(day, m_date))
        takeStoredChange();
}

void JournalPageEditor::takeStoredChange()
{
    const QDateTime day = dayStart();
    m_entries = storedEntries(day, m_context);
    const QString stored = joinedText(m_entries);
    // A writer that went through the draft store built its text on our draft and recorded
    // it: take it as it is, removals included. One that didn't is merged with our typing.
    const bool builtOnDraft = m_drafts.draft(day) == stored && m_drafts.base(day) == stored;
    QString text = stored;
    if (m_dirty && !builtOnDraft) {
        const QHash<QString, int> theirs = lineCounts(stored);
        const QHash<QString, int> ours = lineCounts(m_text);
        const bool contained =
            std::all_of(ours.keyValueBegin(), ours.keyValueEnd(),
                        [&](const auto &line) { return theirs.value(line.first) >= line.second; });
        if (!contained)
            text = JournalDraftStore::reconcile(m_text, m_knownStored, stored);
    }
    m_knownStored = stored;
    m_drafts.recordStored(stored, day);
    m_dirty = text != stored;
    if (m_dirty) {
        m_drafts.setDraft(day, text);
        scheduleSave();
    } else {
        m_debouncer.cancel(this);
    }
    if (text != m_text)
        showText(text);
}
