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
    for (const bool isRemote : {true, false}) {
        harness::isRemote() = isRemote;
        config.load(Pushed((isRemote ? "one\n" : "two\n") + kRest));
        Util::String host;
        int port = 0;
        config.agentAddress(host, port);
        EXPECT_EQ(text(host), "one");
        EXPECT_EQ(port, 4850);
    }
}

TEST(ConfigLoad, FlowFieldNamesAreReplacedWholeAndACallMeanwhileWaitsForThem) {
    InterceptorConfig config;
    EXPECT_EQ(config.flowFieldNames(), nullptr);
    config.load(Pushed("h\n1\n1\n0\n0\n0\n0\n0\n2\nfirst\nsecond\n"));
    const auto names = config.flowFieldNames();
    EXPECT_EQ(names->size(), 2);
    TextReader failing("h\n", 1);
    config.updateConfig(failing);
    EXPECT_TRUE(config.hasFlowFieldNames()) << "until others are read";
    EXPECT_EQ(config.flowFieldNames(), nullptr);
    config.load(Pushed("h\n" + kRest));
    EXPECT_EQ(names->size(), 2) << "a walk that has begun goes on";
    EXPECT_TRUE(config.flowFieldNames()->empty());
    EXPECT_FALSE(config.hasFlowFieldNames());
}

TEST(ConfigLoad, WhatCannotBeReadLeavesADeadConfiguration) {
    InterceptorConfig config;
    for (int lines = 0; lines < 9; ++lines) {
        SCOPED_TRACE(lines);
        config.itIsAlive = true;
        TextReader failing("1\n1\n1\n1\n1\n1\n1\n1\n1\n", lines);
        EXPECT_NO_THROW(config.updateConfig(failing));
        EXPECT_FALSE(config.itIsAlive);
    }
    config.load(Pushed("only a host\n"));
    EXPECT_TRUE(config.itIsAlive) << "a cut text reads as an empty configuration";
    EXPECT_EQ(config.itsLastCheck, 0) << "that is the file's";
    config.load(Pushed(""));
    EXPECT_FALSE(config.itIsAlive);

    config.itChecksCallerAddress = true;
    config.itsTrustInterval = 5;
    config.load(Pushed("trustKey=k\nassertsTrust=T\nno line of the block\n" + kRest));
    EXPECT_FALSE(config.itIsAlive);
    EXPECT_TRUE(config.itChecksTrust && config.itAssertsTrust) << "read up to there";
    EXPECT_EQ(config.itsTrustInterval, 5);
    config.load(Pushed("host\n" + kRest));
    EXPECT_FALSE(config.itChecksTrust || config.itAssertsTrust) << "without a trust block";
    EXPECT_TRUE(config.itChecksCallerAddress) << "stays as it was";
    EXPECT_EQ(config.itsTrustInterval, 0);
    EXPECT_EQ(text(config.trustKey()), "");
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
    const char* const rows[][2] = {{"/etc/qz", "/etc/qz/Uplink.cfg"},
                                   {"", "/var/opt/quenvale/QZ.Interceptor/Uplink.cfg"}};
    for (const auto& [directory, path] : rows) {
        InterceptorConfig::getConfigFilename() = Util::String();
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

    // Twice as many empty rows as a cut text is given.
    write("host\n1\n1\n9000\n" + std::string(3 * 9000, '\n') + "0\n0\n0\n0\n1\nfield\n");
    config.Refresh(false);
    ASSERT_TRUE(config.hasFlowFieldNames()) << "the last line of a file is its last";
    EXPECT_STREQ(config.flowFieldNames()->getHead()->data.c_str(), "field");
    write("host\n1\n1\n2000000000\ng\ns\no\n");
    config.Refresh(false);
    EXPECT_TRUE(config.itIsAlive) << "a cut file ends soon";

    unlink(itsPath.c_str());
    for (const bool checksFirst : {true, false}) {
        config.itIsAlive = true;
        config.Refresh(checksFirst);
        EXPECT_FALSE(config.itIsAlive) << "a file that can't be opened";
    }
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
