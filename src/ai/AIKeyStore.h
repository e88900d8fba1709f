#pragma once

#include <QString>

#include <qcoro/qcorotask.h>

#include <optional>

class SecretStore;

// The providers' API keys, one per account "ai-key-{provider}", under the service
// "com.tovren.ai-keys" of the Secret Service. When no Secret Service answers, keys go to a file
// only the user can read, beside the preferences, and Settings says so.
class AIKeyStore {
public:
    static const QString service;

    explicit AIKeyStore(SecretStore &secrets, QString fallbackPath = defaultFallbackPath());

    // <config dir>/ai-keys.json
    static QString defaultFallbackPath();

    // Nothing when absent or when the store can't be read.
    QCoro::Task<std::optional<QString>> read(QString account);
    // Replaces any earlier key; says whether it was kept.
    QCoro::Task<bool> write(QString value, QString account);
    // True once neither the keyring nor the file holds a key for the account any more.
    QCoro::Task<bool> remove(QString account);
    // Every provider's key, for erasing all data; true when all of them are gone.
    QCoro::Task<bool> removeAllProviderKeys();

    // Whether the last operation had to use the file.
    bool usesFallbackFile() const { return m_usedFallback; }
    // The plain-words sentence for Settings; empty while keys are in the Secret Service.
    QString fallbackNotice() const;
    const QString &fallbackPath() const { return m_fallbackPath; }

private:
    std::optional<QString> readFile(const QString &account) const;
    bool writeFile(const QString &account, const std::optional<QString> &value) const;

    SecretStore *m_secrets;
    QString m_fallbackPath;
    bool m_usedFallback = false;
};
