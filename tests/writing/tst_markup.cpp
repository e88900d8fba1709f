#include "WritingTestMain.h"
#include "writing/EntryMarkup.h"
#include "writing/MarkdownDialect.h"
#include "writing/MarkdownExport.h"

#include <QTextBlock>
#include <QTextDocument>
#include <QTextFrame>
#include <QTextTable>

using namespace Qt::StringLiterals;
using InlineMarkup::Span;
using InlineMarkup::Style;
using InlineMarkup::Styles;

namespace {

const QString imageA = u"0F8E3C2A-7B4D-4E1F-9A6B-5C3D2E1F0A9B"_s;
const QString imageB = u"11111111-2222-3333-4444-555555555555"_s;

// The text runs of the single line a text loads to, with their marks.
QList<Span> spansOf(const QString &line)
{
    QTextDocument document;
    EntryMarkup::loadFromMarkdown(line, document);
    const auto blocks = EntryMarkup::blocksOf(document);
    if (blocks.size() != 1 || !std::holds_alternative<MarkdownDialect::Line>(blocks.first()))
        return {};
    return InlineMarkup::merged(std::get<MarkdownDialect::Line>(blocks.first()).spans);
}

Span run(const QString &text, Styles styles = {}, const QString &link = {},
         const QString &highlight = {})
{
    return Span{text, styles, link, highlight, std::nullopt};
}

} // namespace

namespace InlineMarkup {
char *toString(const Span &span)
{
    const QString text = span.image ? span.image->text()
                                    : u"\""_s + span.text + u"\" styles="_s +
                                          QString::number(span.styles.toInt()) + u" link="_s +
                                          span.link + u" highlight="_s + span.highlight;
    return qstrdup(text.toUtf8().constData());
}
} // namespace InlineMarkup

class TestMarkup : public QObject {
    Q_OBJECT

private slots:
    // Every text here is one the serialiser writes, so loading and saving it must give it back.
    void roundTripIsExact_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << QString();
        QTest::newRow("blank lines") << u"\n\n"_s;
        QTest::newRow("body") << u"Shipped the importer."_s;
        QTest::newRow("headings") << u"# Big\n## Section\n### Small\n#### four is text"_s;
        QTest::newRow("empty heading") << u"## \n# "_s;
        QTest::newRow("bullets") << u"- one\n- two\n-  spaced"_s;
        QTest::newRow("nested lists") << u"- top\n    - inner\n\t- tabbed\n        1. deep"_s;
        QTest::newRow("checklist") << u"- [ ] open\n- [x] done\n- [ ] "_s;
        QTest::newRow("numbered") << u"1. first\n2. second\n10. tenth\n007. padded"_s;
        QTest::newRow("quote") << u"> said\n> > nested"_s;
        QTest::newRow("divider") << u"above\n---\nbelow"_s;
        QTest::newRow("each span")
            << u"**b** *i* ***bi*** ~~s~~ `c` ==h== =={green}g== [l](https://x.org) <u>u</u>"_s;
        QTest::newRow("spans nest") << u"==**bold mark**== <u>*under*</u> ~~**gone**~~"_s;
        QTest::newRow("marks inside a link")
            << u"[**docs** and *more*](https://example.com/a_b) [x](y)"_s;
        QTest::newRow("every colour")
            << u"=={green}a== =={blue}b== =={pink}c== =={orange}d== =={purple}e== ==f=="_s;
        QTest::newRow("marks in headings and lists")
            << u"## **Wins** this week\n- [x] *shipped* `v2`\n> ==quoted=="_s;
        QTest::newRow("code keeps marks as text")
            << u"```\n# not a heading\n- not a bullet\n---\n| a |\n| --- |\n**x** {{img:"_s +
                   imageA + u"}}\n```\nafter"_s;
        QTest::newRow("fence with language") << u"```js\nlet x = foo(\"//\") // note\n```"_s;
        QTest::newRow("unclosed fence") << u"text\n```\nstill code\n- [ ] code"_s;
        QTest::newRow("table") << u"| a | b |\n| --- | --- |\n| 1 | 2 |"_s;
        QTest::newRow("table first and last") << u"| a |\n| --- |"_s;
        QTest::newRow("table between lines") << u"before\n| h | i |\n| --- | --- |\n| x |\nafter"_s;
        QTest::newRow("table after blank, before blank") << u"\n| h |\n| --- |\n| x |\n"_s;
        QTest::newRow("image") << u"{{img:"_s + imageA + u"}}"_s;
        QTest::newRow("sized image") << u"{{img:"_s + imageA + u"|w=320,h=200}}"_s;
        QTest::newRow("images among text")
            << u"see {{img:"_s + imageA + u"}}{{img:"_s + imageB + u"|w=1,h=2}} and **this**"_s;
        QTest::newRow("image in a list line") << u"- {{img:"_s + imageA + u"}}"_s;
        QTest::newRow("odd image payload") << u"{{img:not-a-uuid|w=07,h=1}}"_s;
        QTest::newRow("tags, mentions, urls")
            << u"Paired with @Ann Lee on #launch, see https://example.com/x."_s;
        QTest::newRow("unclosed marks") << u"**bold* open [link]( ==x <u>y ~~z ` {{img:"_s;
        QTest::newRow("stars that meet") << u"**a*** *b* ****"_s;
        QTest::newRow("star spans side by side") << u"**a***b* *c***d** ***e****f**"_s;
        QTest::newRow("marks change inside a mark")
            << u"*a `b`* ~~x **y** z~~ ==a <u>b</u>== [*a* `b`](u)"_s;
        QTest::newRow("marks around blanks are text")
            << u"x * * ** ** ~~ ~~ ` ` == == <u> </u> [ ](x) *\t*"_s;
        QTest::newRow("pipes but no table") << u"| not | a table |\n| still |"_s;
        QTest::newRow("unicode") << u"Café 日本語 🎉 עברית e\u0301 \u2028 \u00a0"_s;
        QTest::newRow("control characters") << u"a\u0000b\u000bc\u000cd\u0085"_s;
        QTest::newRow("replacement characters") << QString::fromUtf8("bad \xff\xfe bytes \xc3");
        QTest::newRow("10,000 nested quotes") << u"> "_s.repeated(10000) + u"deep"_s;
        QTest::newRow("long line") << u"word **bold** [a](b) ==c== "_s.repeated(4000);
        QTest::newRow("long unclosed") << u"[a](b <u>c {{img:d ~e =f "_s.repeated(20000);
    }

    void roundTripIsExact()
    {
        QFETCH(QString, text);
        QCOMPARE(roundTrip(text), text);
        QCOMPARE(MarkdownDialect::serialize(MarkdownDialect::parse(text)), text);
    }

    // Forms that are read but written in one way only; what is written then stands.
    void readFormsAreWrittenOneWay_data()
    {
        columns<QString, QString>("text", "written");
        QTest::newRow("star bullet") << u"* item"_s << u"- item"_s;
        QTest::newRow("star divider") << u"***"_s << u"---"_s;
        QTest::newRow("capital check") << u"- [X] done"_s << u"- [x] done"_s;
        QTest::newRow("struck done item") << u"- [x] ~~done~~"_s << u"- [x] done"_s;
        QTest::newRow("unknown colour") << u"=={teal}a=="_s << u"==a=="_s;
        QTest::newRow("named yellow") << u"=={yellow}a=="_s << u"==a=="_s;
        QTest::newRow("internal link") << u"[x](tovren://person/123)"_s << u"x"_s;
        QTest::newRow("outer marks first") << u"**==a==**"_s << u"==**a**=="_s;
        QTest::newRow("link outside marks") << u"**[a](u)**"_s << u"[**a**](u)"_s;
        QTest::newRow("blank inside marks") << u"**a **b"_s << u"**a** b"_s;
        QTest::newRow("neighbours merge") << u"**a****b**"_s << u"**ab**"_s;
        QTest::newRow("a mark cut by code") << u"*a**`b`*"_s << u"*a`b`*"_s;
        QTest::newRow("blanks at a link's end") << u"[a *b* ](u)"_s << u"[a *b*](u) "_s;
        QTest::newRow("crlf") << u"a\r\nb\rc\u2029d"_s << u"a\nb\nc\nd"_s;
        QTest::newRow("loose table")
            << u"|a|b|\n|:-|-:|\n|1|"_s << u"| a | b |\n| --- | --- |\n| 1 |"_s;
        QTest::newRow("ragged table")
            << u"|a|\n|-|\n|b|c|d|\n|e|\n||"_s
            << u"| a |  |  |\n| --- | --- | --- |\n| b | c | d |\n| e |\n|  |"_s;
        QTest::newRow("separator in the middle")
            << u"| a |\n| b |\n| - |"_s << u"| a |\n| --- |\n| b |"_s;
        QTest::newRow("long line of marks that pair up")
            << u"[a](b **c ==d <u>e ~~f `g "_s.repeated(2)
            << u"[a](b **c ==d <u>e ~~f `g [a](b** c ==d <u>e ~~f `g "_s;
        QTest::newRow("editor characters")
            << u"a\uFFFCb\uFDD0c"_s + QChar(0xD800) << u"a\uFFFDb\uFFFDc\uFFFD"_s;
    }

    void readFormsAreWrittenOneWay()
    {
        auto [text, written] = fetch<QString, QString>("text", "written");
        QCOMPARE(roundTrip(text), written);
        QCOMPARE(roundTrip(written), written);
    }

    void spansAreReadWithPrecedence_data()
    {
        columns<QString, QList<Span>>("line", "spans");
        QTest::newRow("half-closed bold stays text") << u"**bold*"_s << QList{run(u"**bold*"_s)};
        QTest::newRow("three stars are one span")
            << u"***a***"_s << QList{run(u"a"_s, Style::bold | Style::italic)};
        QTest::newRow("nearest closer")
            << u"*a* b*"_s << QList{run(u"a"_s, Style::italic), run(u" b*"_s)};
        QTest::newRow("italic inside bold")
            << u"**a *b* c**"_s
            << QList{run(u"a "_s, Style::bold), run(u"b"_s, Style::bold | Style::italic),
                     run(u" c"_s, Style::bold)};
        QTest::newRow("code is literal") << u"`**x**`"_s << QList{run(u"**x**"_s, Style::code)};
        QTest::newRow("link text is parsed")
            << u"[**a**](u)"_s << QList{run(u"a"_s, Style::bold, u"u"_s)};
        QTest::newRow("empty link text") << u"[](u)"_s << QList{run(u"[](u)"_s)};
        QTest::newRow("colour word")
            << u"=={green}a=="_s << QList{run(u"a"_s, Style::highlight, {}, u"green"_s)};
        QTest::newRow("colour word alone is text of a yellow mark")
            << u"=={x}=="_s << QList{run(u"{x}"_s, Style::highlight, {}, u"yellow"_s)};
        QTest::newRow("checked line") << u"- [x] ~~a~~"_s << QList{run(u"a"_s)};
    }

    void spansAreReadWithPrecedence()
    {
        auto [line, spans] = fetch<QString, QList<Span>>("line", "spans");
        QCOMPARE(spansOf(line), spans);
    }

    void linesGetTheirKindAndGlyph_data()
    {
        columns<QString, QStringList, QStringList>("text", "kinds", "shown");
        QTest::newRow("lists") << u"- a\n  - [ ] b\n- [x] c\n12. d"_s
                               << QStringList{u"bullet"_s, u"checklist"_s, u"checklist"_s,
                                              u"numbered"_s}
                               << QStringList{u"• a"_s, u"  ☐ b"_s, u"✓ c"_s, u"12. d"_s};
        QTest::newRow("marker removed")
            << u"# a\n> b\n---"_s << QStringList{u"h1"_s, u"quote"_s, u"divider"_s}
            << QStringList{u"a"_s, u"b"_s, QString()};
        QTest::newRow("divider inside code")
            << u"```\n---\n```"_s << QStringList{u"code"_s, u"code"_s, u"code"_s}
            << QStringList{u"```"_s, u"---"_s, u"```"_s};
        QTest::newRow("table without separator is text")
            << u"| a |\n| b |"_s << QStringList{u"body"_s, u"body"_s}
            << QStringList{u"| a |"_s, u"| b |"_s};
        QTest::newRow("image line is body")
            << u"## {{img:x}}"_s << QStringList{u"body"_s} << QStringList{u"## \uFFFC"_s};
    }

    void linesGetTheirKindAndGlyph()
    {
        auto [text, kinds, shown] =
            fetch<QString, QStringList, QStringList>("text", "kinds", "shown");
        QTextDocument document;
        EntryMarkup::loadFromMarkdown(text, document);
        QStringList gotKinds, gotShown;
        for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
            gotKinds.append(rawValue(EntryMarkup::lineFormatting(block)));
            gotShown.append(block.text());
        }
        QCOMPARE(gotKinds, kinds);
        QCOMPARE(gotShown, shown);
    }

    void tablesBecomeTables()
    {
        QTextDocument document;
        EntryMarkup::loadFromMarkdown(u"intro\n| a | b |\n| --- | --- |\n| 1 |"_s, document);
        QTextTable *table = nullptr;
        for (auto it = document.rootFrame()->begin(); !it.atEnd(); ++it) {
            if (auto *found = qobject_cast<QTextTable *>(it.currentFrame()))
                table = found;
        }
        QVERIFY(table);
        QCOMPARE(table->rows(), 2);
        QCOMPARE(table->columns(), 2);
        QTextCursor cell = table->cellAt(1, 1).firstCursorPosition();
        cell.insertText(u"two"_s);
        QCOMPARE(EntryMarkup::serializeToMarkdown(document),
                 u"intro\n| a | b |\n| --- | --- |\n| 1 | two |"_s);
    }

    void imagesKeepTheirIdAndSize()
    {
        QTextDocument document;
        QStringList asked;
        EntryMarkup::LoadOptions options;
        options.image = [&](const QString &id) -> std::optional<QImage> {
            asked.append(id);
            if (id != imageA)
                return std::nullopt;
            QImage image(4, 4, QImage::Format_RGB32);
            image.fill(Qt::red);
            return image;
        };
        const QString text =
            u"{{img:"_s + imageA + u"|w=120,h=80}} {{img:"_s + imageB + u"|w=90,h=60}}"_s;
        // Hostile tokens: huge, and many of one size. Each is drawn small and shared.
        const auto huge = [](char16_t last) -> QString {
            return u" {{img:"_s + imageB.left(35) + last + u"|w=900000,h=450000}}"_s;
        };
        EntryMarkup::loadFromMarkdown(text + huge(u'1') + huge(u'2'), document, options);
        QCOMPARE(asked.mid(0, 2), (QStringList{imageA, imageB}));

        const auto drawn = [&](const QTextImageFormat &image) {
            return document.resource(QTextDocument::ImageResource, QUrl(image.name()))
                .value<QImage>();
        };
        QList<QTextImageFormat> images;
        for (auto it = document.begin().begin(); !it.atEnd(); ++it) {
            if (it.fragment().charFormat().isImageFormat())
                images.append(it.fragment().charFormat().toImageFormat());
        }
        QCOMPARE(images.size(), 4);
        const QImage drawnHuge = drawn(images[2]);
        QCOMPARE(drawnHuge.size(), QSize(480, 240));
        QCOMPARE(images[2].width(), 900000.0);
        QCOMPARE(drawnHuge.cacheKey(), drawn(images[3]).cacheKey());
        QCOMPARE(images[0].width(), 120.0);
        QVERIFY(!images[0].boolProperty(EntryMarkup::ImageMissingProperty));
        QVERIFY(!drawn(images[0]).isNull());
        QVERIFY(images[1].boolProperty(EntryMarkup::ImageMissingProperty));
        QCOMPARE(images[1].toolTip(), EntryMarkup::imageUnavailableText);
        // A missing image is drawn, words and all, at its token's size: no broken-file icon.
        const QImage placeholder = drawn(images[1]);
        QCOMPARE(placeholder.size(), QSize(90, 60));
        QImage blank(74, 44, placeholder.format());
        blank.fill(placeholder.pixel(45, 4));
        QVERIFY(placeholder.copy(8, 8, 74, 44) != blank);

        // A resize in the editor is written truncated to whole points.
        QTextCursor cursor(&document);
        cursor.setPosition(0);
        cursor.setPosition(1, QTextCursor::KeepAnchor);
        QTextImageFormat resized = images[0];
        resized.setWidth(99.9);
        resized.setHeight(50.2);
        cursor.setCharFormat(resized);
        QCOMPARE(EntryMarkup::serializeToMarkdown(document),
                 u"{{img:"_s + imageA + u"|w=99,h=50}} {{img:"_s + imageB + u"|w=90,h=60}}"_s +
                     huge(u'1') + huge(u'2'));
    }

    void derivedLinksAreDrawnNotStored()
    {
        const QUuid ann = QUuid::createUuid();
        const QUuid annLee = QUuid::createUuid();
        EntryMarkup::LoadOptions options;
        options.people = {{ann, u"Ann"_s}, {annLee, u" Ann Lee "_s}};
        QTextDocument document;
        const QString text = u"@Ann Lee and @Ann on #Launch via https://x.org/a. `#code`"_s;
        EntryMarkup::loadFromMarkdown(text, document, options);

        QStringList links;
        for (auto it = document.begin().begin(); !it.atEnd(); ++it) {
            const QTextCharFormat format = it.fragment().charFormat();
            if (format.isAnchor())
                links.append(it.fragment().text() + u" -> "_s + format.anchorHref());
        }
        const auto id = [](const QUuid &uuid) { return uuid.toString(QUuid::WithoutBraces); };
        QCOMPARE(links, (QStringList{u"@Ann Lee -> tovren://person/"_s + id(annLee),
                                     u"@Ann -> tovren://person/"_s + id(ann),
                                     u"#Launch -> tovren://tag/launch"_s,
                                     u"https://x.org/a -> https://x.org/a"_s}));
        QCOMPARE(EntryMarkup::serializeToMarkdown(document), text);
    }

    void codeLinesAreColoured()
    {
        QTextDocument document;
        EntryMarkup::loadFromMarkdown(u"```\nlet s = \"x\" // done\n```"_s, document);
        const QTextBlock code = document.begin().next();
        QSet<QRgb> colours;
        for (auto it = code.begin(); !it.atEnd(); ++it)
            colours.insert(it.fragment().charFormat().foreground().color().rgb());
        QVERIFY2(colours.size() >= 3, "keyword, string and comment each get a colour");
    }

    void exportsPlainText_data()
    {
        columns<QString, QString>("text", "plain");
        QTest::newRow("headings and bullets") << u"# Title\n## Sub\n- item\n* other\nbody"_s
                                              << u"Title\nSub\n• item\n• other\nbody"_s;
        QTest::newRow("bold and code lose marks, others stay")
            << u"**bold** `code` *it* ~~s~~"_s << u"bold code *it* ~~s~~"_s;
    }

    void exportsPlainText()
    {
        auto [text, plain] = fetch<QString, QString>("text", "plain");
        QCOMPARE(MarkdownExport::plainText(text), plain);
    }

    void exportsStyledText()
    {
        const auto document =
            MarkdownExport::attributedString(u"# Title\n- **bold** item\n\nplain"_s, 12);
        QCOMPARE(document->blockCount(), 4);
        QTextBlock block = document->begin();
        QCOMPARE(block.text(), u"Title"_s);
        QVERIFY(block.charFormat().fontPointSize() > 12 ||
                block.begin().fragment().charFormat().fontPointSize() > 12);
        block = block.next();
        QCOMPARE(block.text(), u"• bold item"_s);
        bool sawBold = false;
        for (auto it = block.begin(); !it.atEnd(); ++it)
            sawBold |=
                it.fragment().text() == u"bold" && EntryMarkup::isBold(it.fragment().charFormat());
        QVERIFY(sawBold);
    }
};

WRITING_TEST_MAIN(TestMarkup)
#include "tst_markup.moc"
