#include "util/properties.h"

#include "harness/values.h"
#include "io/TestInputStream.h"
#include "util/ByteStreamReader.h"
#include "util/FileStreamReader.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using std::string_literals::operator""s;

std::FILE* fileWith(const std::string& text) {
    std::FILE* file = std::tmpfile();
    std::fwrite(text.data(), 1, text.size(), file);
    std::rewind(file);
    return file;
}

std::string listed(Util::Map<Util::String>* properties) {
    const std::unique_ptr<Util::Map<Util::String>> owned(properties);
    return harness::fieldsOf(properties);
}

TEST(Properties, LinesAreSplitAndTrimmed) {
    const char* const rows[][3] = {
        {"the first of two, and blanks", " \ta = b=c\t\nd:e:f\n", "a=b=c d=e:f "},
        {"equals goes before an earlier colon", "a:b=c", "a:b=c "},
        {"half a pair is none", "=b\na=\n = \nc=d\n", "c=d "},
        {"an empty line ends it", "a=b\nc=d\n\ne=f\n", "a=b c=d "},
        {"a line of blanks does not", "a=b\n \t\nc=d\n", "a=b c=d "},
        {"an empty line with a carriage return does not", "a=b\r\n\r\nc=d\r\n", "a=b c=d "},
        {"the later value", "a=b\nc=d\na=e\n", "a=e c=d "},
    };
    for (const auto& [why, text, properties] : rows)
        EXPECT_EQ(listed(Util::loadProperties("ignored", fileWith(text))), properties) << why;
    EXPECT_EQ(listed(Util::loadProperties(Util::String("/nonexistent"))), "");
    EXPECT_EQ(listed(Util::loadProperties(Util::String())), "");
    harness::TextReader failing("a=b", 1);
    EXPECT_EQ(listed(Util::loadProperties(failing)), "a=b ") << "a failure keeps what was read";
}

// In a process of its own: the parser reads the level once.
TEST(PropertiesDeathTest, ALineWithoutSeparatorTrapsAtDebugLevel) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto load = [](const char* level) {
        setenv("QUENVALE_LOG_LEVEL", level, 1);
        listed(Util::loadProperties("", fileWith("ab\n")));
        std::_Exit(0);
    };
    EXPECT_EXIT(load("3"), testing::ExitedWithCode(0), "");
    EXPECT_DEATH(load("4"), "");
}

// Lines up to the first empty one, NIL marked.
std::string lines(Util::StreamReader& reader) {
    for (std::string text;;) {
        const Util::String line = reader.ReadLine();
        if (line.c_str() == nullptr) return text + "NIL";
        if (line.empty()) return text;
        text += line.c_str() + "|"s;
    }
}

TEST(FileStreamReader, LinesAndPieces) {
    const std::string x255(255, 'x');
    Util::FileStreamReader reader(fileWith("a\r\n" + x255 + "y\nlast"));
    EXPECT_EQ(lines(reader), "a\r|" + x255 + "|y|last|");
    EXPECT_EQ(lines(reader), "") << "the end is the empty text";
    reader.closeReader();
    reader.closeReader();
    EXPECT_TRUE(static_cast<bool>(reader));
    EXPECT_EQ(lines(reader), "NIL");
    EXPECT_FALSE(static_cast<bool>(Util::FileStreamReader("/nonexistent/file")));
}

TEST(ByteStreamReader, LinesComeFromOneReadOrSeveral) {
    const std::string x255(255, 'x');
    const std::tuple<const char*, std::string, int, std::string, unsigned> rows[] = {
        {"three at once, then the end", "a\nb\nc\n", 255, "a|b|c|", 2},
        {"a leftover line goes on in the next read", "a\nbcd\n", 3, "a|bcd|", 3},
        {"a long line in pieces", x255 + "y\nz\n", 300, x255 + "|y|z|", 3},
        {"the buffer is full behind a leftover", "a\n" + x255 + "y\n", 300, "a|" + x255 + "|y|", 4},
        {"a zero byte in front", "\0abc\n"s, 255, "NIL", 1},
        {"a zero byte within", "a\0b\nc\n"s, 255, "a|c|", 2},
    };
    for (const auto& [why, bytes, portion, read, reads] : rows) {
        IO::TestInputStream source(bytes);
        source.itsPortions = {portion};
        Util::ByteStreamReader reader(&source);
        EXPECT_EQ(lines(reader), read) << why;
        EXPECT_EQ(source.itsRequests.size(), reads) << why;
    }
}

TEST(ByteStreamReader, OnlyTheSourceCountsAsReadable) {
    IO::TestInputStream source("a\nb\n");
    source.itsReady = 4;
    Util::ByteStreamReader reader(&source);
    EXPECT_TRUE(static_cast<bool>(reader));
    EXPECT_EQ(reader.ReadLine(), "a");
    EXPECT_EQ(source.itsRequests, std::vector<int>{4}) << "no more than is there";
    source.itsReady = 0;
    EXPECT_FALSE(static_cast<bool>(reader));
    source.itFailsToClose = true;
    EXPECT_THROW(reader.closeReader(), Util::IOException*);
    source.itFailsToClose = false;
    reader.closeReader();
    reader.closeReader();
    EXPECT_EQ(source.itsCloses, 2);
    EXPECT_FALSE(static_cast<bool>(reader));
    EXPECT_EQ(reader.ReadLine().c_str(), nullptr);
}

}  // namespace
