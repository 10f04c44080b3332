#pragma once

#include <string>
#include <vector>

namespace docs {

/// A fenced block, with the text of the comment on the line before it (empty without one).
struct Block {
    std::string comment;
    std::string language;
    std::string text;  // every line ends with a line feed
    int line = 0;      // of the opening fence
};

using Row = std::vector<std::string>;

/// A page of the documentation: Markdown as our pages use it.
class Page {
public:
    explicit Page(const std::string& path);  // relative to the source directory

    const std::vector<Block>& blocks() const { return itsBlocks; }
    const std::string& block(const std::string& comment) const;  // Throws when there is none.
    /// The rows of the table behind a comment, without its head. Cells are trimmed.
    std::vector<Row> table(const std::string& comment) const;

private:
    std::vector<std::string> itsLines;
    std::vector<Block> itsBlocks;
};

std::string readSource(const std::string& path);

/// The bytes that a line of hexadecimal pairs begins with.
std::string leadingBytes(const std::string& line);

}  // namespace docs
