#include "TestSupport.h"
#include "core/ImageStorage.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"
#include "safety/MarkdownCopy.h"

#include <QBuffer>
#include <QDir>
#include <QImage>
#include <QTest>

using namespace Qt::StringLiterals;

class TestMarkdownCopy : public QObject {
    Q_OBJECT

private slots:
    void namesAreSafeAndUnique_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QStringList>("files");
        QTest::newRow("plain") << QStringList{u"Ana Ruiz"_s} << QStringList{u"Ana Ruiz.md"_s};
        QTest::newRow("same name twice, any case")
            << QStringList{u"Ana"_s, u"ana"_s, u"Ana"_s}
            << QStringList{u"Ana.md"_s, u"ana 2.md"_s, u"Ana 3.md"_s};
        QTest::newRow("path and shell characters")
            << QStringList{u"../etc/pa:ss*wd"_s, u"a\nb"_s}
            << QStringList{u"etc pa ss wd.md"_s, u"a b.md"_s};
        QTest::newRow("nothing usable")
            << QStringList{u"  /  "_s, u"..."_s} << QStringList{u"Unnamed.md"_s, u"Unnamed 2.md"_s};
    }
    void namesAreSafeAndUnique()
    {
        QFETCH(QStringList, names);
        QFETCH(QStringList, files);
        QStringList taken;
        QStringList made;
        for (const QString &name : names)
            made.append(MarkdownCopy::fileNameFor(name, taken));
        QCOMPARE(made, files);
    }

    void aJournalBecomesFilesAnyEditorReads()
    {
        TempDataDir dir;
        const Calendar calendar = Calendar::current();
        FixedClock clock{calendar.at(QDate(2026, 3, 10), 9, 0), calendar};
        ModelContainer container(StoreSchema::current(),
                                 ModelContainer::Configuration::atPath(dir.path() + u"/s.store"_s));
        ModelContext &context = container.mainContext();

        QImage picture(4, 3, QImage::Format_RGB32);
        picture.fill(Qt::red);
        QByteArray png;
        QBuffer buffer(&png);
        buffer.open(QIODevice::WriteOnly);
        picture.save(&buffer, "PNG");
        const QUuid imageId = QUuid::createUuid();
        QVERIFY(ImageStorage::save(png, imageId));
        const QString token =
            u"{{img:"_s + imageId.toString(QUuid::WithoutBraces) + u"|w=40,h=30}}"_s;
        const QString missing =
            u"{{img:"_s + QUuid::createUuid().toString(QUuid::WithoutBraces) + u"}}"_s;

        const QDateTime monday = calendar.at(QDate(2026, 3, 9), 18, 0);
        context.insert(
            std::make_shared<DailyEntry>(u"## What I did\n- shipped #launch"_s, monday, false));
        clock.advance(60000);
        context.insert(
            std::make_shared<DailyEntry>(u"Later: "_s + token, monday.addSecs(60), false));
        context.insert(
            std::make_shared<DailyEntry>(missing, calendar.at(QDate(2026, 3, 10), 8, 0), false));
        context.insert(
            std::make_shared<DailyEntry>(u"  \n"_s, calendar.at(QDate(2026, 3, 7), 8, 0), false));
        auto ana =
            std::make_shared<Person>(u"Ana Ruiz"_s, u"Staff engineer"_s, RelationshipType::manager);
        context.insert(ana);
        auto meeting = std::make_shared<Meeting>(ana, monday, u"Talked about the launch"_s);
        context.insert(meeting);
        auto item = std::make_shared<ActionItem>(u"Send the plan"_s, meeting);
        item->isCompleted = true;
        context.insert(item);
        context.save();

        const QString folder = dir.path() + u"/copy"_s;
        const MarkdownCopy::Summary summary =
            MarkdownCopy::write(MarkdownCopy::collect(context), folder);
        QCOMPARE(summary.days, 2);
        QCOMPARE(summary.people, 1);
        QCOMPARE(summary.images, 1);

        const QString imageName = imageId.toString(QUuid::WithoutBraces) + u".png"_s;
        // One page per day, several entries joined as the journal shows them; a blank day has none.
        QCOMPARE(QString::fromUtf8(fileContents(folder + u"/2026-03-09.md"_s)),
                 u"## What I did\n- shipped #launch\n\nLater: ![](images/"_s + imageName +
                     u")\n"_s);
        QVERIFY(!QFile::exists(folder + u"/2026-03-07.md"_s));
        QCOMPARE(fileContents(folder + u"/images/"_s + imageName), png);
        QCOMPARE(QString::fromUtf8(fileContents(folder + u"/people/Ana Ruiz.md"_s)),
                 u"# Ana Ruiz\n\nStaff engineer · Manager\n\n## 2026-03-09\n\nTalked about the "
                 "launch\n\n- [x] Send the plan\n"_s);
        // An image whose file is gone keeps a link, which points nowhere, rather than vanishing.
        QVERIFY(QString::fromUtf8(fileContents(folder + u"/2026-03-10.md"_s))
                    .startsWith(u"![](images/"_s));

        writeFile(dir.path() + u"/blocked"_s, "a file");
        try {
            MarkdownCopy::write(MarkdownCopy::collect(context), dir.path() + u"/blocked/copy"_s);
            QFAIL("wrote under a file");
        } catch (const MarkdownCopy::WriteError &error) {
            QVERIFY(error.message().startsWith(u"Tovren couldn't write the Markdown copy to "_s));
        }
    }
};

QTEST_GUILESS_MAIN(TestMarkdownCopy)
#include "tst_markdowncopy.moc"
