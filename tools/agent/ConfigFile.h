#pragma once

#include <optional>
#include <string>

namespace QZAgent {

/// A configuration file and its changes, found by looking. Its content is compared and not its
/// time: two writes within one tick of the file system are two contents.
class ConfigFile {
public:
    explicit ConfigFile(const std::string& path) : itsPath(path) {}

    /// Nothing, with error() set, when it can't be read. What was read counts as taken.
    std::optional<std::string> read();

    /// The content, once, when it differs from what was taken last and two looks in a row saw it
    /// the same: a file that is being written isn't taken half way. A file that is gone is no
    /// change.
    std::optional<std::string> poll();

    const std::string& error() const { return itsError; }

private:
    std::optional<std::string> content();

    std::string itsPath;
    std::string itsError;
    std::optional<std::string> itsTaken;
    std::optional<std::string> itsSeen;
};

}  // namespace QZAgent
