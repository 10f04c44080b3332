#pragma once

#include <cstddef>
#include <string>

namespace QZAgent {

/// A configuration text in the lines that an instrumented program makes of it. They are not always
/// the lines of the file: one of more than 254 bytes comes in pieces of 255, and a zero byte ends a
/// line or swallows what follows. Behind the end come empty lines for ever.
///
/// Ownership: the text is borrowed.
class ConfigLines {
public:
    struct Piece {
        std::string text;
        std::size_t number = 0;     // Of the line in the file where the piece begins, from 1.
        std::size_t swallowed = 0;  // Bytes that a zero byte at its front took away with it.
        bool isRest = false;        // It goes on a line.
        bool isWhole = true;        // It ends where a line or the text ends.
        bool hasZero = false;
    };

    explicit ConfigLines(const std::string& text) : itsText(text) {}

    Piece next();

    bool isAtEnd() const { return itsNext == itsText.size(); }
    /// Nothing is left but what was fetched together with an earlier line.
    bool isDry() const { return itsFetched == itsText.size(); }

private:
    std::size_t lineEnd() const;

    const std::string& itsText;
    std::size_t itsNext = 0;     // The first byte that no line has taken.
    std::size_t itsFetched = 0;  // The first byte that was not fetched.
    std::size_t itsNumber = 1;
};

}  // namespace QZAgent
