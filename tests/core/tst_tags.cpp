#include "TestSupport.h"
#include "core/TagParser.h"
#include "core/records/StoreSchema.h"
#include "core/records/Tag.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;

class TestTags : public QObject {
    Q_OBJECT

private slots:
    void extractTagNames_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("names");

        QTest::newRow("in a sentence")
            << u"Shipped #release with #Qt today."_s << QStringList{u"release"_s, u"Qt"_s};
        QTest::newRow("case and duplicates kept")
            << u"#Work then #work and #work"_s << QStringList{u"Work"_s, u"work"_s, u"work"_s};
        QTest::newRow("digits after the hash") << u"Fixed #123 and #4ever"_s << QStringList{};
        QTest::newRow("digits inside") << u"#q3 review"_s << QStringList{u"q3"_s};
        QTest::newRow("hyphen ends") << u"#q3-planning"_s << QStringList{u"q3"_s};
        QTest::newRow("underscore continues") << u"#deep_work"_s << QStringList{u"deep_work"_s};
        QTest::newRow("back to back") << u"#a#b ##c"_s << QStringList{u"a"_s, u"b"_s, u"c"_s};
        QTest::newRow("punctuation ends")
            << u"(#launch). #done!"_s << QStringList{u"launch"_s, u"done"_s};
        QTest::newRow("lone hash") << u"# heading #"_s << QStringList{};
        QTest::newRow("accents belong to the word")
            << u"#café #naïve-plan"_s << QStringList{u"café"_s, u"naïve"_s};
        QTest::newRow("decomposed accent") << u"#cafe\u0301 time"_s << QStringList{u"cafe\u0301"_s};
        QTest::newRow("other scripts after the first letter")
            << u"#a日本 #Москва"_s << QStringList{u"a日本"_s};
        QTest::newRow("first letter must be ASCII") << u"#été #日本"_s << QStringList{};
        QTest::newRow("emoji ends") << u"#fun🎉"_s << QStringList{u"fun"_s};
    }

    void extractTagNames()
    {
        QFETCH(QString, text);
        QFETCH(QStringList, names);
        QCOMPARE(TagParser::extractTagNames(text), names);
    }

    void resolveMergesSpellingsWithoutSaving()
    {
        ModelContainer container(StoreSchema::current(),
                                 ModelContainer::Configuration::memoryOnly());
        ModelContext &ctx = container.mainContext();

        const auto tags = TagParser::resolveTags(
            TagParser::extractTagNames(u"#Design and #design, then #Qt"_s), ctx);
        QCOMPARE(tags.size(), 2);
        QCOMPARE(tags.at(0)->name, u"design"_s);
        QCOMPARE(tags.at(0)->displayName, u"Design"_s);
        QCOMPARE(tags.at(1)->name, u"qt"_s);
        QVERIFY(ctx.hasChanges());

        // A second writer before the save sees the unsaved tags rather than adding its own.
        const auto again = TagParser::resolveTags({u"DESIGN"_s}, ctx);
        QCOMPARE(again.size(), 1);
        QCOMPARE(again.first(), tags.first());

        ctx.save();
        QCOMPARE(ctx.fetchCount<Tag>(), 2);
    }

    void resolveReusesStoredTags()
    {
        ModelContainer container(StoreSchema::current(),
                                 ModelContainer::Configuration::memoryOnly());
        ModelContext &ctx = container.mainContext();
        auto named = std::make_shared<Tag>(u"Design"_s);
        auto unnamed = std::make_shared<Tag>(u"qt"_s);
        unnamed->displayName.clear();
        ctx.insert(named);
        ctx.insert(unnamed);
        ctx.save();

        const auto tags = TagParser::resolveTags({u"QT"_s, u"design"_s, u"Qt"_s}, ctx);
        QCOMPARE(tags, (QList<std::shared_ptr<Tag>>{unnamed, named}));
        QCOMPARE(named->displayName, u"Design"_s);
        QCOMPARE(unnamed->displayName, u"QT"_s);
        QCOMPARE(ctx.fetchCount<Tag>(), 2);
    }

    void paletteBands()
    {
        const QList<QColor> &palette = Tag::palette();
        QCOMPARE(palette.size(), 36);
        QSet<QRgb> hues;
        for (int i = 0; i < 12; ++i) {
            hues.insert(palette.at(i).rgb());
            QCOMPARE(palette.at(i).alphaF(), 1.0f);
            QCOMPARE(palette.at(i + 12).rgb(), palette.at(i).rgb());
            QCOMPARE(palette.at(i + 12).alpha(), 204);
            QCOMPARE(palette.at(i + 24).rgb(), palette.at(i).rgb());
            QCOMPARE(palette.at(i + 24).alpha(), 153);
        }
        QCOMPARE(hues.size(), 12);
    }

    void paletteIndex_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("index");

        // Expected values come from the published FNV-1a test vectors and an independent
        // implementation; they must never change, or every tag changes colour.
        QTest::newRow("empty") << QString() << 36 << 5;
        QTest::newRow("vector a") << u"a"_s << 1000003 << 783675;
        QTest::newRow("vector foobar") << u"foobar"_s << 1000003 << 281224;
        QTest::newRow("case folded") << u"DESIGN"_s << 36 << 27;
        QTest::newRow("UTF-8 bytes") << u"CAFÉ"_s << 36 << 29;
        QTest::newRow("large count") << u"a"_s << std::numeric_limits<int>::max() << 1690936615;
        QTest::newRow("no slots") << u"a"_s << 0 << 0;
        QTest::newRow("negative count") << u"a"_s << -5 << 0;
    }

    void paletteIndex()
    {
        QFETCH(QString, name);
        QFETCH(int, count);
        QFETCH(int, index);
        QCOMPARE(Tag::paletteIndex(name, count), index);
    }
};

QTEST_GUILESS_MAIN(TestTags)
#include "tst_tags.moc"
