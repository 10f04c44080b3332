#pragma once

#include "util/String.h"

namespace Quenvale::Interceptor::SDK::Util {

/// The alphabet; a character's place is its value.
inline constexpr char base64_chars[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The text form of hashes and unique ids.
///
/// Threads: any; there is no state.
namespace base64 {

/// The standard encoding with "=" padding. Null or nothing to encode gives the empty text.
QZ_API String encode(const char* bytes, int length);

/// The same for 16 bytes, which is what hashes and unique ids are.
QZ_API String encode16(const unsigned char* bytes);

/// Not the inverse of encode(): it packs the characters themselves, not their positions in the
/// alphabet. It stops at "=" and at the first character outside the alphabet, and the result ends
/// at its first zero byte. Null gives NIL.
QZ_API String decode(const char* text);

}  // namespace base64

}  // namespace Quenvale::Interceptor::SDK::Util
