#include "agent/ConfigCheck.h"

#include <cstdio>
#include <optional>

#include "agent/ConfigReading.h"

namespace QZAgent {

namespace {

// The search reads the text once for each count that may have been meant.
constexpr std::size_t kMostLinesToSearch = 300;

/// The one count that, with another value, would make the rest of the text fit. None when several
/// would do: then any of them may be wrong.
std::optional<ConfigChange> findChange(const std::string& text, const ConfigReading& reading) {
    std::optional<ConfigChange> change;
    if (reading.doesFit || reading.lines.size() > kMostLinesToSearch) return change;
    for (std::size_t i = 0; i < reading.counts.size(); ++i) {
        const ConfigCount& count = reading.counts[i];
        if (!count.isNumber) continue;
        const std::size_t behind = reading.lines.size() - count.line - 1;
        const int most = static_cast<int>(behind) / count.columns;
        for (int rows = 0; rows <= most; ++rows) {
            const ConfigChange tried{i, rows};
            if (rows == count.rows || !readConfig(text, tried).doesFit) continue;
            if (change) return std::nullopt;
            change = tried;
        }
    }
    return change;
}

std::string counted(std::size_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string marked(const std::string& finding) {
    return "       ! " + finding + "\n";
}

}  // namespace

ConfigCheck::ConfigCheck(const std::string& text) {
    ConfigReading reading = readConfig(text);
    if (const auto change = findChange(text, reading)) {
        reading.lines[reading.counts[change->count].line].findings.push_back(
            "does not match its rows: with " + std::to_string(change->rows) +
            " the rest of the text would fit");
    }
    for (const ConfigLine& line : reading.lines) {
        char number[32];
        std::snprintf(number, sizeof number, "%5zu%s ", line.number, line.isRest ? "+" : " ");
        report += number + line.what + " = " + line.value + "\n";
        for (const std::string& finding : line.findings) report += marked(finding);
    }
    for (const std::string& finding : reading.findings) report += marked(finding);
    const std::size_t findings = reading.findingCount();
    isOdd = findings > 0;
    report += counted(reading.lines.size(), "line") + ", " +
              (isOdd ? counted(findings, "finding") : "nothing odd") +
              (reading.isRefused ? ", refused" : "") + "\n";
}

}  // namespace QZAgent
