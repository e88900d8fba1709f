#pragma once

#include "bridge/AIConnector.h"

#include <QWidget>

class QComboBox;
class QLabel;
class QVBoxLayout;

// Which assistant the user wants to connect, and exactly what to paste or fill in for it.
class AIConnectorPicker : public QWidget {
    Q_OBJECT
public:
    AIConnectorPicker(const AIConnector::Bridge &bridge, bool compact, QWidget *parent = nullptr);

    QString selectedId() const { return m_current.id; }
    void select(const QString &id);

private:
    void rebuild();
    QWidget *payloadView(const AIConnector &connector);
    QWidget *snippetView(const QString &text);

    QList<AIConnector> m_connectors;
    AIConnector m_current;
    bool m_compact;
    QComboBox *m_choice = nullptr;
    QWidget *m_body = nullptr;
    QVBoxLayout *m_bodyLayout = nullptr;
};
