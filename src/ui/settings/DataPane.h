#pragma once

#include <QWidget>

#include <qcoro/qcorotask.h>

#include <functional>

class QLabel;
class QPushButton;

// What Tovren keeps, and the one way to remove all of it.
class DataPane : public QWidget {
    Q_OBJECT
public:
    // The erase empties the store and reports whether the saved provider keys went too.
    using Erase = std::function<QCoro::Task<bool>()>;

    explicit DataPane(Erase eraseAllData, QWidget *parent = nullptr);

    static inline const QString footer = QStringLiteral(
        "Permanently removes everything Tovren keeps on this computer: entries, notes, goals, "
        "people, tasks, documents, stories, recaps, your profile, saved keys and the backups "
        "here. Copies in a folder you chose stay there. This can't be undone.");
    static inline const QString confirmTitle = QStringLiteral("Erase everything?");
    static inline const QString confirmText = QStringLiteral(
        "This wipes all your Tovren data from this computer and removes any saved provider keys. "
        "The action is permanent. Consider exporting a backup first.");
    static inline const QString doneText =
        QStringLiteral("Everything was erased. Tovren starts again from an empty journal.");
    static inline const QString keysLeftText = QStringLiteral(
        "Your journal and profile were erased, but the keyring refused to remove the saved "
        "provider keys, so they are still on this computer. Unlock your keyring and choose "
        "Erase All Data again, or remove each key under Connections.");

    void eraseWithConfirmation();

signals:
    // The erase has finished and its outcome is shown.
    void finished();

private:
    Erase m_eraseAllData;
    QPushButton *m_erase = nullptr;
    QLabel *m_done = nullptr;
};
