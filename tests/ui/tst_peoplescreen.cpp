#include "../writing/WritingTestMain.h"
#include "TestSupport.h"

#include "app/TovrenApp.h"
#include "bridge/MCPTools.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/ActionItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"
#include "ui/Dialogs.h"
#include "ui/MainWindow.h"
#include "ui/journal/JournalTextEdit.h"
#include "ui/people/PeopleListModel.h"
#include "ui/people/PeopleScreen.h"
#include "ui/people/PersonPage.h"
#include "writing/EditorLink.h"

#include <QApplication>
#include <QCalendarWidget>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {

// Wednesday morning in Berlin.
const QDateTime now(QDate(2026, 11, 18), QTime(9, 30), Qt::UTC);

// Fills the next modal form, by its fields' object names, and presses its accepting button.
void fillNextDialog(const QVariantMap &fields)
{
    whenUp(&QApplication::activeModalWidget, [fields](QWidget *modal) {
        for (auto it = fields.cbegin(); it != fields.cend(); ++it) {
            QWidget *field = modal->findChild<QWidget *>(it.key());
            QVERIFY2(field, qPrintable(it.key()));
            if (auto *calendar = qobject_cast<QCalendarWidget *>(field))
                calendar->setSelectedDate(it->toDate());
            else
                QVERIFY2(field->metaObject()->userProperty().write(field, *it),
                         qPrintable(it.key()));
        }
        auto *buttons = modal->findChild<QDialogButtonBox *>();
        for (QAbstractButton *button : buttons->buttons()) {
            if (buttons->buttonRole(button) == QDialogButtonBox::AcceptRole)
                button->click();
        }
    });
}

// A Tovren on a fresh data folder with its People screen, or the whole window.
struct People {
    TempDataDir dir;
    FixedClock clock{now, testCalendar()};
    TovrenApp app{LaunchSteps::standard()};
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<PeopleScreen> ownScreen;
    PeopleScreen *screen = nullptr;

    explicit People(bool wholeWindow = false)
    {
        app.start();
        if (wholeWindow) {
            window = std::make_unique<MainWindow>(app);
            window->bringToFront();
            QVERIFY(QTest::qWaitForWindowActive(window.get()));
            screen = qobject_cast<PeopleScreen *>(window->screen(SidebarItem::meetings));
            return;
        }
        ownScreen = std::make_unique<PeopleScreen>(app);
        screen = ownScreen.get();
        screen->resize(1100, 760);
        screen->show();
        QVERIFY(QTest::qWaitForWindowActive(screen));
    }

    ModelContext &context() { return app.mainContext(); }
    PersonPage *page() const { return screen->page(); }
    JournalTextEdit *editor() const { return page()->editor(); }

    std::shared_ptr<Person> person(const QString &name, int meetings = 0)
    {
        auto person = std::make_shared<Person>(name, u"Engineer"_s, RelationshipType::peer);
        context().insert(person);
        for (int i = 1; i <= meetings; ++i)
            context().insert(
                std::make_shared<Meeting>(person, now.addDays(-7 * i), u"Meeting %1"_s.arg(i)));
        context().trySave();
        return person;
    }
    void select(const std::shared_ptr<Person> &person)
    {
        settle();
        screen->list()->setCurrentIndex(screen->model()->index(screen->model()->rowOf(person->id)));
        QCOMPARE(page()->person(), person);
    }
    // Lets the refresh that follows a save run.
    void settle() { QTest::qWait(5); }
};

} // namespace

class TestPeopleScreen : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    // The empty state's button makes the person, whose next 1:1 note then takes the typing.
    void emptyStateAddsAPersonAndTheirNote()
    {
        People people;
        QVERIFY(people.screen->emptyState()->isVisible());
        QCOMPARE(people.screen->emptyState()->findChild<QLabel *>(u"emptySentence"_s)->text(),
                 u"Add the people you meet with to keep your 1:1 notes and action items."_s);
        QCOMPARE(QApplication::focusWidget(), people.screen->list());

        fillNextDialog({{u"name"_s, u"  Dana Reyes "_s},
                        {u"role"_s, u"Staff Engineer"_s},
                        {u"relationship"_s, u"Direct report"_s},
                        {u"email"_s, u"Dana@Example.com"_s},
                        {u"emoji"_s, u"🦊"_s},
                        {u"pinned"_s, true}});
        people.screen->emptyState()->findChild<QPushButton *>(u"addFirstPerson"_s)->click();
        const auto dana = people.page()->person();
        QVERIFY(dana);
        QCOMPARE(dana->name, u"Dana Reyes"_s);
        QCOMPARE(dana->relationshipRaw, u"Direct report"_s);
        QCOMPARE(dana->email, u"dana@example.com"_s);
        QCOMPARE(dana->emoji, u"🦊"_s);
        QVERIFY(dana->isPinned);
        QVERIFY(!people.screen->emptyState()->isVisible());
        const QModelIndex row = people.screen->model()->index(0);
        QCOMPARE(row.data(PeopleListModel::MarkRole).toString(), u"🦊"_s);
        QCOMPARE(row.data(PeopleListModel::AsideRole).toString(), u"Staff Engineer"_s);
        QCOMPARE(row.data(PeopleListModel::DetailRole).toString(), u"Direct report"_s);

        // The keys the window gets back once the form has closed (offscreen, nobody gives it back).
        QCOMPARE(people.screen->focusWidget(), people.editor());
        people.screen->activateWindow();
        QTRY_COMPARE(QApplication::focusWidget(), people.editor());
        QTest::keyClicks(people.editor(), u"Ask about #launch"_s);
        people.app.saveDebouncer().fire();
        QVERIFY(people.page()->meeting()->isScratchpad);
        QCOMPARE(people.page()->meeting()->notes, u"Ask about #launch"_s);
    }

    // Pinned first, then by name with numbers by value; initials without a mark; the last
    // real meeting, never the next-1:1 note, and the open actions.
    void listRows()
    {
        People people;
        auto bo = people.person(u"Bo 10 Lin"_s);
        auto al = people.person(u"al ito"_s, 2);
        auto pinned = people.person(u"Zed"_s);
        pinned->isPinned = true;
        people.person(u"Bo 9 Lin"_s);
        auto pad = std::make_shared<Meeting>(bo, Meeting::distantFuture(), u"Next time"_s, true);
        people.context().insert(pad);
        people.context().insert(std::make_shared<ActionItem>(u"Send deck"_s, pad));
        people.context().trySave();
        people.settle();
        QStringList names, details;
        for (int row = 0; row < people.screen->model()->rowCount(); ++row) {
            const QModelIndex index = people.screen->model()->index(row);
            names.append(index.data(PeopleListModel::MarkRole).toString() + u' ' +
                         index.data().toString());
            details.append(index.data(PeopleListModel::DetailRole).toString() + u" #"_s +
                           index.data(PeopleListModel::CountRole).toString());
        }
        QCOMPARE(names,
                 (QStringList{u"Z Zed"_s, u"AI al ito"_s, u"BL Bo 9 Lin"_s, u"BL Bo 10 Lin"_s}));
        QCOMPARE(details, (QStringList{u"Peer #0"_s, u"Peer · last met a week ago #0"_s,
                                       u"Peer #0"_s, u"Peer #1"_s}));
    }

    void lastMet_data()
    {
        columns<int, QString>("daysAgo", "words");
        QTest::newRow("today") << 0 << u"last met today"_s;
        QTest::newRow("yesterday") << 1 << u"last met yesterday"_s;
        QTest::newRow("6 days") << 6 << u"last met 6 days ago"_s;
        QTest::newRow("7 days") << 7 << u"last met a week ago"_s;
        QTest::newRow("59 days") << 59 << u"last met 8 weeks ago"_s;
        QTest::newRow("60 days") << 60 << u"last met 2 months ago"_s;
        QTest::newRow("364 days") << 364 << u"last met 12 months ago"_s;
        QTest::newRow("365 days") << 365 << u"last met a year ago"_s;
        QTest::newRow("800 days") << 800 << u"last met 2 years ago"_s;
        QTest::newRow("ahead") << -2 << u"meeting on 11/20/26"_s;
    }

    // Counted in calendar days: late last night is yesterday, not today.
    void lastMet()
    {
        auto [daysAgo, words] = fetch<int, QString>("daysAgo", "words");
        FixedClock clock(now, testCalendar());
        const QDateTime lateThatDay =
            Calendar::current().startOfDay(now.addDays(-daysAgo)).addSecs(23 * 3600 + 59 * 60);
        QCOMPARE(PeopleListModel::lastMetText(lateThatDay, now), words);
    }

    void switchingAwaySavesTheNote_data()
    {
        QTest::addColumn<QString>("away");
        QTest::newRow("another person") << u"person"_s;
        QTest::newRow("another meeting") << u"meeting"_s;
        QTest::newRow("another tab") << u"tab"_s;
        QTest::newRow("another window") << u"window"_s;
    }

    void switchingAwaySavesTheNote()
    {
        QFETCH(QString, away);
        People people(away == u"tab");
        QWidget other;
        auto ana = people.person(u"Ana"_s, 1);
        auto bea = people.person(u"Bea"_s, 1);
        if (people.window)
            people.window->selectTab(SidebarItem::meetings);
        people.select(ana);
        const auto note = people.page()->meeting();
        QTest::keyClicks(people.editor(), u"- follow up on hiring"_s);
        QVERIFY(people.app.saveDebouncer().isPending());
        if (away == u"person")
            people.select(bea);
        else if (away == u"meeting")
            people.page()->timeline()->setCurrentRow(1);
        else if (away == u"tab")
            people.window->selectTab(SidebarItem::journal);
        else {
            other.show();
            other.activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(&other));
        }
        QVERIFY(!people.app.saveDebouncer().isPending());
        QVERIFY(!people.context().hasChanges());
        QCOMPARE(note->notes, u"- follow up on hiring"_s);

        if (people.window)
            people.window->selectTab(SidebarItem::meetings);
        people.select(ana);
        people.page()->showMeeting(note);
        QCOMPARE(people.editor()->stored(), u"- follow up on hiring"_s);
    }

    void actionItems()
    {
        People people;
        auto ana = people.person(u"Ana"_s, 1);
        people.select(ana);
        people.page()->timeline()->setCurrentRow(1);
        const auto meeting = people.page()->meeting();
        QTest::keyClicks(people.page()->actionField(), u"Send the deck"_s);
        QTest::keyClick(people.page()->actionField(), Qt::Key_Return);
        people.settle();
        const auto items = meeting->actionItems();
        QCOMPARE(items.size(), 1);
        QCOMPARE(people.page()->openActionBoxes().size(), 1);
        QCOMPARE(people.page()->meetingActionBoxes().size(), 1);
        QCOMPARE(people.screen->model()->index(0).data(PeopleListModel::CountRole).toInt(), 1);

        fillNextDialog({{u"title"_s, u"Send the final deck"_s},
                        {u"hasDue"_s, true},
                        {u"due"_s, QDate(2026, 11, 20)}});
        QToolButton *more =
            people.page()->openActionBoxes().first()->parentWidget()->findChild<QToolButton *>();
        more->menu()->actions().first()->trigger();
        QCOMPARE(items.first()->title, u"Send the final deck"_s);
        QCOMPARE(items.first()->dueDate, Calendar::current().startOfDay(QDate(2026, 11, 20)));
        people.settle();

        people.page()->openActionBoxes().first()->click();
        people.settle();
        QVERIFY(items.first()->isCompleted);
        QVERIFY(!people.context().hasChanges());
        QVERIFY(people.page()->openActionBoxes().isEmpty());
        QCOMPARE(people.page()->meetingActionBoxes().size(), 1);
        QVERIFY(people.page()->meetingActionBoxes().first()->isChecked());
        QCOMPARE(people.screen->model()->index(0).data(PeopleListModel::CountRole).toInt(), 0);
    }

    // The next-1:1 words move into a new dated note; a second note that day is the same one.
    void newNoteTakesTheScratchpad()
    {
        People people;
        auto ana = people.person(u"Ana"_s);
        people.select(ana);
        QVERIFY(people.page()->meeting()->isScratchpad);
        const auto pad = people.page()->meeting();
        QTest::keyClicks(people.editor(), u"Raise the budget"_s);
        // "New 1:1 Note" › "Another Day…", as the user picks a day.
        const QDate day(2026, 11, 16);
        fillNextDialog({{u"date"_s, day}});
        for (QToolButton *button : people.page()->findChildren<QToolButton *>()) {
            if (button->text() == u"New 1:1 Note"_s)
                button->menu()->actions().at(1)->trigger();
        }
        const auto note = people.page()->meeting();
        QVERIFY(!note->isScratchpad);
        QCOMPARE(Calendar::current().day(note->date), day);
        QCOMPARE(note->notes, u"Raise the budget"_s);
        QCOMPARE(pad->notes, QString());
        // Where the keys go when the window is active again after the form.
        QCOMPARE(people.screen->focusWidget(), people.editor());
        people.page()->newNote(day);
        QCOMPARE(people.page()->meeting(), note);
        QCOMPARE(people.page()->meetings().size(), 2);
        QVERIFY(!people.context().hasChanges());
    }

    void assistantWritesWhileTyping_data()
    {
        QTest::addColumn<QString>("write");
        QTest::newRow("log_meeting") << u"log_meeting"_s;
        QTest::newRow("add_action_item") << u"add_action_item"_s;
        QTest::newRow("a line added to the note being typed in") << u"same note"_s;
    }

    void assistantWritesWhileTyping()
    {
        QFETCH(QString, write);
        People people;
        auto ana = people.person(u"Ana Ito"_s, 1);
        people.select(ana);
        people.page()->timeline()->setCurrentRow(1);
        const auto note = people.page()->meeting();
        QTest::keyClick(people.editor(), Qt::Key_End, Qt::ControlModifier);
        QTest::keyClick(people.editor(), Qt::Key_Return);
        QTest::keyClicks(people.editor(), u"mine"_s);
        const int meetingsBefore = people.page()->timeline()->count();
        if (write == u"same note") {
            note->notes += u"\ntheirs"_s;
            people.context().trySave();
        } else {
            const QJsonObject arguments{{u"person_name"_s, u"ana ito"_s},
                                        {u"notes"_s, u"Logged by the assistant"_s},
                                        {u"title"_s, u"Book the room"_s}};
            people.app.mcpTools().invoke(write, arguments, people.context(),
                                         people.app.preferences());
        }
        people.settle();
        QTest::keyClicks(people.editor(), u" too"_s);
        people.app.saveDebouncer().fire();
        // Their line lands after the line it follows; the caret stayed on the line typed in.
        QCOMPARE(note->notes, write == u"same note" ? u"Meeting 1\ntheirs\nmine too"_s
                                                    : u"Meeting 1\nmine too"_s);
        QCOMPARE(people.editor()->stored(), note->notes);
        QTRY_COMPARE(people.page()->timeline()->count(),
                     meetingsBefore + (write == u"log_meeting" ? 1 : 0));
        QTRY_COMPARE(people.page()->openActionBoxes().size(), write == u"add_action_item" ? 1 : 0);
    }

    // Delete asks, from the list only; Yes removes the meetings and their action items too.
    void deleteAsksFirst_data()
    {
        columns<int, QString>("meetings", "words");
        QTest::newRow("none") << 0 << u"Ana will be removed from People. This can't be undone."_s;
        QTest::newRow("one") << 1
                             << u"Ana and 1 meeting, with its notes and action items, will be "
                                u"removed. This can't be undone."_s;
        QTest::newRow("three") << 3
                               << u"Ana and 3 meetings, with their notes and action items, will "
                                  u"be removed. This can't be undone."_s;
    }

    void deleteAsksFirst()
    {
        auto [meetings, words] = fetch<int, QString>("meetings", "words");
        People people;
        auto ana = people.person(u"Ana"_s, meetings);
        people.select(ana);
        if (meetings > 0) {
            people.page()->timeline()->setCurrentRow(1);
            people.page()->addAction(u"Owe"_s);
        }
        people.settle();

        Dialogs::queueAnswers({false});
        QTest::keyClick(people.editor(), Qt::Key_Delete);
        QVERIFY(Dialogs::takeAskedQuestions().isEmpty());
        people.screen->list()->setFocus();
        QTest::keyClick(people.screen->list(), Qt::Key_Delete);
        const auto asked = Dialogs::takeAskedQuestions();
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.first().title, u"Delete Ana?"_s);
        QCOMPARE(asked.first().text, words);
        QVERIFY(asked.first().destructive);
        QCOMPARE(people.screen->model()->rowCount(), 1);

        Dialogs::queueAnswers({true});
        QTest::keyClick(people.screen->list(), Qt::Key_Delete);
        QCOMPARE(Dialogs::takeAskedQuestions().size(), 1);
        QCOMPARE(people.context().fetchCount<Person>(), 0);
        QCOMPARE(people.context().fetchCount<Meeting>(), 0);
        QCOMPARE(people.context().fetchCount<ActionItem>(), 0);
        QVERIFY(people.screen->emptyState()->isVisible());
    }

    // A person link hands the person over through the preference; Ctrl+N adds a person.
    void handOverFocusAndNewPerson()
    {
        People people(true);
        auto ana = people.person(u"Ana"_s);
        auto bea = people.person(u"Bea"_s);
        EditorLink::follow(EditorLink::personLink(bea->id.toString(QUuid::WithoutBraces)),
                           people.app.preferences());
        PeopleScreen *screen = people.screen;
        QCOMPARE(people.window->currentTab(), SidebarItem::meetings);
        QCOMPARE(screen->page()->person(), bea);
        QVERIFY(!people.app.preferences().value(Prefs::peopleSelectPersonId));
        QCOMPARE(QApplication::focusWidget(), screen->page()->editor());

        // Opening the tab again starts where the user left it.
        people.window->selectTab(SidebarItem::journal);
        people.window->selectTab(SidebarItem::meetings);
        QCOMPARE(screen->page()->person(), bea);
        QCOMPARE(QApplication::focusWidget(), screen->page()->editor());

        fillNextDialog({{u"name"_s, u"Cy"_s}});
        QTest::keyClick(people.window.get(), Qt::Key_N, Qt::ControlModifier);
        QCOMPARE(screen->page()->person()->name, u"Cy"_s);
        QCOMPARE(people.context().fetchCount<Person>(), 3);

        EditorLink::follow(EditorLink::personLink(ana->id.toString(QUuid::WithoutBraces)),
                           people.app.preferences());
        QCOMPARE(screen->page()->person(), ana);

        // Edit… renames and pins: the person moves to the top of the list.
        fillNextDialog({{u"name"_s, u"Ana Ito"_s}, {u"pinned"_s, true}});
        for (QToolButton *button : screen->page()->findChildren<QToolButton *>()) {
            if (button->text() == u"Edit…"_s)
                button->click();
        }
        QCOMPARE(ana->name, u"Ana Ito"_s);
        QVERIFY(ana->isPinned);
        QVERIFY(!people.context().hasChanges());
        QCOMPARE(screen->model()->index(0).data().toString(), u"Ana Ito"_s);
        QCOMPARE(screen->page()->person(), ana);
    }
};

QTEST_MAIN(TestPeopleScreen)
#include "tst_peoplescreen.moc"
