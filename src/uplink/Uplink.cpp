#include "uplink/Uplink.h"

namespace Quenvale::Interceptor::SDK {

// Out of line, so that the class's virtual table has its home in the library.
UplinkData* Uplink::copyUplinkData(UplinkData* data) {
    return data->copy();
}

}  // namespace Quenvale::Interceptor::SDK
