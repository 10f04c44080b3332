#include "util/properties.h"

#include <cxxabi.h>

#include <cctype>
#include <cstring>
#include <memory>

#include "util/FileStreamReader.h"
#include "util/diagnostics.h"
#include "util/trap.h"

namespace Quenvale::Interceptor::SDK::Util {

namespace {

constexpr int kDebugLevel = 4;

bool isBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

String trimmed(const char* begin, const char* end) {
    while (begin < end && isBlank(*begin)) ++begin;
    while (begin < end && isBlank(end[-1])) --end;
    return {begin, static_cast<unsigned int>(end - begin)};
}

void storeLine(Map<String>& properties, const char* line) {
    const char* separator = std::strchr(line, '=');
    if (separator == nullptr) separator = std::strchr(line, ':');
    if (separator == nullptr) {
        // Someone who debugs wants to see the line that is none.
        if (canLog(kDebugLevel)) trap();
        return;
    }
    const String key = trimmed(line, separator);
    const String value = trimmed(separator + 1, separator + std::strlen(separator));
    if (!key.empty() && !value.empty()) properties.insert(key, value);
}

// Closes also when the thread is cancelled in the middle of the file.
struct Closing {
    explicit Closing(StreamReader& r) : reader(r) {}
    ~Closing() { reader.closeReader(); }
    Closing(const Closing&) = delete;
    Closing& operator=(const Closing&) = delete;

    StreamReader& reader;
};

}  // namespace

Map<String>* loadProperties(StreamReader& reader) {
    auto properties = std::make_unique<Map<String>>(2, 0, 0);
    try {
        for (;;) {
            const String line = reader.ReadLine();
            if (line.empty()) break;
            storeLine(*properties, line.c_str());
        }
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        errorMsg("Map::loadPropertiesFromStreamReader: unexpected error loading properties.\n");
    }
    return properties.release();
}

// By value: the signature is exported. NOLINTNEXTLINE(performance-unnecessary-value-param)
Map<String>* loadProperties(String path) {
    FileStreamReader reader(path.c_str());
    const Closing closing(reader);
    return loadProperties(reader);
}

Map<String>* loadProperties(const char* /*name*/, std::FILE* file) {
    FileStreamReader reader(file);
    const Closing closing(reader);
    return loadProperties(reader);
}

}  // namespace Quenvale::Interceptor::SDK::Util
