#include "io/TestStreams.h"

#include "harness/values.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::bytesOf;
using harness::thrown;
using std::string_literals::operator""s;

TEST(TestStreams, NothingDiffersInTheStreamsOfTheLibrary) {
    EXPECT_EQ(IO::TestStreams::checkAll(), nullptr);
}

// Streams that pass everything on, but for one slip.
enum class Slip { bytesSwap, endIsLost, countIsShort, failuresVanish, offsetIsLost };

struct SlippingInput final : IO::InputStream {
    SlippingInput(IO::InputStream& in, Slip what) : source(in), slip(what) {}

    using InputStream::read;
    int read(unsigned char* buffer, int offset, int length) override try {
        const int to = slip == Slip::offsetIsLost ? 0 : offset;
        const int given = source.read(buffer, to, length);
        if (slip == Slip::bytesSwap && given == 61) std::swap(buffer[to], buffer[to + 1]);
        if (slip == Slip::endIsLost && given < 0) return length;
        return slip == Slip::countIsShort && given == 7 ? 6 : given;
    } catch (Util::IOException* e) {
        if (slip != Slip::failuresVanish) throw;
        delete e;
        return -1;
    }
    void closeStream() override {}
    int available() override { return source.available(); }

    IO::InputStream& source;
    Slip slip;
};

struct SlippingOutput final : IO::OutputStream {
    SlippingOutput(IO::OutputStream& out, Slip what) : sink(out), slip(what) {}

    void write(unsigned char* buffer, int offset, int length) override try {
        if (slip == Slip::bytesSwap && length == 61) std::swap(buffer[offset], buffer[offset + 1]);
        const bool isShort = slip == Slip::countIsShort && length == 7;
        sink.write(buffer, slip == Slip::offsetIsLost ? 0 : offset, isShort ? 6 : length);
        if (slip == Slip::endIsLost && length == 64) sink.writeByte(0);
    } catch (Util::IOException* e) {
        if (slip != Slip::failuresVanish) throw;
        delete e;
    }
    void flush() override {}
    void closeStream() override {}

    IO::OutputStream& sink;
    Slip slip;
};

std::string firstLine(const Util::String& lines) {
    const std::string text = lines.c_str() == nullptr ? "" : lines.c_str();
    EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 8) << "a long list helps nobody";
    return text.substr(0, text.find('\n'));
}

TEST(TestStreams, EachSlipOfAStreamIsReported) {
    const struct {
        Slip slip;
        const char* input;
        const char* output;
    } rows[] = {
        {Slip::bytesSwap, "64 bytes, 61 given, 61 asked: 64 of 64 bytes came, wrong from byte 0 on",
         "64 bytes, 1 given, 61 asked: 64 of 64 bytes came, wrong from byte 1 on"},
        {Slip::endIsLost, "0 bytes, 1 given, 1 asked: 6 of 0 bytes came, wrong from byte 0 on",
         "64 bytes, 64 given, 1 asked: 65 of 64 bytes came, wrong from byte 64 on"},
        {Slip::countIsShort,
         "64 bytes, 7 given, 7 asked: 55 of 64 bytes came, wrong from byte 6 on",
         "64 bytes, 1 given, 7 asked: 56 of 64 bytes came, wrong from byte 7 on"},
        {Slip::failuresVanish,
         "64 bytes, 1 given, 1 asked: the failure at byte 0 did not come through",
         "64 bytes, 1 given, 1 asked: the failure at byte 0 did not come through"},
        {Slip::offsetIsLost, "1 bytes, 1 given, 1 asked: 19 of 1 bytes came, wrong from byte 0 on",
         "2 bytes, 2 given, 2 asked: 2 of 2 bytes came, wrong from byte 0 on"},
    };
    for (const auto& row : rows) {
        const auto makeInput = [&](IO::TestInputStream& source, const auto& use) {
            SlippingInput in(source, row.slip);
            use(in);
        };
        const auto makeOutput = [&](IO::TestOutputStream& sink, const auto& use) {
            SlippingOutput out(sink, row.slip);
            use(out);
        };
        using Streams = IO::TestStreams;
        EXPECT_EQ(firstLine(Streams::checkInput("x", makeInput)), "x: "s + row.input);
        EXPECT_EQ(firstLine(Streams::checkOutput("x", makeOutput)), "x: "s + row.output);
        if (row.slip != Slip::bytesSwap) continue;
        EXPECT_EQ(firstLine(Streams::checkData("x", makeInput, makeOutput)),
                  "x: 64 bytes, 61 given, 1 asked: 207 of 207 bytes came, wrong from byte 141 on");
    }
}

TEST(TestStreams, AFailureLeavesWhatCameBefore) {
    std::string text = "abcdef";
    IO::TestOutputStream sink;
    sink.itsFailAt = 4;
    sink.write(bytesOf(text), 0, 4);
    EXPECT_EQ(thrown([&] { sink.write(bytesOf(text), 4, 1); }), "IOException: no write");
    EXPECT_EQ(sink.itsBytes, "abcd");

    IO::TestInputStream source(text);
    source.itsPortions = {3, 0, 2};
    source.itsFailAt = 5;
    std::string came;
    const auto read = [&](int length) {
        std::string part(8, '?');
        const int given = source.read(bytesOf(part), 0, length);
        came += part.substr(0, static_cast<unsigned>(given)) + "|";
    };
    for (const int length : {2, 8}) read(length);
    EXPECT_EQ(source.available(), 0);
    EXPECT_EQ(source.available(), 0) << "asking takes no portion, not an empty one either";
    for (const int length : {8, 8}) read(length);
    EXPECT_EQ(came, "ab|c||de|") << "a read gives no more than the rest of its portion";
    EXPECT_EQ(source.available(), 1);
    EXPECT_EQ(thrown([&] { read(8); }), "IOException: no read");
    sink.closeStream();
    source.closeStream();
    EXPECT_EQ(thrown([&] { sink.flush(); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { read(8); }), "IOException: stream is closed.");
}

}  // namespace
