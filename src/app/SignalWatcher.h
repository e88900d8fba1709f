#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal on the main thread, so that the process can save
// and shut down cleanly instead of dying mid-write.
class SignalWatcher : public QObject {
    Q_OBJECT
public:
    explicit SignalWatcher(QObject *parent = nullptr);
    ~SignalWatcher() override;

signals:
    void terminationRequested(int signal);

private:
    void readSignal();

    QSocketNotifier *m_notifier = nullptr;
};
