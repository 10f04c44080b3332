#include "io/BufferedOutputStream.h"

#include <cstring>

#include "io/refusal.h"

namespace Quenvale::Interceptor::SDK::IO {

void BufferedOutputStream::init(OutputStream* sink, int size) {
    if (sink == nullptr) Util::raise<Util::IllegalArgumentException>("input stream is NULL");
    if (size <= 0) Util::raise<Util::IllegalArgumentException>("Buffer size <= 0");
    itsBuffer.reset(new unsigned char[static_cast<unsigned>(size)]);
    itsSink = sink;
    itsCount = 0;
    itsSize = size;
    closed = false;
}

void BufferedOutputStream::write(unsigned char* buffer, int offset, int length) {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    checkRange(buffer, offset, length);
    if (length == 0) return;
    if (length > itsSize - itsCount && itsCount > 0) sendWaiting();
    if (length > itsSize) {
        itsSink->write(buffer, offset, length);
        return;
    }
    std::memcpy(itsBuffer.get() + itsCount, buffer + offset, static_cast<unsigned>(length));
    itsCount += length;
}

void BufferedOutputStream::flush() {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    sendWaiting();
    itsSink->flush();
}

void BufferedOutputStream::closeStream() {
    if (closed) return;
    itsSink->closeStream();
    itsBuffer.reset();
    itsSink = nullptr;
    closed = true;
}

void BufferedOutputStream::sendWaiting() {
    itsSink->write(itsBuffer.get(), 0, itsCount);
    itsCount = 0;
}

}  // namespace Quenvale::Interceptor::SDK::IO
