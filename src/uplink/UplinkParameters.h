#pragma once

#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

/// Reads the uplink's tunables from the environment. A name is looked up exactly as it is written,
/// the dotted ones too.
///
/// Threads: only while the library loads; the environment has no lock.
class QZ_API UplinkParameters {
public:
    /// The parameters of the asynchronous uplink, as they were when the library loaded. Nothing is
    /// validated: any number that a variable holds can stand here.
    struct QZ_API Values {
        int bufferSize;      // bytes; the variable gives KiB
        int queueCount;      // Queues.
        int poolSize;        // Sockets.
        int flushInterval;   // ms
        int maxAge;          // ms
        bool remoteUplink;   // Events go to the configuration's host.
        bool asyncDebug;     // Diagnostics whatever the level.
        long asyncTestFreq;  // ms

        /// As the environment has them now, or the defaults.
        static Values read();
    };

    /// @{
    /// The variable's number, or the default where it isn't set. The unit and the description only
    /// appear in the log. A text that is no number counts as 0.
    static int _getInteger(const char* name, int defaultValue, const char* unit,
                           const char* description);
    static long _getLong(const char* name, long defaultValue, const char* unit,
                         const char* description);
    /// @}

    /// @{
    /// Only the text "true" is true. With `presenceOnly` every text is, "false" too.
    static bool _getBoolean(const char* name, bool defaultValue, const char* unit,
                            const char* description);
    static bool _getBoolean(const char* name, bool defaultValue, const char* unit,
                            const char* description, bool presenceOnly);
    /// @}
};

}  // namespace Quenvale::Interceptor::SDK
