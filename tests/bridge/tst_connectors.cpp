#include "bridge/AIConnector.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

class ConnectorsTest : public QObject {
    Q_OBJECT

private slots:
    void rowsInOrder()
    {
        QStringList ids;
        for (const AIConnector &connector : AIConnector::all(35468))
            ids << connector.id;
        QCOMPARE(ids, (QStringList{u"chatgpt"_s, u"codex-cli"_s, u"claude-desktop"_s,
                                   u"claude-code"_s, u"cursor"_s, u"custom"_s}));
        QCOMPARE(AIConnector::initialId, u"chatgpt"_s);
    }

    void portInEveryPayload_data()
    {
        QTest::addColumn<int>("port");
        QTest::newRow("default") << 35468;
        QTest::newRow("other") << 4021;
    }

    // Every row carries the port it was given: as a bare word in commands, as a JSON string in
    // snippets, as its own literal field in the form.
    void portInEveryPayload()
    {
        QFETCH(int, port);
        const QString portText = QString::number(port);
        const QList<AIConnector> rows = AIConnector::all(port);
        for (const AIConnector &row : rows) {
            if (const auto *form = std::get_if<AIConnector::Fields>(&row.payload)) {
                QCOMPARE(form->fields.size(), 6);
                const AIConnector::Field &portField = form->fields.at(4);
                QCOMPARE(portField.label, u"Add argument"_s);
                QCOMPARE(portField.value, portText);
                QVERIFY(portField.isLiteral);
                QVERIFY(!form->fields.at(1).isLiteral); // "Type" is advice
                QCOMPARE(form->fields.at(5).value, u"Leave empty"_s);
                continue;
            }
            const QString text = row.copyableText().value();
            if (std::holds_alternative<AIConnector::Command>(row.payload)) {
                QVERIFY2(text.endsWith(u"nc 127.0.0.1 "_s + portText), qPrintable(text));
                QVERIFY(!text.contains(u'"'));
                continue;
            }
            // Cursor's snippet and Claude's by-hand one.
            QJsonParseError error;
            const QJsonObject root = QJsonDocument::fromJson(text.toUtf8(), &error).object();
            QCOMPARE(error.error, QJsonParseError::NoError);
            const QJsonObject server =
                root.value(u"mcpServers"_s).toObject().value(u"tovren"_s).toObject();
            QCOMPARE(server.value(u"command"_s).toString(), u"/usr/bin/nc"_s);
            const QJsonArray args = server.value(u"args"_s).toArray();
            QCOMPARE(args.size(), 2);
            QCOMPARE(args.at(0).toString(), u"127.0.0.1"_s);
            QVERIFY2(args.at(1).isString(), "the port is quoted in JSON");
            QCOMPARE(args.at(1).toString(), portText);
            QVERIFY(text.contains(u"\"args\": [\"127.0.0.1\", \""_s + portText + u"\"]"_s));
        }
    }

    void commandsWordForWord()
    {
        const QList<AIConnector> rows = AIConnector::all(35468);
        QCOMPARE(rows.at(1).copyableText(), u"codex mcp add tovren -- nc 127.0.0.1 35468"_s);
        QCOMPARE(rows.at(3).copyableText(),
                 u"claude mcp add --scope user tovren -- nc 127.0.0.1 35468"_s);
        QCOMPARE(rows.at(5).copyableText(), u"nc 127.0.0.1 35468"_s);
        QCOMPARE(rows.at(4).copyableText(), u"{\n  \"mcpServers\": {\n    \"tovren\": {\n"
                                            u"      \"command\": \"/usr/bin/nc\",\n"
                                            u"      \"args\": [\"127.0.0.1\", \"35468\"]\n"
                                            u"    }\n  }\n}"_s);
    }

    // Without nc, every row runs Tovren's own bridge instead, with the full path where a
    // configuration can't rely on PATH.
    void ownBridgeWhereNetcatIsMissing()
    {
        const auto bridge = AIConnector::Bridge::ownBridge(u"/opt/tovren/bin/tovren"_s);
        const QList<AIConnector> rows = AIConnector::all(bridge);
        QCOMPARE(rows.at(1).copyableText(), u"codex mcp add tovren -- tovren mcp"_s);
        const auto *form = std::get_if<AIConnector::Fields>(&rows.at(0).payload);
        QVERIFY(form);
        QCOMPARE(form->fields.at(2).value, u"/opt/tovren/bin/tovren"_s);
        QCOMPARE(form->fields.at(3).value, u"mcp"_s);
        QCOMPARE(form->fields.size(), 5);
        const QJsonObject server = QJsonDocument::fromJson(rows.at(4).copyableText()->toUtf8())
                                       .object()
                                       .value(u"mcpServers"_s)
                                       .toObject()
                                       .value(u"tovren"_s)
                                       .toObject();
        QCOMPARE(server.value(u"command"_s).toString(), u"/opt/tovren/bin/tovren"_s);
        QCOMPARE(server.value(u"args"_s).toArray(), QJsonArray{u"mcp"_s});
        QVERIFY(rows.at(5).instructions.contains(u"`/opt/tovren/bin/tovren`"_s));
    }

    void standingLine()
    {
        const AIConnector codex = AIConnector::all(35468).at(1);
        QCOMPARE(codex.standingLineSentence(true),
                 u"Add one line to ~/.codex/AGENTS.md, and it logs your work as you go."_s);
        QCOMPARE(codex.standingLineSentence(false),
                 u"Add this line to ~/.codex/AGENTS.md, and it logs your work as you go:"_s);
    }
};

QTEST_GUILESS_MAIN(ConnectorsTest)
#include "tst_connectors.moc"
