#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace QZAgent {

/// The agent protocol's encodings, appended to `out`. Unsigned integers go low 7 bits first, the
/// top bit saying that another byte follows; a text or block says its length plus one, 0 standing
/// for null.
void appendUnsigned(std::string& out, std::uint32_t value);
void appendText(std::string& out, const std::string& text);
void appendBlock(std::string& out, const std::string& bytes);
/// The form of a writer that didn't know the block's size beforehand. `piece` is above 0.
void appendBlockInPieces(std::string& out, const std::string& bytes, std::size_t piece);

/// Received bytes that readers take from the front of.
struct Bytes {
    const unsigned char* data;
    std::size_t size;

    unsigned char next() {
        --size;
        return *data++;
    }
};

enum class Progress { Done, More, Bad };

/// Readers of one value each, fed with whatever has come: More asks for more bytes, and the value
/// is there with Done. A reader is used again after reset(). After Bad, reason() tells why.
class UnsignedReader {
public:
    Progress feed(Bytes& bytes);
    void reset() { *this = UnsignedReader(); }
    std::uint32_t value() const { return static_cast<std::uint32_t>(itsValue); }
    static const char* reason() { return "an unsigned integer of more than 31 bits"; }

private:
    std::uint64_t itsValue = 0;
    int itsShift = 0;
};

/// Memory is taken as bytes arrive, never for an announced length.
class TextReader {
public:
    explicit TextReader(std::size_t limit) : itsLimit(limit) {}
    Progress feed(Bytes& bytes);
    void reset() { *this = TextReader(itsLimit); }
    bool isNull() const { return itIsNull; }
    const std::string& text() const { return itsText; }
    const std::string& reason() const { return itsReason; }

private:
    std::size_t itsLimit;
    UnsignedReader itsLength;
    bool itHasLength = false;
    bool itIsNull = false;
    std::size_t itsMissing = 0;
    std::string itsText;
    std::string itsReason;
};

class BlockReader {
public:
    explicit BlockReader(std::size_t limit) : itsLimit(limit) {}
    Progress feed(Bytes& bytes);
    void reset() { *this = BlockReader(itsLimit); }
    bool isNull() const { return itIsNull; }
    std::vector<unsigned char>& bytes() { return itsBytes; }
    std::size_t held() const { return itsBytes.size(); }
    const std::string& reason() const { return itsReason; }

private:
    Progress announce();

    std::size_t itsLimit;
    UnsignedReader itsLength;
    bool itIsFirst = true;
    bool itIsInPiece = false;
    bool itIsNull = false;
    std::size_t itsMissing = 0;
    std::vector<unsigned char> itsBytes;
    std::string itsReason;
};

}  // namespace QZAgent
