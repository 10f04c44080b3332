#include "docs/Page.h"

#include <cctype>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace docs {

namespace {

std::string trimmed(const std::string& text) {
    const auto begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? ""
                                      : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

std::string commentOf(const std::string& line) {
    if (line.compare(0, 5, "<!-- ") != 0 || line.size() < 9) return "";
    return line.substr(5, line.size() - 9);
}

Row cells(const std::string& line) {
    Row row;
    std::istringstream parts(line.substr(1));
    for (std::string cell; std::getline(parts, cell, '|');) row.push_back(trimmed(cell));
    return row;
}

}  // namespace

std::string readSource(const std::string& path) {
    std::ifstream file(QZ_SOURCE_DIR "/" + path, std::ios::binary);
    if (!file) throw std::runtime_error("can't read " + path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

Page::Page(const std::string& path) {
    std::istringstream text(readSource(path));
    for (std::string line; std::getline(text, line);) itsLines.push_back(line);
    for (std::size_t i = 0; i < itsLines.size(); ++i) {
        if (itsLines[i].compare(0, 3, "```") != 0) continue;
        Block block;
        block.line = static_cast<int>(i) + 1;
        block.language = itsLines[i].substr(3);
        if (i > 0) block.comment = commentOf(itsLines[i - 1]);
        while (++i < itsLines.size() && itsLines[i] != "```") block.text += itsLines[i] + "\n";
        itsBlocks.push_back(block);
    }
}

const std::string& Page::block(const std::string& comment) const {
    for (const Block& each : itsBlocks) {
        if (each.comment == comment) return each.text;
    }
    throw std::runtime_error("no block " + comment);
}

std::vector<Row> Page::table(const std::string& comment) const {
    std::vector<Row> rows;
    std::size_t i = 0;
    while (i < itsLines.size() && commentOf(itsLines[i]) != comment) ++i;
    // Behind the comment: an empty line, the head, the rule.
    for (i += 4; i < itsLines.size() && itsLines[i].compare(0, 1, "|") == 0; ++i) {
        rows.push_back(cells(itsLines[i]));
    }
    if (rows.empty()) throw std::runtime_error("no table " + comment);
    return rows;
}

std::string leadingBytes(const std::string& line) {
    const auto isHex = [&](std::size_t at) {
        return at < line.size() && std::isxdigit(static_cast<unsigned char>(line[at])) != 0;
    };
    std::string bytes;
    for (std::size_t at = 0; isHex(at) && isHex(at + 1) && !isHex(at + 2); at += 3) {
        bytes += static_cast<char>(std::stoi(line.substr(at, 2), nullptr, 16));
        if (at + 2 < line.size() && line[at + 2] != ' ') break;
    }
    return bytes;
}

}  // namespace docs
