// A real assistant's client against the whole program: `tovren --headless` with the bridge on,
// reached through `nc` and through `tovren mcp`, driven by the MCP SDK's own stdio client.

#include "TovrenProcess.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

class AssistantClientTest : public QObject {
    Q_OBJECT

    // Runs one tool script, bounded, and says what it printed when it fails.
    static void runScript(const QString &script, const QStringList &arguments)
    {
        QProcess node;
        node.setProcessChannelMode(QProcess::MergedChannels);
        node.setWorkingDirectory(QFileInfo(script).absolutePath());
        node.start(u"node"_s, QStringList{script} + arguments);
        QVERIFY2(node.waitForStarted(10000), "node did not start");
        const bool finished = node.waitForFinished(60000);
        const QByteArray output = node.readAll();
        if (!finished)
            node.kill();
        QVERIFY2(finished, qPrintable(u"the assistant did not finish within 60 s:\n"_s +
                                      QString::fromUtf8(output)));
        qInfo("%s", output.trimmed().constData());
        QVERIFY2(node.exitStatus() == QProcess::NormalExit && node.exitCode() == 0,
                 qPrintable(QString::fromUtf8(output)));
    }

    TempDataDir m_dir;
    TovrenProcess m_tovren{m_dir};
    quint16 m_port = 0;
    QString m_script;

private slots:
    void initTestCase()
    {
        QVERIFY2(QFile::exists(TovrenProcess::binary()),
                 qPrintable(u"TOVREN_BIN: "_s + TovrenProcess::binary()));
        m_script = QFINDTESTDATA("../e2e/assistant.mjs");
        QVERIFY2(!m_script.isEmpty(), "tests/e2e/assistant.mjs not found");
        const QString sdk = QFileInfo(m_script).absolutePath() +
                            u"/node_modules/@modelcontextprotocol/sdk/package.json"_s;
        if (QStandardPaths::findExecutable(u"node"_s).isEmpty() || !QFile::exists(sdk)) {
            const char *why = "node or the MCP SDK is missing: run npm ci in tests/e2e";
            if (qEnvironmentVariableIsSet("CI"))
                QFAIL(why);
            QSKIP(why);
        }

        QVERIFY(m_tovren.writePreferences(
            "{\"mcpServerEnabled\": true, \"journalTemplate\": \"standup\"}"));
        m_port = TovrenProcess::freePort();
        QVERIFY(m_tovren.start({u"--headless"_s}, m_port, QProcess::ForwardedChannels));
        QVERIFY2(m_tovren.waitUntilListening(m_port), "tovren --headless never listened");
    }

    void cleanupTestCase()
    {
        if (m_tovren.process().state() == QProcess::NotRunning)
            return;
        QVERIFY(m_tovren.stop(SIGTERM));
        QCOMPARE(m_tovren.process().exitCode(), 0);
    }

    void throughNetcat()
    {
        QVERIFY2(!QStandardPaths::findExecutable(u"nc"_s).isEmpty(), "nc is not installed");
        runScript(m_script,
                  {QString::number(m_port), u"2024-03-04"_s, u"nc"_s, u"127.0.0.1"_s, u"{port}"_s});
    }

    void throughTovrenMcp()
    {
        runScript(m_script,
                  {QString::number(m_port), u"2024-03-05"_s, TovrenProcess::binary(), u"mcp"_s});
    }

    void tovrenMcpSaysWhenNothingListens()
    {
        QProcess bridge;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"TOVREN_MCP_PORT"_s, QString::number(TovrenProcess::freePort()));
        environment.remove(u"DISPLAY"_s);
        environment.remove(u"WAYLAND_DISPLAY"_s);
        bridge.setProcessEnvironment(environment);
        bridge.start(TovrenProcess::binary(), {u"mcp"_s});
        QVERIFY(bridge.waitForFinished(10000));
        QCOMPARE(bridge.exitCode(), 1);
        const QList<QByteArray> lines = bridge.readAllStandardError().trimmed().split('\n');
        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines.first().startsWith("tovren mcp: nothing is listening on 127.0.0.1 port "),
                 lines.first().constData());
        QVERIFY(bridge.readAllStandardOutput().isEmpty());
    }
};

QTEST_GUILESS_MAIN(AssistantClientTest)
#include "tst_assistantclient.moc"
