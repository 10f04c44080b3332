#include "uplink/BootstrapConfig.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "util/Map.h"
#include "util/diagnostics.h"
#include "util/properties.h"
#include "util/sockutil.h"
#include "util/trap.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr char kLocalHost[] = "127.0.0.1";
constexpr int kDefaultPort = 4848;
constexpr char kScheme[] = "tcp://";
constexpr std::size_t kSchemeLength = sizeof kScheme - 1;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

File openFile(const Util::String& path) {
    return File(std::fopen(path.c_str(), "re"));
}

int toPort(const char* text) {
    return static_cast<int>(std::strtol(text, nullptr, 10));
}

// An address needs no look-up: its official name is the text itself.
bool isAddress(const Util::String& host) {
    in_addr address;
    return !host.empty() && inet_pton(AF_INET, host.c_str(), &address) == 1;
}

}  // namespace

AsyncBinaryUplink::BootstrapConfig::BootstrapConfig()
    : itsPort(kDefaultPort),
      itsSystemUrl(std::getenv("com.quenvale.bootstrap.url")),
      itsSystemFile(std::getenv("com.quenvale.bootstrap.file")),
      itsEnvironmentUrl(std::getenv("QUENVALE_BOOTSTRAP_URL")),
      itsUserHome(std::getenv("user.home")) {}

void AsyncBinaryUplink::BootstrapConfig::search() {
    static constexpr bool (BootstrapConfig::*kSources[])() = {
        &BootstrapConfig::bootstrapSysPropFromUrl, &BootstrapConfig::bootstrapSysPropFromFile,
        &BootstrapConfig::bootstrapEnvVarFromUrl, &BootstrapConfig::bootstrapFromUserHomeFile};
    constexpr int kCount = sizeof kSources / sizeof kSources[0];
    while (itsNextSource < kCount)
        if ((this->*kSources[itsNextSource++])()) return;
    itsAddr = kLocalHost;
    itsPort = kDefaultPort;
}

void AsyncBinaryUplink::BootstrapConfig::settle() {
    itMayLookUp = true;
    if (itsUnresolved.c_str() == nullptr) return;
    const Util::String host = std::exchange(itsUnresolved, Util::String());
    if (takeHost(host)) return;
    itsPort = kDefaultPort;
    search();
}

bool AsyncBinaryUplink::BootstrapConfig::bootstrapSysPropFromUrl() {
    return bootstrapFromUrl(itsSystemUrl);
}

bool AsyncBinaryUplink::BootstrapConfig::bootstrapSysPropFromFile() {
    if (itsSystemFile.empty()) return false;
    const File file = openFile(itsSystemFile);
    return file && bootstrapFromFile(file.get());
}

bool AsyncBinaryUplink::BootstrapConfig::bootstrapEnvVarFromUrl() {
    return bootstrapFromUrl(itsEnvironmentUrl);
}

bool AsyncBinaryUplink::BootstrapConfig::bootstrapFromUserHomeFile() {
    if (itsUserHome.c_str() == nullptr) return false;
    const File file = openFile(itsUserHome + "/" + "quenvale.conf");
    // The variable promises the file.
    if (!file || debugOn()) Util::trap();
    return bootstrapFromFile(file.get());
}

bool AsyncBinaryUplink::BootstrapConfig::bootstrapFromUrl(const Util::String& url) {
    if (url.c_str() == nullptr) return false;
    if (std::strncmp(url.c_str(), kScheme, kSchemeLength) != 0) {
        if (std::strstr(url.c_str(), "://") != nullptr) Util::trap();
        errorMsg("ERROR: invalid bootstrap url.");
        return false;
    }
    const char* text = url.c_str() + kSchemeLength;
    std::size_t length = std::strlen(text);
    const char* slash = std::strchr(text, '/');
    if (slash != nullptr && slash > text) length = static_cast<std::size_t>(slash - text);
    const Util::String authority(text, static_cast<unsigned int>(length));

    int port = kDefaultPort;
    Util::String host = authority;
    if (const char* colon = std::strchr(authority.c_str(), ':')) {
        port = toPort(colon + 1);
        host =
            Util::String(authority.c_str(), static_cast<unsigned int>(colon - authority.c_str()));
    }
    if (host == "localhost" || host == kLocalHost)
        itsAddr = kLocalHost;
    else if (!takeHost(host))
        return false;
    itsPort = port;
    itsUsername = Util::String();
    itsPassword = Util::String();
    return true;
}

bool AsyncBinaryUplink::BootstrapConfig::bootstrapFromFile(std::FILE* file) {
    const std::unique_ptr<Util::Map<Util::String>> properties(
        Util::loadProperties(Util::String::addrToString(file)));
    const std::unique_ptr<Util::Map<Util::String>::Iterator> rows(properties->iteratorEx());
    int port = itsPort;
    itsAddr = Util::String();
    while (rows->hasNext()) {
        // The keys "username" and "password" are known and have no effect.
        const auto* row = rows->next();
        if (row->key == "port") port = toPort(row->value.c_str());
        if (row->key == "addr" && !takeHost(row->value)) return false;
    }
    itsPort = port;
    itsUsername = Util::String();
    itsPassword = Util::String();
    return true;
}

// The official name of the host, now or in settle(). False when it is not known.
bool AsyncBinaryUplink::BootstrapConfig::takeHost(const Util::String& host) {
    if (!itMayLookUp && !isAddress(host)) {
        itsUnresolved = host;
        return true;
    }
    char* found = ResolveHostName(host.c_str());
    Util::String name = found;
    Util::release(found);
    if (name.empty()) {
        if (debugOn()) Util::trap();
        return false;
    }
    itsAddr = std::move(name);
    return true;
}

}  // namespace Quenvale::Interceptor::SDK
