#include "agent/Wire.h"

#include <algorithm>
#include <limits>

namespace QZAgent {

void appendUnsigned(std::string& out, std::uint32_t value) {
    for (; value > 0x7f; value >>= 7) out.push_back(static_cast<char>((value & 0x7f) | 0x80));
    out.push_back(static_cast<char>(value));
}

void appendText(std::string& out, const std::string& text) {
    appendUnsigned(out, static_cast<std::uint32_t>(text.size() + 1));
    out += text;
}

void appendBlock(std::string& out, const std::string& bytes) {
    appendBlockInPieces(out, bytes, bytes.empty() ? 1 : bytes.size());
}

void appendBlockInPieces(std::string& out, const std::string& bytes, std::size_t piece) {
    if (bytes.empty()) {
        // A block of no bytes is its length alone; no end mark follows.
        appendUnsigned(out, 1);
        return;
    }
    std::uint32_t extra = 1;  // Only the first piece counts one more, to tell it from null.
    for (std::size_t from = 0; from < bytes.size(); from += piece, extra = 0) {
        const std::size_t length = std::min(piece, bytes.size() - from);
        appendUnsigned(out, static_cast<std::uint32_t>(length) + extra);
        out.append(bytes, from, length);
    }
    appendUnsigned(out, 0);
}

Progress UnsignedReader::feed(Bytes& bytes) {
    while (bytes.size > 0) {
        const unsigned char byte = bytes.next();
        itsValue |= static_cast<std::uint64_t>(byte & 0x7f) << itsShift;
        itsShift += 7;
        const bool isLast = (byte & 0x80) == 0;
        if (itsValue > std::numeric_limits<std::int32_t>::max() || (!isLast && itsShift >= 35))
            return Progress::Bad;
        if (isLast) return Progress::Done;
    }
    return Progress::More;
}

Progress TextReader::feed(Bytes& bytes) {
    if (!itHasLength) {
        const Progress progress = itsLength.feed(bytes);
        if (progress == Progress::Bad) itsReason = UnsignedReader::reason();
        if (progress != Progress::Done) return progress;
        itHasLength = true;
        itIsNull = itsLength.value() == 0;
        itsMissing = itIsNull ? 0 : itsLength.value() - 1;
        if (itsMissing > itsLimit) {
            itsReason = "a text of " + std::to_string(itsMissing) + " bytes";
            return Progress::Bad;
        }
    }
    const std::size_t taken = std::min(itsMissing, bytes.size);
    itsText.append(reinterpret_cast<const char*>(bytes.data), taken);
    bytes.data += taken;
    bytes.size -= taken;
    itsMissing -= taken;
    return itsMissing == 0 ? Progress::Done : Progress::More;
}

/// A length has come in full: the block's first, a further piece's, or the end mark.
Progress BlockReader::announce() {
    itsMissing = itsLength.value();
    itsLength.reset();
    if (itIsFirst) {
        itIsFirst = false;
        itIsNull = itsMissing == 0;
        if (itsMissing <= 1) return Progress::Done;
        --itsMissing;
    } else if (itsMissing == 0) {
        return Progress::Done;
    }
    if (itsMissing > itsLimit - itsBytes.size()) {
        itsReason = "a block of " + std::to_string(itsBytes.size() + itsMissing) + " bytes or more";
        return Progress::Bad;
    }
    itIsInPiece = true;
    return Progress::More;
}

Progress BlockReader::feed(Bytes& bytes) {
    while (bytes.size > 0) {
        if (!itIsInPiece) {
            Progress progress = itsLength.feed(bytes);
            if (progress == Progress::Bad) itsReason = UnsignedReader::reason();
            if (progress == Progress::Done) progress = announce();
            if (progress != Progress::More) return progress;
            continue;
        }
        const std::size_t taken = std::min(itsMissing, bytes.size);
        itsBytes.insert(itsBytes.end(), bytes.data, bytes.data + taken);
        bytes.data += taken;
        bytes.size -= taken;
        itsMissing -= taken;
        itIsInPiece = itsMissing != 0;
    }
    return Progress::More;
}

}  // namespace QZAgent
