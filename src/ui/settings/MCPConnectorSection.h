#pragma once

#include "OpenAtLoginToggle.h"
#include "bridge/AIConnector.h"

#include <QWidget>

class MCPServer;
class Preferences;
class QCheckBox;
class QLabel;
class QPushButton;

// The assistant settings: the consent to let assistants in, the listener's status, which
// tools they see, and how to connect each of them.
class MCPConnectorSection : public QWidget {
    Q_OBJECT
public:
    MCPConnectorSection(Preferences &preferences, MCPServer &server,
                        const AIConnector::Bridge &bridge, OpenAtLoginToggle::LoginItem loginItem,
                        QWidget *parent = nullptr);

    static inline const QString consentTitle = QStringLiteral("Let your assistant use Tovren?");
    static inline const QString consentText = QStringLiteral(
        "Your assistant will be able to read your journal, tasks, people and goals, and to write "
        "entries, recaps and stories back. Tovren listens only on this computer, never on your "
        "network. You can turn this off at any time.");

    void openSharingSheet();

private:
    void onSwitchToggled(bool on);
    void refresh();

    Preferences &m_preferences;
    MCPServer &m_server;
    QCheckBox *m_switch = nullptr;
    QLabel *m_under = nullptr;
    QWidget *m_whileOn = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_disconnect = nullptr;
    QLabel *m_sharedCount = nullptr;
};
