#pragma once

#include "ai/AIClient.h"

#include <memory>

struct AIContext;

namespace TovrenAI {

// A client for the provider, model and key stored right now, made afresh for each generation
// so a change in Settings counts on the next one. Never touches the network. Throws
// AIClientError::missingEndpoint for the custom provider without a usable address.
QCoro::Task<std::unique_ptr<AIClient>> current(const AIContext &context);

} // namespace TovrenAI
