#pragma once

#include "ai/AIContext.h"

#include <QObject>

#include <memory>

class EntrySummaryGenerator;
class ModelContext;
class TaskPhraser;

// Everything that writes for the user, and what it writes with: the AI engine, the main store
// and the lifetime that ends background work when Tovren closes.
class Generators {
public:
    Generators(AIContext ai, ModelContext &context, const QObject *lifetime);
    ~Generators();
    Generators(const Generators &) = delete;
    Generators &operator=(const Generators &) = delete;

    // Shared by every view of today's completed tasks, so a phrase is asked for once.
    TaskPhraser &taskPhraser() { return *m_taskPhraser; }
    // One per journal screen, owned by `parent`.
    EntrySummaryGenerator *createEntrySummaryGenerator(QObject *parent);

private:
    AIContext m_ai;
    ModelContext &m_context;
    const QObject *m_lifetime;
    std::unique_ptr<TaskPhraser> m_taskPhraser;
};
