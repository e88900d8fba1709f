#pragma once

#include <QWidget>

class QListWidget;
class QStackedWidget;

// The settings window: a list of panes on the left, the chosen pane on the right.
class SettingsWindow : public QWidget {
    Q_OBJECT
public:
    explicit SettingsWindow(QWidget *parent = nullptr);

    void addPane(const QString &title, QWidget *pane);
    // Shows the pane with this title; false when there is none.
    bool showPane(const QString &title);
    QWidget *pane(const QString &title) const;

private:
    QListWidget *m_list = nullptr;
    QStackedWidget *m_stack = nullptr;
};
