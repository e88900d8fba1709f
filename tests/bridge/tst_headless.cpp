// The whole program as an assistant meets it: `tovren --headless` with the bridge switched on
// in a hand-written preferences file.

#include "BridgeTestSupport.h"
#include "TovrenProcess.h"

#include "bridge/MCPToolGroup.h"

#include <QDir>
#include <QFile>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace BridgeTest;

class HeadlessTest : public QObject {
    Q_OBJECT

private:
    static QByteArray exchange(QTcpSocket &socket, const QByteArray &line)
    {
        socket.write(line + '\n');
        socket.flush();
        while (!socket.canReadLine()) {
            if (!socket.waitForReadyRead(10000))
                return "(no answer)";
        }
        return socket.readLine().chopped(1);
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(TovrenProcess::binary()), qPrintable(TovrenProcess::binary()));
    }

    void assistantTalksToHeadlessTovren()
    {
        TempDataDir dir;
        TovrenProcess tovren(dir);
        QVERIFY(tovren.writePreferences(R"({"mcpServerEnabled": true})"));
        const quint16 port = TovrenProcess::freePort();
        QVERIFY(tovren.start({u"--headless"_s}, port));
        QVERIFY2(tovren.waitUntilListening(port), "tovren --headless never listened");

        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, port);
        QVERIFY(socket.waitForConnected(5000));
        QCOMPARE(socket.state(), QAbstractSocket::ConnectedState);

        const QByteArray initialized =
            exchange(socket, request("1", "initialize", R"({"protocolVersion":"2024-11-05"})"));
        const QJsonObject info = resultOf(initialized);
        QCOMPARE(info.value("protocolVersion"_L1), u"2024-11-05"_s);
        QCOMPARE(info.value("serverInfo"_L1).toObject().value("name"_L1), u"tovren"_s);
        QVERIFY(info.value("instructions"_L1)
                    .toString()
                    .startsWith(u"This is the user's own work journal."_s));
        QCOMPARE(exchange(socket, request(QByteArray(), "notifications/initialized")),
                 QByteArray());

        // Whatever tools have landed, an install that had the bridge on before the groups
        // existed sees every group.
        const QJsonObject listed = resultOf(exchange(socket, request("2", "tools/list")));
        QVERIFY(listed.value("tools"_L1).isArray());
        for (const QJsonValue &tool : listed.value("tools"_L1).toArray()) {
            const QJsonObject row = tool.toObject();
            QVERIFY(MCPToolGroup::allToolNames().contains(row.value("name"_L1).toString()));
            QVERIFY(row.value("description"_L1).isString());
            QCOMPARE(row.value("inputSchema"_L1).toObject().value("type"_L1), u"object"_s);
        }
        QCOMPARE(describe(exchange(socket, call("3", "no_such_tool"))),
                 u"3 error -32601 Unknown tool: no_such_tool"_s);

        QVERIFY(tovren.stop(SIGTERM));
        QCOMPARE(tovren.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(tovren.process().exitCode(), 0);
        QVERIFY(socket.state() == QAbstractSocket::UnconnectedState ||
                !socket.waitForReadyRead(5000));

        QFile preferences(dir.configDir() + u"/preferences.json"_s);
        QVERIFY(preferences.open(QIODevice::ReadOnly));
        const QJsonObject stored = QJsonDocument::fromJson(preferences.readAll()).object();
        QCOMPARE(stored.value("mcpToolGroupDefaultsApplied"_L1), true);
        for (const char *group : {"people", "goals", "library", "setup"})
            QCOMPARE(stored.value(u"mcpToolGroup-"_s + QLatin1StringView(group)), true);
    }
};

QTEST_GUILESS_MAIN(HeadlessTest)
#include "tst_headless.moc"
