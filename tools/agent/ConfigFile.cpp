#include "agent/ConfigFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>

namespace QZAgent {

namespace {

constexpr std::size_t kLargest = std::size_t{16} << 20;  // bytes

}  // namespace

std::optional<std::string> ConfigFile::content() {
    std::ifstream file(itsPath, std::ios::binary);
    if (!file) {
        itsError = "can't read " + itsPath + ": " + std::strerror(errno);
        return std::nullopt;
    }
    std::string text;
    char piece[65536];
    while (text.size() <= kLargest && (file.read(piece, sizeof piece) || file.gcount() > 0)) {
        text.append(piece, static_cast<std::size_t>(file.gcount()));
    }
    if (file.bad() || text.size() > kLargest) {
        itsError = itsPath + " can't be read, or is too large for a configuration";
        return std::nullopt;
    }
    return text;
}

std::optional<std::string> ConfigFile::read() {
    itsTaken = content();
    return itsTaken;
}

std::optional<std::string> ConfigFile::poll() {
    std::optional<std::string> now = content();
    const bool isSettled = now && now == itsSeen;
    const bool isNew = isSettled && now != itsTaken;
    itsSeen = now;
    if (!isNew) return std::nullopt;
    itsTaken = now;
    return now;
}

}  // namespace QZAgent
