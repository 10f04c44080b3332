#pragma once

#include <fstream>
#include <sstream>

#include "harness/test.h"

/// Known answers from tests/data: tab-separated rows of one file, without the line that names the
/// columns. "\N" stands for a null text.
namespace harness {

class Row {
public:
    explicit Row(const std::string& line) : itsLine(line) {
        std::istringstream cells(line + '\t');
        for (std::string cell; std::getline(cells, cell, '\t');) itsCells.push_back(cell);
    }

    const std::string& line() const { return itsLine; }
    const char* at(std::size_t column) const {
        const std::string& cell = itsCells.at(column);
        return cell == "\\N" ? nullptr : cell.c_str();
    }

private:
    std::string itsLine;
    std::vector<std::string> itsCells;
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
