#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

/// The library's diagnostics: a prefix and a text at one of four levels, to stdout and stderr.
/// There is no log file, no time stamp and no line end beyond what a message brings.
///
/// The level comes from "QUENVALE_LOG_LEVEL" (1 error, 2 warning, 3 info, 4 debug; anything else
/// is silence, errors included). Each translation unit has a private copy of these functions with
/// a level of its own, read at its first use and never again.
///
/// Threads: no lock; prefix and text of two threads may interleave.

namespace {

constexpr int kLevelUnknown = 0;
constexpr int kLevelSilent = -1;

// Atomic because the first two callers may be two threads; both store the same value.
int ourLogLevel = kLevelUnknown;

[[maybe_unused]] __attribute__((noinline)) int initLogLevel() {
    const char* text = std::getenv("QUENVALE_LOG_LEVEL");
    const long level = text == nullptr ? 0 : std::strtol(text, nullptr, 10);
    const int known = level >= 1 && level <= 4 ? static_cast<int>(level) : kLevelSilent;
    __atomic_store_n(&ourLogLevel, known, __ATOMIC_RELAXED);
    return known;
}

[[maybe_unused]] inline bool canLog(int level) {
    int current = __atomic_load_n(&ourLogLevel, __ATOMIC_RELAXED);
    if (__builtin_expect(current == kLevelUnknown, 0)) current = initLogLevel();
    return level <= current;
}

// Errors and warnings have their prefix on stdout and their text on stderr.
[[maybe_unused]] inline void writeMsg(int level, const char* format, va_list arguments) {
    static const char* const kPrefix[] = {"ERROR: ", "WARNING: ", "INFO: ", "DEBUG: "};
    std::fprintf(stdout, "%s", kPrefix[level - 1]);
    std::vfprintf(level <= 2 ? stderr : stdout, format, arguments);
}

#define QZ_MESSAGE_FUNCTION(name, level)                                                           \
    [[maybe_unused]] __attribute__((noinline, format(printf, 1, 2))) void name(const char* format, \
                                                                               ...) {              \
        if (!canLog(level)) return;                                                                \
        va_list arguments;                                                                         \
        va_start(arguments, format);                                                               \
        writeMsg(level, format, arguments);                                                        \
        va_end(arguments);                                                                         \
    }

QZ_MESSAGE_FUNCTION(errorMsg, 1)
QZ_MESSAGE_FUNCTION(warningMsg, 2)
QZ_MESSAGE_FUNCTION(infoMsg, 3)
QZ_MESSAGE_FUNCTION(debugMsg, 4)
#undef QZ_MESSAGE_FUNCTION

/// Writes at the given level's prefix and streams whatever the log level.
[[maybe_unused]] __attribute__((noinline, format(printf, 2, 3))) void forcedMsg(int level,
                                                                                const char* format,
                                                                                ...) {
    va_list arguments;
    va_start(arguments, format);
    writeMsg(level, format, arguments);
    va_end(arguments);
}

}  // namespace
