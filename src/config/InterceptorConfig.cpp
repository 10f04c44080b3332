#include "config/InterceptorConfig.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "config/DecisionCache.h"
#include "uplink/AsyncBinaryUplink.h"
#include "util/ByteStreamReader.h"
#include "util/Clock.h"
#include "util/FileStreamReader.h"
#include "util/diagnostics.h"
#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr long long kCheckInterval = 60000;  // ms
constexpr long long kStaleFile = 90000;      // ms

constexpr int kMaxURLs = 256;  // Of each side.

constexpr int kRowCapacity = 16;

// A count is whatever a configuration claims, so no more room is made in advance than this.
constexpr int kLargestFirstCapacity = 1024;

// Behind its end a text reads as empty lines for ever, and a row of nothing but empty lines is a
// legal row. A cut text must still give the rows that its count promised, yet a count of billions
// must not take the host's memory, nor its time under the lock: so a table ends where so many rows
// have been empty since the source ran dry. A reader holds back fewer lines than that, so that no
// row which stands in the text is left to be read as the next table.
constexpr int kLongestEmptyRun = 4096;
constexpr int kLongestLine = 255;

// The lines of a file, which by itself never says that it has run dry.
class FileLines final : public Util::StreamReader {
public:
    FileLines(Util::FileStreamReader& file, long long size) : itsFile(file), itsLeft(size) {}

    void closeReader() override { itsFile.closeReader(); }
    explicit operator bool() const override { return itsLeft > 0; }
    Util::String ReadLine() override {
        Util::String line = itsFile.ReadLine();
        itsLeft -= std::min(static_cast<int>(line.length()) + 1, kLongestLine);
        return line;
    }

private:
    Util::FileStreamReader& itsFile;
    long long itsLeft;  // bytes
};

long long sizeOf(const Util::String& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? static_cast<long long>(status.st_size) : 0;
}

int readNumber(Util::StreamReader& reader) {
    const Util::String line = reader.ReadLine();
    return line.empty() ? 0 : static_cast<int>(std::strtol(line.c_str(), nullptr, 10));
}

bool startsWith(const Util::String& line, const Util::String& prefix, int length) {
    return !line.empty() &&
           std::strncmp(line.c_str(), prefix.c_str(), static_cast<std::size_t>(length)) == 0;
}

// Of a value in the trust block one character counts; a missing one is the terminator, which is
// neither true nor a digit.
char readTrustValue(Util::StreamReader& reader, const Util::String& prefix, int length) {
    const Util::String line = reader.ReadLine();
    if (!startsWith(line, prefix, length))
        Util::raise<Util::APIException>(line + ": INVALID LINE IN CONFIG");
    return line.c_str()[length];
}

bool isTrue(char value) {
    return std::toupper(static_cast<unsigned char>(value)) == 'T';
}

int firstCapacity(int count) {
    return count < kLargestFirstCapacity ? count : kLargestFirstCapacity;
}

const char* lifeText(bool isAlive) {
    return isAlive ? "alive" : "dead";
}

}  // namespace

InterceptorConfig::InterceptorConfig(bool isFromFile)
    : itIsFromFile(isFromFile),
      itsClientCache(std::make_unique<DecisionCache>(kMaxURLs)),
      itsServerCache(std::make_unique<DecisionCache>(kMaxURLs)) {
    if (itIsFromFile) Refresh(true);
}

InterceptorConfig::~InterceptorConfig() {
    Util::MutexGuard guard(itsLock);
    dropTables();
}

Util::String& InterceptorConfig::getConfigFilename() {
    Util::MutexGuard guard(itsClassMutex);
    if (itsConfigFilename.empty()) {
        itsConfigFilename = getConfigDirectory() + "/Uplink.cfg";
        debugMsg("InterceptorConfig file: %s\n", itsConfigFilename.c_str());
    }
    return itsConfigFilename;
}

Util::String InterceptorConfig::getConfigDirectory() {
    const char* directory = std::getenv("QZ_INTERCEPTORCONFIG");
    if (directory != nullptr && *directory != '\0') return directory;
    return "/var/opt/quenvale/QZ.Interceptor";
}

bool InterceptorConfig::fileExists(const Util::String& path) {
    struct stat status;
    return path.c_str() != nullptr && stat(path.c_str(), &status) == 0;
}

void InterceptorConfig::Refresh(bool checkExists) {
    if (!itIsFromFile)
        Util::raise<Util::APIException>(
            "InterceptorConfig::Refresh cannot be called: config is not fetched from file.");
    RefreshFromFile(checkExists);
}

void InterceptorConfig::RefreshFromFile(bool checkExists) {
    const Util::String& path = getConfigFilename();
    if (checkExists && !fileExists(path)) {
        itIsAlive = false;
    } else {
        Util::FileStreamReader reader(path.c_str());
        FileLines lines(reader, sizeOf(path));
        if (reader)
            updateConfig(lines);
        else
            itIsAlive = false;
        reader.closeReader();
    }
    debugMsg("InterceptorConfig::RefreshFromFile: %s\n", lifeText(itIsAlive));
    itsLastCheck = Util::Clock::_currentTimeMillis();
}

void InterceptorConfig::load(Util::ByteStreamReader& reader) {
    if (reader)
        updateConfig(reader);
    else
        itIsAlive = false;
    debugMsg("InterceptorConfig::RefreshFromUplinkCfg: %s\n", lifeText(itIsAlive));
}

void InterceptorConfig::updateConfig(Util::StreamReader& reader) {
    try {
        Util::MutexGuard guard(itsLock);
        dropTables();
        parse(reader);
        itsServerCache->clear();
        itsClientCache->clear();
        itIsAlive = true;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        itIsAlive = false;
    }
}

void InterceptorConfig::dropTables() {
    for (Table** table : {&itsServerFilters, &itsClientFilters, &itsCPFilters, &itsPathFilters})
        Util::nullify(table, false);
    Util::nullify(&itsParams, false);
    itsFlowFieldNames.reset();
}

void InterceptorConfig::parse(Util::StreamReader& reader) {
    Util::String host = reader.ReadLine();
    if (startsWith(host, kTrustKey, kTrustKeyLen)) {
        readTrust(reader, host);
        host = reader.ReadLine();
    } else {
        // Whether the caller's address counts stays as an earlier trust block said.
        itAssertsTrust = false;
        itChecksTrust = false;
        itsTrustKey = Util::String::BLANK;
        itsTrustInterval = 0;
    }
    if (AsyncBinaryUplink::itsParams.remoteUplink) itsAgentHost = std::move(host);
    itsAgentPort = readNumber(reader);
    itsEventTag = readNumber(reader);

    itsServerFilters = ReadFilters(reader, 3);
    itsClientFilters = ReadFilters(reader, 3);
    itsCPFilters = ReadFilters(reader, 4);
    itsPathFilters = ReadFilters(reader, 3);
    itsParams = ReadParams(reader);

    const std::unique_ptr<Row> names(ReadParams(reader));
    auto list = std::make_shared<Util::List<Util::String>>(2);
    if (names != nullptr)
        for (int i = 0; i < names->size(); ++i) list->add(names->at(i));
    itHasFlowFieldNames = !list->empty();
    itsFlowFieldNames = std::move(list);
}

void InterceptorConfig::readTrust(Util::StreamReader& reader, const Util::String& keyLine) {
    itChecksTrust = true;
    const char* key = keyLine.c_str() + kTrustKeyLen;
    itsTrustKey = *key == '\0' ? Util::String() : Util::String(key, 1);
    itAssertsTrust = isTrue(readTrustValue(reader, kTrustAssert, kTrustAssertLen));
    itChecksCallerAddress = isTrue(readTrustValue(reader, kTrustCheckAddr, kTrustCheckAddrLen));
    const char seconds = readTrustValue(reader, kTrustInterval, kTrustIntervalLen);
    itsTrustInterval = seconds >= '0' && seconds <= '9' ? seconds - '0' : 0;
}

InterceptorConfig::Table* InterceptorConfig::ReadFilters(Util::StreamReader& reader, int columns) {
    try {
        const int count = readNumber(reader);
        auto table = std::make_unique<Table>(2, firstCapacity(count));
        int emptyRun = 0;
        for (int i = 0; i < count && emptyRun < kLongestEmptyRun; ++i) {
            auto row = std::make_unique<Row>(2, kRowCapacity);
            row->resize(columns);
            bool isEmpty = true;
            for (int column = 0; column < columns; ++column) {
                row->set(column, reader.ReadLine());
                isEmpty = isEmpty && row->at(column).empty();
            }
            emptyRun = isEmpty && !reader ? emptyRun + 1 : 0;
            table->add(row.get());
            static_cast<void>(row.release());
        }
        return table.release();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return nullptr;
    }
}

InterceptorConfig::Row* InterceptorConfig::ReadParams(Util::StreamReader& reader) {
    const int count = readNumber(reader);
    if (count < 1) return nullptr;
    auto params = std::make_unique<Row>(2, firstCapacity(count));
    int emptyRun = 0;
    for (int i = 0; i < count && emptyRun < kLongestEmptyRun; ++i) {
        const Util::String line = reader.ReadLine();
        emptyRun = line.empty() && !reader ? emptyRun + 1 : 0;
        params->add(line);
    }
    return params.release();
}

bool InterceptorConfig::getAlive() {
    const long long now = Util::Clock::_currentTimeMillis();
    if (now - itsLastCheck > kCheckInterval) {
        try {
            struct stat status;
            if (stat(getConfigFilename().c_str(), &status) != 0 ||
                now - static_cast<long long>(status.st_mtime) * 1000 > kStaleFile)
                itIsAlive = false;
            else
                Refresh(false);
        } catch (abi::__forced_unwind&) {
            throw;
        } catch (...) {
            itIsAlive = false;
        }
        itsLastCheck = now;
    }
    return itIsAlive;
}

void InterceptorConfig::agentAddress(Util::String& host, int& port) const {
    Util::MutexGuard guard(itsLock);
    host = itsAgentHost;
    port = itsAgentPort;
}

Util::String InterceptorConfig::trustKey() const {
    Util::MutexGuard guard(itsLock);
    return itsTrustKey;
}

std::shared_ptr<Util::List<Util::String>> InterceptorConfig::flowFieldNames() const {
    Util::MutexGuard guard(itsLock);
    return itsFlowFieldNames;
}

}  // namespace Quenvale::Interceptor::SDK
