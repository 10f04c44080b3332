#pragma once

#include <atomic>
#include <cstdint>

#include "util/String.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK::Util {

/// @file
/// Unique ids that any process makes alone: 16 bytes, as text 24 characters that end in "==".
///
///     0 to 3    IPv4 address of the host in network order, 0 if it cannot be found
///     4, 5      low 16 bits of the process id, low byte first
///     6 to 11   milliseconds of the wall clock at load, low 48 bits, low byte first
///     12 to 15  a counter, low byte first
///
/// Threads: any. Ids of a process are unique until the counter wraps after 2^32 of them.

extern unsigned char* __base;  // The first 12 bytes; null if memory was short at load.
extern const char* baseText;   // Its 16 characters in every id; null as the base is.

/// It has a cache line to itself: each id writes it, and what stood beside it would have to be
/// fetched anew by all other threads.
struct alignas(64) SerialCounter : std::atomic<std::uint32_t> {
    using atomic::atomic;
    using atomic::operator=;
};
extern SerialCounter counter;  // The last 4 of the next id.
extern qzmutex& itsLock;       // Held while a base is made after load.

/// A new id as text.
QZ_API String newGuid();

/// Stores a new id in 16 bytes.
QZ_API void getBytes(unsigned char* bytes);

/// A fresh base in a block that the caller releases; null if there is no memory. It looks up the
/// host's own name, so it belongs at load and not in a call.
QZ_API unsigned char* _getBase();

/// The text of a base, which the caller releases; null for null or if there is no memory.
char* textOfBase(const unsigned char* base);

}  // namespace Quenvale::Interceptor::SDK::Util
