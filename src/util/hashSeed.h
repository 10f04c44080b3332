#pragma once

#include <cstddef>
#include <cstdint>

namespace Quenvale::Interceptor::SDK::Util {

/// An odd number of the process's own, drawn at load.
extern const std::uint64_t ourHashSeed;

/// Of so many characters, null for none. `start` is the seed, or the hash of what stands before
/// them.
std::uint64_t hashText(const char* text, std::size_t length, std::uint64_t start) noexcept;

}  // namespace Quenvale::Interceptor::SDK::Util
