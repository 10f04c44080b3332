#pragma once

#include <fstream>
#include <optional>
#include <sstream>

#include "harness/test.h"

/// Known answers from tests/data: tab-separated rows of one file, without the line that names the
/// columns. "\N" stands for a null text.
namespace harness {

class Row {
public:
    explicit Row(const std::string& line) : itsLine(line) {
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '\t');)
            itsCells.push_back(cell == "\\N" ? std::nullopt : std::optional<std::string>(cell));
        // A last cell that is empty ends in a tab.
        if (line.empty() || line.back() == '\t') itsCells.emplace_back("");
    }

    const std::string& line() const { return itsLine; }
    const char* at(std::size_t column) const {
        const auto& cell = itsCells.at(column);
        return cell ? cell->c_str() : nullptr;
    }

private:
    std::string itsLine;
    std::vector<std::optional<std::string>> itsCells;
};

inline std::vector<Row> readVectors(const char* file) {
    std::ifstream in(std::string(QZ_TEST_DATA "/") + file);
    std::vector<Row> rows;
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) rows.emplace_back(line);
    EXPECT_FALSE(rows.empty()) << file << " is missing or has no rows";
    return rows;
}

}  // namespace harness
