#include "uplink/createUplink.h"

#include "harness/RecordingUplink.h"

namespace Quenvale::Interceptor::SDK {

Uplink* createUplink() {
    return &harness::RecordingUplink::instance();
}

}  // namespace Quenvale::Interceptor::SDK
