#pragma once

#include <cstdint>

#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// The hash that every identifier is made with. It takes the steps of RFC 1321, but in 64-bit words
/// that are never cut to 32 bits: what a rotation pushes above bit 31 stays in the word and comes
/// back with the next right shift. The output therefore differs from the published digest for
/// nearly every input, all participants derive their identifiers with it, and no library's MD5 can
/// stand in.
///
/// Use:     Init, any number of Updates, Final. Final wipes the context.
/// Threads: a context belongs to one thread at a time; there is no other state.
struct Quenvale_MD5Context {
    std::uint64_t state[4];    // The four words.
    std::uint64_t count[2];    // bits so far, and what the published form counts above 32 bits
    unsigned char buffer[64];  // What does not fill a block yet.
};

/// Begins a hash.
QZ_API void Quenvale_MD5Init(Quenvale_MD5Context* context);
/// Adds `length` bytes, of which nothing is kept.
QZ_API void Quenvale_MD5Update(Quenvale_MD5Context* context, const unsigned char* input,
                               unsigned int length);
/// Stores the hash, the low 32 bits of each word, low byte first.
QZ_API void Quenvale_MD5Final(unsigned char digest[16], Quenvale_MD5Context* context);

}  // namespace Quenvale::Interceptor::SDK::Util
