#pragma once

#include "platform/SecretStore.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QString>

#include <qcoro/qcorotask.h>

#include <coroutine>
#include <utility>

// A secret store in memory, that can also play a machine without any Secret Service, a keyring
// that refuses changes, and a slow one (reads held, as behind an unlock prompt, until released).
class MemorySecretStore final : public SecretStore {
public:
    QHash<QString, QString> items;
    bool reachable = true;
    bool refuses = false;
    bool holdReads = false;

    // Lets the held reads of one account finish, in the order they were asked.
    void release(const QString &account)
    {
        const auto waiting = std::exchange(m_held[account], {});
        m_held.remove(account);
        for (std::coroutine_handle<> read : waiting)
            read.resume();
    }
    void releaseAll()
    {
        holdReads = false;
        while (!m_held.isEmpty())
            release(m_held.firstKey());
    }
    qsizetype heldReads(const QString &account) const { return m_held.value(account).size(); }

    QCoro::Task<ReadResult> read(QString account) override
    {
        if (holdReads)
            co_await Hold{m_held[account]};
        if (!reachable)
            co_return ReadResult{Outcome::unavailable, {}};
        if (!items.contains(account))
            co_return ReadResult{Outcome::notFound, {}};
        co_return ReadResult{Outcome::done, items.value(account)};
    }
    QCoro::Task<Outcome> write(QString account, QString value) override
    {
        if (!reachable || refuses)
            co_return reachable ? Outcome::failed : Outcome::unavailable;
        items.insert(account, value);
        co_return Outcome::done;
    }
    QCoro::Task<Outcome> remove(QString account) override
    {
        if (!reachable || refuses)
            co_return reachable ? Outcome::failed : Outcome::unavailable;
        items.remove(account);
        co_return Outcome::done;
    }

private:
    struct Hold {
        QList<std::coroutine_handle<>> &queue;
        bool await_ready() const noexcept { return false; }
        void await_suspend(std::coroutine_handle<> read) { queue.append(read); }
        void await_resume() const noexcept {}
    };
    QMap<QString, QList<std::coroutine_handle<>>> m_held;
};
