#include "MemorySecretStore.h"
#include "ai/AIKeyStore.h"
#include "ai/AIProvider.h"
#include "platform/SecretStore.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <qcoro/qcorotask.h>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

const QString secretsName = u"org.freedesktop.secrets"_s;

// A bus of our own: no service files, so nothing is started behind the test's back.
QByteArray busConfig(const QString &socketDir)
{
    return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
           "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>session</type><listen>unix:dir=" +
           socketDir.toUtf8() +
           "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
           "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
           "<allow own=\"*\"/></policy></busconfig>\n";
}

bool secretsOwned()
{
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(secretsName);
}

int modeOf(const QString &path)
{
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return -1;
    return int(info.st_mode & 07777);
}

QJsonObject fileKeys(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

} // namespace

class TestSecretStore : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void roundTrip_data();
    void roundTrip();
    void missingReadsAsNothing();
    void removeAllProviderKeys();
    void keyringComingBackTakesTheKeyOutOfTheFile();
    // Runs last: it stops the keyring.
    void fallbackFileWhenNoSecretServiceAnswers();

private:
    QTemporaryDir m_home;
    QProcess m_bus;
    QProcess m_keyring;
};

void TestSecretStore::initTestCase()
{
    QVERIFY(m_home.isValid());
    const QString home = m_home.path();
    for (const char *sub : {"data", "config", "runtime", "cache"})
        QVERIFY(QDir(home).mkpath(QString::fromLatin1(sub)));
    QFile::setPermissions(home + u"/runtime"_s,
                          QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    qputenv("HOME", home.toUtf8());
    qputenv("XDG_DATA_HOME", (home + u"/data"_s).toUtf8());
    qputenv("XDG_CONFIG_HOME", (home + u"/config"_s).toUtf8());
    qputenv("XDG_RUNTIME_DIR", (home + u"/runtime"_s).toUtf8());
    qputenv("XDG_CACHE_HOME", (home + u"/cache"_s).toUtf8());
    qunsetenv("XDG_CURRENT_DESKTOP");
    qunsetenv("DESKTOP_SESSION");
    qunsetenv("KDE_FULL_SESSION");
    qunsetenv("DISPLAY");

    QFile config(home + u"/bus.conf"_s);
    QVERIFY(config.open(QIODevice::WriteOnly));
    config.write(busConfig(home + u"/runtime"_s));
    config.close();

    m_bus.start(u"dbus-daemon"_s,
                {u"--config-file="_s + config.fileName(), u"--nofork"_s, u"--print-address=1"_s});
    if (!m_bus.waitForStarted(5000))
        QFAIL("Could not start dbus-daemon, so no Secret Service can run. Install the dbus-daemon "
              "package.");
    QByteArray address;
    QDeadlineTimer busDeadline(10000);
    while (!address.contains('\n') && !busDeadline.hasExpired() && m_bus.waitForReadyRead(1000))
        address += m_bus.readAllStandardOutput();
    address = address.trimmed();
    if (address.isEmpty())
        QFAIL(qPrintable(u"dbus-daemon printed no address: "_s +
                         QString::fromLocal8Bit(m_bus.readAllStandardError())));
    // Before anything in this process opens the session bus.
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);
    QVERIFY2(QDBusConnection::sessionBus().isConnected(), "could not join the private bus");

    m_keyring.setProcessChannelMode(QProcess::MergedChannels);
    m_keyring.start(u"gnome-keyring-daemon"_s,
                    {u"--foreground"_s, u"--unlock"_s, u"--components=secrets"_s});
    if (!m_keyring.waitForStarted(5000))
        QFAIL("Could not start gnome-keyring-daemon. Install the gnome-keyring package.");
    // The login keyring's password; end of input unlocks or creates it.
    m_keyring.write("test-password");
    m_keyring.closeWriteChannel();
    QDeadlineTimer deadline(15000);
    while (!secretsOwned() && !deadline.hasExpired() && m_keyring.state() == QProcess::Running)
        QTest::qWait(100);
    if (!secretsOwned())
        QFAIL(qPrintable(u"gnome-keyring-daemon never offered the Secret Service on the private "
                         u"bus: "_s +
                         QString::fromLocal8Bit(m_keyring.readAll())));
    QVERIFY(QCoro::waitFor(SecretServiceStore::serviceReachable()));
}

void TestSecretStore::cleanupTestCase()
{
    for (QProcess *process : {&m_keyring, &m_bus}) {
        if (process->state() != QProcess::NotRunning) {
            process->terminate();
            if (!process->waitForFinished(3000))
                process->kill();
            process->waitForFinished(3000);
        }
    }
}

void TestSecretStore::roundTrip_data()
{
    QTest::addColumn<QString>("account");
    QTest::addColumn<QStringList>("values"); // written in turn; the last one must be read
    QTest::newRow("plain") << u"ai-key-claude"_s << QStringList{u"sk-ant-api03-abc"_s};
    QTest::newRow("replaced") << u"ai-key-openai"_s << QStringList{u"sk-old"_s, u"sk-new"_s};
    QTest::newRow("utf-8 and spaces")
        << u"ai-key-custom"_s << QStringList{u"clé secrète ключ 🔑 "_s};
    QTest::newRow("long") << u"ai-key-gemini"_s << QStringList{QString(4096, u'k')};
}

void TestSecretStore::roundTrip()
{
    QFETCH(QString, account);
    QFETCH(QStringList, values);
    SecretServiceStore secrets(AIKeyStore::service);
    const QString fallback = m_home.filePath(u"config/tovren/ai-keys.json"_s);
    AIKeyStore keys(secrets, fallback);
    for (const QString &value : values)
        QVERIFY(QCoro::waitFor(keys.write(value, account)));
    QVERIFY(!keys.usesFallbackFile());
    QVERIFY(keys.fallbackNotice().isEmpty());
    QVERIFY(!QFile::exists(fallback));
    // The keyring daemon keeps it in its own file, and nothing of ours lands in the config.
    QVERIFY(QFile::exists(m_home.filePath(u"data/keyrings/login.keyring"_s)));
    QVERIFY(QDir(m_home.filePath(u"config"_s))
                .entryList(QDir::NoDotAndDotDot | QDir::AllEntries)
                .isEmpty());

    // A second store reads what the keyring kept, not a copy in memory.
    SecretServiceStore again(AIKeyStore::service);
    const auto read = QCoro::waitFor(again.read(account));
    QCOMPARE(int(read.outcome), int(SecretStore::Outcome::done));
    QCOMPARE(read.value, values.last());
    QCOMPARE(QCoro::waitFor(keys.read(account)), std::optional(values.last()));

    // Another service's item with the same account is a different secret.
    SecretServiceStore other(u"com.tovren.passcode"_s);
    QCOMPARE(int(QCoro::waitFor(other.read(account)).outcome), int(SecretStore::Outcome::notFound));
}

void TestSecretStore::missingReadsAsNothing()
{
    SecretServiceStore secrets(AIKeyStore::service);
    AIKeyStore keys(secrets, m_home.filePath(u"config/tovren/ai-keys.json"_s));
    QCOMPARE(QCoro::waitFor(keys.read(u"ai-key-nobody"_s)), std::nullopt);
    QVERIFY(!keys.usesFallbackFile());
    // Removing what isn't there is no failure.
    QCoro::waitFor(keys.remove(u"ai-key-nobody"_s));
    QVERIFY(!keys.usesFallbackFile());
}

void TestSecretStore::removeAllProviderKeys()
{
    SecretServiceStore secrets(AIKeyStore::service);
    AIKeyStore keys(secrets, m_home.filePath(u"config/tovren/ai-keys.json"_s));
    for (AIProvider provider : AIProviders::all)
        QVERIFY(QCoro::waitFor(keys.write(u"key-"_s + AIProviders::rawValue(provider),
                                          AIProviders::keyAccount(provider))));
    QCoro::waitFor(keys.removeAllProviderKeys());
    for (AIProvider provider :
         {AIProvider::claude, AIProvider::openai, AIProvider::gemini, AIProvider::custom})
        QCOMPARE(QCoro::waitFor(keys.read(AIProviders::keyAccount(provider))), std::nullopt);
    // Only the four providers with keys are erased.
    QCOMPARE(QCoro::waitFor(keys.read(u"ai-key-appleFoundation"_s)),
             std::optional(u"key-appleFoundation"_s));
    QCoro::waitFor(keys.remove(u"ai-key-appleFoundation"_s));
}

void TestSecretStore::keyringComingBackTakesTheKeyOutOfTheFile()
{
    QTemporaryDir dir;
    const QString fallback = dir.filePath(u"tovren/ai-keys.json"_s);
    MemorySecretStore secrets;
    secrets.reachable = false;
    AIKeyStore keys(secrets, fallback);

    QVERIFY(QCoro::waitFor(keys.write(u"sk-1"_s, u"ai-key-openai"_s)));
    QVERIFY(QCoro::waitFor(keys.write(u"sk-2"_s, u"ai-key-claude"_s)));
    QVERIFY(keys.usesFallbackFile());
    QCOMPARE(modeOf(fallback), 0600);

    secrets.reachable = true;
    // Still found while it only lives in the file.
    QCOMPARE(QCoro::waitFor(keys.read(u"ai-key-openai"_s)), std::optional(u"sk-1"_s));
    QVERIFY(QCoro::waitFor(keys.write(u"sk-1b"_s, u"ai-key-openai"_s)));
    QVERIFY(!keys.usesFallbackFile());
    QCOMPARE(secrets.items.value(u"ai-key-openai"_s), u"sk-1b"_s);
    const QJsonObject left = fileKeys(fallback);
    QVERIFY(!left.contains(u"ai-key-openai"_s));
    QCOMPARE(left.value(u"ai-key-claude"_s).toString(), u"sk-2"_s);
    QCOMPARE(modeOf(fallback), 0600);
}

void TestSecretStore::fallbackFileWhenNoSecretServiceAnswers()
{
    m_keyring.terminate();
    QVERIFY(m_keyring.waitForFinished(5000));
    QTRY_VERIFY_WITH_TIMEOUT(!secretsOwned(), 5000);
    QVERIFY(!QCoro::waitFor(SecretServiceStore::serviceReachable()));

    const QString fallback = m_home.filePath(u"config/tovren/ai-keys.json"_s);
    SecretServiceStore secrets(AIKeyStore::service);
    AIKeyStore keys(secrets, fallback);
    QVERIFY(QCoro::waitFor(keys.write(u"sk-ant-file"_s, u"ai-key-claude"_s)));
    QVERIFY(keys.usesFallbackFile());
    QCOMPARE(modeOf(fallback), 0600);
    QCOMPARE(fileKeys(fallback).value(u"ai-key-claude"_s).toString(), u"sk-ant-file"_s);
    QVERIFY(keys.fallbackNotice().contains(fallback));
    QVERIFY(keys.fallbackNotice().startsWith(u"No keyring answered on this computer"_s));

    AIKeyStore fresh(secrets, fallback);
    QCOMPARE(QCoro::waitFor(fresh.read(u"ai-key-claude"_s)), std::optional(u"sk-ant-file"_s));
    QVERIFY(fresh.usesFallbackFile());
    QCoro::waitFor(fresh.removeAllProviderKeys());
    QCOMPARE(QCoro::waitFor(fresh.read(u"ai-key-claude"_s)), std::nullopt);
    QVERIFY(fileKeys(fallback).isEmpty());
    QCOMPARE(modeOf(fallback), 0600);
}

QTEST_GUILESS_MAIN(TestSecretStore)
#include "tst_secretstore.moc"
