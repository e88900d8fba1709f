// Demo mode over a real store file: what the sample holds, and that nothing of it, nor any
// unsaved draft, crosses between the sample and the user's journal either way.

#include "TestSupport.h"

#include "bridge/JournalTools.h"
#include "bridge/MCPError.h"
#include "bridge/MCPTools.h"
#include "core/ImageStorage.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/TagParser.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Document.h"
#include "core/records/EntryImage.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/SavedStory.h"
#include "core/records/StoreSchema.h"
#include "core/records/Tag.h"
#include "core/records/TaskItem.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "safety/DemoMode.h"
#include "writing/JournalDraftStore.h"
#include "writing/JournalPageEditor.h"
#include "writing/SaveDebouncer.h"

#include <QCryptographicHash>
#include <QFile>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const Calendar calendar = testCalendar();
// A Wednesday.
const QDateTime wednesday = calendar.at(QDate(2026, 3, 11), 10, 0);

template<class T, class Keep>
qsizetype countOf(ModelContext &context, Keep keep)
{
    const auto all = context.fetch<T>();
    return std::count_if(all.cbegin(), all.cend(),
                         [&](const auto &record) { return bool(keep(*record)); });
}

template<class T>
QStringList texts(ModelContext &context, QString T::*field)
{
    QStringList all;
    for (const auto &record : context.tryFetch<T>())
        all.append((*record).*field);
    return all;
}

} // namespace

class DemoModeTest : public QObject {
    Q_OBJECT

    // The user's journal in a real file, with one page of their own, and what the shell shares.
    struct Journal {
        TempDataDir dir;
        FixedClock clock{wednesday, calendar};
        Preferences preferences{dir.configDir() + u"/preferences.json"_s};
        ModelContainer container{StoreSchema::current(), ModelContainer::Configuration::atPath(
                                                             dir.dataRoot() + u"/default.store"_s)};
        JournalDraftStore drafts;
        SaveDebouncer debouncer;
        MCPTools tools;

        Journal()
        {
            JournalTools::registerAll(tools, drafts, preferences);
            real().insert(std::make_shared<DailyEntry>(u"My own page about the roadmap"_s,
                                                       today().addDays(-1), false));
            real().save();
        }
        ModelContext &real() { return container.mainContext(); }
        QDateTime today() const { return calendar.startOfDay(wednesday); }

        // The store's file and its log, as a hash of their bytes.
        QByteArray fingerprint()
        {
            real().trySave();
            preferences.flush();
            QCryptographicHash hash(QCryptographicHash::Sha256);
            for (const QString &suffix : {u""_s, u"-wal"_s})
                hash.addData(fileContents(dir.dataRoot() + u"/default.store"_s + suffix));
            return hash.result();
        }
        QString tool(const QString &name, const QJsonObject &arguments, DemoMode &demo)
        {
            try {
                return tools.invoke(name, arguments, demo.activeContext(real()), preferences);
            } catch (const MCPError &error) {
                return error.message();
            }
        }
    };

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    // Every screen has something to show, the profile included, all of it saved.
    void sampleFillsEveryRecordType()
    {
        Journal journal;
        DemoMode demo(journal.preferences, journal.drafts, journal.debouncer);
        demo.enter();
        ModelContext &sample = demo.container()->mainContext();
        QVERIFY(!sample.hasChanges());
        const auto any = [](const auto &) { return true; };
        const QList<std::pair<const char *, qsizetype>> counts = {
            {"pages", countOf<DailyEntry>(sample, any)},
            {"people", countOf<Person>(sample, any)},
            {"meetings",
             countOf<Meeting>(sample, [](const Meeting &m) { return !m.isScratchpad; })},
            {"scratchpads",
             countOf<Meeting>(sample, [](const Meeting &m) { return m.isScratchpad; })},
            {"action items",
             countOf<ActionItem>(sample, [](const ActionItem &a) { return a.meeting; })},
            {"tags", countOf<Tag>(sample, any)},
            {"open tasks",
             countOf<TaskItem>(sample, [](const TaskItem &t) { return !t.isCompleted; })},
            {"done tasks",
             countOf<TaskItem>(sample, [](const TaskItem &t) { return t.isCompleted; })},
            {"goals", countOf<Goal>(sample, any)},
            {"milestones",
             countOf<GoalMilestone>(sample, [](const GoalMilestone &m) { return m.goal; })},
            {"recaps of pages",
             countOf<WeeklyBrief>(sample, [](const WeeklyBrief &b) { return b.entryCount; })},
            {"stories", countOf<SavedStory>(sample, any)},
            {"About Me profile",
             countOf<Document>(sample,
                               [](const Document &d) { return d.isAboutMe() && d.userName; })},
            {"library",
             countOf<Document>(sample, [](const Document &d) { return !d.isAboutMe(); })},
            {"unread inbox",
             countOf<InboxItem>(sample, [](const InboxItem &i) { return !i.readAt; })},
        };
        for (const auto &[what, count] : counts)
            QVERIFY2(count > 0, what);
    }

    // Whatever day demo mode is opened, the pages sit on the weekdays just before it, and what
    // they mention is there to follow.
    void pagesAreOnRecentWeekdays_data()
    {
        QTest::addColumn<QDate>("today");
        QTest::addColumn<QDate>("latest");
        QTest::newRow("Monday") << QDate(2026, 3, 9) << QDate(2026, 3, 6);
        QTest::newRow("Wednesday") << QDate(2026, 3, 11) << QDate(2026, 3, 10);
        QTest::newRow("Sunday") << QDate(2026, 3, 15) << QDate(2026, 3, 13);
        QTest::newRow("new year") << QDate(2027, 1, 1) << QDate(2026, 12, 31);
    }
    void pagesAreOnRecentWeekdays()
    {
        QFETCH(QDate, today);
        QFETCH(QDate, latest);
        Journal journal;
        journal.clock.set(calendar.at(today, 8, 0));
        DemoMode demo(journal.preferences, journal.drafts, journal.debouncer);
        demo.enter();
        ModelContext &sample = demo.container()->mainContext();

        const auto pages =
            sample.fetch<DailyEntry>({{}, {field(&DailyEntry::date).descending()}, {}});
        QCOMPARE(calendar.day(pages.first()->date), latest);
        QSet<QString> tagged;
        QString text;
        for (const auto &page : pages) {
            const QDate day = calendar.day(page->date);
            QVERIFY2(Calendar::weekday(day) >= 2 && Calendar::weekday(day) <= 6,
                     qPrintable(day.toString()));
            QVERIFY2(day < today && day >= today.addDays(-28), qPrintable(day.toString()));
            for (const QString &name : TagParser::extractTagNames(page->content))
                tagged.insert(name.toLower());
            text += page->content;
        }
        const QStringList registered = texts(sample, &Tag::name);
        QCOMPARE(QSet<QString>(registered.cbegin(), registered.cend()), tagged);
        // Every @mention names somebody in People, so each one becomes a link.
        const QStringList names = texts(sample, &Person::name);
        static const QRegularExpression mention(u"@(\\p{L}+ \\p{L}+)"_s);
        for (auto it = mention.globalMatch(text); it.hasNext();) {
            const QString name = it.next().captured(1);
            QVERIFY2(names.contains(name), qPrintable(name));
        }
        for (const auto &task : sample.fetch<TaskItem>())
            QVERIFY(!task->completedAt || *task->completedAt <= Clock::now());
        for (const auto &item : sample.fetch<InboxItem>())
            QVERIFY(item->createdAt <= Clock::now());
    }

    // Whatever is written while exploring, by the page or an assistant, stays in the sample:
    // the user's store is the same file byte for byte, and the journal shows nothing of it.
    void writingInDemoLeavesTheJournalUntouched_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("typed and saved") << u"saved"_s;
        QTest::newRow("typed, save still pending at exit") << u"pending"_s;
        QTest::newRow("written by an assistant") << u"assistant"_s;
        QTest::newRow("a picture pasted") << u"picture"_s;
    }
    void writingInDemoLeavesTheJournalUntouched()
    {
        QFETCH(QString, how);
        Journal journal;
        const QByteArray before = journal.fingerprint();
        DemoMode demo(journal.preferences, journal.drafts, journal.debouncer);
        demo.enter();
        QVERIFY(journal.preferences.value(Prefs::demoModeActive));

        const QString words = u"Words typed while exploring"_s;
        std::optional<QString> picture;
        {
            JournalPageEditor page(demo.activeContext(journal.real()), journal.preferences,
                                   journal.drafts, journal.debouncer);
            page.setDate(journal.today());
            if (how == u"assistant"_s) {
                QVERIFY(journal.tool(u"add_journal_entry"_s, {{u"content"_s, words}}, demo)
                            .startsWith(u"Added"_s));
            } else {
                page.setText(words);
                if (how != u"pending"_s)
                    journal.debouncer.fire();
            }
            if (how == u"picture"_s) {
                const QUuid id = QUuid::createUuid();
                picture = ImageStorage::save("png bytes", id);
                QVERIFY(picture);
                auto image = std::make_shared<EntryImage>("png bytes", std::nullopt,
                                                          page.entries().value(0));
                image->id = id;
                demo.activeContext(journal.real()).insert(image);
                QVERIFY(demo.activeContext(journal.real()).trySave());
            }
            if (how != u"pending"_s)
                QVERIFY(texts(demo.container()->mainContext(), &DailyEntry::content)
                            .join(u'\n')
                            .contains(words));
            demo.exit();
        }
        journal.debouncer.fire();
        QVERIFY(!journal.preferences.value(Prefs::demoModeActive));
        QVERIFY(!journal.drafts.draft(journal.today()));
        if (picture)
            QVERIFY(!QFile::exists(ImageStorage::pathFor(QUuid::fromString(*picture))));

        QCOMPARE(journal.fingerprint(), before);
        QVERIFY(!texts(journal.real(), &DailyEntry::content).join(u'\n').contains(words));
        JournalPageEditor page(demo.activeContext(journal.real()), journal.preferences,
                               journal.drafts, journal.debouncer);
        page.setDate(journal.today());
        QVERIFY(!page.text().contains(words));
        // Nor does the next demo: it starts from the sample again.
        demo.enter();
        QVERIFY(!texts(demo.container()->mainContext(), &DailyEntry::content)
                     .join(u'\n')
                     .contains(words));
    }

    // Unsaved typing on the user's page when demo mode starts is dropped: it lands in neither
    // store, not even when the page closes later.
    void pendingJournalDraftIsDroppedOnEntry()
    {
        Journal journal;
        auto page = std::make_unique<JournalPageEditor>(journal.real(), journal.preferences,
                                                        journal.drafts, journal.debouncer);
        page->setDate(journal.today());
        page->setText(u"Saved this morning"_s);
        page->save();
        page->setText(u"Saved this morning\nnot saved yet"_s);
        QVERIFY(journal.debouncer.isPending());

        DemoMode demo(journal.preferences, journal.drafts, journal.debouncer);
        demo.enter();
        QVERIFY(!journal.debouncer.isPending());
        QVERIFY(!journal.drafts.draft(journal.today()) && !journal.drafts.activeDay());
        page.reset();
        const auto inDemo = texts(demo.container()->mainContext(), &DailyEntry::content);
        QVERIFY(!inDemo.join(u'\n').contains(u"not saved yet"_s));
        demo.exit();

        QCOMPARE(JournalPageEditor::joinedText(
                     JournalPageEditor::storedEntries(journal.today(), journal.real())),
                 u"Saved this morning"_s);
    }

    // Left on at quit, demo mode is on again at the next launch, over a fresh sample.
    void relaunchInDemoModeStartsAFreshSample()
    {
        Journal journal;
        auto demo =
            std::make_unique<DemoMode>(journal.preferences, journal.drafts, journal.debouncer);
        demo->enter();
        const qint64 pages = demo->container()->mainContext().fetchCount<DailyEntry>();
        for (const auto &page : demo->container()->mainContext().fetch<DailyEntry>())
            demo->container()->mainContext().remove(page);
        demo->container()->mainContext().save();
        demo.reset();

        DemoMode relaunched(journal.preferences, journal.drafts, journal.debouncer);
        QVERIFY(relaunched.isActive());
        QCOMPARE(relaunched.container()->mainContext().fetchCount<DailyEntry>(), pages);
        relaunched.exit();
        QVERIFY(!DemoMode(journal.preferences, journal.drafts, journal.debouncer).isActive());

        // A store that can't be made leaves demo mode off, and the next launch as it was.
        const auto none = [] { return std::unique_ptr<ModelContainer>(); };
        DemoMode failing(journal.preferences, journal.drafts, journal.debouncer, none);
        QSignalSpy changed(&failing, &DemoMode::changed);
        failing.enter();
        QVERIFY(!failing.isActive() && changed.isEmpty());
        QVERIFY(!journal.preferences.value(Prefs::demoModeActive));
        QCOMPARE(&failing.activeContext(journal.real()), &journal.real());
    }

    // A store taken away stays usable for views still going, then is released.
    void retiredStoreLivesOnThenGoes()
    {
        Journal journal;
        DemoMode demo(journal.preferences, journal.drafts, journal.debouncer);
        demo.setRetirement(std::chrono::milliseconds(0));
        QSignalSpy changed(&demo, &DemoMode::changed);
        const int generation = DemoMode::generation();
        demo.enter();
        demo.enter();
        QCOMPARE(DemoMode::generation(), generation + 1);
        const ModelContainer *sample = demo.container();
        QSignalSpy released(&demo.container()->mainContext(), &QObject::destroyed);

        demo.exit();
        demo.exit();
        QCOMPARE(DemoMode::generation(), generation + 2);
        QCOMPARE(changed.count(), 2);
        QCOMPARE(changed.at(0).at(0).toBool(), true);
        QCOMPARE(changed.at(1).at(0).toBool(), false);
        QCOMPARE(demo.retired(), QList<const ModelContainer *>{sample});
        QVERIFY(demo.retired().first()->storedSchemaVersion() == u"1.0.0"_s);
        QCOMPARE(released.count(), 0);
        QTRY_COMPARE(released.count(), 1);
        QVERIFY(demo.retired().isEmpty());
    }

    // An assistant reads whichever store the shell works on.
    void toolsReadTheActiveStore()
    {
        Journal journal;
        DemoMode demo(journal.preferences, journal.drafts, journal.debouncer);
        const auto entries = [&] { return journal.tool(u"get_entries"_s, {}, demo); };
        QVERIFY(entries().contains(u"My own page about the roadmap"_s));
        demo.enter();
        QVERIFY(entries().contains(u"cutover runbook"_s));
        QVERIFY(!entries().contains(u"My own page"_s));
        demo.exit();
        QVERIFY(entries().contains(u"My own page about the roadmap"_s));
        QVERIFY(!entries().contains(u"cutover runbook"_s));
    }
};

QTEST_GUILESS_MAIN(DemoModeTest)
#include "tst_demomode.moc"
