#pragma once

#include "core/Clock.h"

#include <QByteArray>
#include <QList>
#include <QTemporaryDir>

#include <optional>

// A temporary data root and configuration folder for one test: TOVREN_DATA_DIR and
// TOVREN_CONFIG_DIR point into it while the object lives.
class TempDataDir {
public:
    TempDataDir();
    ~TempDataDir();
    TempDataDir(const TempDataDir &) = delete;
    TempDataDir &operator=(const TempDataDir &) = delete;

    bool isValid() const { return m_dir.isValid(); }
    QString path() const { return m_dir.path(); }
    QString dataRoot() const;
    QString configDir() const;

private:
    QTemporaryDir m_dir;
    QByteArray m_oldData;
    QByteArray m_oldConfig;
    bool m_hadData = false;
    bool m_hadConfig = false;
    bool m_setModelServer = false;
};

// Fixes "now" (and optionally the calendar) while the object lives.
class FixedClock {
public:
    explicit FixedClock(const QDateTime &now, std::optional<Calendar> calendar = std::nullopt);
    ~FixedClock();
    FixedClock(const FixedClock &) = delete;
    FixedClock &operator=(const FixedClock &) = delete;

    void set(const QDateTime &now) { Clock::setNow(now); }
    void advance(qint64 ms) { Clock::advance(ms); }
};

// A calendar in a named zone that starts weeks on Sunday with one-day first weeks.
Calendar testCalendar(const char *zoneId = "Europe/Berlin");

// Runs the store_writer helper on a store until it has reported `saves` saves (all of them
// when `kill` is false), then kills it with SIGKILL; returns the saves it reported.
QList<int> runStoreWriter(const QString &store, int saves, const QString &prefix, bool kill = true);
// The content store_writer gives its save `i`.
QString storeWriterContent(const QString &prefix, int i);
// A file's bytes; empty when it can't be read.
QByteArray fileContents(const QString &path);
// Writes the bytes over the file, making its folder; a failure fails the test.
void writeFile(const QString &path, const QByteArray &bytes);
