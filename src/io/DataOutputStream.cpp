#include "io/DataOutputStream.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "io/refusal.h"

namespace Quenvale::Interceptor::SDK::IO {

namespace {

constexpr int kScratchSize = 256;
constexpr int kChunkCapacity = 1024;

}  // namespace

DataOutputStream::DataOutputStream(OutputStream* out)
    : itsSink(out), itsScratch(new unsigned char[kScratchSize]) {}

void DataOutputStream::write(unsigned char* buffer, int offset, int length) {
    checkPlain();
    sink()->write(buffer, offset, length);
}

void DataOutputStream::flush() {
    checkPlain();
    sink()->flush();
}

void DataOutputStream::closeStream() {
    if (closed) return;
    itsSink->closeStream();
    itsScratch.reset();
    itsSink = nullptr;
    closed = true;
}

void DataOutputStream::writeUnsignedInt(int value) {
    if (itIsChunkOpen) Util::raise<Util::IOException>("A chunk is still open");
    writeUnsignedInt(this, value);
}

void DataOutputStream::writeUnsignedInt(OutputStream* stream, int value) {
    if (value < 0) refuse("Invalid unsigned value", value);
    // One byte per call: the buffered stream below gathers them.
    for (; value > 0x7f; value >>= 7) stream->writeByte((value & 0x7f) | 0x80);
    stream->writeByte(value);
}

void DataOutputStream::writeUTF(const Util::String& text) {
    checkPlain();
    if (text.c_str() == nullptr) {
        writeByte(0);
        return;
    }
    const unsigned int length = text.length();
    if (length >= INT_MAX) refuse("Text too long", length);
    writeUnsignedInt(static_cast<int>(length) + 1);
    if (length == 0) return;
    // The interface takes no const; no stream writes into what it is given.
    auto* bytes = reinterpret_cast<unsigned char*>(const_cast<char*>(text.c_str()));
    write(bytes, 0, static_cast<int>(length));
}

void DataOutputStream::writeBytes(unsigned char* data, int length) {
    checkPlain();
    if (data == nullptr) {
        writeByte(0);
        return;
    }
    if (length == INT_MAX) refuse("Block too long", length);
    // A length of -1 must not come out as the null block.
    writeUnsignedInt(length < 0 ? std::min(length + 1, -1) : length + 1);
    if (length == 0) return;
    write(data, 0, length);
    writeByte(0);
}

DataOutputStream::Chunk* DataOutputStream::writeBytes() {
    checkPlain();
    sink();
    if (itsStaging == nullptr) {
        itsStaging.reset(new unsigned char[kChunkCapacity]);
        itsStagingSize = kChunkCapacity;
    }
    auto* chunk = new Chunk(this);
    itIsChunkOpen = true;
    return chunk;
}

void DataOutputStream::refuseForChunk() {
    Util::raise<Util::IOException>("A chunk is still open.");
}

void DataOutputStream::refuseClosed() {
    Util::raise<Util::IOException>("stream is closed.");
}

DataOutputStream::Chunk::Chunk(DataOutputStream* parent)
    : itsParent(parent),
      itsStaging(parent->itsStaging.get()),
      itsCapacity(parent->itsStagingSize) {}

void DataOutputStream::Chunk::write(unsigned char* buffer, int offset, int length) {
    checkOpen();
    if (length >= itsCapacity) {
        flushChunk(buffer, offset, length);
        return;
    }
    if (buffer == nullptr || length <= 0) return;
    if (length > itsCapacity - itsBuffered) flushChunk(nullptr, 0, 0);
    std::memcpy(itsStaging + itsPosition, buffer + offset, static_cast<unsigned>(length));
    itsPosition += length;
    itsBuffered += length;
    if (itsBuffered == itsCapacity) flushChunk(nullptr, 0, 0);
}

void DataOutputStream::Chunk::flush() {
    checkOpen();
    flushChunk(nullptr, 0, 0);
}

void DataOutputStream::Chunk::closeStream() {
    checkOpen();
    flushChunk(nullptr, 0, 0);
    itsParent->sink()->writeByte(0);
    itsParent->itIsChunkOpen = false;
    closed = true;
}

void DataOutputStream::Chunk::flushChunk(unsigned char* extra, int offset, int length) {
    checkOpen();
    const int added = extra == nullptr ? 0 : std::max(length, 0);
    if (added >= INT_MAX - itsBuffered) refuse("Block too long", added);
    const int piece = itsBuffered + added;
    if (piece == 0) return;
    OutputStream* out = itsParent->sink();
    DataOutputStream::writeUnsignedInt(out, itIsFirst ? piece + 1 : piece);
    itIsFirst = false;
    if (itsBuffered > 0) out->write(itsStaging, 0, itsBuffered);
    if (added > 0) out->write(extra, offset, added);
    itsBuffered = 0;
    itsPosition = 0;
}

void DataOutputStream::Chunk::checkOpen() const {
    if (closed) Util::raise<Util::IOException>("Chunk is closed.");
}

}  // namespace Quenvale::Interceptor::SDK::IO
