#include "TestSupport.h"
#include "WritingTestMain.h"
#include "core/AppCalendar.h"
#include "core/DataGeneration.h"
#include "core/ImageStorage.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/DailyEntry.h"
#include "core/records/EntryImage.h"
#include "core/records/Goal.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/records/Tag.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "writing/EntryMarkup.h"
#include "writing/InspirationTray.h"
#include "writing/JournalDraftStore.h"
#include "writing/JournalPageEditor.h"
#include "writing/JournalTemplates.h"
#include "writing/SaveDebouncer.h"

#include <QFile>
#include <QSignalSpy>
#include <QTextDocument>

using namespace Qt::StringLiterals;

namespace {

const Calendar calendar = testCalendar();
const QDateTime now = calendar.at(QDate(2024, 5, 7), 10, 0);
const QDateTime today = calendar.startOfDay(now);
const QDateTime yesterday = calendar.startOfDay(QDate(2024, 5, 6));
const QUuid imageA = QUuid::fromString(u"0f8e3c2a-7b4d-4e1f-9a6b-5c3d2e1f0a9b"_s);
const QUuid imageB = QUuid::fromString(u"11111111-2222-3333-4444-555555555555"_s);

QString token(const QUuid &id)
{
    return u"{{img:"_s + id.toString(QUuid::WithoutBraces).toUpper() + u"}}"_s;
}

// How the assistant tools write a day: from the live text, then telling drafts and the page.
void assistantAdds(ModelContext &context, JournalDraftStore &drafts, const QString &line)
{
    const auto entries = JournalPageEditor::storedEntries(today, context);
    QStringList contents;
    for (const auto &entry : entries)
        contents.append(entry->content);
    const QString live = drafts.liveText(today, contents.join(u'\n'));
    const QString text = live.isEmpty() ? line : live + u"\n\n"_s + line;
    if (entries.isEmpty())
        context.insert(std::make_shared<DailyEntry>(text, today, false));
    else
        entries.first()->content = text;
    context.save();
    drafts.recordStored(text, today);
    NoticeCenter::shared().post(Notices::journalReplaced, {{u"day"_s, today}, {u"text"_s, text}});
}

} // namespace

// Everything a page needs, made fresh for each test and torn down in reverse.
struct Fixture {
    TempDataDir dir;
    FixedClock clock{now, calendar};
    ModelContainer container{StoreSchema::current(), ModelContainer::Configuration::memoryOnly()};
    Preferences prefs{dir.configDir() + u"/preferences.json"_s};
    JournalDraftStore drafts;
    SaveDebouncer debouncer;
    std::unique_ptr<JournalPageEditor> page =
        std::make_unique<JournalPageEditor>(container.mainContext(), prefs, drafts, debouncer);
};

class TestJournalPage : public QObject {
    Q_OBJECT

    std::optional<Fixture> m_f;

    ModelContext &context() { return m_f->container.mainContext(); }

    QStringList storedContents(const QDateTime &day = today)
    {
        QStringList contents;
        for (const auto &entry : JournalPageEditor::storedEntries(day, context()))
            contents.append(entry->content);
        return contents;
    }

    std::shared_ptr<DailyEntry> storeEntry(const QString &content, const QDateTime &day = today)
    {
        auto entry = std::make_shared<DailyEntry>(content, day, false);
        context().insert(entry);
        context().save();
        return entry;
    }

    void addImage(const std::shared_ptr<DailyEntry> &entry, const QUuid &id)
    {
        auto image = std::make_shared<EntryImage>(QByteArray("png"), std::nullopt, entry);
        image->id = id;
        context().insert(image);
        context().save();
        QVERIFY(ImageStorage::save("png", id));
    }

    bool imageRowExists(const QUuid &id)
    {
        return context().fetchCount<EntryImage>({field(&EntryImage::id) == id, {}, {}}) == 1;
    }

private slots:
    void init() { m_f.emplace(); }
    void cleanup() { m_f.reset(); }

    void emptyPagesMakeNoRecord_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::newRow("skeleton plus a blank") << u"## Yesterday\n\n## Today\n\n## Blockers\n\n"_s;
        QTest::newRow("white space") << u"  \n\t\n"_s;
    }

    void emptyPagesMakeNoRecord()
    {
        QFETCH(QString, typed);
        m_f->prefs.set(Prefs::journalTemplate, u"standup"_s);
        m_f->page->load();
        QCOMPARE(m_f->page->text(), u"## Yesterday\n\n## Today\n\n## Blockers\n"_s);
        m_f->page->setText(typed);
        m_f->debouncer.fire();
        QCOMPARE(storedContents(), QStringList());
    }

    void typingSavesAfterTheDebounce()
    {
        m_f->page->load();
        QSignalSpy saved(m_f->page.get(), &JournalPageEditor::entrySaved);
        m_f->page->setText(u"Shipped #Launch"_s);
        m_f->page->setText(u"Shipped #Launch with @Ann"_s);
        QCOMPARE(storedContents(), QStringList());
        QTRY_COMPARE_WITH_TIMEOUT(storedContents(), QStringList{u"Shipped #Launch with @Ann"_s},
                                  SaveDebouncer::delayMs + 1500);
        QCOMPARE(saved.size(), 1);
        QCOMPARE(context().fetchCount<Tag>({field(&Tag::name) == u"launch"_s, {}, {}}), 1);
        QCOMPARE(JournalPageEditor::storedEntries(today, context()).first()->date, today);
    }

    void leavingADaySavesAtOnce()
    {
        m_f->page->load();
        m_f->page->setText(u"monday words"_s);
        m_f->page->setDate(calendar.addingDays(today, 1));
        QCOMPARE(storedContents(), QStringList{u"monday words"_s});
        QVERIFY(!m_f->debouncer.isPending());
        QCOMPARE(m_f->page->text(), QString());

        // The debouncer serves one page at a time: another page's change replaces the pending
        // save, and leaving saves regardless.
        JournalPageEditor other(context(), m_f->prefs, m_f->drafts, m_f->debouncer);
        other.setDate(yesterday);
        m_f->page->setText(u"tomorrow"_s);
        other.setText(u"late"_s);
        QCOMPARE(m_f->debouncer.pendingOwner(), &other);
        m_f->page.reset();
        QCOMPARE(storedContents(calendar.addingDays(today, 1)), QStringList{u"tomorrow"_s});
    }

    void midnightStartsAnEmptyPage()
    {
        m_f->prefs.set(Prefs::journalTemplate, u"general"_s);
        AppCalendar appCalendar(QStringList{});
        m_f->page->followToday(appCalendar);
        m_f->page->load();
        m_f->page->setText(u"late night"_s);
        m_f->clock.set(calendar.at(QDate(2024, 5, 8), 0, 0, 30));
        appCalendar.update();
        QCOMPARE(storedContents(), QStringList{u"late night"_s});
        QCOMPARE(m_f->page->text(), JournalTemplates::content(u"general"_s, m_f->prefs));
        m_f->debouncer.fire();
        QCOMPARE(storedContents(calendar.startOfDay(Clock::now())), QStringList());
    }

    void emptyingAPageDeletesIt()
    {
        storeEntry(u"something"_s);
        m_f->page->load();
        QCOMPARE(m_f->page->text(), u"something"_s);
        m_f->page->setText(QString());
        m_f->page->save();
        QCOMPARE(storedContents(), QStringList());
    }

    void editsOfWhiteSpaceAtTheEndsAreSaved_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::newRow("first item indented") << u"    - first\n- second"_s;
        QTest::newRow("trailing tab") << u"- first\n- second\t"_s;
    }

    void editsOfWhiteSpaceAtTheEndsAreSaved()
    {
        QFETCH(QString, typed);
        storeEntry(u"- first\n- second"_s);
        m_f->page->load();
        m_f->page->setText(typed);
        m_f->page->save();
        QCOMPARE(storedContents(), QStringList{typed});
        QCOMPARE(m_f->page->text(), typed);
    }

    void assistantAndTypingBothStand_data()
    {
        QTest::addColumn<int>("writer");
        QTest::newRow("assistant tool, through the draft store") << 0;
        QTest::newRow("a writer unaware of drafts, with a notice") << 1;
        QTest::newRow("a writer unaware of drafts, silently") << 2;
    }

    void assistantAndTypingBothStand()
    {
        QFETCH(int, writer);
        storeEntry(u"## Today\nstandup"_s);
        m_f->page->load();
        QSignalSpy replaced(m_f->page.get(), &JournalPageEditor::textReplaced);
        m_f->page->setText(u"## Today\nstandup\nmy unsaved line"_s);

        if (writer == 0) {
            assistantAdds(context(), m_f->drafts, u"assistant line"_s);
        } else {
            // A writer that knows nothing of drafts, such as an import.
            JournalPageEditor::storedEntries(today, context()).first()->content =
                u"## Today\nstandup\n\nassistant line"_s;
            context().save();
            if (writer == 1)
                NoticeCenter::shared().post(Notices::journalReplaced, {{u"day"_s, today}});
        }
        if (writer != 2) {
            QCOMPARE(replaced.size(), 1);
            QVERIFY(m_f->page->text().contains(u"my unsaved line"_s));
            QVERIFY(m_f->page->text().contains(u"assistant line"_s));
            m_f->page->setText(m_f->page->text() + u"\nand more"_s);
        }
        m_f->debouncer.fire();
        m_f->page->save();

        const QString stored = storedContents().join(u'\n');
        for (const QString &line : {u"standup"_s, u"my unsaved line"_s, u"assistant line"_s})
            QVERIFY2(stored.contains(line), qPrintable(stored));
        QCOMPARE(stored.count(u"assistant line"_s), 1);
        QCOMPARE(m_f->page->text(), stored);
    }

    void twoEntriesOfADayBecomeOne()
    {
        const auto first = storeEntry(u"first "_s + token(imageA));
        m_f->clock.advance(1000);
        const auto second = storeEntry(u"second "_s + token(imageB));
        addImage(second, imageB);
        m_f->page->load();
        QCOMPARE(m_f->page->text(), u"first "_s + token(imageA) + u"\n\nsecond "_s + token(imageB));
        m_f->page->setText(m_f->page->text() + u"!"_s);
        m_f->page->save();
        const auto entries = JournalPageEditor::storedEntries(today, context());
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries.first(), first);
        QCOMPARE(first->images().size(), 1);
        QCOMPARE(first->images().first()->id, imageB);
    }

    void savesFromBeforeAnEraseAreDropped()
    {
        m_f->page->load();
        m_f->page->setText(u"before the erase"_s);
        // What the application does when the user erases everything.
        DataGeneration::advance();
        m_f->debouncer.cancel();
        m_f->drafts.clear();
        m_f->page->saveContent(u"late save"_s);
        QCOMPARE(storedContents(), QStringList());

        NoticeCenter::shared().post(Notices::dataErased);
        QCOMPARE(m_f->page->text(), QString());
        m_f->page->setText(u"after"_s);
        m_f->page->save();
        QCOMPARE(storedContents(), QStringList{u"after"_s});
    }

    void orphanedImagesGoAfterTheGrace()
    {
        const auto entry = storeEntry(u"a "_s + token(imageA) + u" b "_s + token(imageB));
        addImage(entry, imageA);
        addImage(entry, imageB);
        m_f->page->load();
        m_f->page->setText(u"a "_s + token(imageA) + u" b"_s);
        m_f->page->save();
        QVERIFY(imageRowExists(imageB));

        // Taken out and put back within the grace, as an undo does: it stays.
        m_f->page->setText(u"a b"_s);
        m_f->page->save();
        m_f->page->setText(u"a "_s + token(imageA) + u" b"_s);
        QTRY_VERIFY_WITH_TIMEOUT(!imageRowExists(imageB), JournalPageEditor::imageGraceMs + 2000);
        QVERIFY(imageRowExists(imageA));
        QVERIFY(!QFile::exists(ImageStorage::pathFor(imageB)));
        QVERIFY(QFile::exists(ImageStorage::pathFor(imageA)));
    }

    void deletingADay()
    {
        const auto entry = storeEntry(u"gone "_s + token(imageA));
        addImage(entry, imageA);
        m_f->page->load();
        m_f->page->setText(u"gone and typed"_s);
        m_f->page->deleteDay(today);
        QCOMPARE(storedContents(), QStringList());
        QVERIFY(!imageRowExists(imageA));
        QVERIFY(!QFile::exists(ImageStorage::pathFor(imageA)));
        QCOMPARE(m_f->drafts.draft(today), std::nullopt);
        QCOMPARE(m_f->page->text(), QString());
    }

    void trayOffersTheDay()
    {
        auto done = std::make_shared<TaskItem>(u"Ship the importer"_s, 0, std::nullopt);
        done->isCompleted = true;
        done->completedAt = today.addSecs(3600);
        auto earlier = std::make_shared<TaskItem>(u"Old task"_s, 0, std::nullopt);
        earlier->isCompleted = true;
        earlier->completedAt = yesterday.addSecs(3600);
        auto open = std::make_shared<TaskItem>(u"Open task"_s, 0, std::nullopt);
        auto goal = std::make_shared<Goal>(u"Lead a project"_s, QString(), std::nullopt);
        goal->status = GoalStatus::completed;
        auto person = std::make_shared<Person>(u"Ann Lee"_s, u"EM"_s, RelationshipType::manager);
        auto meeting =
            std::make_shared<Meeting>(person, today.addSecs(7200), u"\n  Talked roadmap\nmore"_s);
        auto scratchpad = std::make_shared<Meeting>(person, today, u"next time"_s, true);
        for (const auto &record :
             QList<std::shared_ptr<Record>>{done, earlier, open, goal, person, meeting, scratchpad})
            context().insert(record);
        storeEntry(u"## Plan\n- [ ] write docs\n- [x] done already\n* call Bo\n-  \ntext"_s,
                   yesterday);

        const auto all = InspirationTray::suggestions(today, context());
        QStringList shown;
        for (const auto &suggestion : all)
            shown.append(suggestion.title + u": "_s + suggestion.text);
        QCOMPARE(shown, (QStringList{
                            u"Completed task: Ship the importer"_s,
                            u"Goal completed: Goal completed: Lead a project"_s,
                            u"Meeting today: 1:1 with Ann Lee: Talked roadmap"_s,
                            u"From yesterday's plan: write docs"_s,
                            u"From yesterday's plan: call Bo"_s,
                        }));
        const QSet<QString> used{all.first().id, all.last().id};
        QCOMPARE(InspirationTray::suggestions(today, context(), used).size(), 3);
        QCOMPARE(InspirationTray::suggestions(yesterday, context()).size(), 1);

        QCOMPARE(InspirationTray::insertSuggestion(u"text"_s, all.first()),
                 u"text\n- Ship the importer"_s);
        QTextDocument document;
        EntryMarkup::loadFromMarkdown(u"## Today"_s, document);
        InspirationTray::insertSuggestion(document, all.first());
        QCOMPARE(EntryMarkup::serializeToMarkdown(document), u"## Today\n- Ship the importer"_s);
    }
};

WRITING_TEST_MAIN(TestJournalPage)
#include "tst_journalpage.moc"
