#pragma once

#include <QDBusVariant>
#include <QObject>

// The desktop's light or dark preference, from the settings portal that GNOME, KDE and others
// offer on the session bus. Asked without blocking; changes arrive as they happen.
class ColorScheme : public QObject {
    Q_OBJECT
public:
    enum class Preference { none, dark, light };

    explicit ColorScheme(QObject *parent = nullptr);

    Preference preference() const { return m_preference; }

    // The portal's number (0 no preference, 1 dark, 2 light) as a preference; anything else
    // counts as none.
    static Preference fromPortalValue(const QVariant &value);

signals:
    void preferenceChanged(ColorScheme::Preference preference);

private slots:
    void onSettingChanged(const QString &group, const QString &key, const QDBusVariant &value);

private:
    void set(Preference preference);

    Preference m_preference = Preference::none;
};
