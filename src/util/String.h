#pragma once

#include <cstring>
#include <utility>

#include "util/blocks.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// One owned 8-bit text. NIL (a null pointer) and the empty text are distinct states; empty() is
/// true for both. Two objects never share a buffer: every copy is a copy of the text, and a moved
/// String leaves NIL behind. Buffers are malloc blocks.
///
/// Threads: an object belongs to one thread at a time; no operation touches shared state.
class QZ_API String {
public:
    static const String& NIL;    // The null text.
    static const String& BLANK;  // The empty text.

    String() noexcept = default;
    /// @{
    /// A copy of a text, of its first `length` characters, or of another String; null gives NIL.
    /// NIL as well where there is no memory.
    String(const char* text) : itsText(convert(text)) {}
    String(const char* text, unsigned int length) : itsText(duplicate(text, length)) {}
    String(const String& other) : itsText(convert(other.itsText)) {}
    /// @}
    /// Leaves `other` NIL.
    String(String&& other) noexcept : itsText(std::exchange(other.itsText, nullptr)) {}
    ~String() { release(itsText); }

    /// A copy. `text` may lie in the old one.
    String& operator=(const char* text) {
        release(std::exchange(itsText, convert(text)));
        return *this;
    }
    /// A copy; to itself it does nothing.
    String& operator=(const String& other) {
        if (this != &other) *this = other.itsText;
        return *this;
    }
    /// Leaves `other` NIL, unless it is this object.
    String& operator=(String&& other) noexcept {
        if (this != &other) {
            release(itsText);
            itsText = std::exchange(other.itsText, nullptr);
        }
        return *this;
    }

    /// Takes over a malloc block that holds a text; null gives NIL.
    static String adopt(char* text) {
        String result;
        result.itsText = text;
        return result;
    }

    /// Null for NIL. Valid until the object changes.
    const char* c_str() const { return itsText; }
    /// NIL or no characters.
    bool empty() const { return itsText == nullptr || *itsText == '\0'; }
    /// In bytes, counted anew at each call; 0 for NIL.
    unsigned int length() const {
        return itsText == nullptr ? 0 : static_cast<unsigned int>(std::strlen(itsText));
    }

    /// @{
    /// An empty argument changes nothing, so that NIL stays NIL; NIL takes on a copy of it. The
    /// argument may lie in this text. Nothing is appended where there is no memory.
    void append(const String& other) { append(other.itsText); }
    void append(const char* text);
    /// @}

    /// @{
    /// By the text; NIL, or a null pointer, equals itself only.
    bool operator==(const String& other) const { return equals(itsText, other.itsText); }
    bool operator==(const char* text) const { return equals(itsText, text); }
    bool operator!=(const String& other) const { return !(*this == other); }
    bool operator!=(const char* text) const { return !(*this == text); }
    /// @}

    /// NIL stands before every text.
    bool operator<(const String& other) const {
        if (other.itsText == nullptr) return false;
        return itsText == nullptr || std::strcmp(itsText, other.itsText) < 0;
    }

    /// A copy of the text from malloc, null for null.
    static char* convert(const char* text) {
        return text == nullptr ? nullptr : duplicate(text, std::strlen(text));
    }

    /// @{
    /// Position of the first occurrence, or all bits set: for a null argument, for a zero character
    /// and for a start behind the end, too.
    static unsigned int find(const char* haystack, const char* needle);
    static unsigned int find(const char* text, char ch, unsigned int start = 0);
    /// @}

    /// The address in lower-case hexadecimal, without prefix or padding.
    static String addrToString(const void* address);

private:
    static bool equals(const char* a, const char* b) {
        if (a == nullptr || b == nullptr) return a == b;
        return std::strcmp(a, b) == 0;
    }

    char* itsText = nullptr;
};

static_assert(sizeof(String) == sizeof(char*));

/// A new text of both; NIL where both are, or where there is no memory.
QZ_API String operator+(const String& a, const String& b);

}  // namespace Quenvale::Interceptor::SDK::Util
