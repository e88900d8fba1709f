#include "BenchProbe.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <cstdio>

namespace {

bool requested(const char *variable)
{
    return qEnvironmentVariableIntValue(variable) != 0;
}

// A timer due every 10 ms fires late by as long as the loop was busy.
class StallWatch : public QObject {
public:
    explicit StallWatch(QObject *parent)
        : QObject(parent)
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(tickMs);
        connect(&m_timer, &QTimer::timeout, this, [this] {
            const qint64 late = m_clock.restart() - tickMs;
            m_longest = std::max(m_longest, late);
        });
        // Start-up isn't a stall: the watch begins once the loop runs.
        QTimer::singleShot(0, this, [this] {
            m_clock.start();
            m_timer.start();
        });
    }
    ~StallWatch() override
    {
        std::printf("tovren: longest stall %lld ms\n", static_cast<long long>(m_longest));
        std::fflush(stdout);
    }

private:
    static constexpr int tickMs = 10;
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_longest = 0;
};

} // namespace

namespace BenchProbe {

void install(QCoreApplication &application)
{
    if (requested("TOVREN_REPORT_STALLS"))
        new StallWatch(&application);
}

void firstPageShown()
{
    static bool reported = false;
    if (reported || !requested("TOVREN_REPORT_FIRST_PAGE"))
        return;
    reported = true;
    std::printf("tovren: first page shown\n");
    std::fflush(stdout);
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
}

} // namespace BenchProbe
