#include "uplink/UplinkParameters.h"

#include "harness/test.h"

using Quenvale::Interceptor::SDK::UplinkParameters;

namespace {

constexpr const char* kNames[] = {"QZ_INTERCEPTOR_BUFFER",
                                  "QZ_INTERCEPTOR_QUEUES",
                                  "QZ_INTERCEPTOR_POOL",
                                  "QZ_INTERCEPTOR_FLUSHINTERVAL",
                                  "QZ_INTERCEPTOR_MAXAGE",
                                  "QZ_REMOTE_UPLINK",
                                  "com.quenvale.interceptor.sdk.asyncDebug",
                                  "com.quenvale.interceptor.sdk.asyncTestFreq"};

UplinkParameters::Values readWith(const char* name, const char* text) {
    setenv(name, text, 1);
    const auto values = UplinkParameters::Values::read();
    unsetenv(name);
    return values;
}

std::vector<long> numbers() {
    const auto values = UplinkParameters::Values::read();
    return {values.bufferSize,    values.queueCount, values.poolSize,
            values.flushInterval, values.maxAge,     values.asyncTestFreq};
}

TEST(UplinkParameters, EachNameSetsItsOwnValue) {
    for (const char* name : kNames) unsetenv(name);
    EXPECT_EQ(numbers(), (std::vector<long>{65536, 8, 2, 10000, 15000, 3000}));
    for (int i = 0; i < 5; ++i) setenv(kNames[i], std::to_string(i + 1).c_str(), 1);
    setenv(kNames[7], "6", 1);
    EXPECT_EQ(numbers(), (std::vector<long>{1024, 2, 3, 4, 5, 6}));
    for (const char* name : kNames) unsetenv(name);
    EXPECT_FALSE(readWith("QZ_OTHER", "").remoteUplink);
    const struct {
        const char* text;
        bool isDebug;
    } rows[] = {{"", false}, {"false", false}, {"TRUE", false}, {"true", true}};
    for (const auto& row : rows) {
        EXPECT_TRUE(readWith(kNames[5], row.text).remoteUplink) << "by its presence";
        EXPECT_EQ(readWith(kNames[6], row.text).asyncDebug, row.isDebug) << row.text;
    }
}

TEST(UplinkParameters, NumbersAreTakenAsTheyStand) {
    const struct {
        const char *why, *text;
        int bufferSize, queueCount;
        long asyncTestFreq;
    } rows[] = {
        {"no number is 0", "abc", 0, 0, 0},
        {"always decimal", "010", 10240, 10, 10},
        {"what follows the number is ignored", "7 queues", 7168, 7, 7},
        {"a sign survives the shift", "-1", -1024, -1, -1},
        {"only the 64-bit value keeps more than 32 bits", "4294967297", 1024, 1, 4294967297},
        {"bits leave at the top", "2097153", 0x80000400 - (1LL << 32), 2097153, 2097153},
        {"beyond every type", "99999999999999999999", -1024, -1, LONG_MAX},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(readWith(kNames[0], row.text).bufferSize, row.bufferSize);
        EXPECT_EQ(readWith(kNames[1], row.text).queueCount, row.queueCount);
        EXPECT_EQ(readWith(kNames[7], row.text).asyncTestFreq, row.asyncTestFreq);
    }
}

}  // namespace
