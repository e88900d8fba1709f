#include "FakeHttpServer.h"

#include "ai/AIAvailabilityNotifier.h"
#include "ai/OnDeviceModel.h"
#include "core/PreferenceKeys.h"
#include "core/records/InboxItem.h"
#include "core/records/StoreSchema.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include "TestSupport.h"

#include <QJsonArray>
#include <QNetworkAccessManager>
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

// A model server: /api/tags lists what it has, /api/chat answers.
void serveOllama(FakeHttpServer &server, QByteArray tagsBody, int tagsStatus = 200,
                 QByteArray chatBody = "{\"message\":{\"role\":\"assistant\",\"content\":\"OK\"}}",
                 int chatStatus = 200)
{
    server.setHandler([=](const FakeHttpServer::Request &request) {
        if (request.path() == u"/api/tags"_s)
            return FakeHttpServer::Response{tagsStatus, tagsBody, {}, false};
        return FakeHttpServer::Response{chatStatus, chatBody, {}, false};
    });
}

} // namespace

class TestOnDevice : public QObject {
    Q_OBJECT

private slots:
    void status_data();
    void status();
    void answers_data();
    void answers();
    void notice_data();
    void notice();
    void noticeOncePerWeek();

private:
    QNetworkAccessManager m_network;
};

void TestOnDevice::status_data()
{
    QTest::addColumn<int>("tagsStatus"); // 0: nothing listens
    QTest::addColumn<QByteArray>("tagsBody");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QStringList>("expectedModels");

    QTest::newRow("available") << 200 << tags({u"llama3.2:3b"_s, u"qwen2.5:7b"_s})
                               << int(AppleModelStatus::available)
                               << QStringList{u"llama3.2:3b"_s, u"qwen2.5:7b"_s};
    QTest::newRow("not ready") << 200 << tags({}) << int(AppleModelStatus::notReady)
                               << QStringList();
    QTest::newRow("not enabled") << 0 << QByteArray() << int(AppleModelStatus::notEnabled)
                                 << QStringList();
    QTest::newRow("server error") << 500 << QByteArray("{\"error\":\"boom\"}")
                                  << int(AppleModelStatus::unavailable) << QStringList();
    QTest::newRow("not json") << 200 << QByteArray("<html>") << int(AppleModelStatus::unavailable)
                              << QStringList();
    QTest::newRow("models not a list") << 200 << QByteArray("{\"models\":{\"name\":\"x\"}}")
                                       << int(AppleModelStatus::unavailable) << QStringList();
    QTest::newRow("names of the wrong type skipped")
        << 200 << QByteArray("{\"models\":[{\"name\":5},{\"name\":\"ok:1b\"},7]}")
        << int(AppleModelStatus::available) << QStringList{u"ok:1b"_s};
}

void TestOnDevice::status()
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

void TestOnDevice::answers_data()
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
    QTest::newRow("first listed model")
        << listed << QString() << std::optional<QString>() << ok << 200 << u"first:1b"_s << u"OK"_s;
    QTest::newRow("stored model and system text")
        << listed << u"second:2b"_s << std::optional(u"Be brief."_s) << ok << 200 << u"second:2b"_s
        << u"OK"_s;
    QTest::newRow("no model yet") << tags({}) << QString() << std::optional<QString>() << ok << 200
                                  << QString()
                                  << OnDeviceModel::statusText(AppleModelStatus::notReady);
    QTest::newRow("model error") << listed << u"gone:1b"_s << std::optional(QString())
                                 << QByteArray("{\"error\":\"model 'gone:1b' not found\"}") << 404
                                 << u"gone:1b"_s
                                 << u"AI provider error (404): model 'gone:1b' not found"_s;
    QTest::newRow("content missing")
        << listed << QString() << std::optional<QString>() << QByteArray("{\"message\":{}}") << 200
        << u"first:1b"_s << u"AI provider returned an unexpected response: {\"message\":{}}"_s;
}

void TestOnDevice::answers()
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
    const auto outcome =
        QCoro::waitFor(capture(client.respond(u"Reply with the word OK."_s, system)));
    QCOMPARE(outcome.value ? *outcome.value : outcome.errorText(), expected);

    QList<FakeHttpServer::Request> chats;
    for (const auto &request : server.requests()) {
        if (request.path() == u"/api/chat"_s)
            chats.append(request);
    }
    if (expectedModel.isEmpty()) {
        QVERIFY(chats.isEmpty());
        QCOMPARE(outcome.error->kind(), AIClientError::Kind::appleModelUnavailable);
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

void TestOnDevice::notice_data()
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

void TestOnDevice::notice()
{
    QFETCH(std::optional<QString>, provider);
    QFETCH(int, tagsStatus);
    QFETCH(QByteArray, tagsBody);
    QFETCH(QString, expectedBody);

    TempDataDir dir;
    Preferences preferences(dir.configDir() + u"/preferences.json"_s);
    if (provider)
        preferences.setText(Prefs::aiProvider.name, *provider);
    ModelContainer store(StoreSchema::current(), ModelContainer::Configuration::memoryOnly());
    FakeHttpServer server;
    serveOllama(server, tagsBody, tagsStatus);
    const QUrl url =
        tagsStatus == 0 ? QUrl(u"http://127.0.0.1:%1"_s.arg(closedPort())) : server.url();

    QCoro::waitFor(
        AIAvailabilityNotifier::runIfNeeded(store.mainContext(), preferences, m_network, url));
    const auto items = store.mainContext().fetch<InboxItem>();
    if (expectedBody.isEmpty()) {
        QVERIFY(items.isEmpty());
        return;
    }
    QCOMPARE(items.size(), 1);
    QCOMPARE(items.first()->kind(), InboxItemKind::system);
    QCOMPARE(items.first()->title, u"AI features are paused"_s);
    QCOMPARE(items.first()->body, expectedBody);
    QCOMPARE(items.first()->payload, std::optional(u"ai-unavailable"_s));
    QVERIFY(!store.mainContext().hasChanges());
}

void TestOnDevice::noticeOncePerWeek()
{
    TempDataDir dir;
    Preferences preferences(dir.configDir() + u"/preferences.json"_s);
    ModelContainer store(StoreSchema::current(), ModelContainer::Configuration::memoryOnly());
    const QUrl nowhere(u"http://127.0.0.1:%1"_s.arg(closedPort()));
    FixedClock clock(QDateTime(QDate(2026, 3, 2), QTime(9, 0), Qt::UTC));
    auto run = [&] {
        QCoro::waitFor(AIAvailabilityNotifier::runIfNeeded(store.mainContext(), preferences,
                                                           m_network, nowhere));
        return store.mainContext().fetchCount<InboxItem>();
    };
    QCOMPARE(run(), 1);
    clock.advance(6LL * 24 * 3600 * 1000);
    QCOMPARE(run(), 1);
    clock.advance(2LL * 24 * 3600 * 1000);
    QCOMPARE(run(), 2);
}

QTEST_GUILESS_MAIN(TestOnDevice)
#include "tst_ondevice.moc"
