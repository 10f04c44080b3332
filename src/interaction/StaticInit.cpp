// What must exist before the first report: the names of this host and server, the default platform
// type and the uplink.
#include <cstdlib>

#include <cxxabi.h>

#include "interaction/Interaction.h"
#include "uplink/createUplink.h"
#include "util/diagnostics.h"
#include "util/identifiers.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK {

namespace {

Util::String hostname() {
    if (_localHostName == nullptr && initLocalHostName() != 0) {
        errorMsg("Could not get my own local network hostname.\n");
        return Util::String();
    }
    return Util::String(_localHostName.load());
}

Util::String serverInstance(const Util::String& configured, const Util::String& host) {
    if (configured.empty()) return host;
    if (host.empty()) return configured;
    return Util::replace(configured, "${hostname}", host);
}

Uplink* uplinkOrNull() {
    try {
        return createUplink();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        errorMsg("Could not instantiate AsyncBinaryUplink.\n");
        return nullptr;
    }
}

// Cut to 16 bits before the sign is looked at.
short platformType(const char* text) {
    const auto type = static_cast<short>(std::strtol(text, nullptr, 10));
    return type < 0 ? short{0} : type;
}

}  // namespace

Interaction::StaticInit::StaticInit() {
    const Util::String configured(std::getenv(SERVER_INSTANCE.c_str()));
    ourHostname = hostname();
    ourServerInstance = serverInstance(configured, ourHostname);
    ourUplink = uplinkOrNull();
    const Util::String platform(std::getenv(PLATFORM_TYPE.c_str()));
    if (!platform.empty()) itsDefaultPlatformType = platformType(platform.c_str());
}

}  // namespace Quenvale::Interceptor::SDK
