#include "MemorySecretStore.h"
#include "PrivateSession.h"
#include "TestSupport.h"
#include "TovrenProcess.h"

#include "ai/AIKeyStore.h"
#include "app/TovrenApp.h"
#include "bridge/MCPServer.h"
#include "core/Notices.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/DailyEntry.h"
#include "core/records/PerformanceReview.h"
#include "core/store/ModelContext.h"
#include "platform/SecretStore.h"
#include "ui/Dialogs.h"
#include "ui/MainWindow.h"
#include "ui/settings/DataPane.h"
#include "ui/settings/GeneralPane.h"
#include "ui/settings/JournalPane.h"
#include "ui/settings/MCPConnectorSection.h"
#include "ui/settings/MCPToolSharingSheet.h"
#include "ui/settings/SettingsWindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QHostAddress>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

template<class T>
T *child(QWidget *parent, const QString &name)
{
    T *found = parent->findChild<T *>(name);
    if (!found)
        qWarning("no child named %s", qPrintable(name));
    return found;
}

} // namespace

class SettingsTest : public QObject {
    Q_OBJECT

private:
    PrivateSession m_keyring;
    std::unique_ptr<TempDataDir> m_data;
    std::unique_ptr<TovrenApp> m_app;
    std::unique_ptr<MainWindow> m_window;

    QStringList postedNotices(const std::function<void()> &action)
    {
        QStringList names;
        const auto connection =
            connect(&NoticeCenter::shared(), &NoticeCenter::posted,
                    [&names](const QString &name, const QVariantMap &) { names << name; });
        action();
        disconnect(connection);
        return names;
    }

private slots:
    // Keys go to a real keyring, which answers over D-Bus, as on the desktop.
    void initTestCase()
    {
        const QString failure = m_keyring.start();
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    void init()
    {
        m_data = std::make_unique<TempDataDir>();
        qputenv("TOVREN_MCP_PORT", QByteArray::number(TovrenProcess::freePort()));
        m_app = std::make_unique<TovrenApp>();
        m_app->start();
        m_window = std::make_unique<MainWindow>(*m_app);
        Dialogs::takeAskedQuestions();
    }

    void cleanup()
    {
        m_window.reset();
        m_app.reset();
        m_data.reset();
        qunsetenv("TOVREN_MCP_PORT");
    }

    void consent_data()
    {
        QTest::addColumn<bool>("answer");
        QTest::newRow("cancel") << false;
        QTest::newRow("enable") << true;
    }

    // Switching the assistant on asks first; only "Enable" stores the choice and starts the
    // listener, which then takes a real connection.
    void consent()
    {
        QFETCH(bool, answer);
        auto *section =
            qobject_cast<MCPConnectorSection *>(m_window->settingsWindow()->pane(u"Assistant"_s));
        QVERIFY(section);
        auto *toggle = child<QCheckBox>(section, u"assistantSwitch"_s);
        auto *note = child<QLabel>(section, u"assistantSwitchNote"_s);
        QCOMPARE(note->text(),
                 u"Off until you turn it on. Tovren only listens on this computer."_s);

        Dialogs::queueAnswers({answer});
        const QStringList notices = postedNotices([toggle] { toggle->click(); });
        const QList<Dialogs::Question> asked = Dialogs::takeAskedQuestions();
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.first().title, u"Let your assistant use Tovren?"_s);
        QCOMPARE(asked.first().text, MCPConnectorSection::consentText);
        QCOMPARE(asked.first().acceptLabel, u"Enable"_s);

        QCOMPARE(m_app->preferences().value(Prefs::mcpServerEnabled), answer);
        QCOMPARE(toggle->isChecked(), answer);
        QCOMPARE(notices.contains(QString::fromLatin1(Notices::mcpToggle)), answer);
        QCOMPARE(m_app->mcpServer().isRunning(), answer);
        if (!answer)
            return;
        QVERIFY(note->text().startsWith(u"Tovren listens only on this computer."_s));
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_app->mcpServer().serverPort());
        QVERIFY(socket.waitForConnected(2000));
        QTRY_VERIFY(
            child<QLabel>(section, u"listenerStatus"_s)->text().endsWith(u"On, 1 app connected"_s));
        auto *disconnect = child<QPushButton>(section, u"disconnect"_s);
        QVERIFY(!disconnect->isHidden());
        disconnect->click();
        QTRY_COMPARE(socket.state(), QAbstractSocket::UnconnectedState);
        QVERIFY(disconnect->isHidden());

        // Off needs no question.
        const QStringList offNotices = postedNotices([toggle] { toggle->click(); });
        QVERIFY(Dialogs::takeAskedQuestions().isEmpty());
        QVERIFY(!m_app->preferences().value(Prefs::mcpServerEnabled));
        QVERIFY(offNotices.contains(QString::fromLatin1(Notices::mcpToggle)));
        QVERIFY(!m_app->mcpServer().isRunning());
    }

    // The sheet's switches change what assistants see at once, and the section's count follows.
    void sharingSheetCounts()
    {
        Preferences &preferences = m_app->preferences();
        preferences.set(Prefs::mcpServerEnabled, true);
        auto *section =
            qobject_cast<MCPConnectorSection *>(m_window->settingsWindow()->pane(u"Assistant"_s));
        auto *count = child<QLabel>(section, u"sharedCount"_s);
        QVERIFY(count->text().endsWith(u" of 36"_s));

        MCPToolSharingSheet sheet(preferences);
        QVERIFY(!sheet.findChild<QCheckBox *>(u"share-journal"_s));
        for (const QString &group : {u"people"_s, u"goals"_s, u"library"_s, u"setup"_s}) {
            auto *toggle = child<QCheckBox>(&sheet, u"share-"_s + group);
            if (!toggle->isChecked())
                toggle->click();
            toggle->click();
            QVERIFY(!toggle->isChecked());
        }
        QCOMPARE(count->text(), u"11 of 36"_s);
        QCOMPARE(child<QLabel>(&sheet, u"sharingFooter"_s)->text(),
                 u"Sharing 11 of 36 tools. Everything stays in Tovren either way. Reconnect the "
                 u"assistant after changing this."_s);
        child<QCheckBox>(&sheet, u"share-goals"_s)->click();
        QVERIFY(count->text() != u"11 of 36"_s);
    }

    void connectorCopy()
    {
        auto *section =
            qobject_cast<MCPConnectorSection *>(m_window->settingsWindow()->pane(u"Assistant"_s));
        auto *choice = child<QComboBox>(section, u"connectorChoice"_s);
        QCOMPARE(choice->currentData().toString(), u"chatgpt"_s);
        choice->setCurrentIndex(choice->findData(u"claude-code"_s));
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        auto *copy = child<QPushButton>(section, u"copySnippet"_s);
        copy->click();
        const auto bridge =
            AIConnector::Bridge::detect(35468, QCoreApplication::applicationFilePath());
        QCOMPARE(QGuiApplication::clipboard()->text(),
                 AIConnector::all(bridge).at(3).copyableText().value());
        QCOMPARE(copy->text(), u"Copied"_s);
        QTRY_COMPARE_WITH_TIMEOUT(copy->text(), u"Copy"_s, 3000);
    }

    void journalPreferences()
    {
        auto *pane = m_window->settingsWindow()->pane(u"Journal"_s);
        auto *templates = child<QComboBox>(pane, u"journalTemplate"_s);
        templates->setCurrentIndex(templates->findData(u"standup"_s));
        QCOMPARE(m_app->preferences().value(Prefs::journalTemplate), u"standup"_s);
        QCOMPARE(child<QLabel>(pane, u"templateDescription"_s)->text(),
                 u"Quick daily check-in: yesterday, today, blockers."_s);
        auto *length = child<QComboBox>(pane, u"writingStyle"_s);
        QCOMPARE(length->currentText(), u"Balanced"_s);
        length->setCurrentIndex(length->findText(u"Brief"_s));
        QCOMPARE(m_app->preferences().value(Prefs::journalWritingStyle), u"brief"_s);
    }

    void trayPreference()
    {
        auto *pane = m_window->settingsWindow()->pane(u"General"_s);
        auto *tray = child<QCheckBox>(pane, u"showMenuBarIcon"_s);
        QVERIFY(tray->isChecked());
        tray->click();
        QVERIFY(!m_app->preferences().value(Prefs::showMenuBarIcon));
        // A change from elsewhere (the tray's own menu, a second window) shows here too.
        m_app->preferences().set(Prefs::showMenuBarIcon, true);
        QVERIFY(tray->isChecked());
    }

    void eraseAllData_data()
    {
        QTest::addColumn<bool>("answer");
        QTest::newRow("cancel") << false;
        QTest::newRow("erase") << true;
    }

    void eraseAllData()
    {
        QFETCH(bool, answer);
        ModelContext &context = m_app->mainContext();
        const QDateTime now = QDateTime::currentDateTimeUtc();
        context.insert(std::make_shared<DailyEntry>(u"Shipped the importer"_s, now, true));
        context.insert(std::make_shared<PerformanceReview>(
            now.addDays(-90), now, u"Q3"_s, PerformanceFormat{}, u"Q3 review"_s, u"Text"_s, 4, 40));
        context.save();
        m_app->preferences().set(Prefs::userProfileName, std::optional<QString>(u"Ada"_s));
        QVERIFY(QCoro::waitFor(m_app->keyStore().write(u"sk-ant-1"_s, u"ai-key-claude"_s)));

        auto *pane = qobject_cast<DataPane *>(m_window->settingsWindow()->pane(u"Data"_s));
        auto *done = child<QLabel>(pane, u"eraseDone"_s);
        Dialogs::queueAnswers({answer});
        const QStringList notices =
            postedNotices([pane] { child<QPushButton>(pane, u"eraseAllData"_s)->click(); });
        const QList<Dialogs::Question> asked = Dialogs::takeAskedQuestions();
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.first().title, u"Erase everything?"_s);
        QCOMPARE(asked.first().acceptLabel, u"Erase"_s);
        QVERIFY(asked.first().destructive);

        QCOMPARE(context.fetchCount<DailyEntry>(), answer ? 0 : 1);
        QCOMPARE(context.fetchCount<PerformanceReview>(), 1);
        QCOMPARE(m_app->preferences().value(Prefs::userProfileName).has_value(), !answer);
        QCOMPARE(notices.contains(QString::fromLatin1(Notices::dataErased)), answer);
        if (!answer) {
            QVERIFY(done->isHidden());
            return;
        }
        // The keyring answers over the bus, later: nothing is called done before it has.
        QVERIFY(done->text() != DataPane::doneText);
        QTRY_COMPARE(done->text(), DataPane::doneText);
        SecretServiceStore keyring(AIKeyStore::service);
        QCOMPARE(int(QCoro::waitFor(keyring.read(u"ai-key-claude"_s)).outcome),
                 int(SecretStore::Outcome::notFound));
    }

    // A keyring that refuses leaves the keys, and the pane says so and what to do.
    void eraseWithKeysLeft()
    {
        MemorySecretStore secrets;
        AIKeyStore keys(secrets, m_data->configDir() + u"/ai-keys.json"_s);
        QVERIFY(QCoro::waitFor(keys.write(u"sk-1"_s, u"ai-key-openai"_s)));
        secrets.refuses = true;
        DataPane pane([&keys] { return keys.removeAllProviderKeys(); });
        QSignalSpy finished(&pane, &DataPane::finished);
        Dialogs::queueAnswers({true});
        pane.eraseWithConfirmation();
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(child<QLabel>(&pane, u"eraseDone"_s)->text(), DataPane::keysLeftText);
    }
};

QTEST_MAIN(SettingsTest)
#include "tst_settings.moc"
