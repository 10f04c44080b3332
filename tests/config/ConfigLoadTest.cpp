// How a text becomes a configuration. What a text means, ConfigAgreementTest.cpp asks for any text.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "config/InterceptorConfig.h"
#include "config/Pushed.h"
#include "util/Clock.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::Pushed;
using harness::text;
using harness::TextReader;

// What follows the host: port, event tag and six empty blocks.
const std::string kRest = "4850\n7\n0\n0\n0\n0\n0\n0\n";

TEST(ConfigLoad, TheHostCountsOnlyForARemoteUplinkAndItsLineIsReadAnyway) {
    InterceptorConfig config;
    const bool before = harness::isRemote();
    for (const bool remote : {true, false}) {
        harness::isRemote() = remote;
        config.load(Pushed((remote ? "one\n" : "two\n") + kRest));
        Util::String host;
        int port = 0;
        config.agentAddress(host, port);
        EXPECT_EQ(text(host), "one");
        EXPECT_EQ(port, 4850);
    }
    harness::isRemote() = before;
}

TEST(ConfigLoad, FlowFieldNamesAreReplacedWhole) {
    InterceptorConfig config;
    EXPECT_EQ(config.flowFieldNames(), nullptr);
    config.load(Pushed("h\n1\n1\n0\n0\n0\n0\n0\n2\nfirst\nsecond\n"));
    const auto names = config.flowFieldNames();
    EXPECT_EQ(names->size(), 2);
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
        {"a fourth column", "1\ng\ns\no\nname\n", 4, 1, "name"},
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

    InterceptorConfig unordered;
    unordered.itAssertsTrust = unordered.itIsAlive = unordered.itChecksCallerAddress = true;
    unordered.itsTrustInterval = 5;
    unordered.load(Pushed("trustKey=k\nchecksCallerAddress=F\nassertsTrust=T\nhost\n" + kRest));
    EXPECT_FALSE(unordered.itIsAlive);
    EXPECT_TRUE(unordered.itChecksTrust && unordered.itAssertsTrust) << "read up to there";
    EXPECT_EQ(unordered.itsTrustInterval, 5);
    EXPECT_EQ(unordered.itsAgentPort, 0);
    unordered.load(Pushed("host\n" + kRest));
    EXPECT_FALSE(unordered.itChecksTrust || unordered.itAssertsTrust) << "without a trust block";
    EXPECT_TRUE(unordered.itChecksCallerAddress) << "stays as it was";
    EXPECT_EQ(unordered.itsTrustInterval, 0);
    EXPECT_EQ(text(unordered.trustKey()), "");
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
    const char* const rows[][2] = {{"/etc/qz", "/etc/qz/Uplink.cfg"},
                                   {"", "/var/opt/quenvale/QZ.Interceptor/Uplink.cfg"}};
    for (const auto& [directory, path] : rows) {
        name = Util::String();
        for (const char* set : {directory, "/elsewhere"}) {
            setenv("QZ_INTERCEPTORCONFIG", set, 1);
            EXPECT_STREQ(InterceptorConfig::getConfigFilename().c_str(), path);
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
