#include "io/OutputStream.h"

namespace Quenvale::Interceptor::SDK::IO {

void OutputStream::writeByte(int value) {
    auto byte = static_cast<unsigned char>(value);
    write(&byte, 0, 1);
}

}  // namespace Quenvale::Interceptor::SDK::IO
