#pragma once

#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// The text by which the calling thread is known in log lines: the low 32 bits of its pthread_self
/// as a signed number in base 16. A malloc block that the caller owns.
QZ_API char* currentThreadKey();

}  // namespace Quenvale::Interceptor::SDK::Util
