#pragma once

#include <cstdint>

#include "util/String.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// Takes a URL apart after RFC 2396, and holds the hash that names are made identifiers with.
///
/// The grammar is deliberately narrower and wider than the published one: ";" in a path, "#"
/// anywhere and an IPv6 literal are rejected, an authority may follow any number of slashes from
/// two on, and one that is not a host with a port is kept as a registry name. A rejected URL
/// changes the identifiers of the calls that use it, so none of this may move.
///
/// Nothing is unescaped, and only the scheme changes its case.
///
/// Threads:   any; the class holds no data. Letters and digits are those of the process locale.
/// Ownership: a record and all that hangs on it come from Util::allocate and are the caller's.
/// Errors:    null, also for want of memory. Nothing is logged.
class QZ_API URI {
public:
    /// Registry-based (only reg_name is set) or server-based (host, and maybe the others).
    struct authority {
        char* reg_name;      // The whole authority.
        char* userinfo;      // In front of the "@".
        char* host;          // As it stands, its case too.
        std::uint16_t port;  // 0 if none; larger numbers wrap.
    };

    /// A part that is absent is null.
    struct parsedURI {
        char* scheme;     // Lower case.
        char* opaque;     // All behind the ":" where no "/" follows it; nothing else is set then.
        authority* auth;  // None in a URL such as "file:/a".
        char** abs_path;  // The segments, ended by null.
        char* query;      // Behind the first "?".
    };

    /// The parts of a URL, for freeparsedURI(); null for null and for one that is rejected.
    static parsedURI* parseURI(const char* uri);

    /// The record too. Null is ignored.
    static void freeparsedURI(parsedURI* parsed);
    /// The texts, not the record.
    static void freeauthority(authority* auth);
    /// The entries up to the null, not the array.
    static void freeptrs(void** list);
    /// @{
    /// Sets all parts to null and the port to 0, releasing nothing. Null is ignored.
    static void nullparsedURI(parsedURI* parsed);
    static void nullauthority(authority* auth);
    /// @}

    /// The parts of an authority; null if it is rejected. `end` is the last character, not the one
    /// behind it.
    static authority* verify_fill_authority(const char* start, const char* end);
    /// The segments of a path, ended by null; null if it is rejected. `start` stands behind the
    /// leading "/", `end` is the last character.
    static char** verify_chop_abspath(const char* start, const char* end);

    /// One of "; / ? : @ & = + $ ,".
    static bool is_reserved(char c);
    /// One of "- _ . ! ~ * ' ( )".
    static bool is_mark(char c);
    /// A letter, a digit or a mark.
    static bool is_unreserved(char c);
    /// A hexadecimal digit of either case.
    static bool is_hex(char c);
    /// Whether the text starts with "%" and two hex digits.
    static bool is_escaped(const char* text);

    /// The hash of a text in its text form: 24 characters that end in "==". Null counts as empty.
    static String md5hash(const char* text);
    /// The same over several texts in a row, ended by a null pointer. Without inBase64 the raw
    /// 16 bytes taken as a text, which ends at their first zero.
    static String md5hash(bool inBase64, const char* text, ...) __attribute__((sentinel));
};

}  // namespace Quenvale::Interceptor::SDK::Util
