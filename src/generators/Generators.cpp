#include "generators/Generators.h"

#include "generators/EntrySummaryGenerator.h"
#include "generators/TaskPhraser.h"

Generators::Generators(AIContext ai, ModelContext &context, const QObject *lifetime)
    : m_ai(std::move(ai))
    , m_context(context)
    , m_lifetime(lifetime)
    , m_taskPhraser(std::make_unique<TaskPhraser>(m_ai, lifetime))
{
}

Generators::~Generators() = default;

EntrySummaryGenerator *Generators::createEntrySummaryGenerator(QObject *parent)
{
    return new EntrySummaryGenerator(m_ai, m_context, m_lifetime, parent);
}
