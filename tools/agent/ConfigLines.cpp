#include "agent/ConfigLines.h"

#include <algorithm>

namespace QZAgent {

namespace {

constexpr std::size_t kLongest = 255;  // bytes, the line feed included

}  // namespace

/// The line feed among the fetched bytes, or npos.
std::size_t ConfigLines::lineEnd() const {
    const std::size_t found = itsText.find('\n', itsNext);
    return found < itsFetched ? found : std::string::npos;
}

ConfigLines::Piece ConfigLines::next() {
    Piece piece;
    const std::size_t begin = itsNext;
    piece.number = itsNumber;
    piece.isRest = begin > 0 && itsText[begin - 1] != '\n';

    std::size_t end = lineEnd();
    if (end == std::string::npos) {
        itsFetched = std::min(itsText.size(), begin + kLongest);
        // The whole of such a fetch is dropped: its first byte makes it an empty text.
        if (itsText[begin] == '\0') piece.swallowed = itsFetched - begin;
        end = piece.swallowed > 0 ? std::string::npos : lineEnd();
    }
    const bool hasLineEnd = end != std::string::npos;
    if (!hasLineEnd) end = itsFetched;
    itsNext = hasLineEnd ? end + 1 : end;
    piece.isWhole = hasLineEnd || isAtEnd();
    itsNumber +=
        static_cast<std::size_t>(std::count(itsText.begin() + static_cast<long>(begin),
                                            itsText.begin() + static_cast<long>(itsNext), '\n'));

    piece.text = itsText.substr(begin, end - begin);
    const std::size_t zero = piece.text.find('\0');
    piece.hasZero = zero != std::string::npos;
    if (piece.hasZero) piece.text.resize(zero);
    return piece;
}

}  // namespace QZAgent
