#include "helpers/HeaderText.h"

#include <new>

namespace Quenvale::Interceptor::SDK {

namespace {

char* block(std::size_t bytes) {
    void* memory = Util::allocate(bytes);
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<char*>(memory);
}

}  // namespace

HeaderText::HeaderText(std::size_t room) : itsText(block(room)), itsRoom(room) {}

void HeaderText::append(const char* text, std::size_t length) {
    if (length > itsRoom - itsLength) {
        const std::size_t room = 2 * itsRoom + length;
        char* larger = block(room);
        std::memcpy(larger, itsText, itsLength);
        Util::release(itsText);
        itsText = larger;
        itsRoom = room;
    }
    std::memcpy(itsText + itsLength, text, length);
    itsLength += length;
}

}  // namespace Quenvale::Interceptor::SDK
