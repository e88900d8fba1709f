// Search answers from the store's index exactly what reading every record answers: over a
// generated journal full of text that lower-cases unevenly, after every kind of change saved
// and unsaved, and on a file opened again. Then the snippet's own rules.

#include "TestSupport.h"

#include "core/JournalSearch.h"
#include "core/records/DailyEntry.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/Database.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QLocale>
#include <QTest>

#include <random>

using namespace Qt::StringLiterals;

namespace {

const Calendar calendar = testCalendar();

// Words whose lower case is longer or shorter than they are (İ, the Kelvin sign, ß), that are
// one character in several code units (emoji, flags, a combining accent), and that mean
// something to a full-text query parser.
const QStringList words = u"Zürich|ÉCOLE|école|naïve|NAÏVE|😀|👩‍👩‍👧|🇩🇪|"
                          "İstanbul|istanbul|\u212Aelvin|kelvin|straße|STRASSE|ǅemal|"
                          "Ωmega|café|cafe\u0301|acme|ACME|Acme|#launch|\"quoted\"|AND|or|"
                          "NOT|NEAR(|x*y|-dash|body:|^caret|(x)|a\"b|plan|review|the|of|"
                          "1:1|日本語|ﬁle|\n|\n\n|\t|…"_s.split(u'|');

struct Journal {
    TempDataDir dir;
    FixedClock clock{calendar.at(QDate(2026, 1, 5), 10, 0), calendar};
    QString path = dir.path() + u"/journal.store"_s;
    std::unique_ptr<ModelContainer> container = open();
    std::mt19937 random{20260105};

    std::unique_ptr<ModelContainer> open()
    {
        return std::make_unique<ModelContainer>(StoreSchema::current(),
                                                ModelContainer::Configuration::atPath(path));
    }
    void reopen()
    {
        container.reset();
        container = open();
    }
    ModelContext &context() { return container->mainContext(); }
    Database &database() { return container->database(); }

    int pick(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random); }

    QString text()
    {
        QStringList parts;
        for (int i = 3 + pick(pick(4) == 0 ? 120 : 30); i > 0; --i)
            parts.append(words.at(pick(int(words.size()))));
        return parts.join(pick(3) ? u" "_s : QString());
    }

    // Twelve days, midnight or not, so that records of every kind share dates.
    QDateTime date()
    {
        const QDate day = QDate(2025, 12, 1).addDays(pick(12) * 3);
        return pick(2) ? calendar.startOfDay(day) : calendar.at(day, 8 + pick(10), 0);
    }

    // Often the same instant: the kind, then the creation order, then the key settle ties.
    template<class T, class... Args>
    void add(Args &&...args)
    {
        context().insert(std::make_shared<T>(std::forward<Args>(args)...));
        clock.advance(pick(2) * 1000);
    }

    void addPage() { add<DailyEntry>(text(), date(), false); }
    void addMeeting()
    {
        const auto people = context().fetch<Person>();
        add<Meeting>(pick(4) ? people.at(pick(int(people.size()))) : nullptr, date(), text());
    }
    void addBrief()
    {
        const QDateTime start = date();
        add<WeeklyBrief>(start, start.addDays(6), text(), QString(), 1, 1, BriefPeriod(pick(3)));
    }

    void write()
    {
        for (const QString &name : {u"Dana Reyes"_s, u"Émile Zola"_s, u"Kim"_s})
            add<Person>(name, QString(), RelationshipType::peer);
        for (int i = 0; i < 40; ++i)
            addPage();
        for (int i = 0; i < 25; ++i)
            addMeeting();
        for (int i = 0; i < 12; ++i)
            addBrief();
        context().save();
    }

    template<class T>
    QList<std::shared_ptr<T>> some(int count)
    {
        auto records = context().fetch<T>();
        std::shuffle(records.begin(), records.end(), random);
        return records.mid(0, count);
    }

    QStringList texts()
    {
        QStringList all;
        for (const auto &page : context().fetch<DailyEntry>())
            all.append(page->content);
        for (const auto &meeting : context().fetch<Meeting>())
            all.append(meeting->notes);
        for (const auto &brief : context().fetch<WeeklyBrief>())
            all.append(brief->content);
        return all;
    }

    // Pieces of the texts of every length up to twelve, from anywhere (a surrogate pair cut in
    // half included), as written, in upper and in lower case; and queries a full-text parser
    // would read as syntax.
    QStringList queries(int count)
    {
        QStringList found = u"\"|\"\"|\"quoted\"|a\"b|AND|and|NOT|*|x*|-|-dash|NEAR(|NEAR(a b)|^|"
                            "body:|(|kelvin|KELVIN|i\u0307st|istanbul|zürich|ZÜRICH|strasse|😀|😀 😀|"
                            "file|é|e\u0301|"_s.split(u'|');
        const QStringList all = texts();
        while (found.size() < count) {
            const QString &source = all.at(pick(int(all.size())));
            const int length = 1 + pick(12);
            if (source.size() < length)
                continue;
            const QString piece = source.mid(pick(int(source.size()) - length + 1), length);
            const int casing = pick(3);
            found.append(casing == 0 ? piece : casing == 1 ? piece.toUpper() : piece.toLower());
        }
        return found;
    }
};

QStringList described(const QList<JournalSearch::Hit> &hits)
{
    QStringList lines;
    for (const JournalSearch::Hit &hit : hits)
        lines.append(hit.source + u" | "_s + hit.date.toString(Qt::ISODateWithMs) + u" | "_s +
                     hit.snippet);
    return lines;
}

// Empty when the index and the scan agree on every query; otherwise the first difference. Also
// counts the queries that found something, so that agreeing on nothing can't pass.
QString disagreement(Journal &journal, int count, int *withHits = nullptr)
{
    static const qsizetype limits[] = {1, 3, 20, 100, 1000};
    const QStringList queries = journal.queries(count);
    for (qsizetype i = 0; i < queries.size(); ++i) {
        const qsizetype limit = limits[i % 5];
        const QStringList fast =
            described(JournalSearch::search(journal.context(), queries.at(i), limit));
        const QStringList slow =
            described(JournalSearch::scan(journal.context(), queries.at(i), limit));
        if (fast != slow)
            return u"query \"%1\" limit %2\nindex:\n%3\nscan:\n%4"_s.arg(
                queries.at(i), QString::number(limit), fast.join(u'\n'), slow.join(u'\n'));
        if (withHits && !slow.isEmpty())
            ++*withHits;
    }
    return {};
}

} // namespace

class SearchTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void indexAgreesWithScan_data()
    {
        QTest::addColumn<QString>("change");
        for (const char *change :
             {"as written", "saved edits", "unsaved edits", "saved deletes", "unsaved deletes",
              "unsaved inserts", "saved inserts", "replaced under the same key",
              "a person deleted with their meetings", "reopened"})
            QTest::newRow(change) << QString::fromUtf8(change);
    }

    void indexAgreesWithScan()
    {
        QFETCH(QString, change);
        Journal journal;
        journal.write();
        const bool save = !change.startsWith(u"unsaved"_s);
        if (change.endsWith(u"edits"_s)) {
            for (const auto &page : journal.some<DailyEntry>(10))
                page->content = journal.text();
            for (const auto &meeting : journal.some<Meeting>(5))
                meeting->notes = journal.text();
            for (const auto &brief : journal.some<WeeklyBrief>(3))
                brief->content = journal.text();
        } else if (change.endsWith(u"deletes"_s)) {
            for (const auto &page : journal.some<DailyEntry>(8))
                journal.context().remove(page);
            for (const auto &meeting : journal.some<Meeting>(5))
                journal.context().remove(meeting);
            for (const auto &brief : journal.some<WeeklyBrief>(2))
                journal.context().remove(brief);
        } else if (change.endsWith(u"inserts"_s)) {
            for (int i = 0; i < 5; ++i)
                journal.addPage();
            journal.addMeeting();
            journal.addBrief();
        } else if (change == u"replaced under the same key"_s) {
            for (const auto &old : journal.some<DailyEntry>(3)) {
                auto replacement = std::make_shared<DailyEntry>(journal.text(), old->date, true);
                replacement->id = old->id;
                journal.context().insert(replacement);
            }
        } else if (change == u"a person deleted with their meetings"_s) {
            journal.context().remove(journal.some<Person>(1).first());
        } else if (change == u"reopened"_s) {
            journal.reopen();
        }
        if (save)
            journal.context().save();
        QCOMPARE(journal.context().hasChanges(), !save);

        int withHits = 0;
        const QString difference = disagreement(journal, 300, &withHits);
        QVERIFY2(difference.isEmpty(), qPrintable(difference));
        QVERIFY2(withHits > 200, qPrintable(QString::number(withHits)));
    }

    // The index answers queries of three characters and more over kinds with nothing unsaved;
    // the records answer the rest. Emptying the index shows which did.
    void indexAnswersWhatItCan()
    {
        Journal journal;
        journal.write();
        const auto pages = [&](const QString &query) {
            qsizetype count = 0;
            for (const auto &hit : JournalSearch::search(journal.context(), query, 1000))
                count += hit.source.startsWith(u"Journal "_s) ? 1 : 0;
            return count;
        };
        QVERIFY(pages(u"acme"_s) > 0);
        journal.database().exec(u"DELETE FROM \"DailyEntrySearch\""_s);
        QCOMPARE(pages(u"acme"_s), 0);
        QVERIFY(pages(u"ac"_s) > 0);
        const auto page = journal.some<DailyEntry>(1).first();
        page->isWin = !page->isWin;
        QVERIFY(pages(u"acme"_s) > 0);
    }

    void reopening_data()
    {
        QTest::addColumn<QString>("damage");
        QTest::addColumn<bool>("rebuilt");
        QString dropAll;
        for (const QString &table : {u"DailyEntry"_s, u"Meeting"_s, u"WeeklyBrief"_s}) {
            for (const QString &trigger : {u"_insert"_s, u"_update"_s, u"_delete"_s})
                dropAll += u"DROP TRIGGER \"%1Search%2\"; "_s.arg(table, trigger);
            dropAll += u"DROP TABLE \"%1Search\"; "_s.arg(table);
        }
        QTest::newRow("a complete index is kept") << QString() << false;
        QTest::newRow("rows from before the index") << dropAll << true;
        QTest::newRow("rows a missing trigger didn't see")
            << u"DROP TRIGGER \"DailyEntrySearch_insert\""_s << true;
        QTest::newRow("built with other Unicode tables")
            << u"UPDATE \"StoreMetadata\" SET value = 'trigram 1, Unicode 1' WHERE key = "
               "'searchIndex'"_s
            << true;
    }

    // Rows written while the index was missing or stale are found after the next open; an
    // intact index isn't written again.
    void reopening()
    {
        QFETCH(QString, damage);
        QFETCH(bool, rebuilt);
        Journal journal;
        journal.write();
        if (!damage.isEmpty())
            journal.database().exec(damage);
        for (int i = 0; i < 5; ++i)
            journal.addPage();
        journal.context().save();
        journal.reopen();
        QCOMPARE(journal.database().scalar(u"SELECT total_changes()"_s).toLongLong() > 0, rebuilt);
        const QString difference = disagreement(journal, 100);
        QVERIFY2(difference.isEmpty(), qPrintable(difference));
        journal.reopen();
        QCOMPARE(journal.database().scalar(u"SELECT total_changes()"_s).toLongLong(), 0);
    }

    void snippet_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("query");
        QTest::addColumn<QString>("snippet");
        const QString a = u"a"_s.repeated(200);
        const QString b = u"b"_s.repeated(200);
        QTest::newRow("short: neither mark, own case")
            << u" Met ACME today.\n"_s << u"acme"_s << u"Met ACME today."_s;
        QTest::newRow("within the first 120: no leading mark")
            << u"Acme "_s + b << u"ACME"_s << u"Acme "_s + u"b"_s.repeated(119) + u"…"_s;
        QTest::newRow("in the middle: 120 either side")
            << a + u" Key "_s + b << u"key"_s
            << u"…"_s + u"a"_s.repeated(119) + u" Key "_s + u"b"_s.repeated(119) + u"…"_s;
        QTest::newRow("the first match")
            << u"key "_s + a + u" key"_s << u"KEY"_s << u"key "_s + u"a"_s.repeated(119) + u"…"_s;
        QTest::newRow("cut blanks still count as cut")
            << u" "_s.repeated(130) + u"key"_s + u"b"_s.repeated(10) << u"key"_s
            << u"…key"_s + u"b"_s.repeated(10);
        QTest::newRow("no match: the first 240, unmarked")
            << u"c"_s.repeated(300) << u"zzz"_s << u"c"_s.repeated(240);
        // Each is one character in several code units; lower-cased, İ is one more.
        for (const QString &unit : {u"😀"_s, u"🇩🇪"_s, u"👩‍👩‍👧"_s, u"e\u0301"_s, u"İ"_s})
            QTest::addRow("characters, not code units: %s", qPrintable(unit))
                << unit.repeated(130) + u"KEY "_s + unit.repeated(130) << u"key"_s
                << u"…"_s + unit.repeated(120) + u"KEY "_s + unit.repeated(119) + u"…"_s;
        QTest::newRow("no match: 240 characters, not code units")
            << u"😀"_s.repeated(250) << u"zzz"_s << u"😀"_s.repeated(240);
    }

    void snippet()
    {
        QFETCH(QString, text);
        QFETCH(QString, query);
        QFETCH(QString, snippet);
        QCOMPARE(JournalSearch::extractSnippet(text, query), snippet);
    }
};

QTEST_GUILESS_MAIN(SearchTest)
#include "tst_search.moc"
