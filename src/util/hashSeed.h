#pragma once

#include <cstdint>

namespace Quenvale::Interceptor::SDK::Util {

/// An odd number of the process's own, drawn at load.
extern const std::uint64_t ourHashSeed;

}  // namespace Quenvale::Interceptor::SDK::Util
