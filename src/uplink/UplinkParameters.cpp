#include "uplink/UplinkParameters.h"

#include <cxxabi.h>

#include <cstdlib>
#include <cstring>

#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr const char* kNoUnit = "";
constexpr int kBytesPerUnit = 10;  // As a power of two.

}  // namespace

UplinkParameters::Values UplinkParameters::Values::read() {
    Values values;
    const int bufferUnits =
        _getInteger("QZ_INTERCEPTOR_BUFFER", 64, "Kb", "interceptor buffer size");
    values.bufferSize = static_cast<int>(static_cast<unsigned int>(bufferUnits) << kBytesPerUnit);
    values.queueCount = _getInteger("QZ_INTERCEPTOR_QUEUES", 8, kNoUnit, "interceptor queue count");
    values.poolSize = _getInteger("QZ_INTERCEPTOR_POOL", 2, kNoUnit, "interceptor pool size");
    values.flushInterval =
        _getInteger("QZ_INTERCEPTOR_FLUSHINTERVAL", 10000, "ms", "interceptor flush interval");
    values.maxAge =
        _getInteger("QZ_INTERCEPTOR_MAXAGE", 15000, "ms", "interceptor maximum event age");
    values.remoteUplink =
        _getBoolean("QZ_REMOTE_UPLINK", false, "true/false", "uses remote uplink", true);
    values.asyncDebug = _getBoolean("com.quenvale.interceptor.sdk.asyncDebug", false, kNoUnit,
                                    "Debug the execution of the asynchronous binary uplink.");
    values.asyncTestFreq =
        _getLong("com.quenvale.interceptor.sdk.asyncTestFreq", 3000, kNoUnit,
                 "Frequency at which the SDK will attempt to detect the startup of the agent.");
    return values;
}

int UplinkParameters::_getInteger(const char* name, int defaultValue, const char* unit,
                                  const char* description) {
    const char* text = std::getenv(name);
    if (text == nullptr) return defaultValue;
    const int value = static_cast<int>(std::strtol(text, nullptr, 10));
    try {
        debugMsg("Setting %s to %d %s\n", description, value, unit);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        errorMsg("Invalid integer (%s) for %s. Defaulting to %d %s\n", text, description,
                 defaultValue, unit);
        return defaultValue;
    }
    return value;
}

long UplinkParameters::_getLong(const char* name, long defaultValue, const char* unit,
                                const char* description) {
    const char* text = std::getenv(name);
    if (text == nullptr) return defaultValue;
    const long value = std::strtol(text, nullptr, 10);
    try {
        debugMsg("Setting %s to %ld %s\n", description, value, unit);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        errorMsg("Invalid long (%s) for %s. Defaulting to %ld %s\n", text, description,
                 defaultValue, unit);
        return defaultValue;
    }
    return value;
}

bool UplinkParameters::_getBoolean(const char* name, bool defaultValue, const char* unit,
                                   const char* description) {
    return _getBoolean(name, defaultValue, unit, description, false);
}

bool UplinkParameters::_getBoolean(const char* name, bool defaultValue, const char* /*unit*/,
                                   const char* /*description*/, bool presenceOnly) {
    const char* text = std::getenv(name);
    if (text == nullptr) return defaultValue;
    return presenceOnly || std::strcmp(text, "true") == 0;
}

}  // namespace Quenvale::Interceptor::SDK
