#pragma once

#include "ai/AIContext.h"
#include "ai/AIProvider.h"
#include "ai/PendingEndpoint.h"

#include <QStringList>
#include <QUrl>
#include <QWidget>

#include <qcoro/qcorotask.h>

#include <optional>

class ModelContext;
class QComboBox;
class QFormLayout;
class QGroupBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;
class QToolButton;
class QVBoxLayout;

// Settings → AI: which provider writes for the user, its key, model and address, a test of the
// connection, the answer to an assistant's request to use another endpoint, the language of
// generated text, and, given the store, the log of what was sent.
class AIProviderPane : public QWidget {
    Q_OBJECT
public:
    explicit AIProviderPane(AIContext context, ModelContext *log = nullptr,
                            QWidget *parent = nullptr);

    // An address an assistant asked Tovren to use; nothing hides the request.
    void setPendingEndpoint(std::optional<PendingEndpoint> endpoint);

signals:
    void pendingEndpointApproved(const QUrl &endpoint);
    void pendingEndpointDeclined(const QUrl &endpoint);
    // Loading, fetching, detecting, saving or testing has finished; for tests and the window.
    void settled();

private:
    AIProvider provider() const;
    void providerPicked();
    void updateRows();
    // Save, Test and the key field wait until the current provider's key has been read.
    void updateActions();
    void updateModelHint();
    void showModels(const QStringList &models);
    void flash(const QString &text);
    void addLanguageRow(QVBoxLayout *column);
    // "Automatic", naming the language recognised in the user's writing once there is one.
    QString automaticLanguageLabel() const;
    // Asks before the first key of a remote provider is saved; false when the user declined.
    bool consentGiven();
    template<class T>
    void start(QCoro::Task<T> &&task)
    {
        QCoro::connect(std::move(task), this, [this](auto &&...) { emit settled(); });
    }

    QCoro::Task<> loadForCurrentProvider(bool refreshStaleModels = true);
    QCoro::Task<> approvePending(PendingEndpoint endpoint);
    QCoro::Task<> refreshModels(bool announceNothingNew);
    QCoro::Task<> detectAndRefresh();
    // False when the keyring refused the key or its removal; the pane has said so.
    QCoro::Task<bool> saveCurrent();
    QCoro::Task<> removeCurrent();
    // Takes the stored key away and says whether it went.
    QCoro::Task<bool> removeKey(AIProvider provider);
    QCoro::Task<> runTest();

    AIContext m_context;
    ModelContext *m_log = nullptr;
    int m_loadGeneration = 0;
    bool m_keyLoaded = false;
    bool m_hasStoredKey = false;
    bool m_isFetchingModels = false;
    bool m_isDetecting = false;
    bool m_isTesting = false;
    std::optional<PendingEndpoint> m_pendingEndpoint;

    QFormLayout *m_form = nullptr;
    QComboBox *m_provider = nullptr;
    QLabel *m_where = nullptr;
    QLabel *m_onDeviceStatus = nullptr;
    QLineEdit *m_address = nullptr;
    QLabel *m_addressHint = nullptr;
    QLabel *m_detected = nullptr;
    QWidget *m_keyRow = nullptr;
    QLineEdit *m_key = nullptr;
    QPushButton *m_terminalKey = nullptr;
    QLabel *m_keyHint = nullptr;
    QLabel *m_keyFallback = nullptr;
    QWidget *m_modelRow = nullptr;
    QComboBox *m_model = nullptr;
    QToolButton *m_reload = nullptr;
    QLabel *m_modelHint = nullptr;
    QLabel *m_catalogNote = nullptr;
    QPushButton *m_save = nullptr;
    QPushButton *m_removeKey = nullptr;
    QPushButton *m_test = nullptr;
    QLabel *m_savedNote = nullptr;
    QLabel *m_testResult = nullptr;
    QTimer *m_savedNoteTimer = nullptr;
    QGroupBox *m_pending = nullptr;
    QLabel *m_pendingTitle = nullptr;
    QComboBox *m_language = nullptr;
};
