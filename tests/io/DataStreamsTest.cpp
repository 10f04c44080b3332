// What the streams' self-check leaves open, which TestStreamsTest.cpp runs: it sends numbers, texts
// and blocks in any portions.
#include "harness/values.h"
#include "io/DataInputStream.h"
#include "io/DataOutputStream.h"
#include "io/TestInputStream.h"
#include "io/TestOutputStream.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::bytesOf;
using harness::thrown;
using std::string_literals::operator""s;

std::string wire(const std::function<void(IO::DataOutputStream&)>& write) {
    IO::TestOutputStream sink;
    IO::DataOutputStream out(&sink);
    write(out);
    return sink.itsBytes;
}

std::string repeat(int count, char c = 'x') {
    return std::string(static_cast<unsigned>(count), c);
}

TEST(DataStreams, UnsignedIntegersTakeAByteForSevenBits) {
    const struct {
        const char* why;
        int value;
        std::string bytes;
        bool isWritten = true;
    } rows[] = {
        {"zero is a byte, not nothing", 0, "\0"s},
        {"group order shows", 300, "\xAC\x02"},
        {"needless groups", 1, "\x81\x80\x80\x00"s, false},
        {"bit 31 is the sign", INT_MIN, "\x80\x80\x80\x80\x08", false},
        {"the sixth group lands on bit 3", 8, "\x80\x80\x80\x80\x80\x01", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        if (row.isWritten) {
            EXPECT_EQ(wire([&](auto& out) { out.writeUnsignedInt(row.value); }), row.bytes);
        }
        IO::TestInputStream source(row.bytes);
        IO::DataInputStream in(&source);
        EXPECT_EQ(in.readUnsignedInt(), row.value);
    }
    IO::TestOutputStream sink;
    EXPECT_EQ(thrown([&] { IO::DataOutputStream::writeUnsignedInt(&sink, -1); }),
              "IOException: Invalid unsigned value: -1");
    EXPECT_EQ(sink.itsBytes, "");
}

TEST(DataStreams, BlocksOfNothingAndOfManyPieces) {
    std::string text = "abc";
    const auto write = [&](unsigned char* data, int length) {
        return wire([&](auto& out) { out.writeBytes(data, length); });
    };
    EXPECT_EQ(write(nullptr, 5), "\0"s);
    for (const int length : {-1, -2})
        EXPECT_EQ(thrown([&] { write(bytesOf(text), length); }),
                  "IOException: Invalid unsigned value: -1");
    EXPECT_EQ(thrown([&] { write(bytesOf(text), INT_MAX); }),
              "IOException: Block too long: 2147483647");

    std::string bytes = "\0\2a"s;
    std::string joined = "a";
    for (int i = 1; i < 1000; ++i) {
        joined += static_cast<char>(i);
        bytes += "\1"s + joined.back();
    }
    IO::TestInputStream source(bytes + "\xC8\1" + repeat(200) + "\0"s);
    IO::DataInputStream in(&source);
    int size = -7;
    EXPECT_EQ(in.readBytes(size), nullptr);
    EXPECT_EQ(size, -7) << "the size is left alone";
    const std::unique_ptr<unsigned char[]> data(in.readBytes(size));
    EXPECT_EQ(harness::textOf(data.get(), size), joined + repeat(200));
    EXPECT_EQ(source.itsPosition, static_cast<int>(source.itsBytes.size()));
}

TEST(DataStreams, AValueThatBreaksOffOrCannotBeIsRefused) {
    const auto text = [](IO::DataInputStream& in) { in.readUTF(); };
    const auto bytes = [](IO::DataInputStream& in) {
        int size = 0;
        in.readBytes(size);
    };
    const struct {
        const char* why;
        std::string bytes;
        std::function<void(IO::DataInputStream&)> read;
        const char* error;
    } rows[] = {
        {"nothing at all", "", text, "EOFException"},
        {"inside a text", "\4ab", text, "EOFException"},
        {"inside a block", "\4ab", bytes, "EOFException"},
        {"before the terminator", "\4abc", bytes, "EOFException"},
        {"inside a further piece", "\2a\3bc", bytes, "EOFException"},
        {"behind a further piece", "\2a\1b", bytes, "EOFException"},
        {"negative text", "\xFF\xFF\xFF\xFF\x0F", text, "IOException: Invalid unsigned value: -1"},
        {"negative block", "\xFF\xFF\xFF\xFF\x0F", bytes,
         "IOException: Invalid unsigned value: -1"},
        {"negative piece", "\2a\xFF\xFF\xFF\xFF\x0F", bytes,
         "IOException: Corrupted stream; received a negative number of bytes: "},
        {"longest text", "\x81\x80\x80\x20", text, "EOFException"},
        {"longer text", "\x82\x80\x80\x20", text, "IOException: Text too long: 67108865"},
        {"longest block", "\x81\x80\x80\x20", bytes, "EOFException"},
        {"longer block", "\x82\x80\x80\x20", bytes, "IOException: Block too long: 67108865"},
        {"all pieces together", "\2a\x80\x80\x80\x20", bytes,
         "IOException: Block too long: 67108865"},
        {"no overflow", "\2a\xFF\xFF\xFF\xFF\x07", bytes,
         "IOException: Block too long: 2147483648"},
    };
    for (const auto& row : rows) {
        for (const int atEnd : {-1, 0}) {
            SCOPED_TRACE(row.why);
            IO::TestInputStream source(row.bytes);
            source.itsEnd = atEnd;
            IO::DataInputStream in(&source);
            EXPECT_EQ(thrown([&] { row.read(in); }), row.error);
        }
    }
}

TEST(DataStreams, AChunkSendsPiecesOfWhatWasStaged) {
    using Writes = std::vector<int>;
    const struct {
        const char* why;
        Writes writes;  // 0 flushes
        std::string bytes;
    } rows[] = {
        {"nothing is a null block", {}, "\0"s},
        {"only the first header is one more", {2, 0, 2, 0, 0}, "\3xx\2xx\0"s},
        {"full staging goes at once", {1000, 24, 1}, "\x81\x08" + repeat(1024) + "\1x\0"s},
        {"what doesn't fit follows",
         {1000, 25},
         "\xE9\x07" + repeat(1000) + "\x19" + repeat(25) + "\0"s},
        {"a long write takes what is staged along", {1, 1024}, "\x82\x08" + repeat(1025) + "\0"s},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        const std::string bytes = wire([&](auto& out) {
            const std::unique_ptr<IO::DataOutputStream::Chunk> chunk(out.writeBytes());
            for (const int count : row.writes) {
                std::string text = repeat(count);
                if (count == 0)
                    chunk->flush();
                else
                    chunk->write(bytesOf(text), 0, count);
            }
            chunk->closeStream();
        });
        EXPECT_EQ(bytes, row.bytes);
    }
}

TEST(DataStreams, AnOpenChunkBarsItsParentAndAClosedOneEverything) {
    using Chunk = IO::DataOutputStream::Chunk;
    IO::TestOutputStream sink;
    IO::DataOutputStream out(&sink);
    unsigned char byte = 'x';
    const std::unique_ptr<Chunk> chunk(out.writeBytes());
    const std::string open = "IOException: A chunk is still open.";
    EXPECT_EQ(thrown([&] { out.writeByte(1); }), open);
    EXPECT_EQ(thrown([&] { out.flush(); }), open);
    EXPECT_EQ(thrown([&] { out.writeUTF(nullptr); }), open);
    EXPECT_EQ(thrown([&] { out.writeBytes(nullptr, 0); }), open);
    EXPECT_EQ(thrown([&] { out.writeBytes(); }), open);
    EXPECT_EQ(thrown([&] { out.writeUnsignedInt(1); }), "IOException: A chunk is still open");
    chunk->closeStream();
    const std::string closed = "IOException: Chunk is closed.";
    EXPECT_EQ(thrown([&] { chunk->write(&byte, 0, 1); }), closed);
    EXPECT_EQ(thrown([&] { chunk->flush(); }), closed);
    EXPECT_EQ(thrown([&] { chunk->closeStream(); }), closed);
    const std::unique_ptr<Chunk> second(out.writeBytes());
    second->writeByte('y');
    second->closeStream();
    EXPECT_EQ(sink.itsBytes, "\0\2y\0"s);
}

TEST(DataStreams, CloseReachesTheStreamBelow) {
    IO::TestOutputStream sink;
    IO::DataOutputStream out(&sink);
    sink.itFailsToClose = true;
    EXPECT_EQ(thrown([&] { out.closeStream(); }), "IOException: no close");
    sink.itFailsToClose = false;
    out.flush();
    out.closeStream();
    out.closeStream();
    EXPECT_EQ(sink.itsCalls, (std::vector<std::string>{"<close>", "<flush>", "<close>"}));
    EXPECT_EQ(thrown([&] { out.writeByte(1); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { out.writeBytes(); }), "IOException: stream is closed.");

    IO::TestInputStream source("abc");
    source.itFailsToClose = true;
    IO::DataInputStream in(&source);
    in.closeStream();
    in.closeStream();
    EXPECT_EQ(source.itsCloses, 1);
    EXPECT_EQ(thrown([&] { in.read(); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { in.available(); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { in.readUTF(); }), "IOException: stream is closed.");
}

}  // namespace
