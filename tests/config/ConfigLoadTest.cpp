#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <string>

#include "config/InterceptorConfig.h"
#include "harness/TextReader.h"
#include "harness/shown.h"
#include "harness/thrown.h"
#include "io/BufferedInputStream.h"
#include "io/ByteArrayInputStream.h"
#include "uplink/AsyncBinaryUplink.h"
#include "util/ByteStreamReader.h"
#include "util/Clock.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::text;
using harness::TextReader;

// What follows the host: port, event tag and six empty blocks.
const std::string kRest = "4850\n7\n0\n0\n0\n0\n0\n0\n";

// Reads a text as the agent's push is read.
class Pushed {
public:
    explicit Pushed(std::string text)
        : itsText(std::move(text)),
          itsStream(Util::ByteArray(reinterpret_cast<unsigned char*>(itsText.data()),
                                    static_cast<int>(itsText.size()), false)),
          itsBuffer(&itsStream, 2048),
          itsReader(&itsBuffer) {}
    operator Util::ByteStreamReader&() { return itsReader; }

private:
    std::string itsText;
    IO::ByteArrayInputStream itsStream;
    IO::BufferedInputStream itsBuffer;
    Util::ByteStreamReader itsReader;
};

// The readers work in pieces of 255 bytes: wherever those end, the last line arrives.
TEST(ConfigLoad, ATextOfAnyLengthIsReadToItsEnd) {
    InterceptorConfig config;
    for (int rows = 0; rows < 300; rows += rows < 30 ? 1 : 37) {
        std::string text = "h\n1\n1\n" + std::to_string(rows) + "\n";
        for (int i = 0; i < rows; ++i) text += "group\nservice" + std::to_string(i) + "\n\n";
        config.load(Pushed(text + "0\n0\n0\n0\n2\nfirst\nlast"));
        ASSERT_NE(config.flowFieldNames(), nullptr) << rows;
        ASSERT_TRUE(config.flowFieldNames()->contains("last")) << rows;
    }
}

TEST(ConfigLoad, OfATrustBlockOneCharacterOfEachValueCounts) {
    const struct {
        const char *why, *block;
        bool alive, checks, asserts, address;
        int interval;
        const char* key;
    } rows[] = {
        {"no block", "", true, false, false, true, 0, ""},
        {"all set", "trustKey=k\nassertsTrust=true\nchecksCallerAddress=T\ntrustInterval=95\n",
         true, true, true, true, 9, "k"},
        {"longer values, and no digit",
         "trustKey=key\nassertsTrust=turnip\nchecksCallerAddress=yes\ntrustInterval=-1\n", true,
         true, true, false, 0, "k"},
        {"nothing behind the prefixes",
         "trustKey=\nassertsTrust=\nchecksCallerAddress=\ntrustInterval=\n", true, true, false,
         false, 0, "NIL"},
        {"lines out of order",
         "trustKey=k\nchecksCallerAddress=F\nassertsTrust=T\ntrustInterval=12\n", false, true, true,
         true, 5, "k"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        InterceptorConfig config;
        config.itAssertsTrust = config.itChecksCallerAddress = true;
        config.itsTrustInterval = 5;
        config.load(Pushed(row.block + ("host\n" + kRest)));
        EXPECT_EQ(config.itIsAlive, row.alive);
        EXPECT_EQ(config.itChecksTrust, row.checks);
        EXPECT_EQ(config.itAssertsTrust, row.asserts);
        EXPECT_EQ(config.itChecksCallerAddress, row.address);
        EXPECT_EQ(config.itsTrustInterval, row.interval);
        EXPECT_EQ(text(config.trustKey()), row.key);
        EXPECT_EQ(config.itsAgentPort, row.alive ? 4850 : 0);
        EXPECT_EQ(config.itsEventTag, row.alive ? 7 : 0);
    }
}

TEST(ConfigLoad, TheHostCountsOnlyForARemoteUplinkAndItsLineIsReadAnyway) {
    InterceptorConfig config;
    auto& isRemote =
        const_cast<UplinkParameters::Values&>(AsyncBinaryUplink::itsParams).remoteUplink;
    const bool before = isRemote;
    for (const bool remote : {true, false}) {
        isRemote = remote;
        config.load(Pushed((remote ? "one\n" : "two\n") + kRest));
        Util::String host;
        int port = 0;
        config.agentAddress(host, port);
        EXPECT_EQ(text(host), "one");
        EXPECT_EQ(port, 4850);
    }
    isRemote = before;
}

TEST(ConfigLoad, FlowFieldNamesComeLastAndAreReplacedWhole) {
    InterceptorConfig config;
    EXPECT_EQ(config.flowFieldNames(), nullptr);
    config.load(Pushed("h\n1\n1\n1\ng\ns\no\n0\n1\ng\ns\no\ncp\n0\n1\nparam\n2\nfirst\nsecond\n"));
    const auto names = config.flowFieldNames();
    ASSERT_EQ(names->size(), 2);
    EXPECT_STREQ(names->getHead()->data.c_str(), "first");
    EXPECT_STREQ(names->getHead()->next->data.c_str(), "second");
    EXPECT_TRUE(config.hasFlowFieldNames());

    config.load(Pushed("h\n" + kRest));
    EXPECT_EQ(names->size(), 2) << "a walk that has begun goes on";
    ASSERT_NE(config.flowFieldNames(), nullptr);
    EXPECT_TRUE(config.flowFieldNames()->empty());
    EXPECT_FALSE(config.hasFlowFieldNames());
}

TEST(ConfigLoad, ACallThatComesWhileOneIsReadWaitsForItsFlowFieldNames) {
    struct Reader final : Util::StreamReader {
        explicit Reader(InterceptorConfig& config) : itsConfig(config) {}
        void closeReader() override {}
        explicit operator bool() const override { return true; }
        Util::String ReadLine() override {
            EXPECT_TRUE(itsConfig.hasFlowFieldNames());
            return itsText.ReadLine();
        }
        InterceptorConfig& itsConfig;
        TextReader itsText{"h\n1\n1\n0\n0\n0\n0\n0\n1\nsecond\n"};
    };
    InterceptorConfig config;
    config.load(Pushed("h\n1\n1\n0\n0\n0\n0\n0\n1\nfirst\n"));
    Reader reader(config);
    config.updateConfig(reader);
    EXPECT_TRUE(config.flowFieldNames()->contains("second"));
    TextReader failing("h\n", 1);
    config.updateConfig(failing);
    EXPECT_EQ(config.flowFieldNames(), nullptr);
}

TEST(ConfigLoad, RowsFollowTheCountAndNeverOutgrowTheText) {
    const struct {
        const char *why, *text;
        int columns, rows;
        const char* lastCell;  // of the first row
    } rows[] = {
        {"no rows is a table", "0\n", 3, 0, ""},
        {"no number counts as none", "x\n", 3, 0, ""},
        {"a fourth column", "1\ng\ns\no\nname\n", 4, 1, "name"},
        {"rows behind the end are wildcards", "3\ng\ns\no\n", 3, 3, "o"},
        {"a count of billions ends soon", "2000000000\ng\ns\no\n", 3, 4097, "o"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Pushed text(row.text);
        const std::unique_ptr<InterceptorConfig::Table> table(
            InterceptorConfig::ReadFilters(text, row.columns));
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->size(), row.rows);
        if (row.rows == 0) continue;
        EXPECT_EQ(table->at(0)->size(), row.columns);
        EXPECT_STREQ(table->at(0)->at(row.columns - 1).c_str(), row.lastCell);
    }
    EXPECT_EQ(InterceptorConfig::ReadParams(Pushed("0\n")), nullptr);
    Pushed cut("2000000000\nname\n");
    const std::unique_ptr<InterceptorConfig::Row> params(InterceptorConfig::ReadParams(cut));
    EXPECT_EQ(params->size(), 4097);
    Pushed empty("5001\n" + std::string(5000, '\n') + "last\n1\nnext\n");
    const std::unique_ptr<InterceptorConfig::Row> all(InterceptorConfig::ReadParams(empty));
    EXPECT_EQ(all->size(), 5001) << "empty lines that stand in the text are not cut";
    TextReader failing("1\n1\n1\n", 3);
    EXPECT_EQ(InterceptorConfig::ReadFilters(failing, 3), nullptr);
}

// More empty rows than a cut text is given.
const std::string kManyWildcards = "5000\n" + std::string(3 * 5000, '\n');

TEST(ConfigLoad, WhatCannotBeReadLeavesADeadConfiguration) {
    InterceptorConfig config;
    for (int lines = 0; lines < 9; ++lines) {
        SCOPED_TRACE(lines);
        config.itIsAlive = true;
        TextReader failing("1\n1\n1\n1\n1\n1\n1\n1\n1\n", lines);
        EXPECT_NO_THROW(config.updateConfig(failing));
        EXPECT_FALSE(config.itIsAlive);
    }
    config.itIsAlive = true;
    config.load(Pushed(""));
    EXPECT_FALSE(config.itIsAlive);
    config.load(Pushed("only a host\n"));
    EXPECT_TRUE(config.itIsAlive) << "a cut text reads as an empty configuration";
    EXPECT_EQ(config.itsLastCheck, 0) << "that is the file's";
}

class ConfigFile : public testing::Test {
protected:
    ConfigFile() : itsPath("/tmp/qz-config-" + std::to_string(getpid())) {
        InterceptorConfig::getConfigFilename() = itsPath.c_str();
    }
    ~ConfigFile() override {
        unlink(itsPath.c_str());
        InterceptorConfig::getConfigFilename() = Util::String();
    }
    void write(const std::string& text, int ageInSeconds = 0) {
        std::ofstream(itsPath) << text;
        const timespec then{time(nullptr) - ageInSeconds, 0};
        const timespec times[] = {then, then};
        utimensat(AT_FDCWD, itsPath.c_str(), times, 0);
    }

    std::string itsPath;
};

TEST_F(ConfigFile, IsFoundThroughTheEnvironmentOnce) {
    auto& name = InterceptorConfig::getConfigFilename();
    const struct {
        const char *directory, *path;
    } rows[] = {{"/etc/qz", "/etc/qz/Uplink.cfg"},
                {"", "/var/opt/quenvale/QZ.Interceptor/Uplink.cfg"}};
    for (const auto& row : rows) {
        name = Util::String();
        for (const char* set : {row.directory, "/elsewhere"}) {
            setenv("QZ_INTERCEPTORCONFIG", set, 1);
            EXPECT_STREQ(InterceptorConfig::getConfigFilename().c_str(), row.path);
        }
    }
    unsetenv("QZ_INTERCEPTORCONFIG");
}

TEST_F(ConfigFile, IsReadAtConstructionAndRefusedForAConfigurationOfTheAgent) {
    EXPECT_FALSE(InterceptorConfig(true).itIsAlive) << "missing";
    write("host\n" + kRest);
    InterceptorConfig config(true);
    EXPECT_TRUE(config.itIsAlive);
    EXPECT_EQ(config.itsAgentPort, 4850);
    EXPECT_GT(config.itsLastCheck, 0);

    write("host\n1\n1\n" + kManyWildcards + "0\n0\n0\n0\n1\nfield\n");
    config.Refresh(false);
    ASSERT_TRUE(config.hasFlowFieldNames()) << "the last line of a file is its last";
    EXPECT_STREQ(config.flowFieldNames()->getHead()->data.c_str(), "field");
    write("host\n1\n1\n2000000000\ng\ns\no\n");
    config.Refresh(false);
    EXPECT_TRUE(config.itIsAlive) << "a cut file ends soon";
    EXPECT_FALSE(config.hasFlowFieldNames());

    unlink(itsPath.c_str());
    config.Refresh(false);
    EXPECT_FALSE(config.itIsAlive) << "a file that can't be opened";
    EXPECT_EQ(harness::thrown([] { InterceptorConfig().Refresh(true); }),
              "InterceptorConfig::Refresh cannot be called: config is not fetched from file.");
}

TEST_F(ConfigFile, IsCheckedOnceAMinuteForAnAgentThatStillTouchesIt) {
    const struct {
        const char* why;
        bool isFromFile;
        long long sinceCheck;  // ms
        int age;               // seconds; below 0 there is no file
        bool before, after, isChecked;
    } rows[] = {
        {"within the minute nothing is looked at", true, 30000, -1, true, true, false},
        {"a file that went", true, 600000, -1, true, false, true},
        {"a file that is old", true, 600000, 120, true, false, true},
        {"a file that is fresh enough", true, 600000, 60, false, true, true},
        {"the agent's road can't be refreshed", false, 600000, 0, true, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        InterceptorConfig config(row.isFromFile);
        unlink(itsPath.c_str());
        if (row.age >= 0) write("host\n" + kRest, row.age);
        config.itIsAlive = row.before;
        const long long last = Util::Clock::_currentTimeMillis() - row.sinceCheck;
        config.itsLastCheck = last;
        EXPECT_EQ(config.getAlive(), row.after);
        EXPECT_EQ(config.itsLastCheck != last, row.isChecked);
    }
}

}  // namespace
