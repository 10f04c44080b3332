#include "io/TestOutputStream.h"

#include <algorithm>

#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK::IO {

void TestOutputStream::write(unsigned char* buffer, int offset, int length) {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    const int room = itsFailAt < 0 ? length : itsFailAt - static_cast<int>(itsBytes.size());
    const int taken = std::max(0, std::min(length, room));
    itsCalls.emplace_back(reinterpret_cast<char*>(buffer) + offset, static_cast<unsigned>(taken));
    itsBytes += itsCalls.back();
    if (taken >= length) return;
    itHasFailed = true;
    Util::raise<Util::IOException>("no write");
}

void TestOutputStream::flush() {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    itsCalls.emplace_back("<flush>");
}

void TestOutputStream::closeStream() {
    itsCalls.emplace_back("<close>");
    if (itFailsToClose) Util::raise<Util::IOException>("no close");
    closed = true;
}

}  // namespace Quenvale::Interceptor::SDK::IO
