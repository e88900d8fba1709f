#pragma once

#include "writing/InspirationTray.h"

#include <QDateTime>
#include <QList>
#include <QSet>
#include <QTimer>
#include <QWidget>

class ModelContext;
class QAbstractButton;
class QLabel;
class QScrollArea;
class QTextEdit;
class QVBoxLayout;
class TaskPhraser;

// "From your day": a narrow column beside the page offering the day's finished tasks, goals,
// meetings and yesterday's open plans; a click drops one into the page as a bullet.
class InspirationPanel : public QWidget {
    Q_OBJECT
public:
    InspirationPanel(ModelContext &context, TaskPhraser &phraser, QTextEdit *page,
                     QWidget *parent = nullptr);
    ~InspirationPanel() override;

    // The page's day. Its suggestions are read once the page is up, not while it is built.
    void setDay(const QDateTime &day);
    // Reads the day again; cheap, and a burst of calls reads once.
    void refresh();

    // What the column offers now, in order, and a button for each.
    QList<InspirationTray::Suggestion> shown() const { return m_shown; }
    QList<QAbstractButton *> buttons() const { return m_buttons; }
    QLabel *emptyLabel() const { return m_empty; }

protected:
    void showEvent(QShowEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void reload();
    void askForPhrases();
    void render();
    void use(const InspirationTray::Suggestion &suggestion);
    void applyPalette();

    ModelContext &m_context;
    TaskPhraser &m_phraser;
    QTextEdit *m_page;
    QDateTime m_day;
    // Used suggestions stay hidden for the life of the screen, whichever day is shown.
    QSet<QString> m_used;
    QSet<QString> m_askedTasks;
    QList<InspirationTray::Suggestion> m_shown;
    QList<QAbstractButton *> m_buttons;
    QLabel *m_heading;
    QLabel *m_empty;
    QScrollArea *m_scroll;
    QVBoxLayout *m_list;
    QTimer m_reloadTimer;
    bool m_stale = false;
    bool m_rendered = false;
};
