#include "ColorScheme.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

using namespace Qt::StringLiterals;

namespace {

const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString settingsInterface = u"org.freedesktop.portal.Settings"_s;
const QString appearance = u"org.freedesktop.appearance"_s;
const QString colorSchemeKey = u"color-scheme"_s;

// Read wraps the value in one variant more than the signal does.
QVariant unwrapped(QVariant value)
{
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = qvariant_cast<QDBusVariant>(value).variant();
    return value;
}

} // namespace

ColorScheme::ColorScheme(QObject *parent)
    : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(portalService, portalPath, settingsInterface, u"SettingChanged"_s, this,
                SLOT(onSettingChanged(QString, QString, QDBusVariant)));
    QDBusMessage read =
        QDBusMessage::createMethodCall(portalService, portalPath, settingsInterface, u"Read"_s);
    read << appearance << colorSchemeKey;
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(read), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher *call) {
                call->deleteLater();
                const QDBusPendingReply<QVariant> reply = *call;
                // No portal, or one without the setting: the desktop said nothing.
                if (reply.isValid())
                    set(fromPortalValue(unwrapped(reply.value())));
            });
}

ColorScheme::Preference ColorScheme::fromPortalValue(const QVariant &value)
{
    bool ok = false;
    const uint number = unwrapped(value).toUInt(&ok);
    if (!ok)
        return Preference::none;
    switch (number) {
    case 1:
        return Preference::dark;
    case 2:
        return Preference::light;
    default:
        return Preference::none;
    }
}

void ColorScheme::onSettingChanged(const QString &group, const QString &key,
                                   const QDBusVariant &value)
{
    if (group == appearance && key == colorSchemeKey)
        set(fromPortalValue(value.variant()));
}

void ColorScheme::set(Preference preference)
{
    if (preference == m_preference)
        return;
    m_preference = preference;
    emit preferenceChanged(preference);
}
