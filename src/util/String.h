#pragma once

#include <cstring>
#include <utility>

#include "util/blocks.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// One owned 8-bit text. NIL (a null pointer) and the empty text are distinct states; empty() is
/// true for both. Two objects never share a buffer: every copy is a copy of the text, and a moved
/// String leaves NIL behind. A buffer is a malloc block that holds the text's length in front of
/// the text, so that neither a copy nor an event has to count it.
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
    String(const char* text)
        : itsText(text == nullptr ? nullptr : copyOf(text, std::strlen(text))) {}
    String(const char* text, unsigned int length)
        : itsText(text == nullptr ? nullptr : copyOf(text, strnlen(text, length))) {}
    String(const String& other) : itsText(copyOf(other)) {}
    /// @}
    /// Leaves `other` NIL.
    String(String&& other) noexcept : itsText(std::exchange(other.itsText, nullptr)) {}
    ~String() { drop(itsText); }

    /// A copy. `text` may lie in the old one.
    String& operator=(const char* text) { return *this = String(text); }
    /// A copy; to itself it does nothing.
    String& operator=(const String& other) {
        if (this != &other) drop(std::exchange(itsText, copyOf(other)));
        return *this;
    }
    /// Leaves `other` NIL, unless it is this object.
    String& operator=(String&& other) noexcept {
        if (this != &other) {
            drop(itsText);
            itsText = std::exchange(other.itsText, nullptr);
        }
        return *this;
    }

    /// A copy of so many characters, none of which is zero; null gives NIL.
    static String ofLength(const char* text, std::size_t length) {
        return adopt(text == nullptr ? nullptr : copyOf(text, length));
    }

    /// @{
    /// A buffer for a text of `length` characters, with its terminator in place, that the caller
    /// fills and hands to adopt(); null where there is no memory. adopt() takes no other block than
    /// one from room(), and null gives NIL. With a length it ends the text there, or at a zero
    /// character before.
    static char* room(std::size_t length) noexcept;
    static String adopt(char* text) {
        String result;
        result.itsText = text;
        return result;
    }
    static String adopt(char* text, std::size_t length);
    /// @}

    /// Null for NIL. Valid until the object changes.
    const char* c_str() const { return itsText; }
    /// NIL or no characters.
    bool empty() const { return itsText == nullptr || *itsText == '\0'; }
    /// In bytes; 0 for NIL.
    unsigned int length() const { return static_cast<unsigned int>(lengthOf(itsText)); }
    /// The same for what c_str() of a String gave.
    static std::size_t lengthOf(const char* text) { return text == nullptr ? 0 : lengthAt(text); }

    /// @{
    /// An empty argument changes nothing, so that NIL stays NIL; NIL takes on a copy of it. The
    /// argument may lie in this text. Nothing is appended where there is no memory.
    void append(const String& other) { append(other.itsText, other.length()); }
    void append(const char* text) {
        if (text != nullptr) append(text, std::strlen(text));
    }
    /// @}

    /// @{
    /// By the text; NIL, or a null pointer, equals itself only.
    bool operator==(const String& other) const {
        if (itsText == nullptr || other.itsText == nullptr) return itsText == other.itsText;
        const std::size_t length = lengthAt(itsText);
        return length == lengthAt(other.itsText) &&
               std::memcmp(itsText, other.itsText, length) == 0;
    }
    bool operator==(const char* text) const {
        if (itsText == nullptr || text == nullptr) return itsText == text;
        return std::strcmp(itsText, text) == 0;
    }
    bool operator!=(const String& other) const { return !(*this == other); }
    bool operator!=(const char* text) const { return !(*this == text); }
    /// @}

    /// NIL stands before every text.
    bool operator<(const String& other) const {
        if (other.itsText == nullptr) return false;
        return itsText == nullptr || std::strcmp(itsText, other.itsText) < 0;
    }

    /// A copy of the text from malloc, null for null. It belongs to no String.
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
    // The length stands right before the text.
    static std::size_t lengthAt(const char* text) {
        std::size_t length;
        std::memcpy(&length, text - sizeof length, sizeof length);
        return length;
    }
    static char* copyOf(const char* text, std::size_t length) noexcept;
    static char* copyOf(const String& other) {
        return other.itsText == nullptr ? nullptr : copyOf(other.itsText, lengthAt(other.itsText));
    }
    // Most texts of a call are NIL.
    static void drop(char* text) noexcept {
        if (text != nullptr) release(text);
    }
    static void release(char* text) noexcept;
    void append(const char* text, std::size_t length);

    char* itsText = nullptr;
};

static_assert(sizeof(String) == sizeof(char*));

/// A new text of both; NIL where both are, or where there is no memory.
QZ_API String operator+(const String& a, const String& b);

}  // namespace Quenvale::Interceptor::SDK::Util
