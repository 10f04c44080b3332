#include "io/ChunkedByteArrayOutputStream.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "io/refusal.h"

namespace Quenvale::Interceptor::SDK::IO {

namespace {

// A buffer of `size` bytes, put at the end of the vector; without storage for a size of 0.
Util::ByteArray* addBuffer(Util::Vector<Util::ByteArray*>& buffers, int size) {
    auto buffer = std::make_unique<Util::ByteArray>();
    std::unique_ptr<unsigned char[]> bytes;
    if (size > 0) bytes.reset(new unsigned char[static_cast<unsigned>(size)]);
    buffer->length = size;
    buffer->owned = size > 0;
    buffers.add(buffer.get());
    buffer->data = bytes.release();
    return buffer.release();
}

}  // namespace

ChunkedByteArrayOutputStream::ChunkedByteArrayOutputStream(int size) {
    if (size < 0) Util::raise<Util::IllegalArgumentException>("Negative initial size: ");
    itsBuffers = std::make_unique<Util::Vector<Util::ByteArray*>>(2, 16);
    itsCurrent = addBuffer(*itsBuffers, size);
}

void ChunkedByteArrayOutputStream::writeByte(int value) {
    checkOpen();
    if (itsTotal == INT_MAX) refuse("Buffer too long", 1LL + itsTotal);
    if (position() == itsCurrent->length) nextBuffer(1);
    if (position() >= itsCurrent->length) Util::raise<Util::RuntimeException>("startPos >= length");
    itsCurrent->data[position()] = static_cast<unsigned char>(value);
    ++itsTotal;
}

void ChunkedByteArrayOutputStream::write(unsigned char* buffer, int offset, int length) {
    checkOpen();
    if (length <= 0) return;
    checkRange(buffer, offset, length);
    if (length > INT_MAX - itsTotal) refuse("Buffer too long", 0LL + itsTotal + length);
    while (length > 0) {
        if (position() == itsCurrent->length) nextBuffer(length);
        const int start = position();
        const int toWrite = std::min(length, itsCurrent->length - start);
        if (toWrite > itsCurrent->length - start)
            Util::raise<Util::RuntimeException>("startPos + toWrite > length");
        std::memcpy(itsCurrent->data + start, buffer + offset, static_cast<unsigned>(toWrite));
        offset += toWrite;
        length -= toWrite;
        itsTotal += toWrite;
    }
}

void ChunkedByteArrayOutputStream::closeStream() {
    if (closed) return;
    for (int i = 0; i < itsBuffers->size(); ++i)
        if (!itIsTransferred) itsBuffers->at(i)->releaseContent();
    itsBuffers.reset();
    itsCurrent = nullptr;
    closed = true;
}

Util::ByteArray ChunkedByteArrayOutputStream::toByteArray() {
    checkOpen();
    auto* all = new unsigned char[static_cast<unsigned>(itsTotal)];
    int copied = 0;
    for (int i = 0; i < itsBuffers->size(); ++i) {
        const Util::ByteArray* buffer = itsBuffers->at(i);
        const int length = std::min(buffer->length, itsTotal - copied);
        std::copy_n(buffer->data, length, all + copied);
        copied += length;
    }
    return {all, itsTotal, true};
}

Util::ByteArray ChunkedByteArrayOutputStream::transferContent() {
    checkOpen();
    Util::ByteArray content;
    if (itsBuffers->size() > 1) {
        content = toByteArray();
    } else if (itsCurrent->length == itsTotal) {
        itIsTransferred = true;
        content = *itsCurrent;
    }
    closeStream();
    return content;
}

void ChunkedByteArrayOutputStream::nextBuffer(int minimum) {
    const int before = itsBefore + itsCurrent->length;
    if (itsIndex + 1 < itsBuffers->size()) {
        itsCurrent = itsBuffers->at(itsIndex + 1);
    } else {
        const int twice = itsCurrent->length > INT_MAX / 2 ? INT_MAX : itsCurrent->length * 2;
        itsCurrent = addBuffer(*itsBuffers, std::max(minimum, twice));
    }
    itsBefore = before;
    ++itsIndex;
}

void ChunkedByteArrayOutputStream::checkOpen() const {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
}

}  // namespace Quenvale::Interceptor::SDK::IO
