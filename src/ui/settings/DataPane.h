#pragma once

#include <QWidget>

#include <functional>

class QLabel;

// What Tovren keeps, and the one way to remove all of it.
class DataPane : public QWidget {
    Q_OBJECT
public:
    explicit DataPane(std::function<void()> eraseAllData, QWidget *parent = nullptr);

    static inline const QString footer = QStringLiteral(
        "Permanently removes everything Tovren keeps on this computer: entries, notes, goals, "
        "people, tasks, documents, stories, recaps, your profile, saved keys and the backups "
        "here. Copies in a folder you chose stay there. This can't be undone.");
    static inline const QString confirmTitle = QStringLiteral("Erase everything?");
    static inline const QString confirmText = QStringLiteral(
        "This wipes all your Tovren data from this computer and removes any saved provider keys. "
        "The action is permanent. Consider exporting a backup first.");

    void eraseWithConfirmation();

private:
    std::function<void()> m_eraseAllData;
    QLabel *m_done = nullptr;
};
