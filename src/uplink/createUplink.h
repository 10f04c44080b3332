#pragma once

#include "uplink/Uplink.h"

namespace Quenvale::Interceptor::SDK {

/// Makes the one uplink of the process. A file of its own, so that unit tests can bring another
/// uplink and start no thread.
Uplink* createUplink();

}  // namespace Quenvale::Interceptor::SDK
