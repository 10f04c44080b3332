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

TEST(TestStreams, EachSlipOfAStreamIsReported) {
    using Streams = IO::TestStreams;
    const auto plain = [](auto& below, const auto& use) { use(below); };
    const auto swapping = [](IO::TestInputStream& source, const auto& use) {
        if (source.itsPortions[0] == 61) std::swap(source.itsBytes[0], source.itsBytes[1]);
        use(source);
    };
    const auto swappingSink = [](IO::TestOutputStream& sink, const auto& use) {
        use(sink);
        for (const std::string& call : sink.itsCalls)
            if (call.size() == 61) std::swap(sink.itsBytes[0], sink.itsBytes[1]);
    };
    const auto endless = [](IO::TestInputStream& source, const auto& use) {
        source.itsEnd = 1;
        use(source);
    };
    const auto silent = [](auto& below, const auto& use) {
        static_cast<void>(thrown([&] { use(below); }));
    };
    const auto wrongBeforeFailure = [](auto& below, const auto& use) {
        if (below.itsFailAt >= 0) below.itsBytes.replace(0, 1, "?");
        use(below);
    };
    const auto failing = [](auto&, const auto&) { Util::raise<Util::IOException>(""); };
    const std::pair<Util::String, const char*> rows[] = {
        {Streams::checkInput("x", swapping),
         "64 bytes, 61 given, 1 asked: 64 of 64 bytes came, wrong from byte 0 on"},
        {Streams::checkInput("x", endless),
         "0 bytes, 1 given, 1 asked: 6 of 0 bytes came, wrong from byte 0 on"},
        {Streams::checkInput("x", silent),
         "64 bytes, 1 given, 1 asked: the failure at byte 0 did not come through"},
        {Streams::checkInput("x", wrongBeforeFailure),
         "64 bytes, 1 given, 1 asked: wrong bytes before the failure at byte 1"},
        {Streams::checkInput("x", failing), "0 bytes, 1 given, 1 asked: a failure of its own"},
        {Streams::checkOutput("x", swappingSink),
         "64 bytes, 1 given, 61 asked: 64 of 64 bytes came, wrong from byte 0 on"},
        {Streams::checkOutput("x", silent),
         "64 bytes, 1 given, 1 asked: the failure at byte 0 did not come through"},
        {Streams::checkData("x", plain, swappingSink),
         "64 bytes, 61 given, 1 asked: 207 of 207 bytes came, wrong from byte 0 on"},
        {Streams::checkData("x", swapping, plain),
         "64 bytes, 1 given, 61 asked: 219 of 219 bytes came, wrong from byte 1 on"},
    };
    for (const auto& [lines, first] : rows) {
        const std::string text = lines.c_str();
        EXPECT_EQ(text.substr(0, text.find('\n')), "x: "s + first);
        EXPECT_LE(std::count(text.begin(), text.end(), '\n'), 8) << "a long list helps nobody";
    }
}

TEST(TestStreams, AFailureLeavesWhatCameBefore) {
    std::string text = "abcdef";
    IO::TestOutputStream sink;
    sink.itsFailAt = 4;
    EXPECT_EQ(thrown([&] { sink.write(bytesOf(text), 0, 5); }), "IOException: no write");
    EXPECT_EQ(sink.itsBytes, "abcd");

    IO::TestInputStream source(text);
    source.itsPortions = {3, 0, 2};
    source.itsFailAt = 5;
    const auto read = [&](int length) {
        std::string part(8, '?');
        return part.substr(0, static_cast<unsigned>(source.read(bytesOf(part), 0, length)));
    };
    EXPECT_EQ(read(2), "ab");
    EXPECT_EQ(read(8), "c") << "no more than the rest of its portion";
    EXPECT_EQ(source.available(), 0);
    EXPECT_EQ(source.available(), 0) << "asking takes no portion, not an empty one either";
    EXPECT_EQ(read(8), "");
    EXPECT_EQ(read(8), "de");
    EXPECT_EQ(source.available(), 1);
    EXPECT_EQ(thrown([&] { read(8); }), "IOException: no read");
    sink.closeStream();
    source.closeStream();
    EXPECT_EQ(thrown([&] { sink.flush(); }), "IOException: stream is closed.");
    EXPECT_EQ(thrown([&] { read(8); }), "IOException: stream is closed.");
}

}  // namespace
