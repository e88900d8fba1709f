#pragma once

#include <QDateTime>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUuid>
#include <QVariantMap>

#include <memory>

class AppCalendar;
class DailyEntry;
class JournalDraftStore;
class ModelContext;
class Preferences;
class SaveDebouncer;

// One journal day between the editor and the store: loads the day's text, saves typing
// through the shared debouncer, merges what others wrote meanwhile, decides when a page
// becomes a record and when it stops being one, keeps tags and images in step.
class JournalPageEditor : public QObject {
    Q_OBJECT
public:
    static constexpr int imageGraceMs = 5000;

    JournalPageEditor(ModelContext &context, Preferences &preferences, JournalDraftStore &drafts,
                      SaveDebouncer &debouncer, QObject *parent = nullptr);
    // Closing the page saves what is still pending.
    ~JournalPageEditor() override;

    QDateTime date() const { return m_date; }
    // Saves the page shown now at once, then shows the day of `date`.
    void setDate(const QDateTime &date);
    // Moves on to the new day at midnight when the page shows the day that just ended.
    void followToday(AppCalendar &calendar);

    void load();
    bool isLoaded() const { return m_loaded; }
    QString text() const { return m_text; }
    // The editor's text after each change; saved after the debounce.
    void setText(const QString &text);
    // Saves pending typing now.
    void save();
    void saveContent(const QString &text);
    // Deletes the day's records and their images, after the user confirmed.
    void deleteDay(const QDateTime &day);

    // The entries of the day the page loaded, oldest first.
    QList<std::shared_ptr<DailyEntry>> entries() const { return m_entries; }

    static QList<std::shared_ptr<DailyEntry>> storedEntries(const QDateTime &date,
                                                            ModelContext &context);
    // Several entries of one day read as one text, a blank line between them.
    static QString joinedText(const QList<std::shared_ptr<DailyEntry>> &entries);
    static QSet<QUuid> imageIds(const QString &text);
    // Removes images of the day no longer named by its text, with their files.
    void pruneOrphanedImages();

signals:
    // The text the view shows was replaced: a load, or a merge with someone else's writing.
    void textReplaced(const QString &text);
    // A save wrote this entry; its summary may need refreshing.
    void entrySaved(const QUuid &entryId);

private:
    void showText(const QString &text);
    void scheduleSave();
    void onNotice(const QString &name, const QVariantMap &info);
    void takeStoredChange();
    bool isSameDay(const QDateTime &a, const QDateTime &b) const;
    QDateTime dayStart() const;
    void pruneImages(const QDateTime &day);

    ModelContext &m_context;
    Preferences &m_preferences;
    JournalDraftStore &m_drafts;
    SaveDebouncer &m_debouncer;

    QDateTime m_date;
    QString m_text;
    // The stored text as this page last read or wrote it.
    QString m_knownStored;
    QList<std::shared_ptr<DailyEntry>> m_entries;
    bool m_loaded = false;
    bool m_dirty = false;
    int m_generation = 0;
    QDateTime m_followedToday;
};
