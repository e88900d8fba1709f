#include "AITestBed.h"
#include "FakeHttpServer.h"

#include "ai/HTTPAIClient.h"
#include "ai/TovrenAI.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

enum class Shape { anthropic, openai, gemini };

HTTPAIClient makeClient(QNetworkAccessManager &network, Shape shape, const QUrl &server,
                        const QString &model, const QString &key, bool allowsEmptyKey = false)
{
    if (shape == Shape::anthropic)
        return HTTPAIClient::anthropic(network, QUrl(server.toString() + u"/v1/messages"_s), model,
                                       key, allowsEmptyKey);
    if (shape == Shape::openai)
        return HTTPAIClient::openAI(network, QUrl(server.toString() + u"/v1/chat/completions"_s),
                                    model, key, allowsEmptyKey);
    return HTTPAIClient::gemini(network, server, model, key);
}

// A reply of the shape holding the text; Anthropic's with a second block that must go unread.
QByteArray replyFor(Shape shape, const QString &text)
{
    static const char *const replies[] = {
        R"({"content":[{"type":"text","text":%1},{"text":"second block"}]})",
        R"({"choices":[{"message":{"content":%1}}]})",
        R"({"candidates":[{"content":{"parts":[{"text":%1}]}}]})"};
    const QByteArray quoted = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return QByteArray(replies[int(shape)]).replace("%1", quoted.mid(1, quoted.size() - 2));
}

} // namespace

class TestHttpClients : public QObject {
    Q_OBJECT

private:
    QNetworkAccessManager m_network;

private slots:
    void requestShapes_data()
    {
        QTest::addColumn<int>("shape");
        QTest::addColumn<QString>("key");
        QTest::addColumn<bool>("allowsEmptyKey");
        QTest::addColumn<std::optional<QString>>("system");
        QTest::addColumn<QString>("expectedTarget");
        QTest::addColumn<QVariantMap>("expectedHeaders"); // an empty value: absent
        QTest::addColumn<QByteArray>("expectedBody");

        const std::optional<QString> system(u"You write short recaps."_s);
        const QByteArray anthropic =
            R"({"model":"claude-x","max_tokens":4096,"messages":[{"role":"user","content":"Summarise my week"}]})";
        const QByteArray anthropicSystem =
            R"({"model":"claude-x","max_tokens":4096,"messages":[{"role":"user","content":"Summarise my week"}],"system":"You write short recaps."})";
        const QVariantMap anthropicHeaders{{u"x-api-key"_s, u"sk-ant-1"_s},
                                           {u"anthropic-version"_s, u"2023-06-01"_s},
                                           {u"content-type"_s, u"application/json"_s},
                                           {u"authorization"_s, QString()}};
        QTest::newRow("anthropic with system")
            << int(Shape::anthropic) << u"sk-ant-1"_s << false << system << u"/v1/messages"_s
            << anthropicHeaders << anthropicSystem;
        QTest::newRow("anthropic empty system adds nothing")
            << int(Shape::anthropic) << u"sk-ant-1"_s << false << std::optional(QString())
            << u"/v1/messages"_s << anthropicHeaders << anthropic;
        QTest::newRow("anthropic custom without key")
            << int(Shape::anthropic) << QString() << true << std::optional<QString>()
            << u"/v1/messages"_s
            << QVariantMap{{u"x-api-key"_s, QString()}, {u"anthropic-version"_s, u"2023-06-01"_s}}
            << anthropic;

        const QByteArray openaiSystem =
            R"({"model":"gpt-x","max_tokens":4096,"messages":[{"role":"system","content":"You write short recaps."},{"role":"user","content":"Summarise my week"}]})";
        QTest::newRow("openai with system")
            << int(Shape::openai) << u"sk-oa-2"_s << false << system << u"/v1/chat/completions"_s
            << QVariantMap{{u"authorization"_s, u"Bearer sk-oa-2"_s},
                           {u"content-type"_s, u"application/json"_s},
                           {u"x-api-key"_s, QString()}}
            << openaiSystem;
        QTest::newRow("openai custom without key")
            << int(Shape::openai) << QString() << true << system << u"/v1/chat/completions"_s
            << QVariantMap{{u"authorization"_s, QString()}} << openaiSystem;

        const QVariantMap geminiHeaders{{u"authorization"_s, QString()},
                                        {u"x-api-key"_s, QString()},
                                        {u"x-goog-api-key"_s, QString()}};
        QTest::newRow("gemini with system")
            << int(Shape::gemini) << u"AIza-3"_s << false << system
            << u"/v1beta/models/gemini-x:generateContent?key=AIza-3"_s << geminiHeaders
            << QByteArray(
                   R"({"contents":[{"parts":[{"text":"Summarise my week"}]}],"generationConfig":{"maxOutputTokens":4096},"systemInstruction":{"parts":[{"text":"You write short recaps."}]}})");
        QTest::newRow("gemini without system, key needing escapes")
            << int(Shape::gemini) << u"a+b&c"_s << false << std::optional<QString>()
            << u"/v1beta/models/gemini-x:generateContent?key=a%2Bb%26c"_s << geminiHeaders
            << QByteArray(
                   R"({"contents":[{"parts":[{"text":"Summarise my week"}]}],"generationConfig":{"maxOutputTokens":4096}})");
    }

    void requestShapes()
    {
        QFETCH(int, shape);
        QFETCH(QString, key);
        QFETCH(bool, allowsEmptyKey);
        QFETCH(std::optional<QString>, system);
        QFETCH(QString, expectedTarget);
        QFETCH(QVariantMap, expectedHeaders);
        QFETCH(QByteArray, expectedBody);

        FakeHttpServer server;
        server.answer(200, replyFor(Shape(shape), u"  A fine week.\n"_s));
        const QString model = QStringList{u"claude-x"_s, u"gpt-x"_s, u"gemini-x"_s}.at(shape);
        HTTPAIClient client =
            makeClient(m_network, Shape(shape), server.url(), model, key, allowsEmptyKey);
        const auto outcome =
            QCoro::waitFor(capture(client.respond(u"Summarise my week"_s, system)));
        // Untrimmed, and only the first block.
        QCOMPARE(outcome.value.value_or(outcome.errorText()), u"  A fine week.\n"_s);

        QCOMPARE(server.requests().size(), 1);
        const FakeHttpServer::Request &request = server.requests().first();
        QCOMPARE(request.method, "POST");
        QCOMPARE(QString::fromLatin1(request.target), expectedTarget);
        QCOMPARE(request.headerMismatch(expectedHeaders), QString());
        // No temperature or other sampling setting: the provider's defaults stand.
        QCOMPARE(request.json(), QJsonDocument::fromJson(expectedBody).object());
    }

    void failures_data()
    {
        QTest::addColumn<int>("shape");
        QTest::addColumn<int>("status"); // 0: the client has no key
        QTest::addColumn<QByteArray>("retryAfter");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("expected");

        const auto openai = int(Shape::openai);
        const auto anthropic = int(Shape::anthropic);
        const auto gemini = int(Shape::gemini);
        const QString rejected =
            u"The API key was rejected. Re-enter it in Settings → AI Provider."_s;
        const QString noKey = u"No API key configured. Add one in Settings → AI Provider."_s;
        const QString unexpected = u"AI provider returned an unexpected response: "_s;

        QTest::newRow("claude without key")
            << anthropic << 0 << QByteArray() << QByteArray() << noKey;
        QTest::newRow("openai without key") << openai << 0 << QByteArray() << QByteArray() << noKey;
        QTest::newRow("gemini without key") << gemini << 0 << QByteArray() << QByteArray() << noKey;
        QTest::newRow("401") << openai << 401 << QByteArray() << QByteArray("{}") << rejected;
        QTest::newRow("403 same as 401")
            << anthropic << 403 << QByteArray() << QByteArray("forbidden") << rejected;
        QTest::newRow("429 seconds") << openai << 429 << QByteArray("30") << QByteArray()
                                     << u"Rate limited by the AI provider. Try again in 30s."_s;
        QTest::newRow("429 plus sign") << gemini << 429 << QByteArray("+12") << QByteArray()
                                       << u"Rate limited by the AI provider. Try again in 12s."_s;
        QTest::newRow("429 http date, body ignored")
            << anthropic << 429 << QByteArray("Wed, 21 Oct 2015 07:28:00 GMT")
            << QByteArray(R"({"error":{"message":"slow down"}})")
            << u"Rate limited by the AI provider. Try again in a moment."_s;
        QTest::newRow("500 error.message")
            << openai << 500 << QByteArray() << QByteArray(R"({"error":{"message":"overloaded"}})")
            << u"AI provider error (500): overloaded"_s;
        QTest::newRow("500 empty body")
            << anthropic << 500 << QByteArray() << QByteArray() << u"AI provider error (500): "_s;
        QTest::newRow("400 error as text")
            << gemini << 400 << QByteArray() << QByteArray(R"({"error":"bad model"})")
            << u"AI provider error (400): bad model"_s;
        QTest::newRow("404 top-level message")
            << openai << 404 << QByteArray() << QByteArray(R"({"message":"no such model"})")
            << u"AI provider error (404): no such model"_s;
        QTest::newRow("502 error.message of the wrong type falls to the body")
            << openai << 502 << QByteArray() << QByteArray(R"({"error":{"message":7}})")
            << u"AI provider error (502): {\"error\":{\"message\":7}}"_s;
        QTest::newRow("503 html cut at 200 bytes")
            << anthropic << 503 << QByteArray() << QByteArray("<html>" + QByteArray(300, 'x'))
            << u"AI provider error (503): <html>"_s + QString(194, u'x');
        QTest::newRow("500 cut inside a character")
            << openai << 500 << QByteArray() << QByteArray(199, 'a') + QByteArray("\xc3\xa9")
            << u"AI provider error (500): (no body)"_s;
        QTest::newRow("400 echoing the key")
            << gemini << 400 << QByteArray()
            << QByteArray(R"({"error":{"message":"API key AIza-secret not valid"}})")
            << u"AI provider error (400): API key … not valid"_s;
        QTest::newRow("200 not json")
            << openai << 200 << QByteArray() << QByteArray("OK then") << unexpected + u"OK then"_s;
        QTest::newRow("200 choices empty")
            << openai << 200 << QByteArray() << QByteArray(R"({"choices":[]})")
            << unexpected + u"{\"choices\":[]}"_s;
        QTest::newRow("200 truncated json")
            << gemini << 200 << QByteArray() << QByteArray(R"({"candidates":[{"content":)")
            << unexpected + u"{\"candidates\":[{\"content\":"_s;
        QTest::newRow("200 parts an object")
            << gemini << 200 << QByteArray()
            << QByteArray(R"({"candidates":[{"content":{"parts":{"text":"x"}}}]})")
            << unexpected + u"{\"candidates\":[{\"content\":{\"parts\":{\"text\":\"x\"}}}]}"_s;
        const QByteArray huge = "{\"choices\":[{\"message\":{\"content\":[\"" +
                                QByteArray(4 * 1024 * 1024, 'z') + "\"]}}]}";
        QTest::newRow("200 huge, text of the wrong type")
            << openai << 200 << QByteArray() << huge
            << unexpected + QString::fromLatin1(huge.left(200));
        QTest::newRow("200 invalid utf-8 without the path")
            << anthropic << 200 << QByteArray() << QByteArray("{\"x\":\"\xff\xfe\"}") << unexpected;
    }

    void failures()
    {
        QFETCH(int, shape);
        QFETCH(int, status);
        QFETCH(QByteArray, retryAfter);
        QFETCH(QByteArray, body);
        QFETCH(QString, expected);

        FakeHttpServer server;
        QList<std::pair<QByteArray, QByteArray>> headers;
        if (!retryAfter.isEmpty())
            headers.append({"Retry-After", retryAfter});
        server.answer(status, body, headers);
        const QString key = status == 0 ? QString() : u"AIza-secret"_s;
        HTTPAIClient client = makeClient(m_network, Shape(shape), server.url(), u"m"_s, key);
        const auto outcome = QCoro::waitFor(capture(client.respond(u"hi"_s, std::nullopt)));
        QVERIFY(!outcome.value);
        QCOMPARE(outcome.errorText(), expected);
        QVERIFY(!outcome.errorText().contains(u"AIza-secret"_s));
        // Without a key nothing is sent at all.
        QCOMPARE(server.requests().size(), status == 0 ? 0 : 1);
    }

    void transportFailures_data()
    {
        QTest::addColumn<int>("how"); // 0: nothing listens, 1: never answers, 2: cut after headers
        QTest::addColumn<QString>("expected");
        QTest::newRow("nothing listening") << 0 << u"Network error: Connection refused"_s;
        QTest::newRow("never answers")
            << 1
            << u"The AI provider didn't respond in time. Check your connection and try again."_s;
        QTest::newRow("closed mid-body")
            << 2 << u"Network error: The connection closed before the whole reply arrived."_s;
    }

    void transportFailures()
    {
        QFETCH(int, how);
        QFETCH(QString, expected);
        FakeHttpServer server;
        server.setHandler([how](const FakeHttpServer::Request &) {
            FakeHttpServer::Response response{200, replyFor(Shape::openai, u"a whole answer"_s)};
            response.neverAnswer = how == 1;
            response.cutMidBody = how == 2;
            return response;
        });
        const QUrl url = how == 0 ? QUrl(u"http://127.0.0.1:%1"_s.arg(closedPort())) : server.url();
        HTTPAIClient client = makeClient(m_network, Shape::openai, url, u"m"_s, u"sk-hidden"_s);
        client.setTimeout(std::chrono::milliseconds(300));
        const auto outcome = QCoro::waitFor(capture(client.respond(u"hi"_s)));
        QVERIFY2(!outcome.value, qPrintable(outcome.value.value_or(QString())));
        QCOMPARE(outcome.errorText(), expected);
        QCOMPARE(server.requests().size(), how == 0 ? 0 : 1);
    }

    void currentClient_data()
    {
        QTest::addColumn<QVariantMap>("prefs");
        QTest::addColumn<QString>("storedKey");
        QTest::addColumn<QString>("expected"); // the endpoint, "on-device" or the error's words
        QTest::addColumn<QString>("expectedModel");

        const QString onDevice = u"on-device"_s;
        QTest::newRow("nothing stored") << QVariantMap{} << QString() << onDevice << QString();
        QTest::newRow("unknown provider")
            << QVariantMap{{u"aiProvider"_s, u"someday"_s}} << QString() << onDevice << QString();
        QTest::newRow("claude default model")
            << QVariantMap{{u"aiProvider"_s, u"claude"_s}} << u"k1"_s
            << u"https://api.anthropic.com/v1/messages"_s << u"claude-opus-5"_s;
        QTest::newRow("claude stored empty model")
            << QVariantMap{{u"aiProvider"_s, u"claude"_s}, {u"ai-model-claude"_s, QString()}}
            << u"k1"_s << u"https://api.anthropic.com/v1/messages"_s << QString();
        QTest::newRow("openai") << QVariantMap{{u"aiProvider"_s, u"openai"_s}} << u"k2"_s
                                << u"https://api.openai.com/v1/chat/completions"_s << u"gpt-4o"_s;
        QTest::newRow("gemini model in path")
            << QVariantMap{{u"aiProvider"_s, u"gemini"_s}, {u"ai-model-gemini"_s, u"gemini-pro"_s}}
            << u"k3"_s
            << u"https://generativelanguage.googleapis.com/v1beta/models/gemini-pro:generateContent"_s
            << u"gemini-pro"_s;
        // The user chose an endpoint of their own: never another model in its place, unannounced.
        QTest::newRow("custom without address is an error")
            << QVariantMap{{u"aiProvider"_s, u"custom"_s}, {u"ai-baseurl-custom"_s, u"  "_s}}
            << u"k4"_s
            << u"No address configured for your AI endpoint. Add one in Settings → AI Provider."_s
            << QString();
        QTest::newRow("custom openai by default")
            << QVariantMap{{u"aiProvider"_s, u"custom"_s},
                           {u"ai-baseurl-custom"_s, u"example.host/v1/chat/completions/"_s}}
            << QString() << u"https://example.host/v1/chat/completions"_s << QString();
        QTest::newRow("custom anthropic")
            << QVariantMap{{u"aiProvider"_s, u"custom"_s},
                           {u"ai-baseurl-custom"_s, u"http://gw.local:8080/v1/messages"_s},
                           {u"ai-wireformat-custom"_s, u"anthropic"_s}}
            << u"k5"_s << u"http://gw.local:8080/v1/messages"_s << QString();
    }

    void currentClient()
    {
        QFETCH(QVariantMap, prefs);
        QFETCH(QString, storedKey);
        QFETCH(QString, expected);
        QFETCH(QString, expectedModel);

        AITestBed bed;
        for (auto it = prefs.cbegin(); it != prefs.cend(); ++it)
            bed.preferences.setText(it.key(), it.value().toString());
        const QString provider = prefs.value(u"aiProvider"_s).toString();
        if (!storedKey.isEmpty())
            bed.secrets.items.insert(u"ai-key-"_s + provider, storedKey);

        FakeHttpServer server;
        const auto made = QCoro::waitFor(
            capture(TovrenAI::current(bed.context(ProviderHosts::standard(), server.url()))));
        QVERIFY(server.requests().isEmpty());
        if (made.error) {
            QCOMPARE(made.errorText(), expected);
            return;
        }
        if (auto *onDevice = dynamic_cast<AppleFoundationClient *>(made.value->get())) {
            QCOMPARE(u"on-device"_s, expected);
            QCOMPARE(onDevice->model(), expectedModel);
            return;
        }
        auto *http = dynamic_cast<HTTPAIClient *>(made.value->get());
        QVERIFY(http);
        QCOMPARE(http->endpoint().toString(), expected);
        QCOMPARE(http->allowsEmptyKey(), provider == u"custom"_s);
        QCOMPARE(http->apiKey(), storedKey);
        QCOMPARE(AIProviders::model(bed.preferences, *AIProviders::fromRaw(provider)),
                 expectedModel);
    }
};

QTEST_GUILESS_MAIN(TestHttpClients)
#include "tst_httpclients.moc"
