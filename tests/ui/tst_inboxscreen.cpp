#include "../writing/WritingTestMain.h"
#include "TestSupport.h"

#include "app/TovrenApp.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/InboxItem.h"
#include "core/store/ModelContext.h"
#include "inbox/InboxService.h"
#include "ui/Dialogs.h"
#include "ui/MainWindow.h"
#include "ui/inbox/InboxListModel.h"
#include "ui/inbox/InboxScreen.h"
#include "ui/inbox/InboxUnreadBadge.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QScrollBar>

using namespace Qt::StringLiterals;

namespace {

const QTimeZone berlin("Europe/Berlin");

// Wall-clock time in Berlin, November 2026: the 16th is a Monday.
QDateTime at(int day, int hour, int minute = 0)
{
    return QDateTime(QDate(2026, 11, day), QTime(hour, minute), berlin);
}

const QDateTime wednesday = at(18, 10, 30);

// A Tovren on a fresh data folder with its whole window up, on the journal as at launch.
struct Inbox {
    TempDataDir dir;
    FixedClock clock;
    TovrenApp app{LaunchSteps::standard()};
    std::unique_ptr<MainWindow> window;
    InboxScreen *screen = nullptr;

    explicit Inbox(const QDateTime &now = wednesday, int firstWeekday = 1)
        : clock(now, Calendar(berlin, firstWeekday, firstWeekday == 1 ? 1 : 4))
    {
        app.start();
        // A provider other than the on-device one: its absence would post a notice of its own.
        app.preferences().setText(Prefs::aiProvider.name, u"claude"_s);
        window = std::make_unique<MainWindow>(app);
        window->bringToFront();
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
        screen = qobject_cast<InboxScreen *>(window->screen(SidebarItem::inbox));
        QVERIFY(screen);
    }

    ModelContext &context() { return app.mainContext(); }
    QListView *list() const { return screen->list(); }
    InboxListModel *model() const { return screen->model(); }

    std::shared_ptr<InboxItem> add(const QString &title, const QDateTime &createdAt,
                                   bool read = false, const QString &kindRaw = u"reminder"_s)
    {
        auto item = std::make_shared<InboxItem>(InboxItemKind::reminder, title, u"Body"_s);
        item->kindRaw = kindRaw;
        item->createdAt = createdAt;
        if (read)
            item->readAt = createdAt;
        context().insert(item);
        context().trySave();
        return item;
    }

    QListWidget *sidebar() const { return window->findChild<QListWidget *>(u"sidebar"_s); }
    QListWidgetItem *sidebarRow() const
    {
        for (int i = 0; i < sidebar()->count(); ++i) {
            if (sidebar()->item(i)->data(Qt::UserRole) == u"inbox"_s)
                return sidebar()->item(i);
        }
        return nullptr;
    }
    qint64 sidebarCount() const
    {
        return sidebarRow()->data(InboxUnreadBadge::CountRole).toLongLong();
    }
    // As the user opens it: a click on the sidebar's row.
    void open()
    {
        QTest::mouseClick(sidebar()->viewport(), Qt::LeftButton, {},
                          sidebar()->visualItemRect(sidebarRow()).center());
        QCOMPARE(window->currentTab(), SidebarItem::inbox);
    }
    // Lets the refreshes that follow a save run.
    void settle() { QTest::qWait(5); }

    // The list as read: "§Section", then the titles, an unread one with a leading "*".
    QStringList shown() const
    {
        QStringList rows;
        for (int row = 0; row < model()->rowCount(); ++row) {
            const QModelIndex index = model()->index(row);
            if (index.data(InboxListModel::SectionRole).toBool())
                rows.append(u"§"_s + index.data().toString());
            else
                rows.append((index.data(InboxListModel::UnreadRole).toBool() ? u"*"_s : u""_s) +
                            index.data().toString());
        }
        return rows;
    }
    QModelIndex indexOf(const std::shared_ptr<InboxItem> &item) const
    {
        return model()->index(model()->rowOf(item->id));
    }
    QString header() const
    {
        return screen->newCount()->isVisible() ? screen->newCount()->text() : QString();
    }

    // Right-clicks the item, reads the menu's entries and picks `choice` (if any).
    QStringList menu(const std::shared_ptr<InboxItem> &item, const QString &choice)
    {
        QStringList entries;
        whenUp(&QApplication::activePopupWidget, [&entries, choice](QWidget *popup) {
            auto *menu = qobject_cast<QMenu *>(popup);
            QAction *chosen = nullptr;
            for (QAction *action : menu->actions()) {
                entries.append(action->text());
                if (action->text() == choice)
                    chosen = action;
            }
            if (!chosen) {
                menu->close();
                return;
            }
            menu->setActiveAction(chosen);
            QTest::keyClick(menu, Qt::Key_Return);
        });
        QWidget *viewport = list()->viewport();
        const QPoint point = list()->visualRect(indexOf(item)).center();
        QContextMenuEvent event(QContextMenuEvent::Mouse, point, viewport->mapToGlobal(point));
        QApplication::sendEvent(viewport, &event);
        return entries;
    }
};

} // namespace

class TestInboxScreen : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void sections_data()
    {
        columns<QDateTime, int, QList<QDateTime>, QStringList>("now", "firstWeekday", "items",
                                                               "expected");
        // Titles are the items' times, day and hour.
        QTest::newRow("Wednesday, weeks from Sunday")
            << wednesday << 1 << QList{at(14, 23, 59), at(15, 0),      at(16, 23, 59),
                                       at(17, 0),      at(17, 23, 50), at(18, 0, 10)}
            << QStringList{u"§Today"_s,   u"18 00:10"_s, u"§Yesterday"_s,
                           u"17 23:50"_s, u"17 00:00"_s, u"§Earlier this week"_s,
                           u"16 23:59"_s, u"15 00:00"_s, u"§Earlier"_s,
                           u"14 23:59"_s};
        QTest::newRow("Wednesday, weeks from Monday")
            << wednesday << 2 << QList{at(15, 12), at(16, 12)}
            << QStringList{u"§Earlier this week"_s, u"16 12:00"_s, u"§Earlier"_s, u"15 12:00"_s};
        QTest::newRow("Monday, weeks from Monday: Sunday is yesterday")
            << at(16, 10, 30) << 2 << QList{at(14, 9), at(15, 20)}
            << QStringList{u"§Yesterday"_s, u"15 20:00"_s, u"§Earlier"_s, u"14 09:00"_s};
    }

    void sections()
    {
        auto [now, firstWeekday, items, expected] =
            fetch<QDateTime, int, QList<QDateTime>, QStringList>("now", "firstWeekday", "items",
                                                                 "expected");
        Inbox inbox(now, firstWeekday);
        for (const QDateTime &time : items)
            inbox.add(time.toString(u"dd HH:mm"_s), time, true);
        inbox.open();
        QCOMPARE(inbox.shown(), expected);
        for (int row = 0; row < inbox.model()->rowCount(); ++row) {
            const QModelIndex index = inbox.model()->index(row);
            QCOMPARE(bool(index.flags() & Qt::ItemIsSelectable),
                     !index.data(InboxListModel::SectionRole).toBool());
        }
    }

    // Opening the tab gives the list the keys on the newest item; the arrows pass over labels.
    void focusAndKeys()
    {
        Inbox inbox;
        inbox.add(u"Older"_s, at(17, 9));
        inbox.add(u"Newer"_s, at(18, 9));
        inbox.open();
        QCOMPARE(QApplication::focusWidget(), inbox.list());
        QCOMPARE(inbox.list()->currentIndex().data().toString(), u"Newer"_s);
        QTest::keyClick(inbox.list(), Qt::Key_Down);
        QCOMPARE(inbox.list()->currentIndex().data().toString(), u"Older"_s);
        QTest::keyClick(inbox.list(), Qt::Key_Up);
        QCOMPARE(inbox.list()->currentIndex().data().toString(), u"Newer"_s);
        QTest::keyClick(inbox.list(), Qt::Key_Up);
        QCOMPARE(inbox.list()->currentIndex().data().toString(), u"Newer"_s);
    }

    void counts_data()
    {
        columns<QString, QStringList, QString, QStringList>("act", "menu", "header", "expected");
        QTest::newRow("Mark as Read")
            << u"Mark as Read on A"_s << QStringList{u"Mark as Read"_s, u"Delete"_s} << u"1 new"_s
            << QStringList{u"A"_s, u"*B"_s, u"C"_s};
        QTest::newRow("Mark as Unread")
            << u"Mark as Unread on C"_s << QStringList{u"Mark as Unread"_s, u"Delete"_s}
            << u"3 new"_s << QStringList{u"*A"_s, u"*B"_s, u"*C"_s};
        QTest::newRow("Delete from the menu")
            << u"Delete on B"_s << QStringList{u"Mark as Read"_s, u"Delete"_s} << u"1 new"_s
            << QStringList{u"*A"_s, u"C"_s};
        QTest::newRow("Mark All Read")
            << u"all"_s << QStringList() << QString() << QStringList{u"A"_s, u"B"_s, u"C"_s};
        QTest::newRow("Enter on a row without an action")
            << u"enter"_s << QStringList() << u"1 new"_s << QStringList{u"A"_s, u"*B"_s, u"C"_s};
        QTest::newRow("Delete key, answered No")
            << u"delete key no"_s << QStringList() << u"2 new"_s
            << QStringList{u"*A"_s, u"*B"_s, u"C"_s};
        QTest::newRow("Delete key, answered Yes")
            << u"delete key yes"_s << QStringList() << u"1 new"_s << QStringList{u"*B"_s, u"C"_s};
        QTest::newRow("a post from elsewhere") << u"post"_s << QStringList() << u"3 new"_s
                                               << QStringList{u"*D"_s, u"*A"_s, u"*B"_s, u"C"_s};
    }

    // Every change saves at once, and the header, the sidebar and the list agree on it.
    void counts()
    {
        auto [act, menu, header, expected] =
            fetch<QString, QStringList, QString, QStringList>("act", "menu", "header", "expected");
        Inbox inbox;
        const QMap<QString, std::shared_ptr<InboxItem>> items{
            {u"C"_s, inbox.add(u"C"_s, at(18, 7), true)},
            {u"B"_s, inbox.add(u"B"_s, at(18, 8))},
            {u"A"_s, inbox.add(u"A"_s, at(18, 9))}};
        inbox.settle();
        QCOMPARE(inbox.sidebarCount(), 2);
        inbox.open();
        QCOMPARE(inbox.header(), u"2 new"_s);

        if (act.contains(u" on "_s)) {
            const QString choice = act.section(u" on "_s, 0, 0);
            QCOMPARE(inbox.menu(items.value(act.section(u" on "_s, 1)), choice), menu);
        } else if (act == u"all") {
            inbox.screen->markAllReadButton()->click();
            QVERIFY(!inbox.screen->markAllReadButton()->isEnabled());
        } else if (act == u"enter") {
            QTest::keyClick(inbox.list(), Qt::Key_Return);
        } else if (act.startsWith(u"delete key")) {
            Dialogs::queueAnswers({act.endsWith(u"yes")});
            QTest::keyClick(inbox.list(), Qt::Key_Delete);
            const auto asked = Dialogs::takeAskedQuestions();
            QCOMPARE(asked.size(), 1);
            QCOMPARE(asked.first().title, u"Delete “A”?"_s);
            QVERIFY(asked.first().destructive);
        } else if (act == u"post") {
            InboxService::post(inbox.context(), InboxItemKind::system, u"D"_s, u"Body"_s);
        }
        inbox.settle();
        QVERIFY(!inbox.context().hasChanges());
        QCOMPARE(inbox.shown().mid(1), expected);
        QCOMPARE(inbox.header(), header);
        const auto unread = std::count_if(expected.cbegin(), expected.cend(),
                                          [](const QString &row) { return row.startsWith(u'*'); });
        QCOMPARE(inbox.sidebarCount(), qint64(unread));
    }

    // A post while another tab shows reaches the sidebar at once and the list when it opens.
    void hiddenListWaitsForItsTab()
    {
        Inbox inbox;
        inbox.add(u"A"_s, at(18, 9));
        inbox.open();
        inbox.window->selectTab(SidebarItem::journal);
        InboxService::post(inbox.context(), InboxItemKind::system, u"B"_s, u"Body"_s);
        inbox.settle();
        QCOMPARE(inbox.sidebarCount(), 2);
        QCOMPARE(inbox.shown(), (QStringList{u"§Today"_s, u"*A"_s}));
        inbox.open();
        QCOMPARE(inbox.shown(), (QStringList{u"§Today"_s, u"*B"_s, u"*A"_s}));
    }

    void action_data()
    {
        columns<QString, SidebarItem, bool>("how", "tab", "read");
        QTest::newRow("its button") << u"button"_s << SidebarItem::meetings << true;
        QTest::newRow("Enter") << u"enter"_s << SidebarItem::meetings << true;
        QTest::newRow("a click beside the button") << u"beside"_s << SidebarItem::inbox << false;
    }

    // The button routes the item (a tab route selects that tab) and marks it read.
    void action()
    {
        auto [how, tab, read] = fetch<QString, SidebarItem, bool>("how", "tab", "read");
        Inbox inbox;
        auto item = std::make_shared<InboxItem>(InboxItemKind::reminder, u"Dana"_s,
                                                u"Three weeks since your last 1:1"_s, std::nullopt,
                                                u"Open People"_s, u"tab:people:dana"_s);
        inbox.context().insert(item);
        inbox.context().trySave();
        inbox.open();
        const QRect button = inbox.screen->actionButtonRect(inbox.indexOf(item));
        QVERIFY(!button.isEmpty());
        QWidget *viewport = inbox.list()->viewport();
        if (how == u"button")
            QTest::mouseClick(viewport, Qt::LeftButton, {}, button.center());
        else if (how == u"enter")
            QTest::keyClick(inbox.list(), Qt::Key_Return);
        else
            QTest::mouseClick(viewport, Qt::LeftButton, {}, button.center() + QPoint(0, -30));
        inbox.settle();
        QCOMPARE(inbox.window->currentTab(), tab);
        QCOMPARE(item->readAt.has_value(), read);
        QCOMPARE(inbox.sidebarCount(), read ? 0 : 1);
        QVERIFY(!inbox.context().hasChanges());
    }

    // Appearing clears read items past a month and the retired feature's, and nothing else.
    void housekeepingWhenItAppears()
    {
        Inbox inbox;
        inbox.add(u"read 31 days ago"_s, wednesday.addDays(-31), true);
        inbox.add(u"read 29 days ago"_s, wednesday.addDays(-29), true);
        inbox.add(u"unread from last year"_s, wednesday.addDays(-400));
        auto retired = inbox.add(u"retired"_s, at(18, 8), false, u"ai_suggestion"_s);
        retired->payload = u"goal:launch"_s;
        auto coaching = inbox.add(u"coaching"_s, at(18, 9), false, u"ai_suggestion"_s);
        coaching->payload = u"goal-coach-launch"_s;
        inbox.context().trySave();
        inbox.settle();
        QCOMPARE(inbox.context().fetchCount<InboxItem>(), 5);
        QVERIFY(!inbox.app.preferences().value(Prefs::inboxRetiredFeaturesPurged));

        inbox.open();
        QCOMPARE(inbox.shown(), (QStringList{u"§Today"_s, u"*coaching"_s, u"§Earlier"_s,
                                             u"read 29 days ago"_s, u"*unread from last year"_s}));
        QCOMPARE(inbox.context().fetchCount<InboxItem>(), 3);
        QVERIFY(inbox.app.preferences().value(Prefs::inboxRetiredFeaturesPurged));
    }

    // The empty state's words, until something arrives; deleting the last item brings them back.
    void emptyState()
    {
        Inbox inbox;
        inbox.open();
        QVERIFY(inbox.screen->emptyState()->isVisible());
        QCOMPARE(inbox.screen->emptyState()->findChild<QLabel *>(u"emptyTitle"_s)->text(),
                 u"You're all caught up"_s);
        QCOMPARE(inbox.screen->emptyState()->findChild<QLabel *>(u"emptySentence"_s)->text(),
                 u"Reminders, streak nudges, 1:1 alerts, and review notices show up here as "
                 u"Tovren sends them, so a dismissed banner is never lost."_s);
        QVERIFY(!inbox.screen->markAllReadButton()->isVisible());
        QCOMPARE(inbox.header(), QString());

        const auto item =
            InboxService::post(inbox.context(), InboxItemKind::system, u"A"_s, u"Body"_s);
        inbox.settle();
        QVERIFY(inbox.list()->isVisible());
        QVERIFY(!inbox.screen->emptyState()->isVisible());
        QCOMPARE(inbox.menu(item, u"Delete"_s), (QStringList{u"Mark as Read"_s, u"Delete"_s}));
        QVERIFY(inbox.screen->emptyState()->isVisible());
        QCOMPARE(inbox.context().fetchCount<InboxItem>(), 0);
    }

    // A kind this version doesn't know is drawn as a system notice.
    void unknownKindShowsTheSystemIcon()
    {
        Inbox inbox;
        auto unknown = inbox.add(u"unknown"_s, at(18, 9), false, u"celebration"_s);
        auto system = inbox.add(u"system"_s, at(18, 8), false, u"system"_s);
        auto reminder = inbox.add(u"reminder"_s, at(18, 7), false, u"reminder"_s);
        inbox.open();
        const auto image = [&](const std::shared_ptr<InboxItem> &item) {
            return inbox.indexOf(item).data(Qt::DecorationRole).value<QIcon>().pixmap(24).toImage();
        };
        QVERIFY(!image(unknown).isNull());
        QCOMPARE(image(unknown), image(system));
        QVERIFY(image(unknown) != image(reminder));
        QCOMPARE(unknown->kindRaw, u"celebration"_s);
    }

    void refreshKeepsThePlace_data()
    {
        QTest::addColumn<bool>("scrolled");
        QTest::newRow("scrolled down: the rows stay put") << true;
        QTest::newRow("at the top: the new item shows") << false;
    }

    // A post arriving above keeps the chosen item and what is in view where they were.
    void refreshKeepsThePlace()
    {
        QFETCH(bool, scrolled);
        Inbox inbox;
        for (int i = 0; i < 40; ++i)
            inbox.add(u"Item %1"_s.arg(i), wednesday.addSecs(-600 * (40 - i)));
        inbox.open();
        QScrollBar *scroll = inbox.list()->verticalScrollBar();
        QVERIFY(scroll->maximum() > 0);
        if (scrolled)
            scroll->setValue(scroll->maximum() / 2);
        const QPoint top(inbox.list()->viewport()->width() / 2, 0);
        const QModelIndex topIndex = inbox.list()->indexAt(top);
        const QString topTitle = topIndex.data().toString();
        const int topY = inbox.list()->visualRect(topIndex).top();
        const QModelIndex chosen = inbox.list()->indexAt(top + QPoint(0, 200));
        inbox.list()->setCurrentIndex(chosen);
        const QString chosenTitle = chosen.data().toString();

        InboxService::post(inbox.context(), InboxItemKind::system, u"New"_s, u"Body"_s);
        inbox.settle();
        QCOMPARE(inbox.list()->currentIndex().data().toString(), chosenTitle);
        const QModelIndex nowTop = inbox.list()->indexAt(top);
        if (scrolled) {
            QCOMPARE(nowTop.data().toString(), topTitle);
            QCOMPARE(inbox.list()->visualRect(nowTop).top(), topY);
        } else {
            QCOMPARE(scroll->value(), 0);
            QCOMPARE(inbox.model()->index(1).data().toString(), u"New"_s);
        }
    }

    void ageText_data()
    {
        columns<QDateTime, QString>("at", "words");
        QTest::newRow("seconds") << wednesday.addSecs(-59) << u"just now"_s;
        QTest::newRow("minutes") << wednesday.addSecs(-59 * 60) << u"59 min ago"_s;
        QTest::newRow("hours, same day") << at(18, 0, 10) << u"10 h ago"_s;
        QTest::newRow("late last night") << at(17, 23, 59) << u"yesterday"_s;
        QTest::newRow("six days") << at(12, 12) << u"6 days ago"_s;
        QTest::newRow("a week") << at(11, 12) << u"11/11/26"_s;
        QTest::newRow("ahead of the clock") << at(18, 11) << u"11/18/26"_s;
    }

    void ageText()
    {
        auto [time, words] = fetch<QDateTime, QString>("at", "words");
        FixedClock clock(wednesday, Calendar(berlin, 1, 1));
        QCOMPARE(InboxListModel::ageText(time, wednesday), words);
    }
};

QTEST_MAIN(TestInboxScreen)
#include "tst_inboxscreen.moc"
