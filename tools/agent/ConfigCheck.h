#pragma once

#include <string>

namespace QZAgent {

/// Tells line by line how an instrumented program reads a configuration text, with what its author
/// may not have meant marked "!" beneath the line, and a summary in the last line.
struct ConfigCheck {
    explicit ConfigCheck(const std::string& text);

    std::string report;
    bool isOdd = false;
};

}  // namespace QZAgent
