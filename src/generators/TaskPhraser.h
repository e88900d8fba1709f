#pragma once

#include "ai/AIContext.h"

#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

#include <qcoro/qcorotask.h>

#include <memory>

class AIClient;
class TaskItem;

// Turns today's completed to-dos, terse titles, into past-tense phrases for the page. The
// phrases live in memory for this process only; every failure leaves the raw titles in place.
class TaskPhraser : public QObject {
    Q_OBJECT
public:
    // With `lifetime`, work under way ends without a word once that object is gone.
    explicit TaskPhraser(AIContext ai, const QObject *lifetime = nullptr,
                         QObject *parent = nullptr);

    // Starts phrasing the tasks not phrased or being phrased yet, in one request; returns at once.
    void rewrite(const QList<std::shared_ptr<TaskItem>> &tasks);
    // The same, finishing when the answer is in (or the work was given up).
    QCoro::Task<> rewriteNow(QList<std::shared_ptr<TaskItem>> tasks);

    // The phrase when there is one, else the title as the page shows it plain.
    QString phrase(const TaskItem &task) const;
    bool isRewriting() const { return !m_inFlight.isEmpty(); }

    // The on-device model whenever it can answer, whatever provider is chosen: phrasing is
    // frequent and small. Otherwise the chosen provider, unless that is the on-device model
    // again, and then none.
    static QCoro::Task<std::unique_ptr<AIClient>> phrasingClient(AIContext ai);

signals:
    void phrasesChanged();

private:
    AIContext m_ai;
    const QObject *m_lifetime;
    QHash<QString, QString> m_cache;
    QSet<QString> m_inFlight;
};
