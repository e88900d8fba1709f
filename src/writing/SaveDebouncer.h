#pragma once

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <functional>

// The one pending save of the journal page: every change replaces it and restarts the wait,
// and the moments that can't wait (a new day, closing, quitting) run it at once. One object
// for the process, owned by the application, so that a second editor's change replaces the
// first's pending save, which is why leaving a page saves at once.
class SaveDebouncer : public QObject {
    Q_OBJECT
public:
    static constexpr int delayMs = 1500;

    explicit SaveDebouncer(QObject *parent = nullptr);

    // Replaces the pending save with `save`, run after the delay unless fired or cancelled.
    // Nothing runs if `owner` is gone by then.
    void schedule(QObject *owner, std::function<void()> save);
    // Runs the pending save now.
    void fire();
    void cancel();
    // Cancels only a save that `owner` scheduled.
    void cancel(const QObject *owner);

    bool isPending() const { return bool(m_pending); }
    const QObject *pendingOwner() const { return m_owner.data(); }

private:
    QTimer m_timer;
    std::function<void()> m_pending;
    QPointer<QObject> m_owner;
};
