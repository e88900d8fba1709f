#include "WritingTestMain.h"
#include "writing/JournalDraftStore.h"

#include <QRandomGenerator>

using namespace Qt::StringLiterals;

namespace {

QHash<QString, int> counted(const QString &text)
{
    QHash<QString, int> counts;
    for (const QString &line : text.split(u'\n')) {
        if (!line.trimmed().isEmpty())
            ++counts[line];
    }
    return counts;
}

// The merge's promise: every line of ours stands, and every line theirs added stands. A line
// of the base that ours removed is ours to remove.
QString lostLines(const QString &base, const QString &ours, const QString &theirs,
                  const QString &merged)
{
    const QHash<QString, int> result = counted(merged);
    const QHash<QString, int> before = counted(base);
    QStringList lost;
    for (auto [line, count] : counted(ours).asKeyValueRange()) {
        if (result.value(line) < count)
            lost.append(u"ours: "_s + line);
    }
    for (auto [line, count] : counted(theirs).asKeyValueRange()) {
        if (result.value(line) < count - before.value(line))
            lost.append(u"theirs: "_s + line);
    }
    return lost.join(u"; "_s);
}

} // namespace

class TestDraftMerge : public QObject {
    Q_OBJECT

private slots:
    void merge_data()
    {
        columns<QString, QString, QString, QString>("base", "ours", "theirs", "merged");
        QTest::newRow("we appended") << u"a"_s << u"a\nb"_s << u"a"_s << u"a\nb"_s;
        QTest::newRow("they appended") << u"a"_s << u"a"_s << u"a\nc"_s << u"a\nc"_s;
        QTest::newRow("both appended") << u"a"_s << u"a\nb"_s << u"a\nc"_s << u"a\nc\nb"_s;
        QTest::newRow("their paragraph goes after ours")
            << u"a"_s << u"a\nb"_s << u"a\n\nc"_s << u"a\nb\n\nc"_s;
        QTest::newRow("same line on both sides stands once")
            << u"a"_s << u"a\nsame"_s << u"a\nsame"_s << u"a\nsame"_s;
        QTest::newRow("their lines keep their order")
            << u"a"_s << u"a\nb"_s << u"a\nc\nd"_s << u"a\nc\nd\nb"_s;
        QTest::newRow("under the same heading")
            << u"## Did\nx\n\n## Next\n"_s << u"## Did\nx\nmine\n\n## Next\n"_s
            << u"## Did\nx\n\ntheirs\n\n## Next\n"_s << u"## Did\nx\nmine\n\ntheirs\n\n## Next\n"_s;
        QTest::newRow("first line of a section")
            << u"## Did\n\n## Next\nn"_s << u"## Did\nmine\n\n## Next\nn"_s
            << u"## Did\ntheirs\n\n## Next\nn"_s << u"## Did\nmine\n\ntheirs\n\n## Next\nn"_s;
        QTest::newRow("their new section comes along")
            << u"a"_s << u"b"_s << u"a\n## New\nc"_s << u"b\n\n## New\nc"_s;
        QTest::newRow("they edited a line: both versions stay")
            << u"a\nold"_s << u"a\nold\nb"_s << u"a\nnew"_s << u"a\nnew\nold\nb"_s;
        QTest::newRow("they deleted a line: it stays")
            << u"a\nb"_s << u"a\nb\nc"_s << u"a"_s << u"a\nb\nc"_s;
        QTest::newRow("we deleted a line: it stays gone")
            << u"a\nb"_s << u"a\nc"_s << u"a\nb"_s << u"a\nc"_s;
        QTest::newRow("they repeated an existing line")
            << u"- x"_s << u"- x\ny"_s << u"- x\n- x"_s << u"- x\n- x\ny"_s;
    }

    void merge()
    {
        auto [base, ours, theirs, merged] =
            fetch<QString, QString, QString, QString>("base", "ours", "theirs", "merged");
        const QString result = JournalDraftStore::merge(base, ours, theirs);
        QCOMPARE(result, merged);
        QCOMPARE(lostLines(base, ours, theirs, result), QString());
    }

    void mergeNeverLosesALine()
    {
        QRandomGenerator random(7);
        const QStringList pool{u"## A"_s, u"## B"_s,   u"x"_s,    u"y"_s,
                               u"z"_s,    u"- item"_s, QString(), u"w"_s};
        const auto randomText = [&](int lines) {
            QStringList out;
            for (int i = 0; i < lines; ++i)
                out.append(pool.at(random.bounded(int(pool.size()))));
            return out.join(u'\n');
        };
        for (int round = 0; round < 3000; ++round) {
            const QString base = randomText(random.bounded(6));
            const QString ours = random.bounded(2) ? base + u'\n' + randomText(3) : randomText(5);
            const QString theirs = random.bounded(2) ? base + u'\n' + randomText(3) : randomText(5);
            const QString result = JournalDraftStore::merge(base, ours, theirs);
            const QString lost = lostLines(base, ours, theirs, result);
            if (!lost.isEmpty()) {
                qWarning("base %s | ours %s | theirs %s | merged %s", qPrintable(base),
                         qPrintable(ours), qPrintable(theirs), qPrintable(result));
                QFAIL(qPrintable(lost));
            }
        }
    }

    void aFloodOfNewLinesIsKeptInOrder()
    {
        QStringList ours{u"## Day"_s}, theirs{u"## Day"_s};
        for (int i = 0; i < 3000; ++i) {
            ours.append(u"mine "_s + QString::number(i));
            theirs.append(u"theirs "_s + QString::number(i));
        }
        const QString merged =
            JournalDraftStore::merge(u"## Day"_s, ours.join(u'\n'), theirs.join(u'\n'));
        QCOMPARE(lostLines(u"## Day"_s, ours.join(u'\n'), theirs.join(u'\n'), merged), QString());
        QVERIFY(merged.indexOf(u"theirs 1\n"_s) < merged.indexOf(u"theirs 2\n"_s));
    }

    void reconcile_data()
    {
        columns<QString, QString, QString, QString>("draft", "base", "stored", "result");
        QTest::newRow("nothing new") << u"a\n"_s << u"a"_s << u" a"_s << u" a"_s;
        QTest::newRow("only we typed") << u"a\nb"_s << u"a"_s << u"a\n"_s << u"a\nb"_s;
        QTest::newRow("only they wrote") << u"a "_s << u"a"_s << u"a\nc"_s << u"a\nc"_s;
        QTest::newRow("both") << u"a\nb"_s << u"a"_s << u"a\nc"_s << u"a\nc\nb"_s;
    }

    void reconcile()
    {
        auto [draft, base, stored, result] =
            fetch<QString, QString, QString, QString>("draft", "base", "stored", "result");
        QCOMPARE(JournalDraftStore::reconcile(draft, base, stored), result);
    }

    void liveTextFollowsDraftsPerDay()
    {
        JournalDraftStore drafts;
        const QDateTime monday = QDateTime(QDate(2024, 5, 6), QTime(9, 0));
        const QDateTime mondayLate = QDateTime(QDate(2024, 5, 6), QTime(22, 0));
        const QDateTime tuesday = QDateTime(QDate(2024, 5, 7), QTime(9, 0));
        QCOMPARE(drafts.liveText(monday, u"stored"_s), u"stored"_s);

        drafts.noteLoaded(monday, u"a"_s);
        drafts.setDraft(monday, u"a\nmine"_s);
        QCOMPARE(drafts.liveText(mondayLate, u"a"_s), u"a\nmine"_s);
        QCOMPARE(drafts.liveText(mondayLate, u"a\ntheirs"_s), u"a\ntheirs\nmine"_s);
        QCOMPARE(drafts.liveText(tuesday, u"t"_s), u"t"_s);

        drafts.recordStored(u"a\ntheirs\nmine"_s, monday);
        QCOMPARE(drafts.base(monday), u"a\ntheirs\nmine"_s);
        drafts.setActiveDay(mondayLate);
        QCOMPARE(drafts.activeDay()->date(), QDate(2024, 5, 6));
        drafts.clear();
        QCOMPARE(drafts.draft(monday), std::nullopt);
        QCOMPARE(drafts.activeDay(), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(TestDraftMerge)
#include "tst_draftmerge.moc"
