#include "harness/values.h"
#include "io/BufferedInputStream.h"
#include "io/BufferedOutputStream.h"
#include "io/TestInputStream.h"
#include "io/TestOutputStream.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::bytesOf;
using harness::thrown;

std::string read(IO::InputStream& in, int length) {
    std::string text(static_cast<unsigned>(length), '?');
    const int came = in.read(bytesOf(text), 0, length);
    return came < 0 ? "<end>" : text.substr(0, static_cast<unsigned>(came));
}

TEST(BufferedInputStream, OneReadOfTheSourceServesManyCallsUpToItsEnd) {
    IO::TestInputStream source("abcdefgh");
    source.itsReady = 6;
    IO::BufferedInputStream in(&source, 16);
    EXPECT_EQ(read(in, 2), "ab");
    EXPECT_EQ(in.available(), 6 + 4);
    EXPECT_EQ(in.read(), 'c');
    source.itsReady = -1;
    EXPECT_EQ(read(in, 9), "def") << "a broken source still leaves what is buffered";
    EXPECT_EQ(read(in, 9), "<end>");
    EXPECT_EQ(in.available(), -1);
    EXPECT_EQ(source.itsRequests, std::vector<int>{6});

    IO::TestInputStream ending("abc");
    ending.itsReady = 3;
    in.init(&ending, 16);
    EXPECT_EQ(read(in, 1), "a");
    ending.itsReady = 0;
    EXPECT_EQ(read(in, 5), "<end>") << "behind buffered bytes too";

    IO::TestInputStream silent("abc");
    silent.itsReady = 3;
    silent.itsEnd = 0;
    in.init(&silent, 16);
    EXPECT_EQ(read(in, 1), "a");
    EXPECT_EQ(read(in, 5), "bc") << "a source that gives nothing has not ended";
}

TEST(BufferedInputStream, TheBufferGrowsWithTheDemandUpToALimit) {
    const struct {
        const char* why;
        int ready, length, request, size;
    } rows[] = {
        {"fits exactly", 2048, 1, 2048, 2048},
        {"one more is twice that", 2049, 1, 2049, 4098},
        {"what is available", 5000, 10, 5000, 10000},
        {"what is asked for", 0, 5000, 5000, 10000},
        {"the largest in full", 1 << 20, 1, 1 << 20, 2 << 20},
        {"a peer can't ask for more memory", INT_MAX, 1, 1 << 20, 2 << 20},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        IO::TestInputStream source(std::string(6000, 'x'));
        source.itsReady = row.ready;
        IO::BufferedInputStream in(&source, 2048);
        EXPECT_EQ(read(in, row.length), std::string(static_cast<unsigned>(row.length), 'x'));
        EXPECT_EQ(source.itsRequests, std::vector<int>{row.request});
        EXPECT_EQ(in.bufferSize(), row.size);
        EXPECT_GE(in.available(), row.ready) << "the sum does not overflow";
    }
}

TEST(BufferedInputStream, CloseIsFinalAndSwallowsTheFailureBelow) {
    IO::TestInputStream source("abc");
    source.itFailsToClose = true;
    IO::BufferedInputStream in(&source, 4);
    in.closeStream();
    in.closeStream();
    EXPECT_EQ(source.itsCloses, 1);
    EXPECT_EQ(thrown([&] { in.read(); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { in.available(); }), "IOException: stream is closed.");
}

void write(IO::OutputStream& out, std::string text) {
    out.write(bytesOf(text), 0, static_cast<int>(text.size()));
}

TEST(BufferedOutputStream, OnlyWhatFitsIsGathered) {
    using Calls = std::vector<std::string>;
    const auto x = [](unsigned count) { return std::string(count, 'x'); };
    const struct {
        const char* why;
        std::vector<unsigned> writes;
        Calls calls;
    } rows[] = {
        {"a full buffer waits", {1024}, {}},
        {"a longer write passes around it", {1025}, {x(1025)}},
        {"what waits goes first", {10, 1020}, {x(10)}},
        {"room to the last byte", {10, 1014}, {}},
        {"before a long one too", {10, 1025}, {x(10), x(1025)}},
        {"a full buffer goes with the next byte", {1024, 1}, {x(1024)}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        IO::TestOutputStream sink;
        IO::BufferedOutputStream out(&sink, 1024);
        for (const unsigned count : row.writes) write(out, x(count));
        EXPECT_EQ(sink.itsCalls, row.calls);
    }
}

TEST(BufferedOutputStream, FlushSendsAndCloseDrops) {
    IO::TestOutputStream sink;
    IO::BufferedOutputStream out(&sink, 8);
    out.writeByte(0x141);
    out.flush();
    out.flush();
    write(out, "lost");
    sink.itFailsToClose = true;
    EXPECT_EQ(thrown([&] { out.closeStream(); }), "IOException: no close");
    sink.itFailsToClose = false;
    out.closeStream();
    out.closeStream();
    EXPECT_EQ(sink.itsCalls,
              (std::vector<std::string>{"A", "<flush>", "", "<flush>", "<close>", "<close>"}));
    EXPECT_EQ(thrown([&] { write(out, "x"); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { out.flush(); }), "IOException: stream is closed.");
}

// `move` reads or writes at buffer, offset, length.
template <class Stream, class Below, class Move>
void expectRefusals(Stream& stream, Below& below, Move move) {
    unsigned char byte = 0;
    const std::string illegal = "IllegalArgumentException: ";
    EXPECT_EQ(thrown([&] { stream.init(nullptr, 8); }), illegal + "input stream is NULL");
    EXPECT_EQ(thrown([&] { stream.init(&below, 0); }), illegal + "Buffer size <= 0");
    EXPECT_EQ(thrown([&] { move(nullptr, -1, -1); }), "NULL buffer");
    EXPECT_EQ(thrown([&] { move(&byte, -1, -1); }), "offset is negative");
    EXPECT_EQ(thrown([&] { move(&byte, 0, -1); }), "len is negative");
    EXPECT_EQ(thrown([&] { move(&byte, 0, 0); }), "nothing");
}

TEST(BufferedStreams, BothRefuseTheSameArguments) {
    IO::TestInputStream source("abc");
    IO::BufferedInputStream in(&source, 8);
    expectRefusals(in, source, [&](auto... range) { in.read(range...); });
    IO::TestOutputStream sink;
    IO::BufferedOutputStream out(&sink, 8);
    expectRefusals(out, sink, [&](auto... range) { out.write(range...); });
}

}  // namespace
