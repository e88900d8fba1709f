#pragma once

#include <QDate>
#include <QList>
#include <QWidget>

#include <memory>
#include <optional>

class ActionItem;
class JournalTextEdit;
class Meeting;
class Person;
class QCheckBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QScrollArea;
class QToolButton;
class QVBoxLayout;
class TovrenApp;

// One person's page: who they are, what is still owed, their meetings newest first with the
// next 1:1's note on top, and the chosen meeting's note in the journal's editor. Typing saves
// through the shared debouncer and at once when the page moves on; words others write into
// the same note meanwhile are merged in, never dropped.
class PersonPage : public QWidget {
    Q_OBJECT
public:
    explicit PersonPage(TovrenApp &app, QWidget *parent = nullptr);
    ~PersonPage() override;

    // Saves the note being written, then shows this person, tidied, at the next 1:1's note.
    void showPerson(const std::shared_ptr<Person> &person);
    std::shared_ptr<Person> person() const { return m_person; }
    // Saves the note being written, then shows this meeting's.
    void showMeeting(const std::shared_ptr<Meeting> &meeting);
    std::shared_ptr<Meeting> meeting() const { return m_meeting; }
    // As listed: the next 1:1 first, then the meetings newest first.
    QList<std::shared_ptr<Meeting>> meetings() const { return m_meetings; }

    // The note of a meeting on that day, made when there is none; the next 1:1's words move
    // into it.
    void newNote(const QDate &day);
    void addAction(const QString &title, std::optional<QDate> due = std::nullopt);
    // Writes pending typing now.
    void save();
    // The store changed: meetings and actions are read again, and words written into the
    // open note elsewhere join the typing.
    void refresh();
    void focusNote();
    // True while the page saves its own note, which changes nothing else on the screen.
    bool isSavingNote() const { return m_savingNote; }

    JournalTextEdit *editor() const { return m_editor; }
    QListWidget *timeline() const { return m_timeline; }
    QLineEdit *actionField() const { return m_actionField; }
    // The check boxes of the open actions at the top, and of the shown meeting's items.
    QList<QCheckBox *> openActionBoxes() const;
    QList<QCheckBox *> meetingActionBoxes() const;

signals:
    void editRequested();
    void deleteRequested();

protected:
    void changeEvent(QEvent *event) override;

private:
    void onEdited();
    void takeStoredChange();
    void showMerged(const QString &text);
    void fillTimeline();
    void fillActions();
    void updateHeader();
    void updateNoteTitle();
    void chooseAnotherDate();
    QWidget *actionRow(const std::shared_ptr<ActionItem> &item, bool sayWhichMeeting);
    std::shared_ptr<Meeting> scratchpad() const;
    static QString preview(const Meeting &meeting);

    TovrenApp &m_app;
    std::shared_ptr<Person> m_person;
    std::shared_ptr<Meeting> m_meeting;
    QList<std::shared_ptr<Meeting>> m_meetings;
    // The action items of those meetings, meeting by meeting, each meeting's oldest first.
    QList<std::shared_ptr<ActionItem>> m_items;
    // The note's stored text as this page last read or wrote it.
    QString m_base;
    bool m_dirty = false;
    bool m_filling = false;
    bool m_savingNote = false;

    QLabel *m_mark;
    QLabel *m_name;
    QLabel *m_detail;
    QToolButton *m_newNote;
    QWidget *m_openSection;
    QScrollArea *m_openScroll;
    QVBoxLayout *m_openRows;
    QListWidget *m_timeline;
    QLabel *m_noteTitle;
    QLabel *m_noteHint;
    JournalTextEdit *m_editor;
    QVBoxLayout *m_meetingRows;
    QLineEdit *m_actionField;
};
