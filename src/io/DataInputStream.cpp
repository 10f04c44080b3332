#include "io/DataInputStream.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "io/refusal.h"
#include "util/Vector.h"

namespace Quenvale::Interceptor::SDK::IO {

namespace {

constexpr int kLongest = 64 << 20;
constexpr char kBlockTooLong[] = "Block too long";
constexpr char kTextTooLong[] = "Text too long";

using Bytes = std::unique_ptr<unsigned char[]>;

Bytes allocate(int size) {
    return Bytes(new unsigned char[static_cast<unsigned>(size)]);
}

// The bytes that follow a header: one less than it says.
int lengthOf(int header, const char* tooLong) {
    if (header < 0) refuse("Invalid unsigned value", header);
    if (header - 1 > kLongest) refuse(tooLong, header - 1);
    return header - 1;
}

// The pieces of a block, in order. A piece that is small beside what has come shares a buffer with
// its successors: a peer that sends a block byte by byte would otherwise cost many times its size.
class Pieces {
public:
    Pieces(Bytes first, int length) : itsTotal(length) { append(std::move(first), length); }
    ~Pieces() {
        for (int i = 0; i < itsPieces.size(); ++i) delete[] itsPieces.at(i)->data;
    }
    Pieces(const Pieces&) = delete;
    Pieces& operator=(const Pieces&) = delete;

    int total() const { return itsTotal; }

    // Room for up to `length` bytes, of which `taken` is what it has.
    unsigned char* reserve(int length, int& taken) {
        if (itsRoom == 0) {
            const int room = std::max(length, itsTotal);
            append(allocate(room), 0);
            itsRoom = room;
        }
        Piece* last = itsPieces.at(itsPieces.size() - 1);
        unsigned char* place = last->data + last->length;
        taken = std::min(length, itsRoom);
        last->length += taken;
        itsTotal += taken;
        itsRoom -= taken;
        return place;
    }

    Bytes join() {
        Bytes all = allocate(itsTotal);
        unsigned char* place = all.get();
        for (int i = 0; i < itsPieces.size(); ++i) {
            const Piece* piece = itsPieces.at(i);
            std::memcpy(place, piece->data, static_cast<unsigned>(piece->length));
            place += piece->length;
        }
        return all;
    }

private:
    using Piece = DataInputStream::ChunkData;

    void append(Bytes bytes, int length) {
        auto piece = std::make_unique<Piece>(length, bytes.get());
        itsPieces.add(piece.get());
        static_cast<void>(piece.release());
        static_cast<void>(bytes.release());
    }

    Util::Vector<Piece*> itsPieces{2, 16};
    int itsTotal;
    int itsRoom = 0;  // bytes left in the last buffer
};

}  // namespace

int DataInputStream::read(unsigned char* buffer, int offset, int length) {
    return source()->read(buffer, offset, length);
}

void DataInputStream::closeStream() {
    if (closed) return;
    closed = true;
    try {
        std::exchange(itsSource, nullptr)->closeStream();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // The stream is given up either way.
    }
}

int DataInputStream::available() {
    return source()->available();
}

int DataInputStream::readUnsignedInt() {
    InputStream* in = source();
    unsigned int value = 0;
    for (unsigned int shift = 0;; shift += 7) {
        const int byte = in->read();
        if (byte < 0) Util::raise<Util::EOFException>();
        value |= (static_cast<unsigned int>(byte) & 0x7fU) << (shift & 31U);
        if (byte < 0x80) return static_cast<int>(value);
    }
}

Util::String DataInputStream::readUTF() {
    const int header = readUnsignedInt();
    if (header == 0) return {};
    const int length = lengthOf(header, kTextTooLong);
    char* room = Util::String::room(static_cast<unsigned>(length));
    if (room == nullptr) throw std::bad_alloc();
    Util::String text = Util::String::adopt(room);  // Goes with an exception.
    readFully(reinterpret_cast<unsigned char*>(room), length);
    // A zero character ends it.
    return std::strlen(room) == text.length() ? std::move(text) : Util::String(room);
}

unsigned char* DataInputStream::readBytes(int& size) {
    const int header = readUnsignedInt();
    if (header == 0) return nullptr;
    const int length = lengthOf(header, kBlockTooLong);
    Bytes first = allocate(length);
    readFully(first.get(), length);
    // A block of no bytes has no terminator.
    int next = length == 0 ? 0 : readUnsignedInt();
    if (next == 0) {
        size = length;
        return first.release();
    }

    Pieces pieces(std::move(first), length);
    for (; next != 0; next = readUnsignedInt()) {
        if (next < 0)
            Util::raise<Util::IOException>(
                "Corrupted stream; received a negative number of bytes: ");
        if (next > kLongest - pieces.total())
            refuse(kBlockTooLong, static_cast<long long>(pieces.total()) + next);
        for (int rest = next; rest > 0;) {
            int taken = 0;
            unsigned char* place = pieces.reserve(rest, taken);
            readFully(place, taken);
            rest -= taken;
        }
    }
    Bytes all = pieces.join();
    size = pieces.total();
    return all.release();
}

InputStream* DataInputStream::source() const {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    return itsSource;
}

void DataInputStream::readFully(unsigned char* buffer, int length) {
    for (int have = 0; have < length;) {
        const int came = read(buffer, have, length - have);
        if (came <= 0) Util::raise<Util::EOFException>();
        have += came;
    }
}

}  // namespace Quenvale::Interceptor::SDK::IO
