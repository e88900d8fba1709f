#include "TestSupport.h"
#include "WritingTestMain.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "writing/JournalGreeting.h"
#include "writing/JournalSidebar.h"
#include "writing/JournalTemplates.h"

using namespace Qt::StringLiterals;

struct Fixture {
    TempDataDir dir;
    Preferences prefs{dir.configDir() + u"/preferences.json"_s};
};

class TestJournalTemplates : public QObject {
    Q_OBJECT

    std::optional<Fixture> m_f;

private slots:
    void init() { m_f.emplace(); }
    void cleanup() { m_f.reset(); }

    void tableOfTemplates()
    {
        QStringList ids;
        for (const auto &entry : JournalTemplates::all())
            ids.append(entry.id);
        QCOMPARE(ids, (QStringList{u"blank"_s, u"engineer"_s, u"pm"_s, u"designer"_s, u"manager"_s,
                                   u"data"_s, u"sre"_s, u"sales"_s, u"support"_s, u"operations"_s,
                                   u"standup"_s, u"general"_s}));
        for (const auto &entry : JournalTemplates::all()) {
            QVERIFY(!entry.name.isEmpty() && !entry.description.isEmpty() && !entry.icon.isEmpty());
            QCOMPARE(entry.sections.isEmpty(), entry.id == u"blank");
        }
        QCOMPARE(JournalTemplates::content(u"standup"_s, m_f->prefs),
                 u"## Yesterday\n\n## Today\n\n## Blockers\n"_s);
        QCOMPARE(JournalTemplates::content(u"blank"_s, m_f->prefs), QString());
        QCOMPARE(JournalTemplates::content(u"nonsense"_s, m_f->prefs), QString());
    }

    void customSections_data()
    {
        columns<QString, QString>("json", "content");
        const QString standup = u"## Yesterday\n\n## Today\n\n## Blockers\n"_s;
        QTest::newRow("user's sections win")
            << uR"({"standup":["Done","Next"]})"_s << u"## Done\n\n## Next\n"_s;
        QTest::newRow("another template's edits") << uR"({"general":["X"]})"_s << standup;
        QTest::newRow("undecodable falls back") << u"{not json"_s << standup;
        QTest::newRow("not a list of names falls back") << uR"({"standup":["a",1]})"_s << standup;
        QTest::newRow("emptied on purpose") << uR"({"standup":[]})"_s << QString();
    }

    void customSections()
    {
        auto [json, content] = fetch<QString, QString>("json", "content");
        m_f->prefs.set(Prefs::customTemplateSections, json);
        m_f->prefs.set(Prefs::journalTemplate, u"standup"_s);
        QCOMPARE(JournalTemplates::content(u"standup"_s, m_f->prefs), content);
    }

    void currentSectionsAndGuidance()
    {
        QCOMPARE(JournalTemplates::currentSections(m_f->prefs), QStringList());
        QCOMPARE(JournalTemplates::mcpSectionGuidance(m_f->prefs), QString());

        m_f->prefs.set(Prefs::journalTemplate, u"general"_s);
        JournalTemplates::setCustomSections(u"general"_s, {u"Work"_s, u"  "_s, u"People "_s},
                                            m_f->prefs);
        QCOMPARE(JournalTemplates::currentSections(m_f->prefs),
                 (QStringList{u"Work"_s, u"People"_s}));
        QCOMPARE(JournalTemplates::mcpSectionGuidance(m_f->prefs),
                 u"This journal is organised under: Work, People. Pass the one this belongs "
                 "under as 'section'. "_s);
    }

    void inserting_data()
    {
        columns<QString, QString, QString>("page", "section", "result");
        const QString skeleton = u"## Yesterday\n\n## Today\n\n## Blockers\n"_s;
        // The text goes right after the section's last line, blank lines staying below it.
        QTest::newRow("first write under a fresh heading")
            << skeleton << u"Today"_s << u"## Yesterday\n\n## Today\nshipped\n\n## Blockers\n"_s;
        QTest::newRow("after the section's last text")
            << u"## Today\n- first\n\n\n## Blockers"_s << u"today"_s
            << u"## Today\n- first\nshipped\n\n\n## Blockers"_s;
        QTest::newRow("last section")
            << u"## Today\nfirst\n"_s << u" Today "_s << u"## Today\nfirst\nshipped\n"_s;
        QTest::newRow("any level, marks stripped")
            << u"# **Today**\nx"_s << u"Today"_s << u"# **Today**\nx\nshipped"_s;
        QTest::newRow("a deeper heading ends the section")
            << u"## Today\nx\n### Detail\ny"_s << u"Today"_s
            << u"## Today\nx\nshipped\n### Detail\ny"_s;
        QTest::newRow("no such section") << u"## Tomorrow\n#Today"_s << u"Today"_s << QString();
        QTest::newRow("empty page") << QString() << u"Today"_s << QString();
        QTest::newRow("a tag line is text, not a heading")
            << u"## Today\n#launch went out\n## Next"_s << u"Today"_s
            << u"## Today\n#launch went out\nshipped\n## Next"_s;
    }

    void inserting()
    {
        auto [page, section, result] =
            fetch<QString, QString, QString>("page", "section", "result");
        QCOMPARE(JournalTemplates::inserting(u"shipped"_s, section, page),
                 result.isNull() ? std::nullopt : std::optional(result));
    }

    void cleanedContent_data()
    {
        columns<QString, QString>("text", "row");
        QTest::newRow("headings, fences, rules go")
            << u"## Today\n```\ncode\n```\n---\n| a | b |\n|---|:-:|\ntext"_s
            << u"code a  b text"_s;
        QTest::newRow("markers and marks go")
            << u"- [ ] open\n- [x] done\n> said\n**b** *i* ==h== =={green}g== `c` <u>u</u>"_s
            << u"open done said b i h g c u"_s;
        QTest::newRow("links keep their text, images go")
            << u"see [docs](https://x.org) {{img:0F8E3C2A-7B4D-4E1F-9A6B-5C3D2E1F0A9B}}"_s
            << u"see docs"_s;
        QTest::newRow("empty") << u"\n\n## Only a heading\n"_s << QString();
    }

    void cleanedContent()
    {
        auto [text, row] = fetch<QString, QString>("text", "row");
        QCOMPARE(JournalSidebar::cleanedContent(text), row);
    }

    void cleanedContentOfHostileTextStaysShort()
    {
        const QString hostile =
            u"[a](b {{img:c "_s.repeated(20000) + u"\nline **open"_s.repeated(200);
        QVERIFY(JournalSidebar::cleanedContent(hostile).size() <= 2100);
    }

    void greeting_data()
    {
        columns<int, QString, QString>("hour", "name", "text");
        QTest::newRow("morning") << 0 << u"Ana"_s << u"Good morning, Ana"_s;
        QTest::newRow("still morning") << 11 << QString() << u"Good morning"_s;
        QTest::newRow("noon") << 12 << u"  "_s << u"Good afternoon"_s;
        QTest::newRow("evening at five") << 17 << u"Li"_s << u"Good evening, Li"_s;
    }

    void greeting()
    {
        auto [hour, name, text] = fetch<int, QString, QString>("hour", "name", "text");
        const Calendar calendar = testCalendar("Asia/Tokyo");
        const QDateTime now = calendar.at(QDate(2024, 5, 6), hour, 30);
        QCOMPARE(JournalGreeting::greeting(now.toUTC(), calendar, name), text);
        QCOMPARE(JournalGreeting::streakText(1), u"1 week"_s);
        QCOMPARE(JournalGreeting::streakText(0), u"0 weeks"_s);
        QCOMPARE(JournalGreeting::streakText(12), u"12 weeks"_s);
    }
};

QTEST_GUILESS_MAIN(TestJournalTemplates)
#include "tst_journaltemplates.moc"
