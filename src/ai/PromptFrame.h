#pragma once

#include "ai/AIContext.h"

#include <QDateTime>
#include <QString>

#include <qcoro/qcorotask.h>

#include <optional>

class ModelContext;

// Which of the user's own material goes ahead of a generator's text.
enum class FrameBlocks { none, profile, profileAndDocuments };

// One generation: the frame's blocks, the date of the today line, then the generator's own text
// with the user's material last. Generators say what they send; the order is kept here.
struct FramedRequest {
    FrameBlocks blocks = FrameBlocks::profile;
    QDateTime today;
    QString text;
};

// What came back from one call, and what was sent for it.
struct Generation {
    QString prompt; // as sent; the system text goes separately and is the same for every call
    QString answer; // untouched
    qint64 durationMs = 0;
};

// How a kept answer is logged as an AIInteraction.
struct InteractionLog {
    QString feature;
    QString response; // the text that was kept, after the generator's cleaning
    QString promptVersion;
    std::optional<QString> referenceId = std::nullopt;
    std::optional<QString> referenceType = std::nullopt;
};

namespace PromptFrame {

// Reference materials (profile, documents) for the blocks asked, the today line, the text.
QString prompt(ModelContext &context, const FramedRequest &request);

// Sends the framed prompt with the system text to the client the user has chosen, timing the
// call. Throws AIClientError. The context must outlive the call.
QCoro::Task<Generation> generate(AIContext ai, ModelContext &context, FramedRequest request);

// Inserts the AIInteraction of a kept answer and saves it; a failed save is ignored.
void log(ModelContext &context, const Preferences &preferences, const Generation &generation,
         const InteractionLog &entry);

} // namespace PromptFrame
