#include "PromptFrame.h"

#include "ai/AIClient.h"
#include "ai/AIInstructionBuilder.h"
#include "ai/KnowledgeContext.h"
#include "ai/TovrenAI.h"
#include "ai/UserProfileContext.h"
#include "core/PreferenceKeys.h"
#include "core/Preferences.h"
#include "core/records/AIInteraction.h"
#include "core/store/ModelContext.h"

#include <QElapsedTimer>

using namespace Qt::StringLiterals;

namespace PromptFrame {

QString prompt(ModelContext &context, const FramedRequest &request)
{
    const bool withProfile = request.blocks != FrameBlocks::none;
    const bool withDocuments = request.blocks == FrameBlocks::profileAndDocuments;
    const QString profile = withProfile ? UserProfileContext::promptContext(context) : QString();
    const QString documents =
        withDocuments ? KnowledgeContext::promptContext(context, request.today) : QString();
    return AIInstructionBuilder::referenceMaterials(profile, documents) +
           AIInstructionBuilder::todayLine(request.today) + request.text;
}

QCoro::Task<Generation> generate(AIContext ai, ModelContext &context, FramedRequest request)
{
    Generation generation;
    generation.prompt = prompt(context, request);
    const QString system = AIInstructionBuilder::systemInstruction(ai.preferences);
    const std::unique_ptr<AIClient> client = co_await TovrenAI::current(ai);
    QElapsedTimer timer;
    timer.start();
    generation.answer = co_await client->respond(generation.prompt, system);
    generation.durationMs = timer.elapsed();
    co_return generation;
}

void log(ModelContext &context, const Preferences &preferences, const Generation &generation,
         const InteractionLog &entry)
{
    // The provider as stored, even a word no client knows: the log says what was configured.
    const QString provider =
        preferences.textValue(Prefs::aiProvider.name).value_or(u"appleFoundation"_s);
    context.insert(std::make_shared<AIInteraction>(
        entry.feature, generation.prompt, entry.response, entry.referenceId, entry.referenceType,
        generation.durationMs, entry.promptVersion, provider));
    context.trySave();
}

} // namespace PromptFrame
