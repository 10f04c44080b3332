#pragma once

#include <string>

namespace QZAgent {

bool isUtf8(const std::string& bytes);
/// UTF-8, and of the control characters only tab, line feed and carriage return.
bool isPrintable(const std::string& bytes);
std::string latin1ToUtf8(const std::string& bytes);
std::string base64(const std::string& bytes);

/// For a terminal: control characters, and bytes that are no UTF-8, as \xNN; a backslash is
/// doubled.
std::string escaped(const std::string& bytes);

}  // namespace QZAgent
