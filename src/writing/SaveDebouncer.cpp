#include "SaveDebouncer.h"

SaveDebouncer::SaveDebouncer(QObject *parent)
    : QObject(parent)
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(delayMs);
    connect(&m_timer, &QTimer::timeout, this, &SaveDebouncer::fire);
}

void SaveDebouncer::schedule(QObject *owner, std::function<void()> save)
{
    m_pending = std::move(save);
    m_owner = owner;
    m_timer.start();
}

void SaveDebouncer::fire()
{
    m_timer.stop();
    const std::function<void()> pending = std::exchange(m_pending, {});
    const bool ownerAlive = !m_owner.isNull();
    m_owner.clear();
    if (pending && ownerAlive)
        pending();
}

void SaveDebouncer::cancel()
{
    m_timer.stop();
    m_pending = {};
    m_owner.clear();
}

void SaveDebouncer::cancel(const QObject *owner)
{
    if (m_pending && m_owner.data() == owner)
        cancel();
}
