#include "AITestBed.h"
#include "FakeHttpServer.h"

#include "ai/OnDeviceModel.h"
#include "core/PreferenceKeys.h"
#include "ui/Dialogs.h"
#include "ui/settings/AIProviderPane.h"

#include <QApplication>
#include <QComboBox>
#include <QGroupBox>
#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

template<class T>
T *child(QWidget *parent, const QString &name)
{
    T *found = parent->findChild<T *>(name);
    if (!found)
        qFatal("no child %s", qPrintable(name));
    return found;
}

const QByteArray openAIReply = R"({"choices":[{"message":{"content":"OK"}}]})";

// One pane over its own preferences, key store and local servers.
struct Fixture : AITestBed {
    FakeHttpServer provider;
    FakeHttpServer ollama;
    std::unique_ptr<AIProviderPane> pane;

    explicit Fixture(const QString &storedProvider)
    {
        preferences.setText(Prefs::aiProvider.name, storedProvider);
        ollama.answer(200, R"({"models":[]})");
    }
    // Held reads end while the pane and key store still live; a probe may still be asking, and
    // its requests end before the network manager does, as they do when Tovren closes.
    ~Fixture()
    {
        secrets.releaseAll();
        pane.reset();
    }
    void open()
    {
        pane = std::make_unique<AIProviderPane>(
            context(ProviderHosts{provider.url(), provider.url(), provider.url()}, ollama.url()));
        pane->show();
    }
    template<class T>
    T *find(const QString &name)
    {
        return child<T>(pane.get(), name);
    }
    void click(const QString &name) { QTest::mouseClick(find<QPushButton>(name), Qt::LeftButton); }
    void pick(const QString &raw)
    {
        auto *picker = find<QComboBox>(u"provider"_s);
        picker->setCurrentIndex(picker->findData(raw));
    }
    // A model list fetched just now, so that opening the pane asks nothing of the provider.
    void freshModels(const QString &raw)
    {
        preferences.set(Prefs::aiModelsCache(raw),
                        QStringList{AIProviders::defaultModel(*AIProviders::fromRaw(raw))});
        preferences.set(Prefs::aiModelsFetchedAt(raw), double(Clock::now().toSecsSinceEpoch()));
    }
};

} // namespace

class TestAIProviderPane : public QObject {
    Q_OBJECT

private slots:
    void init() { Dialogs::takeAskedQuestions(); }

    void testButton()
    {
        Fixture f(u"openai"_s);
        f.secrets.items.insert(u"ai-key-openai"_s, u"sk-stored"_s);
        f.freshModels(u"openai"_s);
        f.provider.setHandler([](const FakeHttpServer::Request &request) {
            if (request.path() == u"/v1/chat/completions"_s)
                return FakeHttpServer::Response{200, openAIReply};
            return FakeHttpServer::Response{404};
        });
        f.open();
        QTRY_COMPARE(f.find<QLineEdit>(u"apiKey"_s)->text(), u"sk-stored"_s);
        f.click(u"test"_s);
        QTRY_COMPARE(f.find<QLabel>(u"testResult"_s)->text(), u"Connection OK"_s);
        QVERIFY(Dialogs::takeAskedQuestions().isEmpty());
        const auto &sent = f.provider.requests().last();
        QCOMPARE(sent.headers.value("authorization"), "Bearer sk-stored");
        QCOMPARE(sent.json().value(u"messages"_s).toArray().size(), 1);
        QCOMPARE(sent.json()[u"messages"_s][0][u"content"_s].toString(),
                 u"Reply with the word OK."_s);
    }

    void onDeviceStatus_data()
    {
        QTest::addColumn<int>("status"); // 0: nothing listening
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QStringList>("models");
        QTest::newRow("ready") << 200 << QByteArray(R"({"models":[{"name":"llama3.2:3b"}]})")
                               << u"The on-device model is ready."_s
                               << QStringList{u"llama3.2:3b"_s};
        QTest::newRow("nothing running")
            << 0 << QByteArray() << OnDeviceModel::statusText(AppleModelStatus::notEnabled)
            << QStringList();
    }

    void onDeviceStatus()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(QString, expected);
        QFETCH(QStringList, models);
        Fixture f(u"appleFoundation"_s);
        f.ollama.answer(status, body);
        if (status == 0)
            f.ollama.close();
        f.open();
        QTRY_COMPARE(f.find<QLabel>(u"onDeviceStatus"_s)->text(), expected);
        QCOMPARE(f.find<QLabel>(u"endpointDescription"_s)->text(),
                 u"The on-device model. Your writing is processed on this computer."_s);
        auto *model = f.find<QComboBox>(u"model"_s);
        QCOMPARE(model->count(), models.size());
        QCOMPARE(model->currentText(), models.value(0));
        QVERIFY(!f.find<QLineEdit>(u"apiKey"_s)->isVisible());
    }

    void customAddressIsDetected()
    {
        Fixture f(u"custom"_s);
        f.provider.setHandler([](const FakeHttpServer::Request &request) {
            if (request.path() == u"/v1/models"_s)
                return FakeHttpServer::Response{
                    200, R"({"data":[{"id":"claude-local"},{"id":"another"}]})"};
            return FakeHttpServer::Response{404};
        });
        f.open();
        auto *address = f.find<QLineEdit>(u"baseURL"_s);
        QVERIFY(address->isVisible());
        QCOMPARE(f.find<QLabel>(u"modelHint"_s)->text(), u"Enter an address to load models"_s);
        QTest::keyClicks(address, f.provider.url(u"/v1/messages"_s).toString());
        emit address->editingFinished();
        QTRY_COMPARE(f.find<QLabel>(u"detectedFormat"_s)->text(),
                     u"Connected. Using the Anthropic format."_s);
        QCOMPARE(f.preferences.value(Prefs::aiWireFormatCustom), std::optional(u"anthropic"_s));
        auto *model = f.find<QComboBox>(u"model"_s);
        QTRY_COMPARE(model->count(), 2);
        QCOMPARE(model->itemText(0), u"another"_s);
        // Nothing is sent anywhere to chat, and the address waits for Save.
        for (const auto &request : f.provider.requests())
            QCOMPARE(request.method, "GET");
        QVERIFY(!f.preferences.value(Prefs::aiBaseUrlCustom));

        // No key on a custom endpoint: consent still comes first, then the address is kept.
        Dialogs::queueAnswers({true});
        f.click(u"save"_s);
        QTRY_COMPARE(f.find<QLabel>(u"savedNote"_s)->text(), u"Saved"_s);
        QCOMPARE(f.preferences.value(Prefs::aiBaseUrlCustom),
                 std::optional(f.provider.url(u"/v1"_s).toString()));
        QCOMPARE(f.find<QLabel>(u"endpointDescription"_s)->text(),
                 u"Your prompts go to 127.0.0.1, and nowhere else."_s);
    }

    void pendingEndpoint()
    {
        Fixture f(u"appleFoundation"_s);
        f.provider.setHandler([](const FakeHttpServer::Request &request) {
            if (request.path() == u"/v1/models"_s)
                return FakeHttpServer::Response{200, R"({"data":[{"id":"x","type":"model"}]})"};
            return FakeHttpServer::Response{404};
        });
        f.open();
        auto *block = f.find<QGroupBox>(u"pendingEndpoint"_s);
        QVERIFY(!block->isVisible());

        f.pane->setPendingEndpoint(PendingEndpoint{QUrl(u"https://llm.corp.example/v1"_s), {}});
        QVERIFY(block->isVisible());
        QCOMPARE(f.find<QLabel>(u"pendingEndpointTitle"_s)->text(),
                 u"An app asked to connect Tovren to llm.corp.example"_s);
        QSignalSpy declined(f.pane.get(), &AIProviderPane::pendingEndpointDeclined);
        f.click(u"declineEndpoint"_s);
        QCOMPARE(declined.size(), 1);
        QVERIFY(!block->isVisible());
        QCOMPARE(f.preferences.value(Prefs::aiProvider), u"appleFoundation"_s);

        // Approving stores the address and the model, then reloads and detects the format.
        const QUrl local = f.provider.url(u"/v1"_s);
        f.pane->setPendingEndpoint(PendingEndpoint{local, u"local-model"_s});
        QSignalSpy approved(f.pane.get(), &AIProviderPane::pendingEndpointApproved);
        f.click(u"approveEndpoint"_s);
        QCOMPARE(approved.size(), 1);
        QCOMPARE(f.preferences.value(Prefs::aiProvider), u"custom"_s);
        QCOMPARE(f.preferences.value(Prefs::aiBaseUrlCustom), std::optional(local.toString()));
        QCOMPARE(f.preferences.value(Prefs::aiModel(u"custom"_s)), std::optional(u"local-model"_s));
        QTRY_COMPARE(f.find<QLabel>(u"detectedFormat"_s)->text(),
                     u"Connected. Using the Anthropic format."_s);
        QCOMPARE(f.preferences.value(Prefs::aiWireFormatCustom), std::optional(u"anthropic"_s));
        QCOMPARE(f.find<QLineEdit>(u"baseURL"_s)->text(), local.toString());
        QCOMPARE(f.find<QComboBox>(u"model"_s)->currentText(), u"local-model"_s);
    }

    // A slow keyring (an unlock prompt) must never leave one provider's key where another's is
    // saved or sent from.
    void keyFollowsTheProvider()
    {
        Fixture f(u"claude"_s);
        f.secrets.items.insert(u"ai-key-claude"_s, u"sk-ant-claude"_s);
        f.freshModels(u"claude"_s);
        f.provider.answer(200, openAIReply);
        f.open();
        auto *key = f.find<QLineEdit>(u"apiKey"_s);
        QTRY_COMPARE(key->text(), u"sk-ant-claude"_s);

        f.secrets.holdReads = true;
        f.pick(u"openai"_s);
        QCOMPARE(key->text(), QString());
        QVERIFY(!f.find<QPushButton>(u"save"_s)->isEnabled());
        QVERIFY(!f.find<QPushButton>(u"test"_s)->isEnabled());
        f.click(u"test"_s);
        // Back and forth before any read ends: the reads that end late belong to earlier picks.
        f.pick(u"claude"_s);
        f.pick(u"openai"_s);
        QCOMPARE(f.secrets.heldReads(u"ai-key-openai"_s), 2);
        f.secrets.holdReads = false;
        f.secrets.release(u"ai-key-openai"_s);
        f.secrets.release(u"ai-key-claude"_s);
        QCOMPARE(key->text(), QString());
        QVERIFY(f.find<QPushButton>(u"test"_s)->isEnabled());
        // Without a key there is nothing to ask the provider, not even its model list.
        QCOMPARE(f.find<QLabel>(u"modelHint"_s)->text(), u"Enter your key to load models"_s);
        QVERIFY(f.provider.requests().isEmpty());

        // OpenAI has no key: Test asks first; declined, nothing is kept or sent.
        QVERIFY(Dialogs::takeAskedQuestions().isEmpty());
        Dialogs::queueAnswers({false, true});
        f.click(u"test"_s);
        const auto asked = Dialogs::takeAskedQuestions();
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.first().acceptLabel, u"I understand, enable"_s);
        QVERIFY(asked.first().text.startsWith(u"Saving this key routes every Tovren summary, "
                                              u"recap, and insight through OpenAI."_s));
        QVERIFY(asked.first().text.contains(u"They leave your computer"_s));
        QVERIFY(!f.preferences.value(Prefs::aiConsent(u"openai"_s)));
        // Agreed, and still without a key: the test fails before anything is sent.
        f.click(u"test"_s);
        QTRY_COMPARE(f.find<QLabel>(u"testResult"_s)->text(),
                     u"No API key configured. Add one in Settings → AI Provider."_s);
        QVERIFY(f.preferences.value(Prefs::aiConsent(u"openai"_s)));
        QVERIFY(!f.secrets.items.contains(u"ai-key-openai"_s));
        QVERIFY(f.provider.requests().isEmpty());

        QTest::keyClicks(key, u"sk-oa-new"_s);
        f.click(u"save"_s);
        QTRY_COMPARE(f.find<QLabel>(u"savedNote"_s)->text(), u"Saved"_s);
        QCOMPARE(f.secrets.items.value(u"ai-key-openai"_s), u"sk-oa-new"_s);
        QCOMPARE(f.secrets.items.value(u"ai-key-claude"_s), u"sk-ant-claude"_s);
        QCOMPARE(f.preferences.value(Prefs::aiModel(u"openai"_s)), std::optional(u"gpt-4o"_s));
    }

    void keyRemoval_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<bool>("refused");
        QTest::newRow("emptied field, saved") << u"save"_s << false;
        QTest::newRow("emptied field, keyring refuses") << u"save"_s << true;
        QTest::newRow("Remove Key") << u"removeKey"_s << false;
        QTest::newRow("Remove Key, keyring refuses") << u"removeKey"_s << true;
    }

    void keyRemoval()
    {
        QFETCH(QString, button);
        QFETCH(bool, refused);
        Fixture f(u"openai"_s);
        f.secrets.items.insert(u"ai-key-openai"_s, u"sk-stored"_s);
        f.freshModels(u"openai"_s);
        f.open();
        auto *key = f.find<QLineEdit>(u"apiKey"_s);
        QTRY_COMPARE(key->text(), u"sk-stored"_s);
        f.secrets.refuses = refused;
        key->clear();
        QSignalSpy settled(f.pane.get(), &AIProviderPane::settled);
        f.click(button);
        QTRY_COMPARE(settled.size(), 1);
        QCOMPARE(f.secrets.items.contains(u"ai-key-openai"_s), refused);
        QCOMPARE(f.find<QLabel>(u"savedNote"_s)->text(), refused ? QString() : u"Key removed"_s);
        QCOMPARE(f.find<QLabel>(u"testResult"_s)->text(),
                 refused ? u"The key couldn't be removed because the keyring refused. It is still "
                           u"saved. Unlock your keyring and try again."_s
                         : QString());
    }

    void terminalKey()
    {
        qputenv("GEMINI_API_KEY", "  AIza-from-shell  ");
        Fixture f(u"gemini"_s);
        f.open();
        QVERIFY(f.find<QPushButton>(u"useTerminalKey"_s)->isVisible());
        f.click(u"useTerminalKey"_s);
        QCOMPARE(f.find<QLineEdit>(u"apiKey"_s)->text(), u"AIza-from-shell"_s);
        // Filling the field saves nothing.
        QVERIFY(f.secrets.items.isEmpty());
        qunsetenv("GEMINI_API_KEY");
    }

    void summariesIn_data()
    {
        QTest::addColumn<QString>("stored");   // empty: never chosen
        QTest::addColumn<QString>("detected"); // empty: nothing recognised yet
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("automatic");
        QTest::newRow("never chosen") << QString() << QString() << u"Automatic"_s << u"Automatic"_s;
        QTest::newRow("French recognised")
            << u"auto"_s << u"fr"_s << u"Automatic (Français)"_s << u"Automatic (Français)"_s;
        QTest::newRow("German chosen")
            << u"de"_s << u"fr"_s << u"Deutsch"_s << u"Automatic (Français)"_s;
        QTest::newRow("last of the list")
            << u"zh-Hant"_s << QString() << u"繁體中文"_s << u"Automatic"_s;
        QTest::newRow("a word the list doesn't know")
            << u"xx"_s << QString() << u"Automatic"_s << u"Automatic"_s;
    }

    void summariesIn()
    {
        QFETCH(QString, stored);
        QFETCH(QString, detected);
        QFETCH(QString, shown);
        QFETCH(QString, automatic);
        Fixture f(u"appleFoundation"_s);
        if (!stored.isEmpty())
            f.preferences.setText(Prefs::aiOutputLanguage.name, stored);
        if (!detected.isEmpty())
            f.preferences.setText(Prefs::aiDetectedJournalLanguage.name, detected);
        f.open();
        auto *picker = f.find<QComboBox>(u"outputLanguage"_s);
        QCOMPARE(picker->currentText(), shown);
        QCOMPARE(picker->itemText(0), automatic);
        QCOMPARE(picker->count(), 17);
        // Opening the pane writes nothing, not even over a word it doesn't know.
        QCOMPARE(f.preferences.value(Prefs::aiOutputLanguage),
                 stored.isEmpty() ? std::nullopt : std::optional<QString>(stored));
    }

    void summariesInStoresTheChoice()
    {
        Fixture f(u"appleFoundation"_s);
        f.open();
        auto *picker = f.find<QComboBox>(u"outputLanguage"_s);
        picker->setCurrentIndex(picker->findText(u"Deutsch"_s));
        QCOMPARE(f.preferences.value(Prefs::aiOutputLanguage), std::optional<QString>(u"de"_s));
        picker->setCurrentIndex(0);
        QCOMPARE(f.preferences.value(Prefs::aiOutputLanguage), std::optional<QString>(u"auto"_s));
        // A language recognised while the pane is open names itself in the first row.
        f.preferences.setText(Prefs::aiDetectedJournalLanguage.name, u"ja"_s);
        QCOMPARE(picker->itemText(0), u"Automatic (日本語)"_s);
        QCOMPARE(picker->currentIndex(), 0);
    }
};

QTEST_MAIN(TestAIProviderPane)
#include "tst_aiproviderpane.moc"
