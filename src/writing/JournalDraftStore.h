#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>

#include <optional>

// What the journal page holds unsaved, per day, for as long as the process runs: the draft
// in the editor and the stored text it started from. Writers that are not the page (assistant
// tools, quick capture) read a day's live text here and report what they stored, so that
// neither side's words are lost. One object, owned by the application, used on the main
// thread only.
class JournalDraftStore {
public:
    // A day's text as the user sees it: the stored text merged with the unsaved draft.
    QString liveText(const QDateTime &day, const QString &fallback) const;

    // The text to keep when the editor holds `draft` (started from `base`) and the store now
    // holds `stored`. Compared without surrounding white space.
    static QString reconcile(const QString &draft, const QString &base, const QString &stored);
    // Line merge for appends: every line of `ours` stays, and lines `theirs` added are placed
    // after the line they follow there, or at the end of their section, or at the end.
    static QString merge(const QString &base, const QString &ours, const QString &theirs);

    // A writer stored `text` for the day: it is now both the draft and its base.
    void recordStored(const QString &text, const QDateTime &day);
    // The editor's text changed.
    void setDraft(const QDateTime &day, const QString &text);
    // The editor opened the day over this stored text; the first base is kept.
    void noteLoaded(const QDateTime &day, const QString &stored);

    std::optional<QString> draft(const QDateTime &day) const;
    std::optional<QString> base(const QDateTime &day) const;
    std::optional<QDateTime> activeDay() const { return m_activeDay; }
    void setActiveDay(const std::optional<QDateTime> &day);

    // The day was deleted: its draft goes with it.
    void forget(const QDateTime &day);
    // For an erase of all data, or a switch of store: nothing of the old journal may be saved.
    void clear();

private:
    static qint64 key(const QDateTime &day);

    QHash<qint64, QString> m_byDay;
    QHash<qint64, QString> m_baseByDay;
    std::optional<QDateTime> m_activeDay;
};
