#include "TestSupport.h"
#include "core/DataLocations.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/UserProfile.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestUserProfile : public QObject {
    Q_OBJECT

private slots:
    void suggestedNameFrom_data()
    {
        QTest::addColumn<QString>("account");
        QTest::addColumn<std::optional<QString>>("suggested");

        QTest::newRow("admin") << u"admin"_s << std::optional<QString>();
        QTest::newRow("ADMIN") << u"ADMIN"_s << std::optional<QString>();
        QTest::newRow("Administrator padded") << u"  Administrator\n"_s << std::optional<QString>();
        QTest::newRow("Mac") << u"Mac"_s << std::optional<QString>();
        QTest::newRow("iMac") << u"iMac"_s << std::optional<QString>();
        QTest::newRow("empty") << QString() << std::optional<QString>();
        QTest::newRow("blank") << u" \t "_s << std::optional<QString>();
        QTest::newRow("a person") << u"Ana Lima"_s << std::optional(u"Ana Lima"_s);
        QTest::newRow("padded person") << u"  Ana Lima "_s << std::optional(u"Ana Lima"_s);
        QTest::newRow("admin inside a name")
            << u"Admin Person"_s << std::optional(u"Admin Person"_s);
    }

    void suggestedNameFrom()
    {
        QFETCH(QString, account);
        QFETCH(std::optional<QString>, suggested);
        QCOMPARE(UserProfile::suggestedNameFrom(account), suggested);
    }

    void namesFromTheStoredProfile_data()
    {
        QTest::addColumn<std::optional<QString>>("stored");
        QTest::addColumn<QString>("fullName");
        QTest::addColumn<QString>("firstName");

        QTest::newRow("absent") << std::optional<QString>() << QString() << QString();
        QTest::newRow("blank") << std::optional(u"   "_s) << QString() << QString();
        QTest::newRow("two spaces between words")
            << std::optional(u"Ana  Lima"_s) << u"Ana  Lima"_s << u"Ana"_s;
        QTest::newRow("padded") << std::optional(u"\n Ana Lima \t"_s) << u"Ana Lima"_s << u"Ana"_s;
        QTest::newRow("one word") << std::optional(u"Ana"_s) << u"Ana"_s << u"Ana"_s;
    }

    void namesFromTheStoredProfile()
    {
        QFETCH(std::optional<QString>, stored);
        QFETCH(QString, fullName);
        QFETCH(QString, firstName);

        const TempDataDir dir;
        Preferences prefs(DataLocations::preferencesPath());
        prefs.set(Prefs::userProfileName, stored);
        QCOMPARE(UserProfile::fullName(prefs), fullName);
        QCOMPARE(UserProfile::firstName(prefs), firstName);
    }

    void mirrorWritesAndClears()
    {
        const TempDataDir dir;
        Preferences prefs(DataLocations::preferencesPath());
        prefs.set(Prefs::userProfileEmail, u"ana@example.org"_s);

        UserProfile::mirror(prefs, u"Ana Lima"_s, "png bytes"_ba);
        QCOMPARE(prefs.value(Prefs::userProfileName), u"Ana Lima"_s);
        QCOMPARE(prefs.value(Prefs::userProfileAvatar), "png bytes"_ba);

        UserProfile::mirror(prefs, std::nullopt, std::nullopt);
        QVERIFY(!prefs.contains(Prefs::userProfileName.name));
        QVERIFY(!prefs.contains(Prefs::userProfileAvatar.name));
        QCOMPARE(UserProfile::email(prefs), u"ana@example.org"_s);
    }
};

QTEST_GUILESS_MAIN(TestUserProfile)
#include "tst_userprofile.moc"
