#include "uplink/UplinkParameters.h"

#include "harness/test.h"

using Quenvale::Interceptor::SDK::UplinkParameters;

namespace {

constexpr const char* kNames[] = {
    "QZ_INTERCEPTOR_BUFFER", "QZ_INTERCEPTOR_QUEUES",
    "QZ_INTERCEPTOR_POOL",   "QZ_INTERCEPTOR_FLUSHINTERVAL",
    "QZ_INTERCEPTOR_MAXAGE", "com.quenvale.interceptor.sdk.asyncTestFreq",
    "QZ_REMOTE_UPLINK",      "com.quenvale.interceptor.sdk.asyncDebug"};

UplinkParameters::Values readWith(const std::vector<std::string>& texts) {
    for (std::size_t i = 0; i < texts.size(); ++i) setenv(kNames[i], texts[i].c_str(), 1);
    const auto values = UplinkParameters::Values::read();
    for (const char* name : kNames) unsetenv(name);
    return values;
}

TEST(UplinkParameters, EachNameSetsItsOwnValue) {
    const auto read = [](const std::vector<std::string>& texts) {
        const auto values = readWith(texts);
        return std::vector<long>{values.bufferSize,    values.queueCount, values.poolSize,
                                 values.flushInterval, values.maxAge,     values.asyncTestFreq,
                                 values.remoteUplink,  values.asyncDebug};
    };
    read({});
    EXPECT_EQ(read({}), (std::vector<long>{65536, 8, 2, 10000, 15000, 3000, false, false}));
    EXPECT_EQ(read({"1", "2", "3", "4", "5", "6", "false", "false"}),
              (std::vector<long>{1024, 2, 3, 4, 5, 6, true, false}));
    for (const char* text : {"", "TRUE", "true"}) {
        const auto values = readWith({"", "", "", "", "", "", text, text});
        EXPECT_TRUE(values.remoteUplink) << "by its presence";
        EXPECT_EQ(values.asyncDebug, text == std::string("true"));
    }
}

TEST(UplinkParameters, NumbersAreTakenAsTheyStand) {
    const struct {
        const char *why, *text;
        std::vector<long> expected;  // buffer size, number of queues, test frequency
    } rows[] = {
        {"no number is 0", "abc", {0, 0, 0}},
        {"always decimal", "010", {10240, 10, 10}},
        {"what follows the number is ignored", "7 queues", {7168, 7, 7}},
        {"a sign survives the shift", "-1", {-1024, -1, -1}},
        {"only the 64-bit value keeps more than 32 bits", "4294967297", {1024, 1, 4294967297}},
        {"bits leave at the top", "2097153", {0x80000400 - (1LL << 32), 2097153, 2097153}},
        {"beyond every type", "99999999999999999999", {-1024, -1, LONG_MAX}},
    };
    for (const auto& row : rows) {
        const auto values = readWith({row.text, row.text, "", "", "", row.text});
        const std::vector<long> got = {values.bufferSize, values.queueCount, values.asyncTestFreq};
        EXPECT_EQ(got, row.expected) << row.why;
    }
}

}  // namespace
