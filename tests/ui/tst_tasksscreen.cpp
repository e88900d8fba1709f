#include "../writing/WritingTestMain.h"
#include "TestSupport.h"

#include "app/TovrenApp.h"
#include "core/AppCalendar.h"
#include "core/Notices.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContext.h"
#include "ui/Dialogs.h"
#include "ui/MainWindow.h"
#include "ui/tasks/DueDateEdit.h"
#include "ui/tasks/TaskListModel.h"
#include "ui/tasks/TaskRowDelegate.h"
#include "ui/tasks/TasksScreen.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>

using namespace Qt::StringLiterals;

namespace {

// Wednesday morning in Berlin.
const QDateTime now(QDate(2026, 11, 18), QTime(9, 30), Qt::UTC);

QDate today()
{
    return QDate(2026, 11, 18);
}

// A local wall-clock time in the test calendar's zone.
QDateTime at(QDate day, int hour, int minute = 0)
{
    return Calendar::current().at(day, hour, minute);
}

// Tovren's main window on a fresh data folder, built as its start builds it; the test opens
// the Tasks tab the way a user does and types into whatever has the keys.
struct Tasks {
    TempDataDir dir;
    FixedClock clock{now, testCalendar()};
    TovrenApp app{LaunchSteps::standard()};
    std::unique_ptr<MainWindow> window;
    TasksScreen *screen = nullptr;

    Tasks()
    {
        app.start();
        window = std::make_unique<MainWindow>(app);
        window->bringToFront();
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
        screen = qobject_cast<TasksScreen *>(window->screen(SidebarItem::tasks));
        QVERIFY(screen);
    }

    ModelContext &context() { return app.mainContext(); }
    TaskListModel *model() const { return screen->model(); }
    QListView *list() const { return screen->list(); }

    void open(const QString &how = u"sidebar"_s)
    {
        if (how == u"sidebar") {
            auto *sidebar = window->findChild<QListWidget *>(u"sidebar"_s);
            for (int row = 0; row < sidebar->count(); ++row) {
                QListWidgetItem *item = sidebar->item(row);
                if (item->data(Qt::UserRole).toString() == u"tasks")
                    QTest::mouseClick(sidebar->viewport(), Qt::LeftButton, {},
                                      sidebar->visualItemRect(item).center());
            }
        } else if (how == u"Ctrl+2") {
            QTest::keyClick(window.get(), Qt::Key_2, Qt::ControlModifier);
        } else {
            NoticeCenter::shared().post(Notices::newTask);
        }
        QCOMPARE(window->currentTab(), SidebarItem::tasks);
    }
    void type(const QString &text, Qt::Key key = Qt::Key_unknown)
    {
        QVERIFY2(QApplication::focusWidget(), "nothing has the keys");
        QTest::keyClicks(QApplication::focusWidget(), text);
        if (key != Qt::Key_unknown)
            QTest::keyClick(QApplication::focusWidget(), key);
    }

    // As an assistant's add_task or complete_task leaves the store: changed and saved.
    std::shared_ptr<TaskItem> task(const QString &title, std::optional<QDateTime> due = {},
                                   std::optional<QDateTime> completedAt = {})
    {
        auto task = std::make_shared<TaskItem>(title, 0, due);
        task->isCompleted = completedAt.has_value();
        task->completedAt = completedAt;
        context().insert(task);
        context().trySave();
        clock.advance(1000);
        return task;
    }

    // The list as the user reads it: headings with their counts, then the tasks.
    QStringList rows() const
    {
        QStringList rows;
        for (int row = 0; row < model()->rowCount(); ++row) {
            const QModelIndex index = model()->index(row);
            if (index.data(TaskListModel::IsHeadingRole).toBool()) {
                rows.append(u"# "_s + index.data().toString() + u' ' +
                            index.data(TaskListModel::CountRole).toString());
                continue;
            }
            QString line =
                (index.data(Qt::CheckStateRole).toInt() == Qt::Checked ? u"[x] "_s : u"[ ] "_s) +
                index.data().toString();
            if (const QString aside = index.data(TaskListModel::AsideRole).toString();
                !aside.isEmpty())
                line += u" · "_s + aside;
            rows.append(line);
        }
        return rows;
    }
    QRect rectOf(const std::shared_ptr<TaskItem> &task) const
    {
        return list()->visualRect(model()->index(model()->rowOf(task->id)));
    }
    void click(const std::shared_ptr<TaskItem> &task)
    {
        QTest::mouseClick(list()->viewport(), Qt::LeftButton, {}, rectOf(task).center());
    }
    // Double-clicking a task's title opens it for editing. QtTest's double click on a widget is
    // only its second half; the first click comes before it.
    void startEditing(const std::shared_ptr<TaskItem> &task)
    {
        click(task);
        QTest::mouseDClick(list()->viewport(), Qt::LeftButton, {}, rectOf(task).center());
        QVERIFY(screen->delegate()->openEditor());
        QCOMPARE(QApplication::focusWidget(), screen->delegate()->openEditor()->title());
    }
    // Lets the refresh that follows a save run.
    void settle() { QTest::qWait(5); }
};

} // namespace

class TestTasksScreen : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void quickAdd_data()
    {
        columns<QString, QString, QDate, QString>("opening", "typedDate", "due", "section");
        QTest::newRow("sidebar, no date") << u"sidebar"_s << QString() << QDate() << u"Today"_s;
        QTest::newRow("Ctrl+2, next month")
            << u"Ctrl+2"_s << u"12/8/2026"_s << QDate(2026, 12, 8) << u"Upcoming"_s;
        QTest::newRow("plan reminder, tomorrow")
            << u"newTask"_s << u"tomorrow"_s << today().addDays(1) << u"Upcoming"_s;
        QTest::newRow("today, without its year")
            << u"sidebar"_s << u"11/18"_s << today() << u"Today"_s;
    }

    // However the tab opens, the keys are in the field: Enter adds, the date field beside it
    // gives the day, and the field is ready for the next task.
    void quickAdd()
    {
        auto [opening, typedDate, due, section] =
            fetch<QString, QString, QDate, QString>("opening", "typedDate", "due", "section");
        Tasks tasks;
        tasks.open(opening);
        QCOMPARE(QApplication::focusWidget(), tasks.screen->quickAdd());
        QVERIFY(tasks.screen->emptyState()->isVisible());

        tasks.type(u"  Call Ana  "_s);
        if (!typedDate.isEmpty()) {
            QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            QCOMPARE(QApplication::focusWidget(), tasks.screen->quickAddDue());
            tasks.type(typedDate);
        }
        tasks.type({}, Qt::Key_Return);

        const auto stored = tasks.context().tryFetch<TaskItem>();
        QCOMPARE(stored.size(), 1);
        QCOMPARE(stored.first()->title, u"Call Ana"_s);
        QCOMPARE(stored.first()->priority, 0);
        QCOMPARE(stored.first()->dueDate,
                 due.isValid() ? std::optional(Calendar::current().startOfDay(due)) : std::nullopt);
        QVERIFY(!tasks.context().hasChanges());
        QCOMPARE(tasks.rows().first(), u"# "_s + section + u" 1"_s);
        QCOMPARE(tasks.list()->currentIndex().data(TaskListModel::IdRole).toUuid(),
                 stored.first()->id);
        QVERIFY(tasks.list()->isVisible());

        QCOMPARE(QApplication::focusWidget(), tasks.screen->quickAdd());
        QCOMPARE(tasks.screen->quickAdd()->text(), QString());
        QCOMPARE(tasks.screen->quickAddDue()->text(), QString());
        tasks.type(u"   "_s, Qt::Key_Return);
        tasks.type(u"Book the room"_s, Qt::Key_Return);
        QCOMPARE(tasks.context().fetchCount<TaskItem>(), 2);

        // A date that can't be read adds nothing: the keys go to it to be fixed.
        tasks.type(u"Plan the offsite"_s, Qt::Key_Tab);
        tasks.type(u"13/45/2026"_s, Qt::Key_Return);
        QCOMPARE(tasks.context().fetchCount<TaskItem>(), 2);
        QCOMPARE(QApplication::focusWidget(), tasks.screen->quickAddDue());
        QCOMPARE(tasks.screen->quickAdd()->text(), u"Plan the offsite"_s);

        // From the list, Ctrl+N brings the caret back to the field.
        tasks.click(stored.first());
        QCOMPARE(QApplication::focusWidget(), tasks.list());
        QTest::keyClick(tasks.window.get(), Qt::Key_N, Qt::ControlModifier);
        QCOMPARE(QApplication::focusWidget(), tasks.screen->quickAdd());
    }

    // Days are the user's calendar days, in Berlin, not UTC's and not 24-hour spans.
    void sections()
    {
        Tasks tasks;
        const QDate yesterday = today().addDays(-1);
        tasks.task(u"Done yesterday"_s, {}, at(yesterday, 22));
        tasks.task(u"Next year"_s, at(QDate(2027, 1, 5), 9));
        tasks.task(u"Undated"_s);
        tasks.task(u"Saturday"_s, at(QDate(2026, 11, 21), 0));
        tasks.task(u"Late yesterday"_s, at(yesterday, 23, 59));
        tasks.task(u"Done after midnight"_s, {}, at(today(), 0, 30));
        tasks.task(u"Tonight"_s, at(today(), 23, 30));
        tasks.task(u"Just after midnight"_s, at(today().addDays(1), 0, 30));
        tasks.task(u"A week late"_s, at(today().addDays(-7), 18));
        tasks.task(u"Done this morning"_s, {}, at(today(), 8));
        tasks.open();
        QCOMPARE(
            tasks.rows(),
            (QStringList{u"# Today 2"_s, u"[ ] Undated"_s, u"[ ] Tonight"_s, u"# Overdue 2"_s,
                         u"[ ] A week late · overdue 7d"_s, u"[ ] Late yesterday · overdue 1d"_s,
                         u"# Upcoming 3"_s, u"[ ] Just after midnight · Thu, Nov 19"_s,
                         u"[ ] Saturday · Sat, Nov 21"_s, u"[ ] Next year · Tue, Jan 5, 2027"_s,
                         u"# Done today 2"_s, u"[x] Done after midnight"_s,
                         u"[x] Done this morning"_s}));
        // The keys step over the headings.
        for (int row = 0; row < tasks.model()->rowCount(); ++row) {
            const QModelIndex index = tasks.model()->index(row);
            QCOMPARE(bool(tasks.model()->flags(index) & Qt::ItemIsSelectable),
                     !index.data(TaskListModel::IsHeadingRole).toBool());
        }

        // Midnight comes: yesterday's overdue tasks are a day later and today's work is done.
        tasks.clock.set(at(today().addDays(1), 0, 1));
        tasks.app.appCalendar().update();
        QTRY_COMPARE(tasks.rows().mid(0, 4),
                     (QStringList{u"# Today 2"_s, u"[ ] Undated"_s, u"[ ] Just after midnight"_s,
                                  u"# Overdue 3"_s}));
        QVERIFY(!tasks.rows().contains(u"# Done today 2"_s));
    }

    void typedDates_data()
    {
        columns<QString, QString, QDate>("locale", "typed", "date");
        const QDate december(2026, 12, 8);
        QTest::newRow("US") << u"en_US"_s << u"12/8/2026"_s << december;
        QTest::newRow("US, leading zeros") << u"en_US"_s << u"12/08/2026"_s << december;
        QTest::newRow("US, two-digit year") << u"en_US"_s << u"1/4/27"_s << QDate(2027, 1, 4);
        QTest::newRow("US, no year") << u"en_US"_s << u"12/8"_s << december;
        QTest::newRow("US, long") << u"en_US"_s << u"Tuesday, December 8, 2026"_s << december;
        QTest::newRow("US, words") << u"en_US"_s << u" Tomorrow "_s << today().addDays(1);
        QTest::newRow("US, day first is no date") << u"en_US"_s << u"13/12/2026"_s << QDate();
        QTest::newRow("UK, day first") << u"en_GB"_s << u"8/12/2026"_s << december;
        QTest::newRow("German") << u"de_DE"_s << u"8.12.2026"_s << december;
        QTest::newRow("German, no year") << u"de_DE"_s << u"8.12"_s << december;
        QTest::newRow("not a date") << u"en_US"_s << u"soon"_s << QDate();
    }

    // Dates are typed the way the user's locale writes them, and shown back that way.
    void typedDates()
    {
        auto [locale, typed, date] = fetch<QString, QString, QDate>("locale", "typed", "date");
        QLocale::setDefault(QLocale(locale));
        const auto parsed = DueDateEdit::parse(typed, today());
        const QString shown = date.isValid() ? DueDateEdit::format(date) : QString();
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        QCOMPARE(parsed, date.isValid() ? std::optional(date) : std::nullopt);
        if (date.isValid())
            QVERIFY2(shown.contains(u"2026"_s) || shown.contains(u"2027"_s), qPrintable(shown));
    }

    void tickAndUntick_data()
    {
        QTest::addColumn<bool>("withKeys");
        QTest::newRow("clicking the circle") << false;
        QTest::newRow("Space on the selected task") << true;
    }

    void tickAndUntick()
    {
        QFETCH(bool, withKeys);
        Tasks tasks;
        const auto ana = tasks.task(u"Call Ana"_s, at(today().addDays(-2), 9));
        tasks.task(u"Book the room"_s);
        tasks.open();
        const auto toggle = [&] {
            const QRect circle = TaskRowDelegate::checkRect(tasks.rectOf(ana));
            if (withKeys) {
                tasks.click(ana);
                QTest::keyClick(QApplication::focusWidget(), Qt::Key_Space);
            } else {
                QTest::mouseClick(tasks.list()->viewport(), Qt::LeftButton, {}, circle.center());
            }
            QVERIFY(!tasks.screen->delegate()->openEditor());
            QVERIFY(!tasks.context().hasChanges());
        };

        toggle();
        QVERIFY(ana->isCompleted);
        QCOMPARE(ana->completedAt, now.addSecs(2));
        QCOMPARE(tasks.rows(), (QStringList{u"# Today 1"_s, u"[ ] Book the room"_s,
                                            u"# Done today 1"_s, u"[x] Call Ana"_s}));

        toggle();
        QVERIFY(!ana->isCompleted);
        QCOMPARE(ana->completedAt, std::nullopt);
        QCOMPARE(tasks.rows().mid(2),
                 (QStringList{u"# Overdue 1"_s, u"[ ] Call Ana · overdue 2d"_s}));
    }

    void editInPlace_data()
    {
        columns<QStringList, QString, QDate, Qt::Key>("keys", "title", "due", "closing");
        const QDate due(2026, 11, 20);
        QTest::newRow("new title")
            << QStringList{u"Call Ana back"_s} << u"Call Ana back"_s << due << Qt::Key_Return;
        QTest::newRow("new day") << QStringList{{}, u"11/17/2026"_s} << u"Call Ana"_s
                                 << QDate(2026, 11, 17) << Qt::Key_Enter;
        QTest::newRow("no day") << QStringList{{}, u"<Delete>"_s} << u"Call Ana"_s << QDate()
                                << Qt::Key_Return;
        QTest::newRow("a blank title keeps the old one")
            << QStringList{u"   "_s} << u"Call Ana"_s << due << Qt::Key_Return;
        QTest::newRow("Escape drops the change")
            << QStringList{u"Nope"_s, u"<Delete>"_s} << u"Call Ana"_s << due << Qt::Key_Escape;
    }

    // The keys go to the title, Tab moves to the day; the task moves to its new section.
    void editInPlace()
    {
        auto [keys, title, due, closing] =
            fetch<QStringList, QString, QDate, Qt::Key>("keys", "title", "due", "closing");
        Tasks tasks;
        const auto ana = tasks.task(u"Call Ana"_s, at(QDate(2026, 11, 20), 0));
        tasks.open();
        tasks.startEditing(ana);
        for (qsizetype i = 0; i < keys.size(); ++i) {
            if (i > 0)
                QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            if (keys.at(i) == u"<Delete>")
                QTest::keyClick(QApplication::focusWidget(), Qt::Key_Delete);
            else
                tasks.type(keys.at(i));
        }
        QVERIFY(Dialogs::takeAskedQuestions().isEmpty());
        tasks.type({}, closing);
        QTRY_VERIFY(!tasks.screen->delegate()->openEditor());
        tasks.settle();

        QCOMPARE(ana->title, title);
        QCOMPARE(ana->dueDate,
                 due.isValid() ? std::optional(Calendar::current().startOfDay(due)) : std::nullopt);
        QVERIFY(!tasks.context().hasChanges());
        const QString section = !due.isValid()  ? u"Today"_s
                                : due < today() ? u"Overdue"_s
                                                : u"Upcoming"_s;
        QCOMPARE(tasks.rows().first(), u"# "_s + section + u" 1"_s);
        QCOMPARE(tasks.list()->currentIndex().data(TaskListModel::IdRole).toUuid(), ana->id);
    }

    void assistantWritesWhileEditing_data()
    {
        QTest::addColumn<bool>("completesTheEditedTask");
        QTest::newRow("another task") << false;
        QTest::newRow("the task being edited") << true;
    }

    // An assistant adds a task and completes one while a title is being edited: the list shows
    // it at once, and the typing, the editor and the selection stay.
    void assistantWritesWhileEditing()
    {
        QFETCH(bool, completesTheEditedTask);
        Tasks tasks;
        const auto ana = tasks.task(u"Call Ana"_s);
        const auto room = tasks.task(u"Book the room"_s);
        tasks.open();
        tasks.startEditing(ana);
        tasks.type(u"Call Ana about"_s);

        tasks.task(u"Send the deck"_s, at(today().addDays(1), 9));
        const auto done = completesTheEditedTask ? ana : room;
        done->isCompleted = true;
        done->completedAt = Clock::now();
        tasks.context().trySave();
        const QString open = completesTheEditedTask ? u"Book the room"_s : u"Call Ana"_s;
        QTRY_COMPARE(tasks.rows(), (QStringList{u"# Today 1"_s, u"[ ] "_s + open, u"# Upcoming 1"_s,
                                                u"[ ] Send the deck · Thu, Nov 19"_s,
                                                u"# Done today 1"_s, u"[x] "_s + done->title}));
        TaskEditor *editor = tasks.screen->delegate()->openEditor();
        QVERIFY(editor);
        QCOMPARE(QApplication::focusWidget(), editor->title());
        QCOMPARE(tasks.list()->currentIndex().data(TaskListModel::IdRole).toUuid(), ana->id);

        tasks.type(u" the budget"_s, Qt::Key_Return);
        QTRY_COMPARE(ana->title, u"Call Ana about the budget"_s);
        QCOMPARE(ana->isCompleted, completesTheEditedTask);
        QVERIFY(!tasks.context().hasChanges());
    }

    // Leaving the tab keeps an unfinished edit and the half-typed new task.
    void switchingAwayLosesNothing()
    {
        Tasks tasks;
        const auto ana = tasks.task(u"Call Ana"_s);
        tasks.open(u"Ctrl+2"_s);
        tasks.type(u"Half a thought"_s);
        tasks.startEditing(ana);
        tasks.type(u"Call Ana today"_s);

        QTest::keyClick(tasks.window.get(), Qt::Key_1, Qt::ControlModifier);
        QCOMPARE(tasks.window->currentTab(), SidebarItem::journal);
        QTRY_VERIFY(!tasks.screen->delegate()->openEditor());
        QCOMPARE(ana->title, u"Call Ana today"_s);
        QVERIFY(!tasks.context().hasChanges());

        tasks.open(u"Ctrl+2"_s);
        QCOMPARE(tasks.rows(), (QStringList{u"# Today 1"_s, u"[ ] Call Ana today"_s}));
        QCOMPARE(QApplication::focusWidget(), tasks.screen->quickAdd());
        QCOMPARE(tasks.screen->quickAdd()->text(), u"Half a thought"_s);
    }

    // Delete asks, from the list only; the last task gone, the empty state and the field are back.
    void deleteAsksFirst()
    {
        Tasks tasks;
        const auto ana = tasks.task(u"Call Ana"_s);
        tasks.open();
        tasks.click(ana);
        Dialogs::queueAnswers({false});

        tasks.screen->focusQuickAdd();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Delete);
        tasks.startEditing(ana);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Delete);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QTRY_VERIFY(!tasks.screen->delegate()->openEditor());
        QVERIFY(Dialogs::takeAskedQuestions().isEmpty());

        tasks.click(ana);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Delete);
        const auto asked = Dialogs::takeAskedQuestions();
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.first().title, u"Delete this task?"_s);
        QCOMPARE(asked.first().text,
                 u"“Call Ana” will be removed from your tasks. This can't be undone."_s);
        QVERIFY(asked.first().destructive);
        QCOMPARE(tasks.context().fetchCount<TaskItem>(), 1);

        Dialogs::queueAnswers({true});
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Delete);
        QCOMPARE(Dialogs::takeAskedQuestions().size(), 1);
        QCOMPARE(tasks.context().fetchCount<TaskItem>(), 0);
        QVERIFY(!tasks.context().hasChanges());
        QVERIFY(tasks.screen->emptyState()->isVisible());
        QVERIFY(!tasks.list()->isVisible());
        QCOMPARE(tasks.screen->emptyState()->findChild<QLabel *>(u"emptySentence"_s)->text(),
                 u"Nothing on your list yet. Type a task above and press Enter."_s);
        QCOMPARE(QApplication::focusWidget(), tasks.screen->quickAdd());
    }
};

QTEST_MAIN(TestTasksScreen)
#include "tst_tasksscreen.moc"
