#include "util/ByteArray.h"

#include <cstddef>
#include <cstdlib>

namespace Quenvale::Interceptor::SDK::Util {

static_assert(sizeof(ByteArray) == 24 && offsetof(ByteArray, extra) == 16);
static_assert(offsetof(ByteArray::Region, extra) == offsetof(ByteArray, extra),
              "a block of the chain has its link where the record has it");

void ByteArray::releaseContent() {
    if (data != nullptr && owned) delete[] data;
    data = nullptr;
    length = 0;
    owned = true;
    while (Region* region = extra) {
        extra = region->extra;
        std::free(region);
    }
}

}  // namespace Quenvale::Interceptor::SDK::Util
