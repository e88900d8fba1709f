#pragma once

#include <QDateTime>
#include <QListWidget>

// The quiet list of days beside the page: today first, then the written days by month, each
// with the first words of its page. A row works out its words when it is first shown, so ten
// years of pages cost nothing until scrolled to.
class JournalDayList : public QListWidget {
    Q_OBJECT
public:
    struct Day {
        QDateTime day;        // start of the day
        QStringList contents; // the stored text of the day's entries, oldest first
        bool isWin = false;
    };

    explicit JournalDayList(QWidget *parent = nullptr);

    // `days` newest first; today stands at the top whether or not it was written.
    void setDays(const QList<Day> &days, const QDateTime &today);
    void selectDay(const QDateTime &day);
    QDateTime selectedDay() const;
    // The row of a day, or -1.
    int rowOf(const QDateTime &day) const;

signals:
    void daySelected(const QDateTime &day);
    void deleteRequested(const QDateTime &day);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;

private:
    bool m_filling = false;
};
