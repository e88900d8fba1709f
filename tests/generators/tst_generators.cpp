#include "AITestBed.h"
#include "FakeModelServer.h"

#include "../writing/WritingTestMain.h"
#include "ai/AIInstructionBuilder.h"
#include "core/PreferenceKeys.h"
#include "core/records/AIInteraction.h"
#include "core/records/DailyEntry.h"
#include "core/records/StoreSchema.h"
#include "core/records/TaskItem.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "generators/EntrySummaryGenerator.h"
#include "generators/TaskPhraser.h"
#include "generators/TaskPhrasing.h"

#include <QRegularExpression>
#include <QSignalSpy>

using namespace Qt::StringLiterals;

namespace {

// Tuesday afternoon in Berlin.
const QDateTime now(QDate(2026, 11, 17), QTime(14, 0), Qt::UTC);

const QString longText = u"Shipped the parser rewrite for the importer and paired with Ana on the "
                         u"flaky login test; we traced it to a race in the session cache and "
                         u"agreed to move the cache behind one owner. Reviewed two pull requests "
                         u"for the billing team."_s;

QString repeated(const QString &piece, int times)
{
    QString text;
    for (int i = 0; i < times; ++i)
        text += piece;
    return text;
}

// The summary generator over a real store, asking a model server on this computer.
struct Summaries {
    AITestBed ai;
    FixedClock clock{now, testCalendar()};
    FakeModelServer model;
    ModelContainer store{StoreSchema::current(), ModelContainer::Configuration::atPath(
                                                     ai.dir.dataRoot() + u"/default.store"_s)};
    EntrySummaryGenerator generator{ai.context(model.url()), store.mainContext()};

    ModelContext &context() { return store.mainContext(); }

    QDateTime day(int daysAgo) const
    {
        const Calendar calendar = Calendar::current();
        return calendar.startOfDay(calendar.day(now).addDays(-daysAgo));
    }

    std::shared_ptr<DailyEntry> write(const QString &text, int daysAgo = 0)
    {
        auto entry = std::make_shared<DailyEntry>(text, day(daysAgo), false);
        context().insert(entry);
        return entry;
    }

    void summarize(const QList<std::shared_ptr<DailyEntry>> &entries, int daysAgo = 0)
    {
        QCoro::waitFor(generator.summarize(entries, day(daysAgo)));
    }

    // A summary that matches the entry's text in this process.
    static void markFresh(DailyEntry &entry)
    {
        entry.summary = u"Fresh."_s;
        entry.summaryGeneratedAt = now;
        entry.summarizedContentHash = DailyEntry::contentHash(entry.content.trimmed());
    }
};

// The task phraser, asking one local server that is both the model on this computer and an
// OpenAI-shaped provider.
struct Phrasing {
    AITestBed ai;
    FakeModelServer model;
    std::unique_ptr<TaskPhraser> phraser;

    explicit Phrasing(std::optional<QUrl> onDevice = std::nullopt)
    {
        const QUrl url = model.url();
        phraser = std::make_unique<TaskPhraser>(
            ai.context(ProviderHosts{url, url, url}, onDevice.value_or(url)));
    }

    void choose(const QString &provider)
    {
        ai.preferences.setText(Prefs::aiProvider.name, provider);
        QVERIFY(QCoro::waitFor(ai.keys.write(u"sk-test"_s, u"ai-key-"_s + provider)));
    }
};

QList<std::shared_ptr<TaskItem>> tasks(const QStringList &titles)
{
    QList<std::shared_ptr<TaskItem>> list;
    for (const QString &title : titles)
        list.append(std::make_shared<TaskItem>(title, 0, std::nullopt));
    return list;
}

} // namespace

class TestGenerators : public QObject {
    Q_OBJECT

private slots:
    void measuring_data()
    {
        columns<QString, bool>("text", "summarised");
        const QString a200(200, u'a');
        QTest::newRow("200 characters") << a200 << false;
        QTest::newRow("201 characters") << a200 + u'a' << true;
        QTest::newRow("an image marker doesn't count")
            << a200 + u" {{img:5F1C2B6E-0D0A-4C1B-9E55-3A8C1F0B7D21|w=320,h=200}}"_s << false;
        QTest::newRow("a line holding only an image is dropped")
            << u"{{img:5F1C2B6E-0D0A-4C1B-9E55-3A8C1F0B7D21}}\n"_s + a200 << false;
        // Cleaned: 99 + 50 + 49 characters and two joining blanks.
        const QString marked = u"## "_s + QString(99, u'a') + u"\n- [ ] "_s + QString(50, u'b') +
                               u"\n- [x] "_s + QString(49, u'c');
        QTest::newRow("heading marks and checkboxes don't count") << marked << false;
        QTest::newRow("one more character does") << marked + u'c' << true;
        QTest::newRow("bullets and blank lines don't count")
            << u"  - "_s + QString(100, u'a') + u"  \n\n\t\n- "_s + QString(99, u'b') << false;
        QTest::newRow("an emoji is one character") << repeated(u"😀"_s, 200) << false;
        QTest::newRow("201 emoji") << repeated(u"😀"_s, 201) << true;
    }

    void measuring()
    {
        auto [text, summarised] = fetch<QString, bool>("text", "summarised");
        Summaries summaries;
        summaries.model.reply = [](const auto &) { return u"I wrote a lot today."_s; };
        const auto entry = summaries.write(text);
        summaries.summarize({entry});
        QCOMPARE(summaries.model.chats().size(), summarised ? 1 : 0);
        QCOMPARE(entry->summary,
                 summarised ? std::optional(u"I wrote a lot today."_s) : std::optional<QString>());
        QVERIFY(summaries.generator.pendingEntryIds().isEmpty());
    }

    void keptAnswers_data()
    {
        columns<QString, std::optional<QString>>("answer", "kept");
        const std::optional<QString> none;
        QTest::newRow("insufficient") << u"insufficient"_s << none;
        QTest::newRow("any case, any blanks") << u"  INSUFFICIENT \n"_s << none;
        QTest::newRow("with a full stop it is a summary")
            << u"Insufficient."_s << std::optional(u"Insufficient."_s);
        QTest::newRow("empty answer") << u" \n "_s << none;
        QTest::newRow("trimmed") << u"\n I fixed the parser. I paired with Ana. \n"_s
                                 << std::optional(u"I fixed the parser. I paired with Ana."_s);
        QTest::newRow("cut for display")
            << QString(99, u'a') + u'.' + QString(300, u'b')
            << std::optional<QString>(QString(99, u'a') + u'.' + QString(120, u'b') + u"…"_s);
    }

    void keptAnswers()
    {
        QFETCH(QString, answer);
        QFETCH(std::optional<QString>, kept);
        Summaries summaries;
        summaries.model.reply = [answer](const auto &) { return answer; };
        const auto entry = summaries.write(u"  "_s + longText + u"\n"_s);
        summaries.summarize({entry});
        QCOMPARE(summaries.model.chats().size(), 1);
        QCOMPARE(entry->summary, kept);
        QCOMPARE(summaries.context().fetchCount<AIInteraction>(), kept ? 1 : 0);
        if (!kept) {
            QVERIFY(!entry->summaryGeneratedAt && !entry->summarizedContentHash);
            return;
        }
        QCOMPARE(entry->summaryGeneratedAt, std::optional(now));
        QVERIFY(!entry->isSummaryStale());
        QVERIFY(!summaries.context().hasChanges());
    }

    void truncateForDisplay_data()
    {
        columns<QString, int, QString>("text", "limit", "expected");
        QTest::newRow("short") << u"Done."_s << 220 << u"Done."_s;
        QTest::newRow("exactly the limit") << QString(220, u'a') << 220 << QString(220, u'a');
        QTest::newRow("last mark at 100 of 220: hard cut")
            << QString(99, u'a') + u'.' + QString(300, u'b') << 220
            << QString(99, u'a') + u'.' + QString(120, u'b') + u"…"_s;
        QTest::newRow("mark at 110 is not more than half")
            << QString(109, u'a') + u'.' + QString(300, u'b') << 220
            << QString(109, u'a') + u'.' + QString(110, u'b') + u"…"_s;
        QTest::newRow("mark at 111 is")
            << QString(110, u'a') + u'.' + QString(300, u'b') << 220 << QString(110, u'a') + u'.';
        QTest::newRow("the last of several marks")
            << QString(120, u'a') + u"! "_s + QString(50, u'b') + u"? "_s + QString(300, u'c')
            << 220 << QString(120, u'a') + u"! "_s + QString(50, u'b') + u'?';
        QTest::newRow("blanks trimmed before the ellipsis")
            << repeated(u"word "_s, 80) << 220 << repeated(u"word "_s, 44).trimmed() + u"…"_s;
        QTest::newRow("an emoji is never split")
            << repeated(u"😀"_s, 221) << 220 << repeated(u"😀"_s, 220) + u"…"_s;
    }

    void truncateForDisplay()
    {
        auto [text, limit, expected] = fetch<QString, int, QString>("text", "limit", "expected");
        QCOMPARE(EntrySummaryGenerator::truncateForDisplay(text, limit), expected);
    }

    // A fresh summary waits for a save; a save waits for the call under way for its day.
    void guards()
    {
        Summaries summaries;
        const auto entry = summaries.write(longText);
        Summaries::markFresh(*entry);
        QVERIFY(summaries.context().trySave());
        QSignalSpy stored(&summaries.generator, &EntrySummaryGenerator::summaryStored);

        summaries.generator.generateMissingSummaries();
        // Any call would have started before the pass returned.
        QVERIFY(!summaries.generator.isGenerating());
        summaries.generator.generateSummary({entry}, summaries.day(0));
        entry->content += u" And a late line."_s;
        summaries.generator.generateSummary({entry}, summaries.day(0));
        QCOMPARE(summaries.generator.pendingEntryIds(), QSet<QUuid>{entry->id});
        QTRY_VERIFY(!summaries.generator.isGenerating());
        QCOMPARE(summaries.model.chats().size(), 1);
        QVERIFY(summaries.generator.pendingEntryIds().isEmpty());
        QCOMPARE(stored.size(), 1);
        QCOMPARE(stored.first().first().toDateTime(), summaries.day(0));
        // The dropped save's text is newer than the summary: the next pass takes it up.
        summaries.generator.generateMissingSummaries();
        QTRY_VERIFY(!summaries.generator.isGenerating());
        QCOMPARE(summaries.model.chats().size(), 2);
        QVERIFY(!entry->isSummaryStale());
    }

    void failureLeavesTheDayForLater()
    {
        Summaries summaries;
        summaries.model.models.clear(); // the server runs but has no model yet
        const auto entry = summaries.write(longText);
        summaries.summarize({entry});
        QVERIFY(!entry->summary && summaries.generator.pendingEntryIds().isEmpty());
        QCOMPARE(summaries.context().fetchCount<AIInteraction>(), 0);
        summaries.model.models = {u"chat:3b"_s};
        summaries.summarize({entry});
        QCOMPARE(entry->summary, std::optional(u"OK"_s));
    }

    void promptAndLog()
    {
        Summaries summaries;
        summaries.model.reply = [](const auto &) { return u"I shipped the parser rewrite."_s; };
        const auto early = summaries.write(u"Morning: "_s + longText, 1);
        summaries.clock.advance(3600 * 1000);
        const auto late = summaries.write(u"Evening: wrote the release notes."_s, 1);
        QVERIFY(summaries.context().trySave());

        summaries.summarize({late, early}, 1);
        QCOMPARE(summaries.model.chats().size(), 1);
        const auto request = summaries.model.chats().first();
        const QString text = early->content + u'\n' + late->content;
        const QString prompt = FakeModelServer::prompt(request);
        QCOMPARE(prompt,
                 u"Today is 2026-11-16."_s + EntrySummaryGenerator::instruction + text.trimmed());
        QCOMPARE(FakeModelServer::system(request),
                 AIInstructionBuilder::systemInstruction(summaries.ai.preferences));

        const auto logged = summaries.context().fetch<AIInteraction>();
        QCOMPARE(logged.size(), 1);
        const AIInteraction &interaction = *logged.first();
        QCOMPARE(interaction.feature, u"entry_summary"_s);
        QCOMPARE(interaction.prompt, prompt);
        QCOMPARE(interaction.response, u"I shipped the parser rewrite."_s);
        QCOMPARE(interaction.referenceId,
                 std::optional(early->id.toString(QUuid::WithoutBraces).toUpper()));
        QCOMPARE(interaction.referenceType, std::optional(u"DailyEntry"_s));
        QCOMPARE(interaction.promptVersion, u"v2"_s);
        QCOMPARE(interaction.provider, u"appleFoundation"_s);
        QVERIFY(interaction.durationMs && *interaction.durationMs >= 0);

        for (const auto &entry : {early, late}) {
            QCOMPARE(entry->summary, std::optional(u"I shipped the parser rewrite."_s));
            QCOMPARE(entry->summarizedContentHash,
                     std::optional(DailyEntry::contentHash(text.trimmed())));
            // Each entry is compared with its own text, so a day of two stays stale.
            QVERIFY(entry->isSummaryStale());
        }
    }

    void fiveNewestDaysAPass()
    {
        Summaries summaries;
        summaries.model.reply = [](const auto &) { return u"A day."_s; };
        for (int daysAgo = 0; daysAgo < 7; ++daysAgo)
            summaries.write(longText, daysAgo);
        QVERIFY(summaries.context().trySave());
        summaries.generator.generateMissingSummaries();
        QTRY_VERIFY(!summaries.generator.isGenerating());

        QStringList days;
        for (const auto &request : summaries.model.chats())
            days.append(FakeModelServer::prompt(request).section(u'.', 0, 0));
        days.sort();
        QCOMPARE(days, (QStringList{u"Today is 2026-11-13"_s, u"Today is 2026-11-14"_s,
                                    u"Today is 2026-11-15"_s, u"Today is 2026-11-16"_s,
                                    u"Today is 2026-11-17"_s}));
    }

    void staleDaysReadInWindows_data()
    {
        QTest::addColumn<int>("limit");
        QTest::newRow("one") << 1;
        QTest::newRow("a pass") << 5;
        QTest::newRow("all of them") << 50;
    }

    // Reading back in windows finds what grouping every entry finds.
    void staleDaysReadInWindows()
    {
        QFETCH(int, limit);
        Summaries summaries;
        const QList<int> daysAgo{0, 1, 1, 3, 30, 31, 32, 95, 400, 401, 1200, 3650};
        for (qsizetype i = 0; i < daysAgo.size(); ++i) {
            const auto entry = summaries.write(u"Page %1"_s.arg(i), daysAgo.at(i));
            // Every third page fresh, among them one of the two entries of yesterday.
            if (i % 3 == 1)
                Summaries::markFresh(*entry);
        }
        QVERIFY(summaries.context().trySave());

        const auto describe = [](const QList<EntrySummaryGenerator::Day> &days) {
            QStringList out;
            for (const auto &day : days) {
                QStringList contents;
                for (const auto &entry : day.entries)
                    contents.append(entry->content);
                contents.sort();
                out.append(day.start.toString(Qt::ISODate) + u": "_s + contents.join(u", "_s));
            }
            return out;
        };
        const QStringList grouped = describe(
            EntrySummaryGenerator::staleDays(summaries.context().fetch<DailyEntry>(), limit));
        QCOMPARE(describe(EntrySummaryGenerator::staleDays(summaries.context(), limit)), grouped);
        QCOMPARE(grouped.size(), std::min(limit, 8));
        QVERIFY(grouped.first().endsWith(u"Page 0"_s));
    }

    void parseNumbered_data()
    {
        columns<QString, QStringList>("answer", "lines");
        QTest::newRow("numbered") << u"1. Fixed login\n2. Finished the API cleanup"_s
                                  << QStringList{u"Fixed login"_s, u"Finished the API cleanup"_s};
        QTest::newRow("blanks and empty lines") << u"\n  1.   Fixed login  \n\n 2.Wrote docs\r\n"_s
                                                << QStringList{u"Fixed login"_s, u"Wrote docs"_s};
        QTest::newRow("short") << u"1. x"_s << QStringList{u"x"_s};
        QTest::newRow("no point after the number")
            << u"3) fixed login"_s << QStringList{u"3) fixed login"_s};
        QTest::newRow("a version is no number")
            << u"Fixed v2.1 rollout"_s << QStringList{u"Fixed v2.1 rollout"_s};
        QTest::newRow("words before the first point")
            << u"Done. 1. x"_s << QStringList{u"Done. 1. x"_s};
        QTest::newRow("a number alone")
            << u"1. Fixed login\n2."_s << QStringList{u"Fixed login"_s, QString()};
    }

    void parseNumbered()
    {
        auto [answer, lines] = fetch<QString, QStringList>("answer", "lines");
        QCOMPARE(TaskPhrasing::parseNumbered(answer), lines);
    }

    void titles_data()
    {
        columns<QString, bool, bool, QString>("title", "phrasable", "word", "plain");
        QTest::newRow("a command") << u"npm run build"_s << true << false << u"npm run build"_s;
        QTest::newRow("plain words") << u" fix login\n"_s << true << true << u"Fix login"_s;
        QTest::newRow("an acronym") << u"API cleanup"_s << true << false << u"API cleanup"_s;
        QTest::newRow("a path") << u"/usr/local/bin/deploy.sh"_s << false << false
                                << u"/usr/local/bin/deploy.sh"_s;
        QTest::newRow("a home path")
            << u"~/projects/tovren"_s << false << false << u"~/projects/tovren"_s;
        QTest::newRow("a word and a link")
            << u"review https://github.com/acme/api/pull/42"_s << false << true
            << u"Review https://github.com/acme/api/pull/42"_s;
        QTest::newRow("a word and an address")
            << u"email ana@example.com"_s << false << true << u"Email ana@example.com"_s;
        QTest::newRow("a word and a domain")
            << u"check status.acme.dev"_s << false << true << u"Check status.acme.dev"_s;
        QTest::newRow("words around a domain")
            << u"update acme.io pricing"_s << true << true << u"Update acme.io pricing"_s;
        QTest::newRow("a ticket alone") << u"JIRA-4821"_s << false << false << u"JIRA-4821"_s;
        QTest::newRow("a version") << u"ship v2"_s << true << true << u"Ship v2"_s;
        QTest::newRow("a digit in the first word")
            << u"q3 planning doc"_s << true << false << u"q3 planning doc"_s;
        QTest::newRow("an abbreviation") << u"e.g. stuff"_s << false << false << u"e.g. stuff"_s;
        QTest::newRow("an accented word")
            << u"über refactor"_s << true << true << u"Über refactor"_s;
        QTest::newRow("a flag") << u"-v flag check"_s << true << false << u"-v flag check"_s;
        QTest::newRow("empty") << u"  "_s << false << false << QString();
    }

    void titles()
    {
        auto [title, phrasable, word, plain] =
            fetch<QString, bool, bool, QString>("title", "phrasable", "word", "plain");
        QCOMPARE(TaskPhrasing::hasPhrasableContent(title), phrasable);
        QCOMPARE(TaskPhrasing::startsWithAWord(title), word);
        QCOMPARE(TaskPhrasing::plainTitle(title), plain);
    }

    void phrasingClient_data()
    {
        columns<QString, QString, QString>("onDevice", "provider", "answeredAt");
        const QString local = u"/api/chat"_s;
        const QString remote = u"/v1/chat/completions"_s;
        QTest::newRow("on-device model first, whatever is chosen")
            << u"available"_s << u"openai"_s << local;
        QTest::newRow("no model server: the chosen provider") << u"off"_s << u"openai"_s << remote;
        QTest::newRow("no model yet: the chosen provider")
            << u"no model"_s << u"openai"_s << remote;
        QTest::newRow("on-device chosen, no model server") << u"off"_s << QString() << QString();
        QTest::newRow("on-device chosen, no model yet")
            << u"no model"_s << u"appleFoundation"_s << QString();
    }

    void phrasingClient()
    {
        auto [onDevice, provider, answeredAt] =
            fetch<QString, QString, QString>("onDevice", "provider", "answeredAt");
        Phrasing phrasing(onDevice == u"off"_s
                              ? std::optional(QUrl(u"http://127.0.0.1:%1"_s.arg(closedPort())))
                              : std::nullopt);
        if (onDevice == u"no model"_s)
            phrasing.model.models.clear();
        if (!provider.isEmpty())
            phrasing.choose(provider);
        phrasing.model.reply = [](const auto &) { return u"1. Fixed login\n2. Wrote docs"_s; };
        const auto list = tasks({u"fix login"_s, u"write docs"_s});
        QCoro::waitFor(phrasing.phraser->rewriteNow(list));

        const auto local = phrasing.model.http().requestsTo(u"/api/chat"_s);
        const auto remote = phrasing.model.http().requestsTo(u"/v1/chat/completions"_s);
        QCOMPARE(local.size(), answeredAt == u"/api/chat"_s ? 1 : 0);
        QCOMPARE(remote.size(), answeredAt == u"/v1/chat/completions"_s ? 1 : 0);
        QCOMPARE(phrasing.phraser->phrase(*list.at(0)),
                 answeredAt.isEmpty() ? u"Fix login"_s : u"Fixed login"_s);
        QVERIFY(!phrasing.phraser->isRewriting());
        if (answeredAt.isEmpty())
            return;
        const auto request = (local + remote).first();
        QCOMPARE(FakeModelServer::prompt(request),
                 TaskPhrasing::prompt({u"fix login"_s, u"write docs"_s}));
        QCOMPARE(FakeModelServer::system(request),
                 AIInstructionBuilder::systemInstruction(phrasing.ai.preferences));
    }

    void phrasesPairOneToOne()
    {
        Phrasing phrasing;
        QSignalSpy changed(phrasing.phraser.get(), &TaskPhraser::phrasesChanged);
        const auto list = tasks({u"fix login"_s, u"https://acme.io/board"_s,
                                 u"write release notes"_s, u"API cleanup"_s});
        phrasing.model.reply = [](const auto &) { return u"1. Fixed login\n2. Wrote notes"_s; };
        QCoro::waitFor(phrasing.phraser->rewriteNow(list));
        QCOMPARE(phrasing.model.chats().size(), 1);
        QVERIFY(FakeModelServer::prompt(phrasing.model.chats().first())
                    .endsWith(u"exactly 3 line(s), numbered to match the input, and nothing "
                              u"else.\n\n1. fix login\n2. write release notes\n3. API cleanup"_s));
        QCOMPARE(phrasing.phraser->phrase(*list.at(0)), u"Fix login"_s);
        QCOMPARE(changed.size(), 0);

        // Nothing was kept, so the next look asks again.
        phrasing.model.reply = [](const auto &) {
            return u"1. Fixed login\n2. Wrote the release notes\n3. Finished the API cleanup"_s;
        };
        QCoro::waitFor(phrasing.phraser->rewriteNow(list));
        QCOMPARE(phrasing.model.chats().size(), 2);
        QCOMPARE(changed.size(), 1);
        QCOMPARE(phrasing.phraser->phrase(*list.at(0)), u"Fixed login"_s);
        QCOMPARE(phrasing.phraser->phrase(*list.at(1)), u"https://acme.io/board"_s);
        QCOMPARE(phrasing.phraser->phrase(*list.at(2)), u"Wrote the release notes"_s);
        QCOMPARE(phrasing.phraser->phrase(*list.at(3)), u"Finished the API cleanup"_s);

        QCoro::waitFor(phrasing.phraser->rewriteNow(list));
        QCOMPARE(phrasing.model.chats().size(), 2);
        // A renamed task is a new one.
        list.at(0)->title = u"fix signup"_s;
        QCOMPARE(phrasing.phraser->phrase(*list.at(0)), u"Fix signup"_s);
        phrasing.model.reply = [](const auto &) { return u"1. Fixed signup"_s; };
        QCoro::waitFor(phrasing.phraser->rewriteNow(list));
        QCOMPARE(phrasing.model.chats().size(), 3);
        QVERIFY(
            FakeModelServer::prompt(phrasing.model.chats().last()).endsWith(u"1. fix signup"_s));
        QCOMPARE(phrasing.phraser->phrase(*list.at(0)), u"Fixed signup"_s);
    }

    void phrasingOnceWhileAsking()
    {
        Phrasing phrasing;
        const auto list = tasks({u"fix login"_s, u"write docs"_s});
        phrasing.phraser->rewrite(list);
        QVERIFY(phrasing.phraser->isRewriting());
        phrasing.phraser->rewrite(list);
        QTRY_VERIFY(!phrasing.phraser->isRewriting());
        QCOMPARE(phrasing.model.chats().size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestGenerators)
#include "tst_generators.moc"
