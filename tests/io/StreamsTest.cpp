// What the streams' self-check leaves open, which TestStreamsTest.cpp runs: ends, buffers, owners,
// refusals.
#include "harness/values.h"
#include "io/BufferedInputStream.h"
#include "io/BufferedOutputStream.h"
#include "io/ByteArrayInputStream.h"
#include "io/ByteInputStream.h"
#include "io/ByteOutputStream.h"
#include "io/ChunkedByteArrayOutputStream.h"
#include "io/DataInputStream.h"
#include "io/DataOutputStream.h"
#include "io/TestInputStream.h"
#include "io/TestOutputStream.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::bytesOf;
using harness::thrown;
using std::string_literals::operator""s;

std::string repeat(int count) {
    return std::string(static_cast<unsigned>(count), 'x');
}

std::string read(IO::InputStream& in, int length) {
    std::string text = repeat(length);
    const int came = in.read(bytesOf(text), 0, length);
    return came < 0 ? "<end>" : text.substr(0, static_cast<unsigned>(came));
}

void write(IO::OutputStream& out, std::string text) {
    out.write(bytesOf(text), 0, static_cast<int>(text.size()));
}

unsigned char* block(const char* text) {
    auto* bytes = new unsigned char[std::strlen(text)];
    std::memcpy(bytes, text, std::strlen(text));
    return bytes;
}

TEST(BufferedInputStream, OneReadOfTheSourceServesManyCallsUpToItsEnd) {
    IO::TestInputStream source("abcdefgh");
    source.itsReady = 6;
    IO::BufferedInputStream in(&source, 16);
    EXPECT_EQ(read(in, 2), "ab");
    EXPECT_EQ(in.available(), 6 + 4);
    source.itsReady = -1;
    EXPECT_EQ(read(in, 9), "cdef") << "a broken source still leaves what is buffered";
    EXPECT_EQ(read(in, 9), "<end>");
    EXPECT_EQ(in.available(), -1);
    EXPECT_EQ(source.itsRequests, std::vector<int>{6});

    for (const int end : {-1, 0}) {
        IO::TestInputStream ending("abc");
        ending.itsReady = 3;
        ending.itsEnd = end;
        in.init(&ending, 16);
        EXPECT_EQ(read(in, 1), "a");
        EXPECT_EQ(read(in, 5), end < 0 ? "<end>" : "bc") << "to give nothing is not to end";
    }
}

TEST(BufferedInputStream, TheBufferGrowsWithTheDemandUpToALimit) {
    const struct {
        const char* why;
        int ready, length, request, size;
    } rows[] = {
        {"fits exactly", 2048, 1, 2048, 2048},
        {"one more is twice that", 2049, 1, 2049, 4098},
        {"what is asked for", 0, 5000, 5000, 10000},
        {"the largest in full", 1 << 20, 1, 1 << 20, 2 << 20},
        {"a peer can't ask for more memory", INT_MAX, 1, 1 << 20, 2 << 20},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        IO::TestInputStream source(repeat(6000));
        source.itsReady = row.ready;
        IO::BufferedInputStream in(&source, 2048);
        EXPECT_EQ(read(in, row.length), repeat(row.length));
        EXPECT_EQ(source.itsRequests, std::vector<int>{row.request});
        EXPECT_EQ(in.bufferSize(), row.size);
        EXPECT_GE(in.available(), row.ready) << "the sum does not overflow";
    }
}

TEST(BufferedOutputStream, OnlyWhatFitsIsGatheredAndCloseDropsIt) {
    using Calls = std::vector<std::string>;
    const struct {
        const char* why;
        std::vector<int> writes;
        Calls calls;
    } rows[] = {
        {"a full buffer waits", {1024}, {}},
        {"a longer write passes around it", {1025}, {repeat(1025)}},
        {"room to the last byte", {10, 1014}, {}},
        {"what waits goes before a long one", {10, 1025}, {repeat(10), repeat(1025)}},
        {"a full buffer goes with the next byte", {1024, 1}, {repeat(1024)}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        IO::TestOutputStream sink;
        IO::BufferedOutputStream out(&sink, 1024);
        for (const int count : row.writes) write(out, repeat(count));
        EXPECT_EQ(sink.itsCalls, row.calls);
    }
    IO::TestOutputStream sink;
    IO::BufferedOutputStream out(&sink, 8);
    out.writeByte(0x141);
    out.flush();
    out.flush();
    write(out, "lost");
    out.closeStream();
    EXPECT_EQ(sink.itsCalls, (Calls{"A", "<flush>", "", "<flush>", "<close>"}));
}

TEST(ByteArrayInputStream, EndsWithMinusOne) {
    unsigned char bytes[] = {'a', 'b', 'c'};
    IO::ByteArrayInputStream in(Util::ByteArray(bytes, 3, false));
    EXPECT_EQ(read(in, 0), "");
    EXPECT_EQ(read(in, 2), "ab");
    EXPECT_EQ(in.available(), 1);
    EXPECT_EQ(read(in, 3), "c") << "no more than remains";
    EXPECT_EQ(read(in, 0), "<end>") << "the end comes before the empty request";
}

TEST(ByteInputStream, EndsWithZeroAndOwnsItsBlock) {
    unsigned char byte = 0;
    IO::ByteInputStream in(block("abc"), 3);
    EXPECT_EQ(in.read(&byte, 0, -1), 0);
    EXPECT_EQ(read(in, 2), "ab");
    EXPECT_EQ(in.available(), 1);
    EXPECT_EQ(read(in, 4), "c");
    EXPECT_EQ(read(in, 4), "");
    in.initBuffer(block("xy"), 2);
    EXPECT_EQ(in.read(), 'x');
    EXPECT_EQ(thrown([&] { in.read(nullptr, 0, 1); }), "buf is NULL");
    EXPECT_EQ(thrown([&] { in.initBuffer(nullptr, 1); }), "buffer is NULL.");
    EXPECT_EQ(thrown([&] { in.initBuffer(&byte, 0); }), "buffer length < 1.");
    in.closeStream();
    EXPECT_EQ(in.available(), 0);
    EXPECT_EQ(in.read(), -1);
    EXPECT_EQ(thrown([&] { in.initBuffer(&byte, 1); }), "IOException: Stream is closed.");
}

TEST(ByteOutputStream, DoublesAsOftenAsItTakes) {
    unsigned char byte = 'a';
    IO::ByteOutputStream out(100);
    std::string all;
    for (const auto& [length, size] : {std::pair{100, 100}, {1, 200}, {899, 1600}}) {
        write(out, repeat(length));
        all += repeat(length);
        EXPECT_EQ(out.getSize(), size);
        EXPECT_EQ(harness::textOf(out.getBuffer(), out.getCount()), all);
    }
    EXPECT_EQ(thrown([&] { out.write(nullptr, 0, 1); }), "buf is NULL");
    out.write(&byte, 0, -1);
    EXPECT_EQ(out.getCount(), 1000);
    EXPECT_EQ(thrown([&] { out.write(&byte, 0, INT_MAX); }),
              "IOException: Buffer too long: 3355443200");
    EXPECT_EQ(thrown([&] { out.initBuffer(0); }), "buffer size < 1.");
    out.flush();
    out.closeStream();
    EXPECT_EQ(thrown([&] { out.writeByte(1); }), "IOException: Stream is closed.");
    EXPECT_EQ(thrown([&] { out.initBuffer(1); }), "RuntimeException: Stream is closed.");
}

// "owned" or "borrowed" and the bytes, which are released.
std::string taken(Util::ByteArray array) {
    std::string text = array.owned ? "owned" : "borrowed";
    text += array.data == nullptr ? " null" : ":" + harness::textOf(array.data, array.length);
    array.releaseContent();
    return text;
}

TEST(ChunkedByteArrayOutputStream, ContentIsJoinedOnDemandAndHandedOverOnce) {
    const struct {
        const char* why;
        int size;
        std::vector<std::string> writes;
        const char *copied, *transferred;
    } rows[] = {
        {"no first buffer and no content", 0, {}, "owned:", "borrowed null"},
        {"an empty write adds no buffer", 1, {"a", "", ""}, "owned:a", "owned:a"},
        {"a single full buffer goes as it is", 4, {"ab", "cd"}, "owned:abcd", "owned:abcd"},
        {"a single one with room left gives nothing", 4, {"abc"}, "owned:abc", "owned null"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        IO::ChunkedByteArrayOutputStream out(row.size);
        for (const std::string& each : row.writes) write(out, each);
        EXPECT_EQ(taken(out.toByteArray()), row.copied);
        EXPECT_EQ(taken(out.toByteArray()), row.copied) << "it stays usable";
        EXPECT_EQ(taken(out.transferContent()), row.transferred);
        EXPECT_EQ(thrown([&] { out.transferContent(); }), "IOException: stream is closed.");
    }
    unsigned char byte = 0;
    EXPECT_EQ(thrown([] { const IO::ChunkedByteArrayOutputStream out(-1); }),
              "IllegalArgumentException: Negative initial size: ");
    IO::ChunkedByteArrayOutputStream out(1);
    EXPECT_EQ(thrown([&] { out.write(nullptr, 0, 1); }), "NULL buffer");
    EXPECT_EQ(thrown([&] { out.write(nullptr, 0, 0); }), "nothing");
    EXPECT_EQ(thrown([&] { out.write(&byte, 0, -1); }), "nothing");
    out.writeByte(1);
    EXPECT_EQ(thrown([&] { out.write(&byte, 0, INT_MAX); }),
              "IOException: Buffer too long: 2147483648");
    out.closeStream();
    EXPECT_EQ(thrown([&] { write(out, ""); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { out.toByteArray(); }), "IOException: stream is closed.");
}

std::string wire(const std::function<void(IO::DataOutputStream&)>& write) {
    IO::TestOutputStream sink;
    IO::DataOutputStream out(&sink);
    write(out);
    return sink.itsBytes;
}

const std::string kNegative = "\xFF\xFF\xFF\xFF\x0F";
const std::string kTooLong = "IOException: Block too long: ";
const std::string kInvalid = "IOException: Invalid unsigned value: -1";

TEST(DataStreams, UnsignedIntegersTakeAByteForSevenBits) {
    EXPECT_EQ(wire([](auto& out) { out.writeUnsignedInt(0); }), "\0"s) << "not nothing";
    IO::TestOutputStream sink;
    EXPECT_EQ(thrown([&] { IO::DataOutputStream::writeUnsignedInt(&sink, -1); }), kInvalid);
    EXPECT_EQ(sink.itsBytes, "");
    const struct {
        const char* why;
        int value;
        std::string bytes;
    } rows[] = {
        {"needless groups", 1, "\x81\x80\x80\x00"s},
        {"bit 31 is the sign", INT_MIN, "\x80\x80\x80\x80\x08"},
        {"the sixth group lands on bit 3", 8, "\x80\x80\x80\x80\x80\x01"},
    };
    for (const auto& row : rows) {
        IO::TestInputStream source(row.bytes);
        EXPECT_EQ(IO::DataInputStream(&source).readUnsignedInt(), row.value) << row.why;
    }
}

TEST(DataStreams, BlocksOfNothingAndOfManyPieces) {
    EXPECT_EQ(wire([](auto& out) { out.writeBytes(nullptr, 5); }), "\0"s);
    const auto write = [](int length) {
        unsigned char byte = 0;
        wire([&](auto& out) { out.writeBytes(&byte, length); });
    };
    for (const int length : {-1, -2}) EXPECT_EQ(thrown([&] { write(length); }), kInvalid);
    EXPECT_EQ(thrown([&] { write(INT_MAX); }), kTooLong + "2147483647");

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
    const std::string end = "EOFException";
    const struct {
        const char* why;
        std::string bytes;
        bool isText;
        std::string error;
    } rows[] = {
        {"inside a text", "\4ab", true, end},
        {"inside a block", "\4ab", false, end},
        {"before the terminator", "\4abc", false, end},
        {"inside a further piece", "\2a\3bc", false, end},
        {"behind a further piece", "\2a\1b", false, end},
        {"negative text", kNegative, true, kInvalid},
        {"negative block", kNegative, false, kInvalid},
        {"negative piece", "\2a" + kNegative, false,
         "IOException: Corrupted stream; received a negative number of bytes: "},
        {"longest text", "\x81\x80\x80\x20", true, end},
        {"longer text", "\x82\x80\x80\x20", true, "IOException: Text too long: 67108865"},
        {"longest block", "\x81\x80\x80\x20", false, end},
        {"longer block", "\x82\x80\x80\x20", false, kTooLong + "67108865"},
        {"all pieces together", "\2a\x80\x80\x80\x20", false, kTooLong + "67108865"},
        {"no overflow", "\2a\xFF\xFF\xFF\xFF\x07", false, kTooLong + "2147483648"},
    };
    for (const auto& row : rows) {
        for (const int atEnd : {-1, 0}) {
            SCOPED_TRACE(row.why);
            IO::TestInputStream source(row.bytes);
            source.itsEnd = atEnd;
            IO::DataInputStream in(&source);
            int size = 0;
            const std::string error =
                row.isText ? thrown([&] { in.readUTF(); }) : thrown([&] { in.readBytes(size); });
            EXPECT_EQ(error, row.error);
        }
    }
}

TEST(DataStreams, AChunkSendsPiecesOfWhatWasStaged) {
    const struct {
        const char* why;
        std::vector<int> writes;  // 0 flushes
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
            for (const int count : row.writes)
                count == 0 ? chunk->flush() : write(*chunk, repeat(count));
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
    EXPECT_EQ(thrown([&] { out.write(&byte, 0, 1); }), open);
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

TEST(Streams, RefuseTheSameArguments) {
    IO::TestInputStream source("abc");
    IO::BufferedInputStream in(&source, 8);
    IO::TestOutputStream sink;
    IO::BufferedOutputStream out(&sink, 8);
    const std::string illegal = "IllegalArgumentException: ";
    EXPECT_EQ(thrown([&] { in.init(nullptr, 8); }), illegal + "input stream is NULL");
    EXPECT_EQ(thrown([&] { out.init(nullptr, 8); }), illegal + "input stream is NULL");
    EXPECT_EQ(thrown([&] { in.init(&source, 0); }), illegal + "Buffer size <= 0");
    EXPECT_EQ(thrown([&] { out.init(&sink, 0); }), illegal + "Buffer size <= 0");
    unsigned char byte = 'a';
    IO::ByteArrayInputStream array(Util::ByteArray(&byte, 1, false));
    const std::function<void(unsigned char*, int, int)> moves[] = {
        [&](auto... range) { in.read(range...); },
        [&](auto... range) { out.write(range...); },
        [&](auto... range) { array.read(range...); },
    };
    for (const auto& move : moves) {
        EXPECT_EQ(thrown([&] { move(nullptr, -1, -1); }), "NULL buffer");
        EXPECT_EQ(thrown([&] { move(&byte, -1, -1); }), "offset is negative");
        EXPECT_EQ(thrown([&] { move(&byte, 0, -1); }), "len is negative");
        EXPECT_EQ(thrown([&] { move(&byte, 0, 0); }), "nothing");
    }
    array.closeStream();  // Leaves alone what it borrowed.
}

void expectCloseOnce(IO::OutputStream& out, IO::TestOutputStream& sink) {
    sink.itFailsToClose = true;
    EXPECT_EQ(thrown([&] { out.closeStream(); }), "IOException: no close");
    sink.itFailsToClose = false;
    out.flush();
    sink.itsCalls.clear();
    out.closeStream();
    out.closeStream();
    EXPECT_EQ(sink.itsCalls, std::vector<std::string>{"<close>"});
    EXPECT_EQ(thrown([&] { out.writeByte(1); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { out.flush(); }), "IOException: stream is closed.");
}

TEST(Streams, CloseIsFinalAndOnlyAnInputSwallowsTheFailureBelow) {
    const std::string closed = "IOException: stream is closed.";
    IO::TestInputStream source("abc");
    source.itFailsToClose = true;
    IO::BufferedInputStream bufferedIn(&source, 4);
    IO::DataInputStream dataIn(&source);
    IO::ByteArrayInputStream array(Util::ByteArray(block("abc"), 3, true));
    IO::InputStream* const inputs[] = {&bufferedIn, &dataIn, &array};
    for (IO::InputStream* in : inputs) {
        in->closeStream();
        in->closeStream();
        EXPECT_EQ(thrown([&] { in->read(); }), closed);
        EXPECT_EQ(thrown([&] { in->available(); }), closed);
    }
    EXPECT_EQ(source.itsCloses, 2);
    EXPECT_EQ(thrown([&] { dataIn.readUTF(); }), closed);

    IO::TestOutputStream sinks[2];
    IO::BufferedOutputStream bufferedOut(&sinks[0], 4);
    expectCloseOnce(bufferedOut, sinks[0]);
    IO::DataOutputStream dataOut(&sinks[1]);
    expectCloseOnce(dataOut, sinks[1]);
    EXPECT_EQ(thrown([&] { dataOut.writeBytes(); }), closed);
    IO::ChunkedByteArrayOutputStream chunked(1);
    chunked.closeStream();
    chunked.flush();
    EXPECT_EQ(thrown([&] { chunked.writeByte(1); }), closed);
}

}  // namespace
