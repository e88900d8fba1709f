#pragma once

#include <QDateTime>
#include <QHash>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <functional>

class EntrySummaryGenerator;
class InspirationPanel;
class JournalDayList;
class JournalPageEditor;
class JournalTextEdit;
class QAction;
class QLabel;
class QToolButton;
class TovrenApp;

// The Journal tab: the list of days on the left and one day's page beside it, with the
// greeting, the streak, the win mark and the template choice above the page.
class JournalScreen : public QWidget {
    Q_OBJECT
public:
    explicit JournalScreen(TovrenApp &app, QWidget *parent = nullptr);
    ~JournalScreen() override;

    void showDay(const QDateTime &day);
    QDateTime shownDay() const;
    // Asks, then deletes the day's pages and images.
    void deleteDay(const QDateTime &day);
    // Today's page with the caret at its end, ready for typing.
    void focusToday();

    JournalTextEdit *editor() const { return m_editor; }
    JournalDayList *dayList() const { return m_days; }
    JournalPageEditor *page() const { return m_page; }
    QToolButton *winButton() const { return m_win; }
    InspirationPanel *inspiration() const { return m_inspiration; }
    EntrySummaryGenerator *summaries() const { return m_summaries; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void onTextReplaced(const QString &text);
    void onEdited();
    void refreshDays();
    void refreshHeader();
    void attachPendingImages();
    void toggleWin(bool on);
    void chooseTemplate(const QString &id);
    void report(const QString &message);
    void buildTemplateMenu();
    void applyPalette();
    void refreshSummary();
    void regenerateSummary();

    TovrenApp &m_app;
    JournalPageEditor *m_page;
    JournalDayList *m_days;
    JournalTextEdit *m_editor;
    QLabel *m_greeting;
    QLabel *m_streak;
    QLabel *m_title;
    QLabel *m_status;
    QToolButton *m_template;
    QToolButton *m_format;
    QToolButton *m_win;
    QToolButton *m_more;
    InspirationPanel *m_inspiration = nullptr;
    QTimer m_refreshTimer;
    QTimer m_statusTimer;
    QDateTime m_loadedDay;
    // Images put in the page before it had a record to hang them on.
    QHash<QString, QByteArray> m_pendingImages;
    bool m_reportedFirstPage = false;
    // The shown day's summary above its page, and what keeps the summaries up to date.
    EntrySummaryGenerator *m_summaries = nullptr;
    QLabel *m_summary = nullptr;
    QAction *m_regenerateSummary = nullptr;
};
