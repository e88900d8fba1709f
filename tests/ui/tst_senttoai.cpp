#include "AITestBed.h"
#include "FakeHttpServer.h"

#include "ai/AIInstructionBuilder.h"
#include "core/PreferenceKeys.h"
#include "core/records/AIInteraction.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "ui/settings/AIProviderPane.h"
#include "ui/settings/SentToAIDialog.h"

#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTreeWidget>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

// A Wednesday morning in Berlin: 08:30 UTC is 09:30 there.
const QDateTime now(QDate(2026, 11, 18), QTime(8, 30), Qt::UTC);

// A store in a temporary folder beside the preferences, and the log's dialog over it.
struct Log : AITestBed {
    FixedClock clock{now, testCalendar()};
    ModelContainer store{StoreSchema::current(), ModelContainer::Configuration::atPath(
                                                     dir.dataRoot() + u"/default.store"_s)};
    std::unique_ptr<SentToAIDialog> dialog;

    ModelContext &records() { return store.mainContext(); }

    void add(const QString &feature, const QString &provider, std::optional<qint64> ms,
             int minutesAgo, const QString &prompt = u"prompt"_s,
             const QString &response = u"answer"_s)
    {
        auto row = std::make_shared<AIInteraction>(feature, prompt, response, std::nullopt,
                                                   std::nullopt, ms, u"v1"_s, provider);
        row->createdAt = now.addSecs(-60 * minutesAgo);
        records().insert(row);
    }
    void open()
    {
        QVERIFY(records().trySave());
        dialog = std::make_unique<SentToAIDialog>(records(), preferences);
        dialog->show();
    }
    QTreeWidget *list() const { return dialog->findChild<QTreeWidget *>(u"interactions"_s); }
    QString text(const QString &name) const
    {
        return dialog->findChild<QPlainTextEdit *>(name)->toPlainText();
    }
    QStringList column(int column) const
    {
        QStringList texts;
        for (int i = 0; i < list()->topLevelItemCount(); ++i)
            texts.append(list()->topLevelItem(i)->text(column));
        return texts;
    }
};

} // namespace

class TestSentToAI : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    void rowInWords_data()
    {
        QTest::addColumn<QString>("feature");
        QTest::addColumn<QString>("provider");
        QTest::addColumn<qint64>("ms"); // -1: not kept
        QTest::addColumn<QStringList>("shown");
        QTest::newRow("summary, fast")
            << u"entry_summary"_s << u"claude"_s << qint64(812)
            << QStringList{u"Journal summary"_s, u"Anthropic Claude"_s, u"0.8 s"_s};
        QTest::newRow("recap, slow")
            << u"weekly_review_summary"_s << u"appleFoundation"_s << qint64(12345)
            << QStringList{u"Recap"_s, u"On-device model"_s, u"12 s"_s};
        QTest::newRow("just under ten seconds rounds up to whole")
            << u"goal_insights"_s << u"openai"_s << qint64(9960)
            << QStringList{u"Goal suggestions"_s, u"OpenAI"_s, u"10 s"_s};
        QTest::newRow("review") << u"performance_review"_s << u"gemini"_s << qint64(9940)
                                << QStringList{u"Performance review"_s, u"Google Gemini"_s,
                                               u"9.9 s"_s};
        QTest::newRow("stories, custom endpoint")
            << u"star_story"_s << u"custom"_s << qint64(0)
            << QStringList{u"STAR stories"_s, u"Custom endpoint"_s, u"0.0 s"_s};
        QTest::newRow("prep, no time")
            << u"meeting_prep"_s << u"claude"_s << qint64(-1)
            << QStringList{u"Meeting prep"_s, u"Anthropic Claude"_s, u"—"_s};
        QTest::newRow("coaching") << u"goal_coaching"_s << u"openai"_s << qint64(30000)
                                  << QStringList{u"Goal coaching"_s, u"OpenAI"_s, u"30 s"_s};
        QTest::newRow("unknown words as stored")
            << u"release_notes"_s << u"mistral"_s << qint64(1500)
            << QStringList{u"release_notes"_s, u"mistral"_s, u"1.5 s"_s};
    }

    void rowInWords()
    {
        QFETCH(QString, feature);
        QFETCH(QString, provider);
        QFETCH(qint64, ms);
        QFETCH(QStringList, shown);
        Log log;
        log.add(feature, provider, ms < 0 ? std::nullopt : std::optional<qint64>(ms), 5);
        log.open();
        QTreeWidgetItem *row = log.list()->topLevelItem(0);
        QVERIFY(row);
        QCOMPARE((QStringList{row->text(1), row->text(2), row->text(3)}), shown);
        // The user's own clock: 09:25 in Berlin, not the stored 08:25 UTC.
        QVERIFY2(row->text(0).contains(u"9:25"_s), qPrintable(row->text(0)));
        QVERIFY(row->text(0).contains(u"11/18/"_s));
    }

    void newestFirstAndTheChosenRowInFull()
    {
        Log log;
        log.preferences.setText(Prefs::aiOutputLanguage.name, u"de"_s);
        log.add(u"goal_coaching"_s, u"claude"_s, 900, 60, u"Coach the goal"_s, u"Keep going"_s);
        log.add(u"entry_summary"_s, u"claude"_s, 800, 1, u"Summarise the day"_s, u"A calm day"_s);
        log.add(u"meeting_prep"_s, u"claude"_s, 700, 30, u"Prepare the 1:1\nwith Ana"_s,
                u"Ask about the launch"_s);
        log.open();
        QCOMPARE(log.column(1),
                 (QStringList{u"Journal summary"_s, u"Meeting prep"_s, u"Goal coaching"_s}));

        // The newest is open at once; another row shows its own words, whole.
        QCOMPARE(log.text(u"prompt"_s), u"Summarise the day"_s);
        QCOMPARE(log.text(u"response"_s), u"A calm day"_s);
        log.list()->setCurrentItem(log.list()->topLevelItem(1));
        QCOMPARE(log.text(u"prompt"_s), u"Prepare the 1:1\nwith Ana"_s);
        QCOMPARE(log.text(u"response"_s), u"Ask about the launch"_s);
        QVERIFY(log.dialog->findChild<QPlainTextEdit *>(u"prompt"_s)->isReadOnly());

        // The system text, as the settings make it now, is shown once above the rows and not
        // repeated in the prompt.
        const QString system = AIInstructionBuilder::systemInstruction(log.preferences);
        QVERIFY(!system.isEmpty());
        QCOMPARE(log.text(u"systemText"_s), system);
        QVERIFY(!log.text(u"prompt"_s).contains(system));

        QTest::mouseClick(log.dialog->findChild<QPushButton *>(u"promptCopy"_s), Qt::LeftButton);
        QCOMPARE(QApplication::clipboard()->text(), u"Prepare the 1:1\nwith Ana"_s);
        QVERIFY(!log.dialog->findChild<QLabel *>(u"emptyLog"_s)->isVisible());
        QVERIFY(!log.dialog->findChild<QLabel *>(u"moreNote"_s)->isVisible());
    }

    void emptyLogSaysSo()
    {
        Log log;
        log.open();
        QVERIFY(log.dialog->findChild<QLabel *>(u"emptyLog"_s)->isVisible());
        QVERIFY(!log.list()->isVisible());
    }

    void onlyTheLatestAreRead()
    {
        Log log;
        for (int i = 0; i <= SentToAIDialog::shownLimit; ++i)
            log.add(u"entry_summary"_s, u"claude"_s, 100, i, u"prompt %1"_s.arg(i));
        log.open();
        QCOMPARE(log.list()->topLevelItemCount(), SentToAIDialog::shownLimit);
        QCOMPARE(log.dialog->findChild<QLabel *>(u"moreNote"_s)->text(),
                 u"Showing the latest 500 of 501 requests."_s);
        log.list()->setCurrentItem(log.list()->topLevelItem(SentToAIDialog::shownLimit - 1));
        QCOMPARE(log.text(u"prompt"_s), u"prompt 499"_s);
    }

    void openedFromTheProviderPane()
    {
        Log log;
        log.add(u"entry_summary"_s, u"claude"_s, 800, 1, u"Summarise the day"_s);
        QVERIFY(log.records().trySave());
        FakeHttpServer models;
        models.answer(200, R"({"models":[]})");
        AIProviderPane pane(log.context(models.url()), &log.records());
        QSignalSpy settled(&pane, &AIProviderPane::settled);
        pane.show();
        QTest::mouseClick(pane.findChild<QPushButton *>(u"sentToAI"_s), Qt::LeftButton);
        auto *dialog = pane.findChild<SentToAIDialog *>();
        QVERIFY(dialog && dialog->isVisible());
        QCOMPARE(dialog->findChild<QPlainTextEdit *>(u"prompt"_s)->toPlainText(),
                 u"Summarise the day"_s);
        dialog->close();
        // The model server's answer is in before the pane goes.
        QTRY_VERIFY(!settled.isEmpty());
    }
};

QTEST_MAIN(TestSentToAI)
#include "tst_senttoai.moc"
