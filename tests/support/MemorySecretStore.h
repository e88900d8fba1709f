#pragma once

#include "platform/SecretStore.h"

#include <QHash>
#include <QString>

#include <qcoro/qcorotask.h>

// A secret store in memory, that can also play a machine without any Secret Service.
class MemorySecretStore final : public SecretStore {
public:
    QHash<QString, QString> items;
    bool reachable = true;

    QCoro::Task<ReadResult> read(QString account) override
    {
        if (!reachable)
            co_return ReadResult{Outcome::unavailable, {}};
        if (!items.contains(account))
            co_return ReadResult{Outcome::notFound, {}};
        co_return ReadResult{Outcome::done, items.value(account)};
    }
    QCoro::Task<Outcome> write(QString account, QString value) override
    {
        if (!reachable)
            co_return Outcome::unavailable;
        items.insert(account, value);
        co_return Outcome::done;
    }
    QCoro::Task<Outcome> remove(QString account) override
    {
        if (!reachable)
            co_return Outcome::unavailable;
        items.remove(account);
        co_return Outcome::done;
    }
};
