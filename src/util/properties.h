#pragma once

#include <cstdio>

#include "util/Map.h"
#include "util/StreamReader.h"
#include "util/String.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// @file
/// Properties, one on a line: a key, "=" or else ":", a value, with blanks trimmed around both. The
/// first empty line ends them. A line without key or value is skipped, a later line with the same
/// key replaces the value. There is no comment, no escape and no continuation.
///
/// Each form gives a new map that the caller owns, with as much in it as could be read. None lets
/// an exception out for what it reads.

/// Reads on from where the reader stands, and leaves it open.
QZ_API Map<String>* loadProperties(StreamReader& reader);

/// A file that can't be opened gives an empty map.
QZ_API Map<String>* loadProperties(String path);

/// Reads on from where the file stands and closes it. The name has no effect.
QZ_API Map<String>* loadProperties(const char* name, std::FILE* file);

}  // namespace Quenvale::Interceptor::SDK::Util
