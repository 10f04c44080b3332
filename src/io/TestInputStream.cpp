#include "io/TestInputStream.h"

#include <algorithm>
#include <cstring>

#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK::IO {

int TestInputStream::read(unsigned char* buffer, int offset, int length) {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    itsRequests.push_back(length);
    if (itsPosition == itsFailAt) {
        itHasFailed = true;
        Util::raise<Util::IOException>("no read");
    }
    if (itsPosition == static_cast<int>(itsBytes.size())) return itsEnd;
    int given = std::max(0, std::min(length, portion()));
    if (itsFailAt > itsPosition) given = std::min(given, itsFailAt - itsPosition);
    std::memcpy(buffer + offset, itsBytes.data() + itsPosition, static_cast<unsigned>(given));
    itsPosition += given;
    itsLeft = itsLeft > given ? itsLeft - given : -1;
    return given;
}

void TestInputStream::closeStream() {
    ++itsCloses;
    if (itFailsToClose) Util::raise<Util::IOException>("no close");
    closed = true;
}

int TestInputStream::available() {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    return itsReady ? *itsReady : portion();
}

int TestInputStream::portion() {
    const int rest = static_cast<int>(itsBytes.size()) - itsPosition;
    if (itsPortions.empty()) return rest;
    if (itsLeft < 0) itsLeft = itsPortions[itsNextPortion++ % itsPortions.size()];
    return std::min(itsLeft, rest);
}

}  // namespace Quenvale::Interceptor::SDK::IO
