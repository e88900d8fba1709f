// The whole program as an assistant meets it: `tovren --headless` with the bridge switched on
// in a hand-written preferences file.

#include "BridgeTestSupport.h"

#include "bridge/MCPToolGroup.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTcpServer>

#include <csignal>

using namespace Qt::StringLiterals;
using namespace BridgeTest;

class HeadlessTest : public QObject {
    Q_OBJECT

private:
    static QString binary() { return qEnvironmentVariable("TOVREN_BIN"); }

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
    void initTestCase() { QVERIFY2(QFile::exists(binary()), qPrintable(binary())); }

    void assistantTalksToHeadlessTovren()
    {
        TempDataDir dir;
        QFile preferences(dir.configDir() + u"/preferences.json"_s);
        QVERIFY(preferences.open(QIODevice::WriteOnly));
        preferences.write(R"({"mcpServerEnabled": true})");
        preferences.close();

        quint16 port = 0;
        {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
            port = probe.serverPort();
        }

        QProcess tovren;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"TOVREN_DATA_DIR"_s, dir.dataRoot());
        environment.insert(u"TOVREN_CONFIG_DIR"_s, dir.configDir());
        environment.insert(u"TOVREN_MCP_PORT"_s, QString::number(port));
        tovren.setProcessEnvironment(environment);
        tovren.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        tovren.start(binary(), {u"--headless"_s});
        QVERIFY(tovren.waitForStarted());

        QTcpSocket socket;
        for (int attempt = 0; attempt < 200; ++attempt) {
            socket.connectToHost(QHostAddress::LocalHost, port);
            if (socket.waitForConnected(1000))
                break;
            socket.abort();
            QVERIFY2(tovren.state() == QProcess::Running, "tovren ended before listening");
            QTest::qWait(100);
        }
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

        ::kill(pid_t(tovren.processId()), SIGTERM);
        QVERIFY(tovren.waitForFinished(30000));
        QCOMPARE(tovren.exitStatus(), QProcess::NormalExit);
        QCOMPARE(tovren.exitCode(), 0);
        QVERIFY(socket.state() == QAbstractSocket::UnconnectedState ||
                !socket.waitForReadyRead(5000));

        QVERIFY(preferences.open(QIODevice::ReadOnly));
        const QJsonObject stored = QJsonDocument::fromJson(preferences.readAll()).object();
        QCOMPARE(stored.value("mcpToolGroupDefaultsApplied"_L1), true);
        for (const char *group : {"people", "goals", "library", "setup"})
            QCOMPARE(stored.value(u"mcpToolGroup-"_s + QLatin1StringView(group)), true);
    }
};

QTEST_GUILESS_MAIN(HeadlessTest)
#include "tst_headless.moc"
