#include "PrivateSession.h"
#include "platform/ColorScheme.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

// A settings portal of our own on a private session bus, holding one color-scheme value.
class FakePortal : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
public:
    uint scheme = 0;

public slots:
    QDBusVariant Read(const QString &group, const QString &key)
    {
        if (group == u"org.freedesktop.appearance"_s && key == u"color-scheme"_s)
            return QDBusVariant(QVariant::fromValue(QDBusVariant(scheme)));
        return QDBusVariant(QVariant(QString()));
    }
};

class ColorSchemeTest : public QObject {
    Q_OBJECT

private:
    PrivateSession m_session;
    FakePortal m_portal;
    std::optional<QDBusConnection> m_portalConnection;

    void changeScheme(uint value)
    {
        m_portal.scheme = value;
        QDBusMessage signal =
            QDBusMessage::createSignal(u"/org/freedesktop/portal/desktop"_s,
                                       u"org.freedesktop.portal.Settings"_s, u"SettingChanged"_s);
        signal << u"org.freedesktop.appearance"_s << u"color-scheme"_s
               << QVariant::fromValue(QDBusVariant(value));
        QVERIFY(m_portalConnection->send(signal));
    }

private slots:
    void initTestCase()
    {
        if (const QString failed = m_session.startBus(); !failed.isEmpty())
            QFAIL(qPrintable(failed));
        m_portalConnection = QDBusConnection::connectToBus(
            qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"), u"portal"_s);
        QVERIFY(m_portalConnection->isConnected());
        QVERIFY(m_portalConnection->registerObject(u"/org/freedesktop/portal/desktop"_s, &m_portal,
                                                   QDBusConnection::ExportAllSlots));
        QVERIFY(m_portalConnection->registerService(u"org.freedesktop.portal.Desktop"_s));
    }

    void portalValues_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<ColorScheme::Preference>("preference");
        using enum ColorScheme::Preference;
        QTest::newRow("no preference") << QVariant(0u) << none;
        QTest::newRow("dark") << QVariant(1u) << dark;
        QTest::newRow("light") << QVariant(2u) << light;
        QTest::newRow("unknown number") << QVariant(7u) << none;
        QTest::newRow("wrapped") << QVariant::fromValue(QDBusVariant(1u)) << dark;
        QTest::newRow("text") << QVariant(u"dark"_s) << none;
        QTest::newRow("nothing") << QVariant() << none;
    }
    void portalValues()
    {
        QFETCH(QVariant, value);
        QFETCH(ColorScheme::Preference, preference);
        QCOMPARE(ColorScheme::fromPortalValue(value), preference);
    }

    // The first answer comes from Read, later ones from the portal's change signal.
    void followsThePortal()
    {
        m_portal.scheme = 1;
        ColorScheme scheme;
        QSignalSpy changed(&scheme, &ColorScheme::preferenceChanged);
        QTRY_COMPARE(scheme.preference(), ColorScheme::Preference::dark);
        changeScheme(2);
        QTRY_COMPARE(scheme.preference(), ColorScheme::Preference::light);
        changeScheme(0);
        QTRY_COMPARE(scheme.preference(), ColorScheme::Preference::none);
        QCOMPARE(changed.count(), 3);
    }
};

QTEST_GUILESS_MAIN(ColorSchemeTest)
#include "tst_colorscheme.moc"
