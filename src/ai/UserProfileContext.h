#pragma once

#include <QString>

class ModelContext;

// Who the user is, from the About Me document, for the head of a prompt.
namespace UserProfileContext {

// Empty without an About Me document or with nothing in it; a failed fetch reads as none.
QString promptContext(ModelContext &context);

} // namespace UserProfileContext
