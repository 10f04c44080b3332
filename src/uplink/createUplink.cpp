#include "uplink/createUplink.h"

#include "uplink/AsyncBinaryUplink.h"

namespace Quenvale::Interceptor::SDK {

Uplink* createUplink() {
    return new AsyncBinaryUplink;
}

}  // namespace Quenvale::Interceptor::SDK
