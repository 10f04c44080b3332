#include <gtest/gtest.h>

#include <climits>

#include "harness/bytes.h"
#include "harness/thrown.h"
#include "io/ChunkedByteArrayOutputStream.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::bytesOf;
using harness::thrown;
using Stream = IO::ChunkedByteArrayOutputStream;

// "owned" or "borrowed" and the bytes, which are released.
std::string taken(Util::ByteArray array) {
    std::string text = array.owned ? "owned" : "borrowed";
    text += array.data == nullptr ? " null" : ":";
    text.append(reinterpret_cast<char*>(array.data), static_cast<unsigned>(array.length));
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
        {"a byte makes the first storage", 0, {"a"}, "owned:a", "owned:a"},
        {"nothing in a buffer", 4, {}, "owned:", "owned null"},
        {"an empty write adds no buffer", 1, {"a", "", ""}, "owned:a", "owned:a"},
        {"a single full buffer goes as it is", 4, {"ab", "cd"}, "owned:abcd", "owned:abcd"},
        {"a single one with room left gives nothing", 4, {"abc"}, "owned:abc", "owned null"},
        {"a write over two buffers",
         2,
         {"a", "bcdefgh", "i"},
         "owned:abcdefghi",
         "owned:abcdefghi"},
        {"bytes over buffers of 1, 2 and 4", 1, {"a", "b", "c", "d"}, "owned:abcd", "owned:abcd"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Stream out(row.size);
        for (std::string text : row.writes) {
            if (text.size() == 1)
                out.writeByte(text[0] | 0x100);
            else
                out.write(bytesOf(text), 0, static_cast<int>(text.size()));
        }
        EXPECT_EQ(taken(out.toByteArray()), row.copied);
        EXPECT_EQ(taken(out.toByteArray()), row.copied) << "it stays usable";
        EXPECT_EQ(taken(out.transferContent()), row.transferred);
        EXPECT_EQ(thrown([&] { out.transferContent(); }), "IOException: stream is closed.");
    }
}

TEST(ChunkedByteArrayOutputStream, ASingleFullBufferMovesWithoutACopy) {
    std::string text = "..abcd";
    Stream out(4);
    out.write(bytesOf(text), 2, 4);
    const Util::ByteArray copy = out.toByteArray();
    Util::ByteArray moved = out.transferContent();
    EXPECT_NE(moved.data, copy.data);
    EXPECT_EQ(taken(copy), taken(moved));
    out.closeStream();
}

TEST(ChunkedByteArrayOutputStream, Refusals) {
    unsigned char byte = 0;
    EXPECT_EQ(thrown([] { const Stream out(-1); }),
              "IllegalArgumentException: Negative initial size: ");
    Stream out(1);
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
