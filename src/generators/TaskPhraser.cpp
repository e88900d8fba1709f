#include "generators/TaskPhraser.h"

#include "ai/AIInstructionBuilder.h"
#include "ai/OnDeviceModel.h"
#include "ai/TovrenAI.h"
#include "core/records/TaskItem.h"
#include "generators/TaskPhrasing.h"

#include <QPointer>

TaskPhraser::TaskPhraser(AIContext ai, const QObject *lifetime, QObject *parent)
    : QObject(parent)
    , m_ai(std::move(ai))
    , m_lifetime(lifetime)
{
}

void TaskPhraser::rewrite(const QList<std::shared_ptr<TaskItem>> &tasks)
{
    rewriteNow(tasks);
}

QCoro::Task<std::unique_ptr<AIClient>> TaskPhraser::phrasingClient(AIContext ai)
{
    const OnDeviceModel::State state =
        co_await OnDeviceModel::current(ai.network, ai.onDeviceServer);
    if (state.status == AppleModelStatus::available)
        co_return std::make_unique<AppleFoundationClient>(
            ai.network, ai.onDeviceServer,
            AIProviders::model(ai.preferences, AIProvider::appleFoundation));
    std::unique_ptr<AIClient> chosen = co_await TovrenAI::current(ai);
    if (dynamic_cast<AppleFoundationClient *>(chosen.get()))
        co_return std::unique_ptr<AIClient>();
    co_return chosen;
}

QCoro::Task<> TaskPhraser::rewriteNow(QList<std::shared_ptr<TaskItem>> tasks)
{
    QStringList keys;
    QStringList titles;
    for (const auto &task : tasks) {
        if (!task)
            continue;
        const QString key = TaskPhrasing::key(*task);
        if (m_cache.contains(key) || m_inFlight.contains(key) || keys.contains(key) ||
            !TaskPhrasing::hasPhrasableContent(task->title))
            continue;
        keys.append(key);
        titles.append(task->title);
    }
    if (keys.isEmpty())
        co_return;
    for (const QString &key : keys)
        m_inFlight.insert(key);

    const QPointer<TaskPhraser> self(this);
    const QPointer<const QObject> alive(m_lifetime);
    const bool bound = m_lifetime;
    const auto gone = [&] { return !self || (bound && !alive); };
    const AIContext ai = m_ai;
    const QString prompt = TaskPhrasing::prompt(titles);

    // Built outside the co_await: GCC 12 destroys temporaries there twice.
    const std::optional<QString> system = AIInstructionBuilder::systemInstruction(ai.preferences);
    std::optional<QString> answer;
    try {
        std::unique_ptr<AIClient> client = co_await phrasingClient(ai);
        if (client && !gone())
            answer = co_await client->respond(prompt, system);
    } catch (const std::exception &) {
        // The raw titles stay; a later look at the tray tries again.
    }
    if (gone())
        co_return;
    for (const QString &key : keys)
        m_inFlight.remove(key);
    if (!answer)
        co_return;

    const QStringList lines = TaskPhrasing::parseNumbered(*answer);
    // Lines that don't pair up one to one can't be trusted to belong to their task.
    if (lines.size() != keys.size())
        co_return;
    bool added = false;
    for (qsizetype i = 0; i < keys.size(); ++i) {
        if (lines.at(i).isEmpty())
            continue;
        m_cache.insert(keys.at(i), lines.at(i));
        added = true;
    }
    if (added)
        emit phrasesChanged();
}

QString TaskPhraser::phrase(const TaskItem &task) const
{
    const auto cached = m_cache.constFind(TaskPhrasing::key(task));
    return cached != m_cache.cend() ? *cached : TaskPhrasing::plainTitle(task.title);
}
