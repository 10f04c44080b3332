#pragma once

#include <cstddef>

#include "util/String.h"

namespace Quenvale::Interceptor::SDK {

/// A text under construction, in one block that is sized beforehand and grows if that was not
/// enough.
class HeaderText {
public:
    explicit HeaderText(std::size_t room);  // `room` in bytes.
    ~HeaderText() { Util::release(itsText); }
    HeaderText(const HeaderText&) = delete;
    HeaderText& operator=(const HeaderText&) = delete;

    /// @{
    /// Adds a text, which is not null, or its first `length` characters. std::bad_alloc where there
    /// is no memory; the text is then as it was.
    void append(const char* text) { append(text, std::strlen(text)); }
    void append(const char* text, std::size_t length);
    /// @}

    /// Nothing was added.
    bool empty() const { return itsLength == 0; }
    /// What was added so far.
    Util::String copy() const {
        return Util::String(itsText, static_cast<unsigned int>(itsLength));
    }

private:
    char* itsText;
    std::size_t itsLength = 0;
    std::size_t itsRoom;
};

}  // namespace Quenvale::Interceptor::SDK
