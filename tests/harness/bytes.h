#pragma once

#include <string>

namespace harness {

inline unsigned char* bytesOf(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

}  // namespace harness
