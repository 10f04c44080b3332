#include "util/String.h"

#include <cstdlib>

#include "util/text.h"

namespace Quenvale::Interceptor::SDK::Util {

void String::append(const char* text) {
    if (text == nullptr || *text == '\0') return;
    if (itsText == nullptr) {
        itsText = convert(text);
        return;
    }
    const std::size_t before = std::strlen(itsText);
    const std::size_t added = std::strlen(text);
    // Not realloc: the text may stand in this very buffer.
    auto* joined = static_cast<char*>(allocate(before + added + 1));
    if (joined == nullptr) return;
    std::memcpy(joined, itsText, before);
    std::memcpy(joined + before, text, added);
    joined[before + added] = '\0';
    release(itsText);
    itsText = joined;
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
    const std::size_t before = std::strlen(a.c_str());
    const std::size_t added = std::strlen(b.c_str());
    auto* joined = static_cast<char*>(allocate(before + added + 1));
    if (joined == nullptr) return {};
    std::memcpy(joined, a.c_str(), before);
    std::memcpy(joined + before, b.c_str(), added + 1);
    return String::adopt(joined);
}

}  // namespace Quenvale::Interceptor::SDK::Util
