#include "util/String.h"

#include "util/blockCache.h"
#include "util/copy.h"
#include "util/text.h"

namespace Quenvale::Interceptor::SDK::Util {

namespace {

// A block in bytes for a text of that length.
inline std::size_t sizeFor(std::size_t length) {
    return sizeof length + length + 1;
}

inline char* makeRoom(void* block, std::size_t length) {
    std::memcpy(block, &length, sizeof length);
    char* text = static_cast<char*>(block) + sizeof length;
    text[length] = '\0';
    return text;
}

// Out of line, so that the short way needs no registers saved.
__attribute__((noinline)) char* copyToNewBlock(const char* text, std::size_t length) {
    char* copy = String::room(length);
    if (copy != nullptr) std::memcpy(copy, text, length);
    return copy;
}

}  // namespace

char* String::room(std::size_t length) noexcept {
    void* block = popBlock(sizeFor(length));
    if (block == nullptr) block = allocate(sizeFor(length));
    return block == nullptr ? nullptr : makeRoom(block, length);
}

String String::adopt(char* text, std::size_t length) {
    if (text == nullptr) return {};
    length = strnlen(text, length);
    // A shorter text must not hold on to the whole buffer, nor say that it is as long.
    String result = adopt(text);
    return length == lengthAt(text) ? std::move(result) : ofLength(text, length);
}

char* String::copyOf(const char* text, std::size_t length) noexcept {
    void* block = popBlock(sizeFor(length));
    if (__builtin_expect(block == nullptr, 0)) return copyToNewBlock(text, length);
    return static_cast<char*>(copyText(makeRoom(block, length), text, length));
}

void String::release(char* text) noexcept {
    const std::size_t length = lengthAt(text);
    char* const block = text - sizeof length;
    if (!pushBlock(block, sizeFor(length))) releaseBlock(block, sizeFor(length));
}

void String::append(const char* text, std::size_t length) {
    if (length == 0) return;
    const std::size_t before = this->length();
    // Not realloc: the text may stand in this very buffer.
    char* joined = room(before + length);
    if (joined == nullptr) return;
    if (before != 0) std::memcpy(joined, itsText, before);
    std::memcpy(joined + before, text, length);
    drop(std::exchange(itsText, joined));
}

unsigned int String::find(const char* haystack, const char* needle) {
    const char* at =
        haystack == nullptr || needle == nullptr ? nullptr : std::strstr(haystack, needle);
    return at == nullptr ? ~0U : static_cast<unsigned int>(at - haystack);
}

unsigned int String::find(const char* text, char ch, unsigned int start) {
    if (text == nullptr || ch == '\0') return ~0U;
    if (start != 0 && start >= std::strlen(text)) return ~0U;
    const char* at = std::strchr(text + start, ch);
    return at == nullptr ? ~0U : static_cast<unsigned int>(at - text);
}

String String::addrToString(const void* address) {
    char text[kNumberText];
    lltoa(reinterpret_cast<long long>(address), text, 16);
    return text;
}

String operator+(const String& a, const String& b) {
    if (b.empty()) return a;
    if (a.c_str() == nullptr) return b;
    char* joined = String::room(static_cast<std::size_t>(a.length()) + b.length());
    if (joined == nullptr) return {};
    std::memcpy(joined, a.c_str(), a.length());
    std::memcpy(joined + a.length(), b.c_str(), b.length());
    return String::adopt(joined);
}

}  // namespace Quenvale::Interceptor::SDK::Util
