#include "TestSupport.h"
#include "core/AppCalendar.h"
#include "core/Clock.h"
#include "core/records/TaskItem.h"

#include <QFile>
#include <QSaveFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QDateTime local(const char *zone, QDate day, QTime time)
{
    return QDateTime(day, time, QTimeZone(QByteArray(zone)));
}

Calendar calendarIn(const char *zone, int firstWeekday = 1)
{
    return Calendar(QTimeZone(QByteArray(zone)), firstWeekday, 1);
}

bool replaceFile(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.commit();
}

} // namespace

class TestCalendar : public QObject {
    Q_OBJECT

private slots:
    void cleanup()
    {
        Clock::setNow(std::nullopt);
        Clock::setCalendar(std::nullopt);
    }

    void publishesOnlyRealChanges_data()
    {
        QTest::addColumn<QDateTime>("before");
        QTest::addColumn<QDateTime>("after");
        QTest::addColumn<Calendar>("calendar");
        QTest::addColumn<int>("emissions");
        QTest::addColumn<QDateTime>("today");

        const QDate may14(2024, 5, 14);
        const QDate may15(2024, 5, 15);
        const QDateTime lateBerlin = local("Europe/Berlin", may14, QTime(23, 59, 59));
        QTest::newRow("same day") << lateBerlin.addSecs(-3600) << lateBerlin
                                  << calendarIn("Europe/Berlin") << 0
                                  << local("Europe/Berlin", may14, QTime(0, 0));
        QTest::newRow("midnight") << lateBerlin << lateBerlin.addSecs(2)
                                  << calendarIn("Europe/Berlin") << 1
                                  << local("Europe/Berlin", may15, QTime(0, 0));
        QTest::newRow("zone moves the day back")
            << lateBerlin << lateBerlin << calendarIn("America/New_York") << 1
            << local("America/New_York", may14, QTime(0, 0));
        QTest::newRow("zone with the same midnight")
            << lateBerlin << lateBerlin << calendarIn("Europe/Paris") << 1
            << local("Europe/Paris", may14, QTime(0, 0));
        QTest::newRow("first weekday") << lateBerlin << lateBerlin << calendarIn("Europe/Berlin", 2)
                                       << 1 << local("Europe/Berlin", may14, QTime(0, 0));
    }

    void publishesOnlyRealChanges()
    {
        QFETCH(QDateTime, before);
        QFETCH(QDateTime, after);
        QFETCH(Calendar, calendar);
        QFETCH(int, emissions);
        QFETCH(QDateTime, today);

        FixedClock clock(before, calendarIn("Europe/Berlin"));
        AppCalendar appCalendar;
        QSignalSpy spy(&appCalendar, &AppCalendar::changed);

        clock.set(after);
        Clock::setCalendar(calendar);
        // The midnight timer, the periodic check and the zone watch may all notice one change.
        appCalendar.update();
        appCalendar.update();
        appCalendar.update();
        QCOMPARE(spy.count(), emissions);
        QCOMPARE(appCalendar.today(), today);
        QCOMPARE(appCalendar.today().timeZone(), calendar.timeZone());
        QVERIFY(appCalendar.calendar() == calendar);
    }

    void midnightTimerUsesTheClock()
    {
        const QDateTime beforeMidnight =
            local("Europe/Berlin", QDate(2024, 5, 14), QTime(23, 59, 59, 950));
        FixedClock clock(beforeMidnight, calendarIn("Europe/Berlin"));
        AppCalendar appCalendar;
        QSignalSpy spy(&appCalendar, &AppCalendar::changed);
        clock.set(beforeMidnight.addMSecs(100));
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 2000);
        QCOMPARE(appCalendar.today(), local("Europe/Berlin", QDate(2024, 5, 15), QTime(0, 0)));
    }

    void zoneFileReplacementIsNoticed()
    {
        QTemporaryDir etc;
        QVERIFY(etc.isValid());
        const QString localtime = etc.filePath(u"localtime"_s);
        const QString timezone = etc.filePath(u"timezone"_s);
        QVERIFY(replaceFile(localtime, "Europe/Berlin"));

        FixedClock clock(local("Europe/Berlin", QDate(2024, 5, 14), QTime(12, 0)),
                         calendarIn("Europe/Berlin"));
        AppCalendar appCalendar({localtime, timezone});
        QSignalSpy spy(&appCalendar, &AppCalendar::changed);

        Clock::setCalendar(calendarIn("America/New_York"));
        QVERIFY(replaceFile(localtime, "America/New_York"));
        QTRY_COMPARE(spy.count(), 1);

        // A file that appears later is watched as well.
        Clock::setCalendar(calendarIn("Asia/Tokyo"));
        QVERIFY(replaceFile(timezone, "Asia/Tokyo"));
        QTRY_COMPARE(spy.count(), 2);

        // Written in place, which only a watch on the new file hears.
        QTest::qWait(100);
        Clock::setCalendar(calendarIn("Europe/Lisbon"));
        QFile file(localtime);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QVERIFY(file.write("Europe/Lisbon") > 0);
        file.close();
        QTRY_COMPARE(spy.count(), 3);
        QCOMPARE(appCalendar.calendar().timeZone().id(), QByteArray("Europe/Lisbon"));
    }

    void isOverdue_data()
    {
        QTest::addColumn<Calendar>("calendar");
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<QDateTime>("due"); // invalid: no due date
        QTest::addColumn<bool>("completed");
        QTest::addColumn<bool>("overdue");

        const Calendar berlin = calendarIn("Europe/Berlin");
        const QDate today(2024, 5, 14);
        auto at = [](QDate day, int h, int m) { return local("Europe/Berlin", day, QTime(h, m)); };

        QTest::newRow("due yesterday 23:59 at 00:01")
            << berlin << at(today, 0, 1) << at(today.addDays(-1), 23, 59) << false << true;
        QTest::newRow("due today 00:00 at 23:59")
            << berlin << at(today, 23, 59) << at(today, 0, 0) << false << false;
        QTest::newRow("due today 23:59 at 00:01")
            << berlin << at(today, 0, 1) << at(today, 23, 59) << false << false;
        QTest::newRow("due tomorrow")
            << berlin << at(today, 12, 0) << at(today.addDays(1), 0, 0) << false << false;
        QTest::newRow("completed, due last week")
            << berlin << at(today, 12, 0) << at(today.addDays(-7), 9, 0) << true << false;
        QTest::newRow("no due date") << berlin << at(today, 12, 0) << QDateTime() << false << false;
        QTest::newRow("clocks go forward in the night")
            << berlin << local("Europe/Berlin", QDate(2024, 3, 31), QTime(3, 1))
            << local("Europe/Berlin", QDate(2024, 3, 31), QTime(1, 59)) << false << false;

        // Due 23:30 UTC: already the next day in Berlin, still the same day in New York.
        const QDateTime dueUtc(QDate(2024, 3, 10), QTime(23, 30), Qt::UTC);
        const QDateTime nowUtc(QDate(2024, 3, 11), QTime(10, 0), Qt::UTC);
        QTest::newRow("day in the user's zone, east")
            << berlin << nowUtc << dueUtc << false << false;
        QTest::newRow("day in the user's zone, west")
            << calendarIn("America/New_York") << nowUtc << dueUtc << false << true;
    }

    void isOverdue()
    {
        QFETCH(Calendar, calendar);
        QFETCH(QDateTime, now);
        QFETCH(QDateTime, due);
        QFETCH(bool, completed);
        QFETCH(bool, overdue);

        FixedClock clock(now, calendar);
        TaskItem task(u"Send the report"_s, 0, due.isValid() ? std::optional(due) : std::nullopt);
        task.isCompleted = completed;
        QCOMPARE(task.isOverdue(), overdue);
    }

    void weekKey_data()
    {
        QTest::addColumn<QDate>("day");
        QTest::addColumn<int>("firstWeekday");
        QTest::addColumn<int>("minimumDays");
        QTest::addColumn<int>("year");
        QTest::addColumn<int>("week");

        const struct {
            const char *name;
            QDate day;
            int first, minimum, year, week;
        } rows[] = {
            {"ISO Thu 2020-12-31", {2020, 12, 31}, 2, 4, 2020, 53},
            {"ISO Sun 2021-01-03", {2021, 1, 3}, 2, 4, 2020, 53},
            {"ISO Mon 2021-01-04", {2021, 1, 4}, 2, 4, 2021, 1},
            {"ISO Mon 2024-12-30", {2024, 12, 30}, 2, 4, 2025, 1},
            {"ISO Thu 2026-01-01", {2026, 1, 1}, 2, 4, 2026, 1},
            {"ISO Fri 2027-01-01", {2027, 1, 1}, 2, 4, 2026, 53},
            {"US Sat 2021-12-25", {2021, 12, 25}, 1, 1, 2021, 52},
            {"US Sun 2021-12-26", {2021, 12, 26}, 1, 1, 2022, 1},
            {"US Sat 2022-01-01", {2022, 1, 1}, 1, 1, 2022, 1},
            {"US Sun 2022-01-02", {2022, 1, 2}, 1, 1, 2022, 2},
            {"US Sat 2022-12-31", {2022, 12, 31}, 1, 1, 2022, 53},
            {"US Sun 2023-01-01", {2023, 1, 1}, 1, 1, 2023, 1},
        };
        for (const auto &row : rows)
            QTest::newRow(row.name) << row.day << row.first << row.minimum << row.year << row.week;
    }

    void weekKey()
    {
        QFETCH(QDate, day);
        QFETCH(int, firstWeekday);
        QFETCH(int, minimumDays);
        QFETCH(int, year);
        QFETCH(int, week);
        QCOMPARE(Calendar::weekKey(day, firstWeekday, minimumDays),
                 (Calendar::WeekKey{year, week}));
    }

    void isoWeeksAgreeWithQDate()
    {
        for (QDate day(1999, 12, 1); day.year() < 2046; day = day.addDays(1)) {
            int isoYear = 0;
            const int isoWeek = day.weekNumber(&isoYear);
            const Calendar::WeekKey key = Calendar::weekKey(day, 2, 4);
            if (key != (Calendar::WeekKey{isoYear, isoWeek}))
                QFAIL(qPrintable(day.toString(Qt::ISODate)));
        }
    }

    void weekKeyOfAnInstantUsesTheCalendarsZone()
    {
        // Sunday evening in London is already Monday, and a new ISO week, in Berlin.
        const QDateTime instant(QDate(2021, 1, 3), QTime(23, 30), Qt::UTC);
        const Calendar berlin(QTimeZone(QByteArray("Europe/Berlin")), 2, 4);
        const Calendar london(QTimeZone(QByteArray("Europe/London")), 2, 4);
        QCOMPARE(berlin.weekKey(instant), (Calendar::WeekKey{2021, 1}));
        QCOMPARE(london.weekKey(instant), (Calendar::WeekKey{2020, 53}));
    }
};

QTEST_GUILESS_MAIN(TestCalendar)
#include "tst_calendar.moc"
