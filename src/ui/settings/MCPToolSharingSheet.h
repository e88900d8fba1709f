#pragma once

#include <QDialog>

class Preferences;
class QLabel;

// Which groups of tools assistants see. Each switch takes effect at once.
class MCPToolSharingSheet : public QDialog {
    Q_OBJECT
public:
    explicit MCPToolSharingSheet(Preferences &preferences, QWidget *parent = nullptr);

    // "N of M": tools shared now, out of every tool there is.
    static QString sharedCountText(const Preferences &preferences);
    static QString footerText(const Preferences &preferences);

signals:
    void sharingChanged();

private:
    Preferences &m_preferences;
    QLabel *m_footer = nullptr;
};
