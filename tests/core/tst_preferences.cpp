#include "TestSupport.h"
#include "core/DataLocations.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

QJsonObject fileObject(const QString &path)
{
    return QJsonDocument::fromJson(fileContents(path)).object();
}

// A JSON value from its text, including scalars, which QJsonDocument won't parse alone.
QJsonValue json(const QByteArray &text)
{
    return QJsonDocument::fromJson("[" + text + "]").array().at(0);
}

QStringList asideFiles(const QString &path)
{
    const QFileInfo info(path);
    return info.dir().entryList({info.fileName() + u".corrupt-*"_s}, QDir::Files, QDir::Name);
}

} // namespace

class TestPreferences : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        m_dir.emplace();
        QVERIFY(m_dir->isValid());
        m_path = DataLocations::preferencesPath();
    }
    void cleanup() { m_dir.reset(); }

    void emptyStoreReadsDefaults()
    {
        const Preferences prefs(m_path);
        QCOMPARE(prefs.value(Prefs::onboardingCompleted), false);
        QCOMPARE(prefs.value(Prefs::backupEnabled), true);
        QCOMPARE(prefs.value(Prefs::notifyStreakAtRisk), true);
        QCOMPARE(prefs.value(Prefs::quickCaptureModifiers), 4352);
        QCOMPARE(prefs.value(Prefs::pendingRecoveryNotice), std::nullopt);
        QCOMPARE(prefs.value(Prefs::userProfileAvatar), std::nullopt);
        QCOMPARE(prefs.value(Prefs::aiModelsCache(u"openai"_s)), std::nullopt);
        QCOMPARE(prefs.value(Prefs::mcpToolGroup(u"people"_s)), std::nullopt);
        QVERIFY(!QFile::exists(m_path));
    }

    void wrongTypeReadsAsDefault()
    {
        Preferences prefs(m_path);
        prefs.setText(Prefs::backupEnabled.name, u"false"_s);
        prefs.setInteger(Prefs::notifyStreakAtRisk.name, 0);
        prefs.setDouble(Prefs::quickCaptureKeyCode.name, 12.5);
        prefs.setRaw(Prefs::mcpToolGroup(u"goals"_s).name, u"yes"_s);
        prefs.setBool(Prefs::aiModel(u"openai"_s).name, true);
        QCOMPARE(prefs.value(Prefs::backupEnabled), true);
        QCOMPARE(prefs.value(Prefs::notifyStreakAtRisk), true);
        QCOMPARE(prefs.value(Prefs::quickCaptureKeyCode), 45);
        QCOMPARE(prefs.value(Prefs::mcpToolGroup(u"goals"_s)), std::nullopt);
        QCOMPARE(prefs.value(Prefs::aiModel(u"openai"_s)), std::nullopt);
    }

    void typedReadsAreStrict_data()
    {
        QTest::addColumn<QByteArray>("stored");
        QTest::addColumn<QString>("reader");
        QTest::addColumn<bool>("present");

        QTest::newRow("bool") << "true"_ba << u"bool"_s << true;
        QTest::newRow("text true as bool") << "\"true\""_ba << u"bool"_s << false;
        QTest::newRow("null as bool") << "null"_ba << u"bool"_s << false;
        QTest::newRow("integer") << "45"_ba << u"integer"_s << true;
        QTest::newRow("integral double as integer") << "45.0"_ba << u"integer"_s << true;
        QTest::newRow("3.5 as integer") << "3.5"_ba << u"integer"_s << false;
        QTest::newRow("1e300 as integer") << "1e300"_ba << u"integer"_s << false;
        QTest::newRow("text 45 as integer") << "\"45\""_ba << u"integer"_s << false;
        QTest::newRow("integer as double") << "2"_ba << u"double"_s << true;
        QTest::newRow("number as text") << "7"_ba << u"text"_s << false;
        QTest::newRow("empty list") << "[]"_ba << u"list"_s << true;
        QTest::newRow("list with a number") << R"(["a", 1])"_ba << u"list"_s << false;
        QTest::newRow("bytes") << R"({"$data": "aGk="})"_ba << u"bytes"_s << true;
        QTest::newRow("bad base64") << R"({"$data": "!!"})"_ba << u"bytes"_s << false;
        QTest::newRow("untagged base64") << "\"aGk=\""_ba << u"bytes"_s << false;
        QTest::newRow("tag with another member")
            << R"({"$data": "aGk=", "x": 1})"_ba << u"bytes"_s << false;
        QTest::newRow("dictionary") << R"({"a": 1})"_ba << u"dictionary"_s << true;
        QTest::newRow("date as dictionary")
            << R"({"$date": "2024-01-01T00:00:00.000Z"})"_ba << u"dictionary"_s << false;
        QTest::newRow("date") << R"({"$date": "2024-01-01T00:00:00.000Z"})"_ba << u"date"_s << true;
        QTest::newRow("untagged date") << "\"2024-01-01T00:00:00Z\""_ba << u"date"_s << false;
        QTest::newRow("bad date") << R"({"$date": "yesterday"})"_ba << u"date"_s << false;
    }

    void typedReadsAreStrict()
    {
        QFETCH(QByteArray, stored);
        QFETCH(QString, reader);
        QFETCH(bool, present);

        Preferences prefs(m_path);
        const QJsonValue value = json(stored);
        QVERIFY(!value.isUndefined());
        prefs.setRaw(u"k"_s, value);
        const QHash<QString, std::function<bool()>> reads = {
            {u"bool"_s, [&] { return prefs.boolValue(u"k"_s).has_value(); }},
            {u"integer"_s, [&] { return prefs.integerValue(u"k"_s).has_value(); }},
            {u"double"_s, [&] { return prefs.doubleValue(u"k"_s).has_value(); }},
            {u"text"_s, [&] { return prefs.textValue(u"k"_s).has_value(); }},
            {u"list"_s, [&] { return prefs.textListValue(u"k"_s).has_value(); }},
            {u"bytes"_s, [&] { return prefs.bytesValue(u"k"_s).has_value(); }},
            {u"dictionary"_s, [&] { return prefs.dictionaryValue(u"k"_s).has_value(); }},
            {u"date"_s, [&] { return prefs.dateValue(u"k"_s).has_value(); }},
        };
        QCOMPARE(reads.value(reader)(), present);
        QVERIFY(prefs.contains(u"k"_s));
    }

    void handWrittenFileIsRead()
    {
        writeFile(m_path, R"({
            "mcpServerEnabled": true,
            "dailyReminderHour": 8,
            "ai-model-openai": "model-x",
            "ai-models-fetchedAt-openai": 1700000000.25,
            "mcpToolGroup-goals": true,
            "mcpToolGroup-library": "yes",
            "discoveredContacts.dismissed": ["a@example.org"],
            "ms-graph-account": "me@example.org",
            "backupEnabled": false,
            "userProfileAvatar": {"$data": "aGk="}
        })");
        const Preferences prefs(m_path);
        QCOMPARE(prefs.value(Prefs::mcpServerEnabled), true);
        QCOMPARE(prefs.value(Prefs::dailyReminderHour), 8);
        QCOMPARE(prefs.value(Prefs::aiModel(u"openai"_s)), u"model-x"_s);
        QCOMPARE(prefs.value(Prefs::aiModelsFetchedAt(u"openai"_s)), 1700000000.25);
        QCOMPARE(prefs.value(Prefs::mcpToolGroup(u"goals"_s)), true);
        QCOMPARE(prefs.value(Prefs::mcpToolGroup(u"library"_s)), std::nullopt);
        QCOMPARE(prefs.value(Prefs::discoveredContactsDismissed), QStringList{u"a@example.org"_s});
        QCOMPARE(prefs.value(Prefs::msGraphAccount), u"me@example.org"_s);
        QCOMPARE(prefs.value(Prefs::backupEnabled), false);
        QCOMPARE(prefs.value(Prefs::userProfileAvatar), "hi"_ba);
    }

    void everyTypeRoundTripsThroughTheFile()
    {
        const qint64 big = (qint64(1) << 53) + 1;
        const QByteArray bytes("\0\xff\x01 avatar", 10);
        const QDateTime when(QDate(2024, 3, 31), QTime(10, 30, 15, 123),
                             QTimeZone(QByteArrayLiteral("Europe/Berlin")));
        const QJsonObject awards{{u"firstEntry"_s, Preferences::dateToJson(when)}};
        const QStringList list{u"one"_s, QString(), u"ünï \"quoted\""_s};
        {
            // No flush and no event loop: the destructor must write.
            Preferences prefs(m_path);
            prefs.set(Prefs::demoModeActive, true);
            prefs.setInteger(u"big"_s, big);
            prefs.set(Prefs::backupLastDate, -1.5e-3);
            prefs.set(Prefs::appLockMethod, u"passcode \u00e9"_s);
            prefs.set(Prefs::menuBarDraftText, QString());
            prefs.set(Prefs::userProfileAvatar, bytes);
            prefs.set(Prefs::pendingQuickCaptures, list);
            prefs.set(Prefs::milestoneAwardDates, awards);
            prefs.set(Prefs::growthPromptLastShown, when);
            prefs.setRaw(u"null"_s, QJsonValue::Null);
        }
        const Preferences prefs(m_path);
        QCOMPARE(prefs.value(Prefs::demoModeActive), true);
        QCOMPARE(prefs.integerValue(u"big"_s), big);
        QCOMPARE(prefs.value(Prefs::backupLastDate), -1.5e-3);
        QCOMPARE(prefs.value(Prefs::appLockMethod), u"passcode \u00e9"_s);
        QCOMPARE(prefs.textValue(Prefs::menuBarDraftText.name), QString());
        QCOMPARE(prefs.value(Prefs::userProfileAvatar), bytes);
        QCOMPARE(prefs.value(Prefs::pendingQuickCaptures), list);
        QCOMPARE(prefs.value(Prefs::milestoneAwardDates), awards);
        QCOMPARE(Preferences::dateFromJson(awards.value(u"firstEntry"_s)), when);
        QCOMPARE(prefs.value(Prefs::growthPromptLastShown), when);
        QVERIFY(prefs.rawValue(u"null"_s).isNull());

        const QJsonObject onDisk = fileObject(m_path);
        QCOMPARE(onDisk.value(Prefs::growthPromptLastShown.name).toObject(),
                 (QJsonObject{{u"$date"_s, u"2024-03-31T08:30:15.123Z"_s}}));
        QCOMPARE(onDisk.value(Prefs::userProfileAvatar.name).toObject(),
                 (QJsonObject{{u"$data"_s, QString::fromLatin1(bytes.toBase64())}}));
    }

    void boolAndTextTrueStayDistinct()
    {
        {
            Preferences prefs(m_path);
            prefs.setBool(u"flag"_s, true);
            prefs.setText(u"word"_s, u"true"_s);
        }
        const QJsonObject onDisk = fileObject(m_path);
        QVERIFY(onDisk.value(u"flag"_s).isBool());
        QVERIFY(onDisk.value(u"word"_s).isString());
        const Preferences prefs(m_path);
        QCOMPARE(prefs.boolValue(u"word"_s), std::nullopt);
        QCOMPARE(prefs.textValue(u"flag"_s), std::nullopt);
        QCOMPARE(prefs.boolValue(u"flag"_s), true);
    }

    void writesOnTheNextTurnOfTheEventLoop()
    {
        Preferences prefs(m_path);
        prefs.set(Prefs::mcpServerEnabled, true);
        prefs.set(Prefs::dailyReminderHour, 6);
        QVERIFY(!QFile::exists(m_path));
        QTRY_COMPARE(fileObject(m_path).value(u"dailyReminderHour"_s).toInteger(), 6);
        QCOMPARE(fileObject(m_path).value(u"mcpServerEnabled"_s), QJsonValue(true));
    }

    void flushWritesAtOncePrivately()
    {
        const QString nested = m_dir->path() + u"/not/yet/there/preferences.json"_s;
        Preferences prefs(nested);
        prefs.set(Prefs::backupPendingRestoreBookmark, "/backups/one"_ba);
        prefs.flush();
        QCOMPARE(fileObject(nested).size(), 1);
        const QFileDevice::Permissions others = QFileDevice::ReadGroup | QFileDevice::WriteGroup |
                                                QFileDevice::ExeGroup | QFileDevice::ReadOther |
                                                QFileDevice::WriteOther | QFileDevice::ExeOther;
        QCOMPARE(QFileInfo(nested).permissions() & others, QFileDevice::Permissions());
    }

    void malformedFileIsKeptAside_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("not JSON") << "mcpServerEnabled = true"_ba;
        QTest::newRow("truncated") << R"({"mcpServerEnabled": tr)"_ba;
        QTest::newRow("array") << "[true]"_ba;
        QTest::newRow("empty") << QByteArray();
    }

    void malformedFileIsKeptAside()
    {
        QFETCH(QByteArray, content);
        const FixedClock clock(QDateTime(QDate(2024, 5, 6), QTime(7, 8, 9), Qt::UTC));
        const auto warning = QRegularExpression(u"unreadable file kept"_s);

        writeFile(m_path, content);
        QTest::ignoreMessage(QtWarningMsg, warning);
        Preferences prefs(m_path);
        QVERIFY(!prefs.contains(Prefs::mcpServerEnabled.name));
        QCOMPARE(asideFiles(m_path), QStringList{u"preferences.json.corrupt-20240506T070809Z"_s});
        prefs.set(Prefs::onboardingCompleted, true);
        prefs.flush();
        QCOMPARE(fileObject(m_path).keys(), QStringList{u"onboardingCompleted"_s});

        // A second bad file in the same second must not replace the first one kept.
        const QByteArray worse = "{" + content;
        writeFile(m_path, worse);
        QTest::ignoreMessage(QtWarningMsg, warning);
        const Preferences again(m_path);
        const QStringList aside = asideFiles(m_path);
        QCOMPARE(aside.size(), 2);
        const QDir folder = QFileInfo(m_path).dir();
        QCOMPARE(fileContents(folder.filePath(aside.at(0))), content);
        QCOMPARE(fileContents(folder.filePath(aside.at(1))), worse);
    }

    void failedWriteKeepsValuesAndRetries()
    {
        const QString blocker = m_dir->path() + u"/blocker"_s;
        const QString path = blocker + u"/preferences.json"_s;
        writeFile(blocker, "a file where the folder should be");
        Preferences prefs(path);
        prefs.set(Prefs::aiProvider, u"openai"_s);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"cannot write"_s));
        prefs.flush();
        QCOMPARE(prefs.value(Prefs::aiProvider), u"openai"_s);

        QVERIFY(QFile::remove(blocker));
        prefs.flush();
        QCOMPARE(fileObject(path).value(u"aiProvider"_s), u"openai"_s);
    }

    void changedFiresOncePerRealChange_data()
    {
        QTest::addColumn<QByteArray>("initial");
        QTest::addColumn<QString>("operation");
        QTest::addColumn<int>("expected");

        QTest::newRow("same bool") << "true"_ba << u"bool true"_s << 0;
        QTest::newRow("other bool") << "true"_ba << u"bool false"_s << 1;
        QTest::newRow("bool over text true") << "\"true\""_ba << u"bool true"_s << 1;
        QTest::newRow("text true over bool") << "true"_ba << u"text true"_s << 1;
        QTest::newRow("same number as double") << "2"_ba << u"double 2"_s << 0;
        QTest::newRow("integer past double precision")
            << "9007199254740992.0"_ba << u"integer 2^53+1"_s << 1;
        QTest::newRow("same list") << R"(["a"])"_ba << u"list a"_s << 0;
        QTest::newRow("same instant elsewhere")
            << R"({"$date": "2024-03-01T12:00:00.000Z"})"_ba << u"date Berlin 13:00"_s << 0;
        QTest::newRow("remove present") << "1"_ba << u"remove"_s << 1;
        QTest::newRow("remove absent") << QByteArray() << u"remove"_s << 0;
        QTest::newRow("optional to nullopt, absent") << QByteArray() << u"nullopt"_s << 0;
        QTest::newRow("optional to nullopt, present") << "\"x\""_ba << u"nullopt"_s << 1;
    }

    void changedFiresOncePerRealChange()
    {
        QFETCH(QByteArray, initial);
        QFETCH(QString, operation);
        QFETCH(int, expected);

        const QString key = u"ai-model-custom"_s;
        Preferences prefs(m_path);
        if (!initial.isEmpty())
            prefs.setRaw(key, json(initial));
        QSignalSpy spy(&prefs, &Preferences::changed);
        const QDateTime berlin(QDate(2024, 3, 1), QTime(13, 0),
                               QTimeZone(QByteArrayLiteral("Europe/Berlin")));
        const QHash<QString, std::function<void()>> operations = {
            {u"bool true"_s, [&] { prefs.setBool(key, true); }},
            {u"bool false"_s, [&] { prefs.setBool(key, false); }},
            {u"text true"_s, [&] { prefs.setText(key, u"true"_s); }},
            {u"double 2"_s, [&] { prefs.setDouble(key, 2.0); }},
            {u"integer 2^53+1"_s, [&] { prefs.setInteger(key, (qint64(1) << 53) + 1); }},
            {u"list a"_s, [&] { prefs.setTextList(key, {u"a"_s}); }},
            {u"date Berlin 13:00"_s, [&] { prefs.setDate(key, berlin); }},
            {u"remove"_s, [&] { prefs.remove(key); }},
            {u"nullopt"_s, [&] { prefs.set(Prefs::aiModel(u"custom"_s), std::nullopt); }},
        };
        QVERIFY(operations.contains(operation));
        operations.value(operation)();
        QCOMPARE(spy.size(), expected);
        if (expected)
            QCOMPARE(spy.at(0).at(0).toString(), key);
    }

    void onChangedListensToOneKey()
    {
        Preferences prefs(m_path);
        int calls = 0;
        QStringList keysSeen;
        prefs.onChanged(Prefs::showMenuBarIcon.name, this, [&] { ++calls; });
        prefs.onChanged(Prefs::showMenuBarIcon.name, this,
                        [&](const QString &key) { keysSeen.append(key); });
        prefs.set(Prefs::privacyScreenEnabled, false);
        prefs.set(Prefs::showMenuBarIcon, false);
        prefs.set(Prefs::showMenuBarIcon, false);
        QCOMPARE(calls, 1);
        QCOMPARE(keysSeen, QStringList{Prefs::showMenuBarIcon.name});
    }

private:
    std::optional<TempDataDir> m_dir;
    QString m_path;
};

QTEST_GUILESS_MAIN(TestPreferences)
#include "tst_preferences.moc"
