#include "AITestBed.h"
#include "FakeHttpServer.h"

#include "ai/AIEndpointProbe.h"
#include "ai/AIModelCatalog.h"
#include "core/PreferenceKeys.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestProbe : public QObject {
    Q_OBJECT

private:
    QNetworkAccessManager m_network;

private slots:
    void detect_data()
    {
        QTest::addColumn<int>("modelsStatus");
        QTest::addColumn<QByteArray>("modelsBody");
        QTest::addColumn<int>("messagesStatus");
        QTest::addColumn<int>("completionsStatus");
        QTest::addColumn<QString>("expected"); // "" undecided
        QTest::addColumn<QStringList>("expectedPosts");
        QTest::addColumn<QString>("expectedProbeModel");

        const QStringList none;
        const QStringList both{u"/v1/messages"_s, u"/v1/chat/completions"_s};
        QTest::newRow("object model")
            << 200 << QByteArray(R"({"data":[{"id":"llama","object":"model"}]})") << 404 << 404
            << u"openai"_s << none << QString();
        QTest::newRow("type model") << 200 << QByteArray(R"({"data":[{"id":"x","type":"model"}]})")
                                    << 404 << 404 << u"anthropic"_s << none << QString();
        QTest::newRow("claude id without any chat request")
            << 200 << QByteArray(R"({"data":[{"id":"claude-x"}]})") << 404 << 404 << u"anthropic"_s
            << none << QString();
        QTest::newRow("gpt id") << 200 << QByteArray(R"({"data":[{"id":"gpt-4.1"}]})") << 404 << 404
                                << u"openai"_s << none << QString();
        QTest::newRow("unknown id, 401 on messages means the path exists")
            << 200 << QByteArray(R"({"data":[{"id":"mistral"}]})") << 401 << 200 << u"anthropic"_s
            << QStringList{u"/v1/messages"_s} << u"mistral"_s;
        QTest::newRow("no list, messages 404, completions 400")
            << 404 << QByteArray() << 404 << 400 << u"openai"_s << both << u"probe"_s;
        QTest::newRow("messages 405, completions 200") << 200 << QByteArray(R"({"data":[]})") << 405
                                                       << 200 << u"openai"_s << both << u"probe"_s;
        QTest::newRow("both 404") << 500 << QByteArray() << 404 << 404 << QString() << both
                                  << u"probe"_s;
        QTest::newRow("hostile list: data an object")
            << 200 << QByteArray(R"({"data":{"id":"gpt-4"}})") << 404 << 404 << QString() << both
            << u"probe"_s;
        QTest::newRow("hostile list: id a number")
            << 200 << QByteArray(R"({"data":[{"id":42}]})") << 404 << 200 << u"openai"_s << both
            << u"probe"_s;
        QTest::newRow("hostile list: entries not objects")
            << 200 << QByteArray(R"({"data":[null,"gpt-4"]})") << 500 << 404 << u"anthropic"_s
            << QStringList{u"/v1/messages"_s} << u"probe"_s;
    }

    void detect()
    {
        QFETCH(int, modelsStatus);
        QFETCH(QByteArray, modelsBody);
        QFETCH(int, messagesStatus);
        QFETCH(int, completionsStatus);
        QFETCH(QString, expected);
        QFETCH(QStringList, expectedPosts);
        QFETCH(QString, expectedProbeModel);

        FakeHttpServer server;
        server.setHandler([&](const FakeHttpServer::Request &request) {
            if (request.path() == u"/v1/models"_s)
                return FakeHttpServer::Response{modelsStatus, modelsBody, {}, false};
            if (request.path() == u"/v1/messages"_s)
                return FakeHttpServer::Response{messagesStatus, "{}", {}, false};
            return FakeHttpServer::Response{completionsStatus, "{}", {}, false};
        });
        const auto format =
            QCoro::waitFor(AIEndpointProbe::detect(m_network, server.url(u"/v1"_s), u"sk-probe"_s));
        QCOMPARE(format ? AIProviders::wireFormatRaw(*format) : QString(), expected);

        QStringList posts;
        for (const auto &request : server.requests()) {
            if (request.method == "POST") {
                posts.append(request.path());
                QCOMPARE(request.json().value(u"max_tokens"_s).toInt(), 1);
                QCOMPARE(request.json().value(u"model"_s).toString(), expectedProbeModel);
            }
        }
        QCOMPARE(posts, expectedPosts);
        const auto &list = server.requests().first();
        QCOMPARE(list.path(), u"/v1/models"_s);
        QCOMPARE(list.headers.value("authorization"), "Bearer sk-probe");
        QCOMPARE(list.headers.value("x-api-key"), "sk-probe");
    }

    void detectNetworkFailure()
    {
        const QUrl nowhere(u"http://127.0.0.1:%1/v1"_s.arg(closedPort()));
        QCOMPARE(QCoro::waitFor(AIEndpointProbe::detect(m_network, nowhere, QString())),
                 std::nullopt);

        FakeHttpServer silent;
        silent.setHandler([](const FakeHttpServer::Request &) {
            return FakeHttpServer::Response{200, {}, {}, true};
        });
        QCOMPARE(QCoro::waitFor(AIEndpointProbe::detect(m_network, silent.url(), u"k"_s,
                                                        std::chrono::milliseconds(200))),
                 std::nullopt);
    }

    void catalog_data()
    {
        QTest::addColumn<QString>("provider");
        QTest::addColumn<QString>("format"); // custom only
        QTest::addColumn<QString>("key");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("expectedTarget");
        QTest::addColumn<QVariantMap>("expectedHeaders"); // empty value: absent
        QTest::addColumn<QStringList>("expected");

        const QByteArray data =
            "{\"data\":[{\"id\":\"b-model\"},{\"id\":\"a-model\"},{\"id\":7},{\"nope\":1}]}";
        const QStringList sorted{u"a-model"_s, u"b-model"_s};
        QTest::newRow("claude") << u"claude"_s << QString() << u"k1"_s << data
                                << u"/v1/models?limit=100"_s
                                << QVariantMap{{u"x-api-key"_s, u"k1"_s},
                                               {u"anthropic-version"_s, u"2023-06-01"_s},
                                               {u"authorization"_s, QString()}}
                                << sorted;
        QTest::newRow("openai") << u"openai"_s << QString() << u"k2"_s << data << u"/v1/models"_s
                                << QVariantMap{{u"authorization"_s, u"Bearer k2"_s},
                                               {u"x-api-key"_s, QString()}}
                                << sorted;
        QTest::newRow("gemini")
            << u"gemini"_s << QString() << u"k3"_s
            << QByteArray("{\"models\":[{\"name\":\"models/gemini-z\"},{\"name\":\"models/"
                          "gemini-a\"},{\"name\":\"tuned\"}]}")
            << u"/v1beta/models?key=k3&pageSize=200"_s
            << QVariantMap{{u"authorization"_s, QString()}, {u"x-api-key"_s, QString()}}
            << QStringList{u"gemini-a"_s, u"gemini-z"_s, u"tuned"_s};
        QTest::newRow("custom openai")
            << u"custom"_s << u"openai"_s << u"k4"_s << data << u"/v1/models"_s
            << QVariantMap{{u"authorization"_s, u"Bearer k4"_s}} << sorted;
        QTest::newRow("custom anthropic")
            << u"custom"_s << u"anthropic"_s << u"k5"_s << data << u"/v1/models"_s
            << QVariantMap{{u"x-api-key"_s, u"k5"_s}, {u"authorization"_s, QString()}} << sorted;
        QTest::newRow("custom without key")
            << u"custom"_s << u"anthropic"_s << QString() << data << u"/v1/models"_s
            << QVariantMap{{u"x-api-key"_s, QString()}, {u"authorization"_s, QString()}} << sorted;
    }

    void catalog()
    {
        QFETCH(QString, provider);
        QFETCH(QString, format);
        QFETCH(QString, key);
        QFETCH(QByteArray, body);
        QFETCH(QString, expectedTarget);
        QFETCH(QVariantMap, expectedHeaders);
        QFETCH(QStringList, expected);

        FakeHttpServer server;
        server.answer(200, body);
        AITestBed bed;
        Preferences &preferences = bed.preferences;
        preferences.setText(Prefs::aiBaseUrlCustom.name, server.url(u"/v1/"_s).toString());
        if (!format.isEmpty())
            preferences.setText(Prefs::aiWireFormatCustom.name, format);
        const AIContext context = bed.context(server.url());

        const QDateTime now(QDate(2026, 5, 1), QTime(12, 0), Qt::UTC);
        FixedClock clock(now);
        const AIProvider which = *AIProviders::fromRaw(provider);
        QVERIFY(QCoro::waitFor(AIModelCatalog::refresh(context, which, key)));
        QCOMPARE(AIModelCatalog::cached(preferences, which), expected);
        QCOMPARE(preferences.value(Prefs::aiModelsFetchedAt(provider)),
                 std::optional(double(now.toSecsSinceEpoch())));

        QCOMPARE(server.requests().size(), 1);
        const auto &request = server.requests().first();
        QCOMPARE(request.method, "GET");
        QCOMPARE(QString::fromLatin1(request.target), expectedTarget);
        QCOMPARE(request.headerMismatch(expectedHeaders), QString());
    }

    void catalogFailureKeepsCache()
    {
        FakeHttpServer server;
        server.answer(200, "{\"data\":\"not a list\"}");
        AITestBed bed;
        Preferences &preferences = bed.preferences;
        preferences.set(Prefs::aiModelsCache(u"openai"_s), QStringList{u"gpt-old"_s});
        preferences.set(Prefs::aiModelsFetchedAt(u"openai"_s), 100.0);
        const AIContext context = bed.context(server.url());

        QVERIFY(!QCoro::waitFor(AIModelCatalog::refresh(context, AIProvider::openai, u"k"_s)));
        server.answer(401, "{\"error\":{\"message\":\"bad key\"}}");
        const auto rejected =
            QCoro::waitFor(capture(AIModelCatalog::fetch(context, AIProvider::openai, u"k"_s)));
        QCOMPARE(rejected.error->kind(), AIClientError::Kind::invalidAPIKey);
        QVERIFY(!QCoro::waitFor(AIModelCatalog::refresh(context, AIProvider::openai, u"k"_s)));
        QCOMPARE(AIModelCatalog::cached(preferences, AIProvider::openai),
                 QStringList{u"gpt-old"_s});
        QCOMPARE(preferences.value(Prefs::aiModelsFetchedAt(u"openai"_s)), std::optional(100.0));

        // A custom provider with no address has nothing to ask, and no empty list is kept for it.
        const auto nowhere =
            QCoro::waitFor(capture(AIModelCatalog::fetch(context, AIProvider::custom, QString())));
        QCOMPARE(nowhere.errorText(), AIClientError::missingEndpoint().errorDescription());
        QVERIFY(!QCoro::waitFor(AIModelCatalog::refresh(context, AIProvider::custom, QString())));
        QVERIFY(!preferences.value(Prefs::aiModelsFetchedAt(u"custom"_s)));
    }

    void staleness_data()
    {
        QTest::addColumn<QStringList>("cache");
        QTest::addColumn<double>("ageDays"); // negative: no time stored
        QTest::addColumn<bool>("stale");
        QTest::newRow("14 days") << QStringList{u"m"_s} << 14.0 << false;
        QTest::newRow("exactly 15 days") << QStringList{u"m"_s} << 15.0 << false;
        QTest::newRow("16 days") << QStringList{u"m"_s} << 16.0 << true;
        QTest::newRow("empty cache, fresh") << QStringList() << 1.0 << true;
        QTest::newRow("no time") << QStringList{u"m"_s} << -1.0 << true;
    }

    void staleness()
    {
        QFETCH(QStringList, cache);
        QFETCH(double, ageDays);
        QFETCH(bool, stale);
        AITestBed bed;
        Preferences &preferences = bed.preferences;
        const QDateTime now(QDate(2026, 5, 1), QTime(12, 0), Qt::UTC);
        preferences.set(Prefs::aiModelsCache(u"claude"_s), cache);
        if (ageDays >= 0)
            preferences.set(Prefs::aiModelsFetchedAt(u"claude"_s),
                            double(now.toSecsSinceEpoch()) - ageDays * 86400.0);
        QCOMPARE(AIModelCatalog::isStale(preferences, AIProvider::claude, now), stale);
    }

    void normalizedBase_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("expected"); // empty: no URL
        QTest::newRow("completions path")
            << u"example.host/v1/chat/completions/"_s << u"https://example.host/v1"_s;
        QTest::newRow("v1 messages keeps v1")
            << u"example.host/v1/messages"_s << u"https://example.host/v1"_s;
        QTest::newRow("blank") << u" \n "_s << QString();
        QTest::newRow("http kept")
            << u" http://127.0.0.1:11434/v1// "_s << u"http://127.0.0.1:11434/v1"_s;
        QTest::newRow("typed without scheme")
            << u"api.example.com/v1"_s << u"https://api.example.com/v1"_s;
        QTest::newRow("host starting with http")
            << u"httpbin.org/v1"_s << u"https://httpbin.org/v1"_s;
        QTest::newRow("host and port") << u"localhost:8080/v1/"_s << u"https://localhost:8080/v1"_s;
        QTest::newRow("scheme in capitals") << u"HTTP://gw.local/v1"_s << u"http://gw.local/v1"_s;
        QTest::newRow("not an address") << u"https://"_s << QString();
        QTest::newRow("not http") << u"ftp://files.example/v1"_s << QString();
    }

    void normalizedBase()
    {
        QFETCH(QString, typed);
        QFETCH(QString, expected);
        const auto url = AIProviders::normalizedBase(typed);
        QCOMPARE(url ? url->toString() : QString(), expected);
    }

    void environmentKey_data()
    {
        QTest::addColumn<QVariantMap>("environment");
        QTest::addColumn<QString>("provider");
        QTest::addColumn<QString>("expected");
        QTest::newRow("claude second when first blank")
            << QVariantMap{{u"ANTHROPIC_API_KEY"_s, u"  "_s}, {u"CLAUDE_API_KEY"_s, u" c1 "_s}}
            << u"claude"_s << u"c1"_s;
        QTest::newRow("openai blanks skipped")
            << QVariantMap{{u"OPENAI_API_KEY"_s, u"   "_s}} << u"openai"_s << QString();
        QTest::newRow("custom order")
            << QVariantMap{{u"OPENAI_API_KEY"_s, u"o"_s}, {u"ANTHROPIC_API_KEY"_s, u"a"_s}}
            << u"custom"_s << u"o"_s;
        QTest::newRow("on-device none")
            << QVariantMap{{u"OPENAI_API_KEY"_s, u"o"_s}} << u"appleFoundation"_s << QString();
    }

    void environmentKey()
    {
        QFETCH(QVariantMap, environment);
        QFETCH(QString, provider);
        QFETCH(QString, expected);
        const char *all[] = {"ANTHROPIC_API_KEY", "CLAUDE_API_KEY", "OPENAI_API_KEY",
                             "GEMINI_API_KEY",    "GOOGLE_API_KEY", "ANTHROPIC_AUTH_TOKEN"};
        for (const char *name : all)
            qunsetenv(name);
        for (auto it = environment.cbegin(); it != environment.cend(); ++it)
            qputenv(it.key().toLatin1().constData(), it.value().toString().toUtf8());
        QCOMPARE(AIProviders::environmentKey(*AIProviders::fromRaw(provider)).value_or(QString()),
                 expected);
        for (const char *name : all)
            qunsetenv(name);
    }

    void endpointDescription_data()
    {
        QTest::addColumn<QString>("provider");
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("expected");
        QTest::newRow("claude") << u"claude"_s << QString()
                                << u"Your prompts go to Anthropic, at api.anthropic.com."_s;
        QTest::newRow("custom with address")
            << u"custom"_s << u"gw.example.com/v1/messages"_s
            << u"Your prompts go to gw.example.com, and nowhere else."_s;
        QTest::newRow("custom without address") << u"custom"_s << QString()
                                                << u"Your prompts go straight from this computer "
                                                   u"to the endpoint you enter above. Nothing "
                                                   u"routes through Tovren."_s;
    }

    void endpointDescription()
    {
        QFETCH(QString, provider);
        QFETCH(QString, address);
        QFETCH(QString, expected);
        AITestBed bed;
        if (!address.isEmpty())
            bed.preferences.setText(Prefs::aiBaseUrlCustom.name, address);
        QCOMPARE(AIProviders::endpointDescription(*AIProviders::fromRaw(provider), bed.preferences),
                 expected);
    }
};

QTEST_GUILESS_MAIN(TestProbe)
#include "tst_probe.moc"
