#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "agent/ConfigText.h"

namespace QZAgent {

/// A line as it was read, and what in it may not be what its author means.
struct ConfigLine {
    std::size_t number = 0;  // In the file, from 1.
    bool isRest = false;     // It goes on a line that was too long.
    std::string what;
    std::string value;
    std::vector<std::string> findings;
};

/// A count of rows and how it would have to read for the rest of the text to fit.
struct ConfigCount {
    std::size_t line = 0;  // Index of a ConfigLine.
    int rows = 0;
    int columns = 0;
    bool isNumber = false;
};

/// What an instrumented program makes of a configuration text, told from the format and not by the
/// library's reader.
struct ConfigReading {
    ConfigText config;
    bool isRefused = false;  // `config` holds what was read up to there; nothing of it is in force.
    std::vector<ConfigLine> lines;
    std::vector<std::string> findings;  // About no single line.
    std::vector<ConfigCount> counts;    // Those that stand in the text.
    bool doesFit = true;  // No line is missing, left over, or no count where one is due.

    std::size_t findingCount() const;
};

/// Another value for one of the counts, by its place among them.
struct ConfigChange {
    std::size_t count;
    int rows;
};

ConfigReading readConfig(const std::string& text, const std::optional<ConfigChange>& change = {});

}  // namespace QZAgent
