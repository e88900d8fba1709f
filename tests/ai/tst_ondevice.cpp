#include "AITestBed.h"
#include "FakeHttpServer.h"

#include "ai/AIAvailabilityNotifier.h"
#include "ai/OnDeviceModel.h"
#include "core/PreferenceKeys.h"
#include "core/records/InboxItem.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QByteArray tags(const QStringList &names)
{
    QJsonArray models;
    for (const QString &name : names)
        models.append(QJsonObject{{u"name"_s, name}, {u"size"_s, 1234}});
    return QJsonDocument(QJsonObject{{u"models"_s, models}}).toJson(QJsonDocument::Compact);
}

// A model server: /api/tags lists what it has, /api/show tells what a model can do (those
// named "embed…" only embed), /api/chat answers.
void serveOllama(FakeHttpServer &server, QByteArray tagsBody, int tagsStatus = 200,
                 QByteArray chatBody = "{\"message\":{\"role\":\"assistant\",\"content\":\"OK\"}}",
                 int chatStatus = 200)
{
    server.setHandler([=](const FakeHttpServer::Request &request) {
        if (request.path() == u"/api/tags"_s)
            return FakeHttpServer::Response{tagsStatus, tagsBody, {}, tagsBody == "never"};
        if (request.path() == u"/api/show"_s) {
            const bool embeds = request.json().value(u"model"_s).toString().startsWith(u"embed"_s);
            return FakeHttpServer::Response{
                200, embeds ? "{\"capabilities\":[\"embedding\"]}"
                            : "{\"capabilities\":[\"completion\",\"tools\"]}"};
        }
        return FakeHttpServer::Response{chatStatus, chatBody};
    });
}

} // namespace

class TestOnDevice : public QObject {
    Q_OBJECT

private:
    QNetworkAccessManager m_network;

private slots:
    void status_data()
    {
        QTest::addColumn<int>("tagsStatus"); // 0: nothing listens
        QTest::addColumn<QByteArray>("tagsBody");
        QTest::addColumn<int>("expected");
        QTest::addColumn<QStringList>("expectedModels");

        QTest::newRow("available")
            << 200 << tags({u"llama3.2:3b"_s, u"qwen2.5:7b"_s}) << int(AppleModelStatus::available)
            << QStringList{u"llama3.2:3b"_s, u"qwen2.5:7b"_s};
        QTest::newRow("not ready")
            << 200 << tags({}) << int(AppleModelStatus::notReady) << QStringList();
        QTest::newRow("not enabled")
            << 0 << QByteArray() << int(AppleModelStatus::notEnabled) << QStringList();
        QTest::newRow("server error") << 500 << QByteArray(R"({"error":"boom"})")
                                      << int(AppleModelStatus::unavailable) << QStringList();
        QTest::newRow("not json") << 200 << QByteArray("<html>")
                                  << int(AppleModelStatus::unavailable) << QStringList();
        QTest::newRow("models not a list") << 200 << QByteArray(R"({"models":{"name":"x"}})")
                                           << int(AppleModelStatus::unavailable) << QStringList();
        QTest::newRow("names of the wrong type skipped")
            << 200 << QByteArray(R"({"models":[{"name":5},{"name":"ok:1b"},7]})")
            << int(AppleModelStatus::available) << QStringList{u"ok:1b"_s};
    }

    void status()
    {
        QFETCH(int, tagsStatus);
        QFETCH(QByteArray, tagsBody);
        QFETCH(int, expected);
        QFETCH(QStringList, expectedModels);

        FakeHttpServer server;
        serveOllama(server, tagsBody, tagsStatus);
        const QUrl url =
            tagsStatus == 0 ? QUrl(u"http://127.0.0.1:%1"_s.arg(closedPort())) : server.url();
        const OnDeviceModel::State state = QCoro::waitFor(OnDeviceModel::current(m_network, url));
        QCOMPARE(int(state.status), expected);
        QCOMPARE(state.models, expectedModels);
        if (tagsStatus != 0) {
            QCOMPARE(server.requests().size(), 1);
            QCOMPARE(server.requests().first().method, "GET");
        }
    }

    void answers_data()
    {
        QTest::addColumn<QByteArray>("tagsBody");
        QTest::addColumn<QString>("storedModel");
        QTest::addColumn<std::optional<QString>>("system");
        QTest::addColumn<QByteArray>("chatBody");
        QTest::addColumn<int>("chatStatus");
        QTest::addColumn<QString>("expectedModel"); // empty: no chat request
        QTest::addColumn<QString>("expected");      // the answer or the error's words

        const QByteArray ok = "{\"message\":{\"role\":\"assistant\",\"content\":\"OK\"}}";
        const QByteArray listed = tags({u"first:1b"_s, u"second:2b"_s});
        QTest::newRow("first listed model") << listed << QString() << std::optional<QString>() << ok
                                            << 200 << u"first:1b"_s << u"OK"_s;
        QTest::newRow("embedding models passed over")
            << tags({u"embed-text:v1"_s, u"chat:3b"_s}) << QString() << std::optional<QString>()
            << ok << 200 << u"chat:3b"_s << u"OK"_s;
        QTest::newRow("only embedding models")
            << tags({u"embed-text:v1"_s}) << QString() << std::optional<QString>() << ok << 200
            << QString() << OnDeviceModel::statusText(AppleModelStatus::notReady);
        QTest::newRow("stored model and system text")
            << listed << u"second:2b"_s << std::optional(u"Be brief."_s) << ok << 200
            << u"second:2b"_s << u"OK"_s;
        // A server loading a model answers even its list late; the check waits for it that long.
        QTest::newRow("status check past its time")
            << QByteArray("never") << QString() << std::optional<QString>() << ok << 200
            << QString()
            << u"The AI provider didn't respond in time. Check your connection and try again."_s;
        QTest::newRow("no model yet")
            << tags({}) << QString() << std::optional<QString>() << ok << 200 << QString()
            << OnDeviceModel::statusText(AppleModelStatus::notReady);
        QTest::newRow("model error")
            << listed << u"gone:1b"_s << std::optional(QString())
            << QByteArray(R"({"error":"model 'gone:1b' not found"})") << 404 << u"gone:1b"_s
            << u"AI provider error (404): model 'gone:1b' not found"_s;
        QTest::newRow("content missing")
            << listed << QString() << std::optional<QString>() << QByteArray(R"({"message":{}})")
            << 200 << u"first:1b"_s
            << u"AI provider returned an unexpected response: {\"message\":{}}"_s;
    }

    void answers()
    {
        QFETCH(QByteArray, tagsBody);
        QFETCH(QString, storedModel);
        QFETCH(std::optional<QString>, system);
        QFETCH(QByteArray, chatBody);
        QFETCH(int, chatStatus);
        QFETCH(QString, expectedModel);
        QFETCH(QString, expected);

        FakeHttpServer server;
        serveOllama(server, tagsBody, 200, chatBody, chatStatus);
        AppleFoundationClient client(m_network, server.url(), storedModel);
        QVERIFY(OnDeviceModel::statusTimeout >= std::chrono::seconds(30));
        client.setStatusTimeout(std::chrono::milliseconds(300));
        const auto outcome =
            QCoro::waitFor(capture(client.respond(u"Reply with the word OK."_s, system)));
        QCOMPARE(outcome.value ? *outcome.value : outcome.errorText(), expected);

        const QList<FakeHttpServer::Request> chats = server.requestsTo(u"/api/chat"_s);
        if (expectedModel.isEmpty()) {
            QVERIFY(chats.isEmpty());
            return;
        }
        QCOMPARE(chats.size(), 1);
        const QJsonObject body = chats.first().json();
        QCOMPARE(body.value(u"model"_s).toString(), expectedModel);
        QCOMPARE(body.value(u"stream"_s), QJsonValue(false));
        QJsonArray messages;
        if (system && !system->isEmpty())
            messages.append(QJsonObject{{u"role"_s, u"system"_s}, {u"content"_s, *system}});
        messages.append(
            QJsonObject{{u"role"_s, u"user"_s}, {u"content"_s, u"Reply with the word OK."_s}});
        QCOMPARE(body.value(u"messages"_s).toArray(), messages);
    }

    void contextWindow_data()
    {
        QTest::addColumn<int>("promptBytes");
        QTest::addColumn<int>("expected");
        QTest::newRow("a question") << 30 << 8192;
        QTest::newRow("a month of pages") << 60000 << 32768;
        QTest::newRow("beyond any local model") << 2000000 << 131072;
    }

    // The server's own window is small and it cuts a longer prompt from the front without a word.
    void contextWindow()
    {
        QFETCH(int, promptBytes);
        QFETCH(int, expected);
        FakeHttpServer server;
        serveOllama(server, tags({u"chat:3b"_s}));
        AppleFoundationClient client(m_network, server.url(), u"chat:3b"_s);
        QCoro::waitFor(capture(client.respond(QString(promptBytes, u'w'))));
        const auto chats = server.requestsTo(u"/api/chat"_s);
        QCOMPARE(chats.size(), 1);
        const int window = chats.first().json()[u"options"_s][u"num_ctx"_s].toInt();
        QCOMPARE(window, expected);
        // Room for the prompt at three bytes a token, unless no local model has that much.
        QVERIFY(window >= promptBytes / 3 + 4096 || window == 131072);
    }

    void serverAddress_data()
    {
        QTest::addColumn<QString>("ollamaHost"); // OLLAMA_HOST as a user may set it
        QTest::addColumn<QString>("expected");
        QTest::newRow("empty") << QString() << u"http://127.0.0.1:11434"_s;
        QTest::newRow("host") << u"gpu-box"_s << u"http://gpu-box:11434"_s;
        QTest::newRow("host and port") << u"10.0.0.5:8000"_s << u"http://10.0.0.5:8000"_s;
        QTest::newRow("port only") << u":9999"_s << u"http://127.0.0.1:9999"_s;
        QTest::newRow("listen address") << u"0.0.0.0"_s << u"http://127.0.0.1:11434"_s;
        QTest::newRow("quoted url")
            << u" \"https://llm.corp/ollama\" "_s << u"https://llm.corp:443/ollama"_s;
        QTest::newRow("http url with port") << u"http://box:1234"_s << u"http://box:1234"_s;
        QTest::newRow("ipv6") << u"[::1]:7000"_s << u"http://[::1]:7000"_s;
    }

    void serverAddress()
    {
        QFETCH(QString, ollamaHost);
        QFETCH(QString, expected);
        qunsetenv("TOVREN_ONDEVICE_URL");
        qputenv("OLLAMA_HOST", ollamaHost.toUtf8());
        const QString server = OnDeviceModel::defaultServer().toString();
        qunsetenv("OLLAMA_HOST");
        QCOMPARE(server, expected);
    }

    void notice_data()
    {
        QTest::addColumn<std::optional<QString>>("provider");
        QTest::addColumn<int>("tagsStatus"); // 0: nothing listens
        QTest::addColumn<QByteArray>("tagsBody");
        QTest::addColumn<QString>("expectedBody"); // empty: no notice

        const QString notRunning =
            u"No on-device model is running on this computer, so Tovren's AI features, including "
            u"recaps, STAR stories and suggestions, are paused. Everything else works normally. "
            u"Start a model server such as Ollama, or switch to another provider in Settings → "
            u"Connections."_s;
        const QString notAvailable =
            u"The on-device model isn't available, so Tovren's AI features are paused. Everything "
            u"else works normally. Switch to another provider in Settings → Connections."_s;
        QTest::newRow("absent provider, nothing listening")
            << std::optional<QString>() << 0 << QByteArray() << notRunning;
        QTest::newRow("on-device, broken server")
            << std::optional(u"appleFoundation"_s) << 500 << QByteArray() << notAvailable;
        QTest::newRow("on-device available")
            << std::optional(u"appleFoundation"_s) << 200 << tags({u"a:1b"_s}) << QString();
        QTest::newRow("on-device not ready")
            << std::optional(u"appleFoundation"_s) << 200 << tags({}) << QString();
        QTest::newRow("another provider")
            << std::optional(u"claude"_s) << 0 << QByteArray() << QString();
    }

    void notice()
    {
        QFETCH(std::optional<QString>, provider);
        QFETCH(int, tagsStatus);
        QFETCH(QByteArray, tagsBody);
        QFETCH(QString, expectedBody);

        AITestBed bed;
        if (provider)
            bed.preferences.setText(Prefs::aiProvider.name, *provider);
        ModelContainer store(StoreSchema::current(), ModelContainer::Configuration::memoryOnly());
        FakeHttpServer server;
        serveOllama(server, tagsBody, tagsStatus);
        const QUrl url =
            tagsStatus == 0 ? QUrl(u"http://127.0.0.1:%1"_s.arg(closedPort())) : server.url();
        FixedClock clock(QDateTime(QDate(2026, 3, 2), QTime(9, 0), Qt::UTC));
        auto run = [&] {
            QCoro::waitFor(AIAvailabilityNotifier::runIfNeeded(store.mainContext(), bed.preferences,
                                                               bed.network, url));
            return store.mainContext().fetch<InboxItem>();
        };
        const auto items = run();
        QCOMPARE(items.size(), expectedBody.isEmpty() ? 0 : 1);
        if (items.isEmpty())
            return;
        QCOMPARE(items.first()->kind(), InboxItemKind::system);
        QCOMPARE(items.first()->title, u"AI features are paused"_s);
        QCOMPARE(items.first()->body, expectedBody);
        QCOMPARE(items.first()->payload, std::optional(u"ai-unavailable"_s));
        QVERIFY(!store.mainContext().hasChanges());
        // Once a week at most.
        clock.advance(6LL * 24 * 3600 * 1000);
        QCOMPARE(run().size(), 1);
        clock.advance(2LL * 24 * 3600 * 1000);
        QCOMPARE(run().size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestOnDevice)
#include "tst_ondevice.moc"
