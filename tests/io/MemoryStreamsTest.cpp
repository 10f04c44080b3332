// What the streams' self-check leaves open, which TestStreamsTest.cpp runs: ends, owners, refusals.
#include "harness/values.h"
#include "io/ByteArrayInputStream.h"
#include "io/ByteInputStream.h"
#include "io/ByteOutputStream.h"
#include "io/ChunkedByteArrayOutputStream.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::bytesOf;
using harness::thrown;

unsigned char* block(const char* text) {
    auto* bytes = new unsigned char[std::strlen(text)];
    std::memcpy(bytes, text, std::strlen(text));
    return bytes;
}

TEST(ByteArrayInputStream, EndsWithMinusOneAndReleasesAtClose) {
    unsigned char bytes[3] = {};
    IO::ByteArrayInputStream in(Util::ByteArray(block("abc"), 3, true));
    EXPECT_EQ(in.read(bytes, 0, 0), 0);
    EXPECT_EQ(in.read(bytes, 1, 2), 2);
    EXPECT_EQ(std::memcmp(bytes, "\0ab", 3), 0);
    EXPECT_EQ(in.available(), 1);
    EXPECT_EQ(in.read(bytes, 0, 3), 1) << "no more than remains";
    EXPECT_EQ(in.read(bytes, 0, 0), -1) << "the end comes before the empty request";
    EXPECT_EQ(thrown([&] { in.read(nullptr, 0, 1); }), "NULL buffer");
    EXPECT_EQ(thrown([&] { in.read(bytes, -1, 1); }), "offset is negative");
    EXPECT_EQ(thrown([&] { in.read(bytes, 0, -1); }), "len is negative");
    in.closeStream();
    in.closeStream();
    EXPECT_EQ(thrown([&] { in.read(bytes, 0, 1); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { in.available(); }), "IOException: stream is closed.");

    IO::ByteArrayInputStream borrowed(Util::ByteArray(bytes, 3, false));
    borrowed.closeStream();
}

TEST(ByteInputStream, EndsWithZeroAndOwnsItsBlock) {
    unsigned char bytes[4] = {};
    IO::ByteInputStream in(block("abc"), 3);
    EXPECT_EQ(in.read(bytes, 0, -1), 0);
    EXPECT_EQ(in.read(bytes, 1, 2), 2);
    EXPECT_EQ(bytes[1], 'a');
    EXPECT_EQ(in.available(), 1);
    EXPECT_EQ(in.read(bytes, 0, 4), 1);
    EXPECT_EQ(in.read(bytes, 0, 4), 0);
    in.initBuffer(block("xy"), 2);
    EXPECT_EQ(in.read(), 'x');
    EXPECT_EQ(thrown([&] { in.read(nullptr, 0, 1); }), "buf is NULL");
    EXPECT_EQ(thrown([&] { in.initBuffer(nullptr, 1); }), "buffer is NULL.");
    EXPECT_EQ(thrown([&] { in.initBuffer(bytes, 0); }), "buffer length < 1.");
    in.closeStream();
    EXPECT_EQ(in.available(), 0);
    EXPECT_EQ(in.read(), -1);
    EXPECT_EQ(thrown([&] { in.initBuffer(bytes, 1); }), "IOException: Stream is closed.");
}

TEST(ByteOutputStream, DoublesAsOftenAsItTakes) {
    const struct {
        int size;
        int length;
        int ends;
    } rows[] = {{100, 100, 100}, {100, 101, 200}, {100, 1000, 1600}};
    for (const auto& row : rows) {
        IO::ByteOutputStream out(row.size);
        std::string text(static_cast<unsigned>(row.length - 1), 'x');
        out.writeByte('a');
        out.write(bytesOf(text), 0, row.length - 1);
        out.flush();
        EXPECT_EQ(out.getSize(), row.ends);
        ASSERT_EQ(out.getCount(), row.length);
        EXPECT_EQ(std::memcmp(out.getBuffer(), ("a" + text).data(), text.size() + 1), 0);
    }
    unsigned char byte = 0;
    IO::ByteOutputStream out(1);
    EXPECT_EQ(thrown([&] { out.initBuffer(0); }), "buffer size < 1.");
    EXPECT_EQ(thrown([&] { out.write(nullptr, 0, 1); }), "buf is NULL");
    out.write(&byte, 0, -1);
    EXPECT_EQ(out.getCount(), 0);
    out.writeByte(1);
    EXPECT_EQ(thrown([&] { out.write(&byte, 0, 0x7fffffff); }),
              "IOException: Buffer too long: 2147483648");
    out.closeStream();
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
        const char* copied;
        const char* transferred;
    } rows[] = {
        {"no first buffer and no content", 0, {}, "owned:", "borrowed null"},
        {"nothing in a buffer", 4, {}, "owned:", "owned null"},
        {"an empty write adds no buffer", 1, {"a", "", ""}, "owned:a", "owned:a"},
        {"a single full buffer goes as it is", 4, {"ab", "cd"}, "owned:abcd", "owned:abcd"},
        {"a single one with room left gives nothing", 4, {"abc"}, "owned:abc", "owned null"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        IO::ChunkedByteArrayOutputStream out(row.size);
        for (std::string each : row.writes)
            out.write(bytesOf(each), 0, static_cast<int>(each.size()));
        EXPECT_EQ(taken(out.toByteArray()), row.copied);
        EXPECT_EQ(taken(out.toByteArray()), row.copied) << "it stays usable";
        EXPECT_EQ(taken(out.transferContent()), row.transferred);
        EXPECT_EQ(thrown([&] { out.transferContent(); }), "IOException: stream is closed.");
    }
    std::string text = "..abcd";
    IO::ChunkedByteArrayOutputStream full(4);
    full.write(bytesOf(text), 2, 4);
    const Util::ByteArray copy = full.toByteArray();
    const Util::ByteArray moved = full.transferContent();
    EXPECT_NE(moved.data, copy.data);
    EXPECT_EQ(taken(copy), taken(moved));
    full.closeStream();
}

TEST(ChunkedByteArrayOutputStream, Refusals) {
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
    out.closeStream();
    out.flush();
    const std::string closed = "IOException: stream is closed.";
    EXPECT_EQ(thrown([&] { out.writeByte(1); }), closed);
    EXPECT_EQ(thrown([&] { out.write(&byte, 0, 0); }), closed);
    EXPECT_EQ(thrown([&] { out.toByteArray(); }), closed);
}

}  // namespace
