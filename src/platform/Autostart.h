#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// "Open at login": an XDG autostart entry, $XDG_CONFIG_HOME/autostart/tovren.desktop, that
// starts Tovren in the background when the user logs in. The file is the only state, so the
// desktop's own startup settings and Tovren always agree.
namespace Autostart {

QString filePath();

// Re-reads the file: present, and not switched off by the desktop's startup settings.
bool isEnabled();

// Writes or removes the entry. Returns what went wrong, in words for the user, or nothing.
std::optional<QString> setEnabled(bool enabled);

// The entry for a given program path, quoted as desktop files require.
QByteArray entryText(const QString &program);

// The running tovren when it is one, so a build outside PATH still starts at login.
QString program();

} // namespace Autostart
