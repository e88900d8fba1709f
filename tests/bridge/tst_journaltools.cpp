// The journal tools as an assistant meets them: their replies and refusals word for word, what
// they leave in the store, and the page's unsaved typing surviving an assistant's write.

#include "TestSupport.h"

#include "bridge/JournalTools.h"
#include "bridge/MCPError.h"
#include "bridge/MCPTools.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/DailyEntry.h"
#include "core/records/EntryImage.h"
#include "core/records/StoreSchema.h"
#include "core/records/Tag.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "writing/JournalDraftStore.h"
#include "writing/JournalPageEditor.h"
#include "writing/JournalTemplates.h"
#include "writing/SaveDebouncer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QSignalSpy>
#include <QTest>

#include <limits>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

const Calendar calendar = testCalendar();
const QDateTime now = calendar.at(QDate(2026, 1, 5), 10, 0);

QDateTime day(int year, int month, int dayOfMonth)
{
    return calendar.startOfDay(QDate(year, month, dayOfMonth));
}

QString imageToken(const QUuid &id)
{
    return u"{{img:"_s + id.toString(QUuid::WithoutBraces).toUpper() + u"}}"_s;
}

} // namespace

class JournalToolsTest : public QObject {
    Q_OBJECT

    struct Journal {
        TempDataDir dir;
        FixedClock clock{now, calendar};
        Preferences preferences{dir.configDir() + u"/preferences.json"_s};
        ModelContainer container{StoreSchema::current(),
                                 ModelContainer::Configuration::memoryOnly()};
        JournalDraftStore drafts;
        MCPTools tools;

        Journal() { JournalTools::registerAll(tools, drafts, preferences); }

        ModelContext &context() { return container.mainContext(); }

        QString call(const QString &tool, const QJsonObject &arguments)
        {
            try {
                return tools.invoke(tool, arguments, context(), preferences);
            } catch (const MCPError &error) {
                return u"error "_s + QString::number(error.code()) + u' ' + error.message();
            }
        }

        std::shared_ptr<DailyEntry> write(const QString &text, const QDateTime &date,
                                          int createdMinute = 0)
        {
            auto entry = std::make_shared<DailyEntry>(text, date, false);
            entry->createdAt = date.addSecs(60 * createdMinute);
            context().insert(entry);
            context().save();
            return entry;
        }

        QList<std::shared_ptr<DailyEntry>> rows(const QDateTime &date)
        {
            return JournalPageEditor::storedEntries(date, context());
        }

        QString stored(const QDateTime &date)
        {
            QStringList texts;
            for (const auto &row : rows(date))
                texts.append(row->content);
            return texts.join(u"\n|\n"_s);
        }

        void useTemplate(const QString &id) { preferences.set(Prefs::journalTemplate, id); }
    };

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void getEntries_data()
    {
        QTest::addColumn<QJsonObject>("arguments");
        QTest::addColumn<QString>("reply");

        const QString today = u"## Monday, January 5, 2026\n\nShipped the importer [image]."_s;
        const QString sunday = u"## Sunday, January 4, 2026\n\nAfternoon row.\n\nMorning row."_s;
        const QString edge = u"## Monday, December 22, 2025\n\nFourteen days back."_s;
        const QString rule = u"\n\n---\n\n"_s;
        const QString all = today + rule + sunday + rule + edge;
        const QString none = u"No journal entries in that range."_s;

        QTest::newRow("the last 14 days") << QJsonObject() << all;
        QTest::newRow("an older range")
            << QJsonObject{{"from"_L1, u"2025-12-01"_s}, {"to"_L1, u"2025-12-21"_s}}
            << u"## Sunday, December 21, 2025\n\nFifteen days back."_s;
        QTest::newRow("from after to")
            << QJsonObject{{"from"_L1, u"2026-01-05"_s}, {"to"_L1, u"2026-01-04"_s}} << none;
        QTest::newRow("an empty range") << QJsonObject{{"to"_L1, u"2025-01-01"_s}} << none;
        QTest::newRow("a bad from is 14 days back")
            << QJsonObject{{"from"_L1, u"2026-13-45"_s}} << all;
        QTest::newRow("a time is not a date")
            << QJsonObject{{"from"_L1, u"2025-12-21T00:00:00"_s}} << all;
        QTest::newRow("a bad to is today")
            << QJsonObject{{"to"_L1, u"yesterday"_s}, {"from"_L1, u"2026-01-04"_s}}
            << today + rule + sunday;
        QTest::newRow("a number for a date") << QJsonObject{{"from"_L1, 20251201}} << all;
        QTest::newRow("limit counts rows, not days") << QJsonObject{{"limit"_L1, 2}}
                                                     << today + rule +
                                                            u"## Sunday, January 4, 2026\n\n"
                                                            "Afternoon row."_s;
        QTest::newRow("limit 0 gives one row") << QJsonObject{{"limit"_L1, 0}} << today;
        QTest::newRow("a negative limit gives one row") << QJsonObject{{"limit"_L1, -7}} << today;
        QTest::newRow("the smallest integer")
            << QJsonObject{{"limit"_L1, QJsonValue(qint64(std::numeric_limits<qint64>::min()))}}
            << today;
        QTest::newRow("a huge limit") << QJsonObject{{"limit"_L1, 1e300}} << all;
        QTest::newRow("a limit as text is no limit") << QJsonObject{{"limit"_L1, u"1"_s}} << all;
        QTest::newRow("a null limit is no limit") << QJsonObject{{"limit"_L1, QJsonValue()}} << all;
        QTest::newRow("a fractional limit is no limit") << QJsonObject{{"limit"_L1, 1.5}} << all;
    }

    void getEntries()
    {
        QFETCH(QJsonObject, arguments);
        QFETCH(QString, reply);
        Journal journal;
        const QUuid image = QUuid::createUuid();
        journal.write(u"  Shipped the importer "_s + imageToken(image) + u".\n\n"_s,
                      day(2026, 1, 5).addSecs(3600));
        // Two rows of one day: one heading, newest first, a blank line between.
        journal.write(u"Morning row."_s, day(2026, 1, 4).addSecs(9 * 3600), 2);
        journal.write(u"Afternoon row."_s, day(2026, 1, 4).addSecs(15 * 3600), 1);
        journal.write(u"Fourteen days back."_s, day(2025, 12, 22));
        journal.write(u"Fifteen days back."_s, day(2025, 12, 21).addSecs(23 * 3600));
        QCOMPARE(journal.call(u"get_entries"_s, arguments), reply);
    }

    void getEntriesCapsTheLimit()
    {
        Journal journal;
        for (int i = 0; i < 210; ++i)
            journal.context().insert(std::make_shared<DailyEntry>(
                u"Day %1."_s.arg(i), calendar.startOfDay(QDate(2025, 6, 1).addDays(i)), false));
        journal.context().save();
        const QString reply = journal.call(
            u"get_entries"_s, {{"from"_L1, u"2025-01-01"_s}, {"limit"_L1, qint64(1) << 60}});
        QCOMPARE(reply.count(u"\n---\n"_s), 199);
        QVERIFY(reply.startsWith(u"## Saturday, December 27, 2025\n\nDay 209."_s));
    }

    void getEntriesShowsUnsavedTyping()
    {
        Journal journal;
        SaveDebouncer debouncer;
        journal.write(u"Stored line."_s, day(2026, 1, 5));
        JournalPageEditor page(journal.context(), journal.preferences, journal.drafts, debouncer);
        page.setDate(now);
        page.load();
        page.setText(u"Stored line.\nStill typing"_s);
        QCOMPARE(journal.call(u"get_entries"_s, {}),
                 u"## Monday, January 5, 2026\n\nStored line.\nStill typing"_s);
        QCOMPARE(journal.stored(day(2026, 1, 5)), u"Stored line."_s);
    }

    void journalTemplate_data()
    {
        QTest::addColumn<QString>("templateId");
        QTest::addColumn<QStringList>("custom");
        QTest::addColumn<QString>("reply");

        const QString advice = u"\n\nPut new text under the heading it belongs to. Keep the "
                               "headings exactly as written here, and do not add headings that "
                               "are not in this list."_s;
        const QString freeForm =
            u"Free-form. No template sections, so write plain prose with no headings."_s;
        QTest::newRow("never chosen") << QString() << QStringList() << freeForm;
        QTest::newRow("blank") << u"blank"_s << QStringList() << freeForm;
        QTest::newRow("unknown") << u"haiku"_s << QStringList() << freeForm;
        QTest::newRow("standup")
            << u"standup"_s << QStringList()
            << u"Template sections, in order:\n## Yesterday\n## Today\n## Blockers"_s + advice;
        QTest::newRow("the user's own sections")
            << u"general"_s << QStringList{u"  Shipped "_s, u""_s, u"Learned"_s}
            << u"Template sections, in order:\n## Shipped\n## Learned"_s + advice;
    }

    void journalTemplate()
    {
        QFETCH(QString, templateId);
        QFETCH(QStringList, custom);
        QFETCH(QString, reply);
        Journal journal;
        if (!templateId.isNull())
            journal.useTemplate(templateId);
        if (!custom.isEmpty())
            JournalTemplates::setCustomSections(templateId, custom, journal.preferences);
        QCOMPARE(journal.call(u"get_journal_template"_s, {}), reply);
    }

    void addJournalEntry_data()
    {
        QTest::addColumn<QString>("templateId");
        QTest::addColumn<QString>("before");
        QTest::addColumn<QJsonObject>("arguments");
        QTest::addColumn<QString>("reply");
        QTest::addColumn<QString>("after");

        const QString added = u"Added to journal for January 5, 2026"_s;
        const QJsonObject fixed{{"content"_L1, u"  Fixed the build.\n "_s}};
        auto under = [](const char *section) {
            return QJsonObject{{"content"_L1, u"Fixed the build."_s},
                               {"section"_L1, QString::fromUtf8(section)}};
        };

        QTest::newRow("free-form, empty day")
            << u"blank"_s << QString() << fixed << added + u"."_s << u"Fixed the build."_s;
        QTest::newRow("free-form, after the day's text")
            << u"blank"_s << u"Morning standup."_s << fixed << added + u"."_s
            << u"Morning standup.\n\nFixed the build."_s;
        QTest::newRow("free-form names the section it was given")
            << u"blank"_s << u"Morning."_s << under(" Wins ") << added + u" under Wins."_s
            << u"Morning.\n\nFixed the build."_s;
        QTest::newRow("free-form with an empty section")
            << u"blank"_s << QString() << under("") << added + u" under ."_s
            << u"Fixed the build."_s;
        QTest::newRow("a section that is not text is absent")
            << u"blank"_s << QString()
            << QJsonObject{{"content"_L1, u"Fixed the build."_s}, {"section"_L1, 3}}
            << added + u"."_s << u"Fixed the build."_s;
        QTest::newRow("an impossible date is today")
            << u"blank"_s << QString()
            << QJsonObject{{"content"_L1, u"Fixed the build."_s}, {"date"_L1, u"2026-13-45"_s}}
            << added + u"."_s << u"Fixed the build."_s;
        QTest::newRow("the first write lays out the template")
            << u"standup"_s << QString() << under("today") << added + u" under today."_s
            << u"## Yesterday\n\n## Today\nFixed the build.\n\n## Blockers\n"_s;
        QTest::newRow("after the section's last line, not its blank lines")
            << u"standup"_s
            << u"## Yesterday\n\nReviews.\n\n## Today\n\nPaired.\n\n\n## Blockers\n"_s
            << under("Today") << added + u" under Today."_s
            << u"## Yesterday\n\nReviews.\n\n## Today\n\nPaired.\nFixed the build.\n\n\n"
               "## Blockers\n"_s;
        QTest::newRow("bullets added one at a time make one list")
            << u"standup"_s << u"## Today\n- Paired.\n\n## Blockers\n"_s
            << QJsonObject{{"content"_L1, u"- Fixed the build."_s}, {"section"_L1, u"Today"_s}}
            << added + u" under Today."_s
            << u"## Today\n- Paired.\n- Fixed the build.\n\n## Blockers\n"_s;
        QTest::newRow("a lost heading comes back at the end")
            << u"standup"_s << u"## Yesterday\n\nReviews."_s << under("Blockers")
            << added + u" under Blockers."_s
            << u"## Yesterday\n\nReviews.\n\n## Blockers\n\nFixed the build."_s;
        QTest::newRow("prose without headings")
            << u"standup"_s << u"Just prose."_s << under("Today") << added + u" under Today."_s
            << u"Just prose.\n\n## Today\n\nFixed the build."_s;
    }

    void addJournalEntry()
    {
        QFETCH(QString, templateId);
        QFETCH(QString, before);
        QFETCH(QJsonObject, arguments);
        QFETCH(QString, reply);
        QFETCH(QString, after);
        Journal journal;
        journal.useTemplate(templateId);
        if (!before.isNull())
            journal.write(before, day(2026, 1, 5).addSecs(60));
        QCOMPARE(journal.call(u"add_journal_entry"_s, arguments), reply);
        QCOMPARE(journal.stored(day(2026, 1, 5)), after);
    }

    void updateJournalEntry_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QJsonValue>("expected");
        QTest::addColumn<QString>("reply");
        QTest::addColumn<QString>("after");

        const QJsonObject update{{"content"_L1, u"Tidied."_s}};
        const QString changed =
            u"error -32602 That day has changed since you read it, so nothing was written. Read "
            "it again with get_entries and retry with the current text."_s;

        QTest::newRow("an empty day is created")
            << QString() << QJsonValue(u""_s) << u"Created the entry for January 5, 2026."_s
            << u"Tidied."_s;
        QTest::newRow("blank expected text on an empty day")
            << QString() << QJsonValue(u" \n\t"_s) << u"Created the entry for January 5, 2026."_s
            << u"Tidied."_s;
        QTest::newRow("wrapping and trailing blanks don't matter")
            << u"Paired on the\nimporter.  \n"_s << QJsonValue(u"Paired on the importer."_s)
            << u"Updated the entry for January 5, 2026."_s << u"Tidied."_s;
        QTest::newRow("one word changed")
            << u"Paired on the importer."_s << QJsonValue(u"Paired on the exporter."_s) << changed
            << u"Paired on the importer."_s;
        QTest::newRow("expected text on an empty day")
            << QString() << QJsonValue(u"Something."_s) << changed << QString();
        QTest::newRow("images shown as [image] don't match the stored text")
            << u"Whiteboard "_s + imageToken(QUuid::createUuid())
            << QJsonValue(u"Whiteboard [image]"_s) << changed
            << QString(); // checked below: unchanged
        const QString missing = u"error -32602 Missing required 'expected_current'. Read the "
                                "entry with get_entries first."_s;
        QTest::newRow("no expected text")
            << u"Paired."_s << QJsonValue(QJsonValue::Undefined) << missing << u"Paired."_s;
        QTest::newRow("expected text that is not text")
            << u"Paired."_s << QJsonValue(QJsonArray{u"Paired."_s}) << missing << u"Paired."_s;
        QTest::newRow("expected text null")
            << u"Paired."_s << QJsonValue() << missing << u"Paired."_s;
    }

    void updateJournalEntry()
    {
        QFETCH(QString, before);
        QFETCH(QJsonValue, expected);
        QFETCH(QString, reply);
        QFETCH(QString, after);
        Journal journal;
        if (!before.isNull())
            journal.write(before, day(2026, 1, 5));
        QJsonObject arguments{{"content"_L1, u" Tidied.\n"_s}};
        if (!expected.isUndefined())
            arguments.insert("expected_current"_L1, expected);
        QSignalSpy notices(&NoticeCenter::shared(), &NoticeCenter::posted);
        QCOMPARE(journal.call(u"update_journal_entry"_s, arguments), reply);
        QCOMPARE(journal.stored(day(2026, 1, 5)), after.isNull() ? before : after);
        QCOMPARE(notices.size(), reply.startsWith(u"error"_s) ? 0 : 1);
    }

    void refusals_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QJsonObject>("arguments");
        QTest::addColumn<QString>("reply");

        const QString noContent = u"error -32602 Missing required 'content' argument."_s;
        const QString sayWhich =
            u"error -32602 This journal uses sections, so say which one this goes under. Pass "
            "'section' as one of: Yesterday, Today, Blockers."_s;
        for (const char *tool : {"add_journal_entry", "update_journal_entry"}) {
            const QString name = QString::fromUtf8(tool);
            QTest::addRow("%s without content", tool)
                << name << QJsonObject{{"expected_current"_L1, u"Paired."_s}} << noContent;
            QTest::addRow("%s with blank content", tool)
                << name << QJsonObject{{"content"_L1, u" \n\t "_s}, {"expected_current"_L1, u""_s}}
                << noContent;
            QTest::addRow("%s with content that is not text", tool)
                << name << QJsonObject{{"content"_L1, 42}, {"expected_current"_L1, u""_s}}
                << noContent;
        }
        QTest::newRow("no section")
            << u"add_journal_entry"_s << QJsonObject{{"content"_L1, u"Fixed it."_s}} << sayWhich;
        QTest::newRow("a blank section")
            << u"add_journal_entry"_s
            << QJsonObject{{"content"_L1, u"Fixed it."_s}, {"section"_L1, u"  "_s}} << sayWhich;
        QTest::newRow("a section that is not text")
            << u"add_journal_entry"_s
            << QJsonObject{{"content"_L1, u"Fixed it."_s}, {"section"_L1, true}} << sayWhich;
        QTest::newRow("an unknown section")
            << u"add_journal_entry"_s
            << QJsonObject{{"content"_L1, u"Fixed it."_s}, {"section"_L1, u" Wins "_s}}
            << u"error -32602 \"Wins\" is not one of this journal's sections. Use one of: "
               "Yesterday, Today, Blockers."_s;
    }

    void refusals()
    {
        QFETCH(QString, tool);
        QFETCH(QJsonObject, arguments);
        QFETCH(QString, reply);
        Journal journal;
        journal.useTemplate(u"standup"_s);
        journal.write(u"Paired."_s, day(2026, 1, 5));
        QSignalSpy notices(&NoticeCenter::shared(), &NoticeCenter::posted);
        QCOMPARE(journal.call(tool, arguments), reply);
        QCOMPARE(journal.stored(day(2026, 1, 5)), u"Paired."_s);
        QVERIFY(!journal.context().hasChanges());
        QCOMPARE(notices.size(), 0);
    }

    void writesFoldTheDayIntoOneRow_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QJsonObject>("arguments");
        QTest::addColumn<QString>("after");
        QTest::addColumn<int>("images");

        // add keeps every image of the day; a replacement drops the later rows with theirs.
        QTest::newRow("add") << u"add_journal_entry"_s << QJsonObject{{"content"_L1, u"Third."_s}}
                             << u"First.\nSecond.\n\nThird."_s << 2;
        QTest::newRow("update") << u"update_journal_entry"_s
                                << QJsonObject{{"content"_L1, u"Both."_s},
                                               {"expected_current"_L1, u"First. Second."_s}}
                                << u"Both."_s << 1;
    }

    void writesFoldTheDayIntoOneRow()
    {
        QFETCH(QString, tool);
        QFETCH(QJsonObject, arguments);
        QFETCH(QString, after);
        QFETCH(int, images);
        Journal journal;
        const auto first = journal.write(u"First."_s, day(2026, 1, 5).addSecs(3600));
        const auto second = journal.write(u"Second."_s, day(2026, 1, 5).addSecs(7200));
        journal.context().insert(
            std::make_shared<EntryImage>(QByteArray("a"), std::nullopt, first));
        journal.context().insert(
            std::make_shared<EntryImage>(QByteArray("b"), std::nullopt, second));
        journal.context().save();

        QVERIFY(!journal.call(tool, arguments).startsWith(u"error"_s));
        const auto rows = journal.rows(day(2026, 1, 5));
        QCOMPARE(rows.size(), 1);
        QCOMPARE(rows.first()->id, first->id);
        QCOMPARE(rows.first()->content, after);
        QCOMPARE(rows.first()->updatedAt, now);
        QCOMPARE(rows.first()->images().size(), images);
        QCOMPARE(journal.context().fetchCount<EntryImage>(), images);
    }

    void writesTellTheDraftStoreAndThePage()
    {
        Journal journal;
        QSignalSpy notices(&NoticeCenter::shared(), &NoticeCenter::posted);
        QCOMPARE(journal.call(u"add_journal_entry"_s,
                              {{"content"_L1, u"Sped up the #Importer with #perf work."_s},
                               {"date"_L1, u"2026-01-02"_s}}),
                 u"Added to journal for January 2, 2026."_s);
        QCOMPARE(journal.stored(day(2026, 1, 2)), u"Sped up the #Importer with #perf work."_s);
        QCOMPARE(journal.rows(day(2026, 1, 5)).size(), 0);
        QCOMPARE(notices.size(), 1);
        QCOMPARE(notices.at(0).at(0).toString(), u"tovren.journal.replaced"_s);
        const QVariantMap info = notices.at(0).at(1).toMap();
        QCOMPARE(info.value(u"day"_s).toDateTime(), day(2026, 1, 2));
        QCOMPARE(info.value(u"text"_s).toString(), u"Sped up the #Importer with #perf work."_s);
        QCOMPARE(journal.drafts.draft(day(2026, 1, 2)), info.value(u"text"_s).toString());
        QCOMPARE(journal.drafts.base(day(2026, 1, 2)), info.value(u"text"_s).toString());

        QStringList tags;
        for (const auto &tag : journal.context().fetch<Tag>())
            tags.append(tag->name);
        tags.sort();
        QCOMPARE(tags, (QStringList{u"importer"_s, u"perf"_s}));

        // A replacement tags nothing.
        journal.call(u"update_journal_entry"_s,
                     {{"content"_L1, u"Now with #other."_s},
                      {"expected_current"_L1, u"Sped up the #Importer with #perf work."_s},
                      {"date"_L1, u"2026-01-02"_s}});
        QCOMPARE(journal.context().fetchCount<Tag>(), 2);
        QCOMPARE(notices.size(), 2);
        QCOMPARE(notices.at(1).at(1).toMap().value(u"text"_s).toString(), u"Now with #other."_s);
    }

    void addDescriptionFollowsTheSettings()
    {
        Journal journal;
        auto description = [&journal] {
            for (const MCPTool &tool : journal.tools.catalog(journal.preferences)) {
                if (tool.name == u"add_journal_entry"_s)
                    return tool.description;
            }
            return QString();
        };
        const QString opening = u"Add a paragraph to the user's journal for a date (default "
                                "today). Never overwrites.\n"_s;
        const QString rest =
            u" Write first person as the user. State only what they did; never invent detail, "
            "as this is evidence at review time. Mention people the user works with as @ "
            "followed by their name exactly as get_people lists it (for example @Daniel "
            "Okafor), which links the entry to their page; if someone the user works with "
            "closely isn't there yet, ask before adding them with add_person. Mark a project or "
            "theme with a one-word #tag, reusing one from get_tags rather than inventing a "
            "near-duplicate."_s;
        QCOMPARE(description(),
                 opening +
                     u"The user prefers a short paragraph or two: plain prose, specific about "
                     "what happened, no headings."_s +
                     rest);
        journal.useTemplate(u"standup"_s);
        journal.preferences.set(Prefs::journalWritingStyle, u"brief"_s);
        QCOMPARE(description(),
                 opening +
                     u"This journal is organised under: Yesterday, Today, Blockers. Pass the one "
                     "this belongs under as 'section'. The user prefers brief entries: one or two "
                     "sentences, plain prose, no headings or bullets."_s +
                     rest);
        // The chosen language follows the style sentence.
        journal.preferences.set(Prefs::aiOutputLanguage, u"de"_s);
        QVERIFY(description().contains(
            u"no headings or bullets.\nWrite all of your output in German, regardless of the "
            "language of these instructions. Keep names of people, companies, products, and "
            "projects exactly as the user wrote them \u2014 do not translate them. Write first "
            "person as the user."_s));
    }

    void hostileArgumentsAreRefusedOrIgnored()
    {
        Journal journal;
        journal.useTemplate(u"standup"_s);
        const QString huge = QString(1'000'000, u'x') + u"\n## Today\n"_s;
        QJsonArray values = QJsonDocument::fromJson(R"([null, true, -1, 1e308, -0.0, "", "Today",
            "0000-00-00", "99999-01-01", "2026-02-29", "\u0000\uffff", [1, 2], {"a": 1}])")
                                .array();
        values.append(huge);
        const QStringList keys{u"content"_s, u"section"_s, u"date"_s, u"expected_current"_s,
                               u"from"_s,    u"to"_s,      u"limit"_s};
        for (const QString &tool : {u"get_entries"_s, u"get_journal_template"_s,
                                    u"add_journal_entry"_s, u"update_journal_entry"_s}) {
            for (const QString &key : keys) {
                for (const QJsonValue &value : values) {
                    QJsonObject arguments{{"content"_L1, u"Fine."_s}, {"section"_L1, u"Today"_s}};
                    arguments.insert(key, value);
                    try {
                        journal.tools.invoke(tool, arguments, journal.context(),
                                             journal.preferences);
                    } catch (const MCPError &error) {
                        QCOMPARE(error.code(), MCPError::invalidParams);
                    }
                }
            }
        }
        // Every write went to today; nothing went astray.
        QCOMPARE(journal.context().fetchCount<DailyEntry>(), 1);
    }

    // The user types while an assistant adds to the same day; both survive the save.
    void noKeystrokeIsLost()
    {
        Journal journal;
        journal.useTemplate(u"standup"_s);
        SaveDebouncer debouncer;
        JournalPageEditor page(journal.context(), journal.preferences, journal.drafts, debouncer);
        page.setDate(now);
        page.load();
        QCOMPARE(page.text(), u"## Yesterday\n\n## Today\n\n## Blockers\n"_s);

        page.setText(u"## Yesterday\n\nReviewed the migration.\n\n## Today\n\n## Blockers\n"_s);
        QCOMPARE(journal.call(u"add_journal_entry"_s,
                              {{"content"_L1, u"Paired with Ana on the importer."_s},
                               {"section"_L1, u"Today"_s}}),
                 u"Added to journal for January 5, 2026 under Today."_s);
        // The page took the assistant's words while still holding the typing.
        QVERIFY(page.text().contains(u"Paired with Ana on the importer."_s));
        page.setText(page.text() + u"\nWaiting on review."_s);
        page.save();

        QCOMPARE(journal.stored(day(2026, 1, 5)),
                 u"## Yesterday\n\nReviewed the migration.\n\n## Today\nPaired with Ana on the "
                 "importer.\n\n## Blockers\n\nWaiting on review."_s);
    }
};

QTEST_GUILESS_MAIN(JournalToolsTest)
#include "tst_journaltools.moc"
