#pragma once

#include <QDate>
#include <QLineEdit>

#include <optional>

class QAction;
class QCalendarWidget;

// A due date that may be absent: typed in the user's locale ("12/8/2026", "12/8", "tomorrow")
// or picked from a calendar. Empty means no date. A date-by-date section editor would drop
// whole sections of a date typed in one go, so this is plain text read when it is used.
class DueDateEdit : public QLineEdit {
    Q_OBJECT
public:
    explicit DueDateEdit(QWidget *parent = nullptr);

    // Absent when empty, and when the words aren't a date (see isReadable).
    std::optional<QDate> due() const;
    // Empty or a date.
    bool isReadable() const;
    void setDue(std::optional<QDate> due);

    void showCalendar();
    QCalendarWidget *calendar() const { return m_calendar; }

    // A date in the locale's short form, with or without the year, or in its long form; a
    // two-digit year is this century's. Absent when the text is no date.
    static std::optional<QDate> parse(const QString &text, QDate today);
    // The locale's short date with all four digits of the year.
    static QString format(QDate date);

    QSize sizeHint() const override;

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void drawIcon();

    QAction *m_pick;
    QWidget *m_popup;
    QCalendarWidget *m_calendar;
};
