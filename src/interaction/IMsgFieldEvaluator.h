#pragma once

#include "util/String.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

/// Finds the value of a message field in a text. It is implemented by callers of the classes, who
/// hand theirs to InteractionStub::setEvaluators(); none comes with the library.
///
/// Threads: called on the thread that works on the interaction.
class QZ_API IMsgFieldEvaluator {
public:
    /// Empty when this evaluator has no value for the field.
    virtual Util::String evaluate(const Util::String& name, const Util::String& text) = 0;
    virtual ~IMsgFieldEvaluator() = default;
};

}  // namespace Quenvale::Interceptor::SDK
