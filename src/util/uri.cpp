#include "util/uri.h"

#include <cctype>
#include <cstdarg>
#include <cstddef>
#include <cstring>

#include "util/base64.h"
#include "util/blocks.h"
#include "util/md5.h"

namespace Quenvale::Interceptor::SDK::Util {

namespace {

// In this file a range ends behind its last character; only the two public checks take the last.

bool isLetter(char c) {
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

bool isAlphanumeric(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Unreserved, or the start of an escape that lies within the range.
bool isPlain(const char* at, const char* end) {
    return URI::is_unreserved(*at) || (end - at >= 3 && URI::is_escaped(at));
}

bool isPathMark(char c) {
    return c == ':' || c == '@' || c == '&' || c == '=' || c == '+' || c == '$' || c == ',';
}

bool isAuthorityMark(char c) {
    return isPathMark(c) || c == ';';
}

// What may stand in an opaque part and in a query.
bool isUric(const char* start, const char* end) {
    for (const char* p = start; p < end; ++p)
        if (!URI::is_reserved(*p) && !isPlain(p, end)) return false;
    return true;
}

char* copyRange(const char* start, const char* end) {
    return duplicate(start, static_cast<std::size_t>(end - start));
}

void drop(char*& text) {
    release(text);
    text = nullptr;
}

bool isHost(const char* start, const char* end) {
    if (start >= end) return false;
    for (const char* p = start; p < end; ++p) {
        const bool isFirst = p == start;
        const bool isLast = p + 1 == end;
        if (isAlphanumeric(*p)) continue;
        if (*p == '-' && !isFirst && !isLast && isAlphanumeric(p[-1]) && isAlphanumeric(p[1]))
            continue;
        if (*p == '.' && !isFirst && (isLast || p[1] != '.')) continue;
        return false;
    }
    return true;
}

bool readPort(const char* start, const char* end, std::uint16_t* port) {
    unsigned int value = 0;
    for (const char* p = start; p < end; ++p) {
        if (!isDigit(*p)) return false;
        value = (value * 10 + static_cast<unsigned int>(*p - '0')) & 0xffff;
    }
    *port = static_cast<std::uint16_t>(value);
    return true;
}

// Where the "@" and ":" of an authority stand.
struct Landmarks {
    int atCount = 0;
    int colonCount = 0;
    const char* firstAt = nullptr;
    const char* lastColon = nullptr;
};

bool surveyAuthority(const char* start, const char* end, Landmarks* marks) {
    for (const char* p = start; p < end; ++p) {
        if (!isAuthorityMark(*p) && !isPlain(p, end)) return false;
        if (*p == '@' && marks->atCount++ == 0) marks->firstAt = p;
        if (*p == ':') {
            ++marks->colonCount;
            marks->lastColon = p;
        }
    }
    return true;
}

// False where the authority has to be a registry name; what was filled in by then stays.
bool fillServer(URI::authority* auth, const char* start, const char* end, const Landmarks& marks) {
    if (marks.atCount > 1 || (marks.atCount == 0 && marks.colonCount > 1)) return false;

    const char* host = start;
    if (marks.firstAt != nullptr) {
        host = marks.firstAt + 1;
        if (marks.firstAt != start) auth->userinfo = copyRange(start, marks.firstAt);
    }
    const bool hasPort = marks.lastColon != nullptr && marks.lastColon >= host;
    const char* hostEnd = hasPort ? marks.lastColon : end;
    if (!isHost(host, hostEnd)) return false;
    auth->host = copyRange(host, hostEnd);
    return !hasPort || readPort(marks.lastColon + 1, end, &auth->port);
}

// The part from the authority on, `rest` being the second of the slashes. False is a rejection.
bool fillFromAuthority(URI::parsedURI* parsed, const char* rest) {
    while (*rest == '/') ++rest;
    if (*rest == '\0' || *rest == '?') return false;
    const char* end = rest + std::strcspn(rest, "/?");
    parsed->auth = URI::verify_fill_authority(rest, end - 1);
    if (parsed->auth == nullptr) return false;
    if (*end != '/' || end[1] == '\0' || end[1] == '?') return true;
    const char* path = end + 1;
    parsed->abs_path = URI::verify_chop_abspath(path, path + std::strcspn(path, "?") - 1);
    return parsed->abs_path != nullptr;
}

bool fill(URI::parsedURI* parsed, const char* uri) {
    if (!isLetter(*uri)) return false;
    const char* colon = uri + 1;
    while (isAlphanumeric(*colon) || *colon == '+' || *colon == '-' || *colon == '.') ++colon;
    if (*colon != ':' || colon[1] == '\0') return false;
    parsed->scheme = copyRange(uri, colon);
    if (parsed->scheme == nullptr) return false;
    for (char* p = parsed->scheme; *p != '\0'; ++p)
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));

    const char* rest = colon + 1;
    if (*rest != '/') {
        const char* end = rest + std::strlen(rest);
        if (!isUric(rest, end)) return false;
        parsed->opaque = copyRange(rest, end);
        return parsed->opaque != nullptr;
    }
    ++rest;
    if (*rest == '\0' || *rest == '?') return false;
    if (*rest == '/') {
        if (!fillFromAuthority(parsed, rest)) return false;
    } else {
        parsed->abs_path = URI::verify_chop_abspath(rest, rest + std::strcspn(rest, "?") - 1);
        if (parsed->abs_path == nullptr) return false;
    }

    const char* mark = std::strchr(rest, '?');
    if (mark == nullptr || mark[1] == '\0') return true;
    const char* query = mark + 1;
    const char* end = query + std::strlen(query);
    if (!isUric(query, end)) return false;
    parsed->query = copyRange(query, end);
    return parsed->query != nullptr;
}

void update(Quenvale_MD5Context* context, const char* text) {
    Quenvale_MD5Update(context, reinterpret_cast<const unsigned char*>(text),
                       static_cast<unsigned int>(std::strlen(text)));
}

String finish(Quenvale_MD5Context* context, bool inBase64) {
    char digest[17];
    Quenvale_MD5Final(reinterpret_cast<unsigned char*>(digest), context);
    digest[16] = '\0';
    return inBase64 ? base64::encode16(reinterpret_cast<const unsigned char*>(digest))
                    : String(digest);
}

}  // namespace

URI::parsedURI* URI::parseURI(const char* uri) {
    if (uri == nullptr) return nullptr;
    auto* parsed = static_cast<parsedURI*>(allocate(sizeof(parsedURI)));
    if (parsed == nullptr) return nullptr;
    nullparsedURI(parsed);
    if (fill(parsed, uri)) return parsed;
    freeparsedURI(parsed);
    return nullptr;
}

void URI::freeparsedURI(parsedURI* parsed) {
    if (parsed == nullptr) return;
    release(parsed->scheme);
    release(parsed->opaque);
    freeauthority(parsed->auth);
    release(parsed->auth);
    freeptrs(reinterpret_cast<void**>(parsed->abs_path));
    release(parsed->abs_path);
    release(parsed->query);
    release(parsed);
}

void URI::freeauthority(authority* auth) {
    if (auth == nullptr) return;
    drop(auth->reg_name);
    drop(auth->userinfo);
    drop(auth->host);
    auth->port = 0;
}

void URI::freeptrs(void** list) {
    if (list == nullptr) return;
    for (; *list != nullptr; ++list) {
        release(*list);
        *list = nullptr;
    }
}

void URI::nullparsedURI(parsedURI* parsed) {
    if (parsed != nullptr) *parsed = {};
}

void URI::nullauthority(authority* auth) {
    if (auth != nullptr) *auth = {};
}

URI::authority* URI::verify_fill_authority(const char* start, const char* end) {
    if (start == nullptr || end < start) return nullptr;
    const char* const behind = end + 1;
    Landmarks marks;
    if (!surveyAuthority(start, behind, &marks)) return nullptr;
    auto* auth = static_cast<authority*>(allocate(sizeof(authority)));
    if (auth == nullptr) return nullptr;
    nullauthority(auth);
    if (!fillServer(auth, start, behind, marks)) {
        // Not good enough for a host is no refusal.
        freeauthority(auth);
        auth->reg_name = copyRange(start, behind);
    }
    if (auth->host != nullptr || auth->reg_name != nullptr) return auth;
    freeauthority(auth);
    release(auth);
    return nullptr;
}

char** URI::verify_chop_abspath(const char* start, const char* end) {
    if (start == nullptr || end < start) return nullptr;
    const char* const behind = end + 1;
    std::size_t count = 1;
    for (const char* p = start; p < behind; ++p) {
        if (*p == '/') {
            if (p == end) break;
            if (p[1] == '/') return nullptr;
            ++count;
        } else if (!isPathMark(*p) && !isPlain(p, behind)) {
            return nullptr;
        }
    }

    auto** segments = static_cast<char**>(allocateZeroed((count + 1) * sizeof(char*)));
    if (segments == nullptr) return nullptr;
    const char* segment = start;
    for (std::size_t i = 0; i < count; ++i) {
        const auto* slash = static_cast<const char*>(
            std::memchr(segment, '/', static_cast<std::size_t>(behind - segment)));
        const char* segmentEnd = slash == nullptr ? behind : slash;
        segments[i] = copyRange(segment, segmentEnd);
        if (segments[i] == nullptr) {
            freeptrs(reinterpret_cast<void**>(segments));
            release(segments);
            return nullptr;
        }
        segment = segmentEnd + 1;
    }
    return segments;
}

bool URI::is_reserved(char c) {
    return isPathMark(c) || c == '/' || c == ';' || c == '?';
}

bool URI::is_mark(char c) {
    return c == '_' || c == '-' || c == '!' || c == '.' || c == '*' || c == '~' || c == '\'' ||
           c == '(' || c == ')';
}

bool URI::is_unreserved(char c) {
    return isAlphanumeric(c) || is_mark(c);
}

bool URI::is_hex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

bool URI::is_escaped(const char* text) {
    return text != nullptr && text[0] == '%' && is_hex(text[1]) && is_hex(text[2]);
}

String URI::md5hash(const char* text) {
    Quenvale_MD5Context context;
    Quenvale_MD5Init(&context);
    if (text != nullptr) update(&context, text);
    return finish(&context, true);
}

String URI::md5hash(bool inBase64, const char* text, ...) {
    Quenvale_MD5Context context;
    Quenvale_MD5Init(&context);
    va_list texts;
    va_start(texts, text);
    for (const char* next = text; next != nullptr; next = va_arg(texts, const char*))
        update(&context, next);
    va_end(texts);
    return finish(&context, inBase64);
}

}  // namespace Quenvale::Interceptor::SDK::Util
