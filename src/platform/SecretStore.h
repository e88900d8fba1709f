#pragma once

#include <QString>

#include <qcoro/qcorotask.h>

// Secrets by account under one service name. Behind this small interface so tests and other
// platforms can put something else there.
class SecretStore {
public:
    enum class Outcome {
        done,
        notFound,
        // No secret service answers at all: the caller may keep the secret elsewhere.
        unavailable,
        // A service answered but refused (locked, denied, broken).
        failed,
    };
    struct ReadResult {
        Outcome outcome = Outcome::failed;
        QString value;
    };

    virtual ~SecretStore() = default;

    virtual QCoro::Task<ReadResult> read(QString account) = 0;
    virtual QCoro::Task<Outcome> write(QString account, QString value) = 0;
    virtual QCoro::Task<Outcome> remove(QString account) = 0;
};

// The desktop's Secret Service (GNOME Keyring, KWallet and the like) through QtKeychain.
class SecretServiceStore final : public SecretStore {
public:
    explicit SecretServiceStore(QString service);

    QCoro::Task<ReadResult> read(QString account) override;
    QCoro::Task<Outcome> write(QString account, QString value) override;
    QCoro::Task<Outcome> remove(QString account) override;

    // Whether the session bus has, or can start, a Secret Service. Asked before every job so
    // that a missing service never reaches the keychain library, which may wait on it.
    static QCoro::Task<bool> serviceReachable();

private:
    QString m_service;
};
