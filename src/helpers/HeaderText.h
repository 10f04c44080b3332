#pragma once

#include <cstddef>

#include "util/String.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

/// A text under construction, in one block that is sized beforehand and grows if that was not
/// enough.
class QZ_API HeaderText {
public:
    explicit HeaderText(std::size_t room);
    ~HeaderText() { Util::release(itsText); }
    HeaderText(const HeaderText&) = delete;
    HeaderText& operator=(const HeaderText&) = delete;

    void append(const char* text) { append(text, std::strlen(text)); }
    void append(const char* text, std::size_t length);

    bool empty() const { return itsLength == 0; }
    Util::String copy() const {
        return Util::String(itsText, static_cast<unsigned int>(itsLength));
    }

private:
    char* itsText;
    std::size_t itsLength = 0;
    std::size_t itsRoom;
};

}  // namespace Quenvale::Interceptor::SDK
