#include "util/diagnostics.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Output {
    std::string out, err;
};

// This file's private copy of the level is read anew for each row.
template <class F>
Output at(const char* level, F write) {
    if (level == nullptr)
        unsetenv("QUENVALE_LOG_LEVEL");
    else
        setenv("QUENVALE_LOG_LEVEL", level, 1);
    ourLogLevel = kLevelUnknown;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    write();
    Output result;
    std::fflush(stdout);
    result.out = testing::internal::GetCapturedStdout();
    result.err = testing::internal::GetCapturedStderr();
    return result;
}

void writeAll() {
    errorMsg("e%d\n", 1);
    warningMsg("w\n");
    infoMsg("i\n");
    debugMsg("d\n");
}

TEST(Diagnostics, TheLevelComesFromTheEnvironment) {
    const struct {
        const char *level, *out, *err;
    } rows[] = {
        {nullptr, "", ""},
        {"0", "", ""},
        {"5", "", ""},
        {"debug", "", ""},
        {"1", "ERROR: ", "e1\n"},
        {"2", "ERROR: WARNING: ", "e1\nw\n"},
        {"3", "ERROR: WARNING: INFO: i\n", "e1\nw\n"},
        {"4", "ERROR: WARNING: INFO: i\nDEBUG: d\n", "e1\nw\n"},
    };
    for (const auto& row : rows) {
        const Output output = at(row.level, writeAll);
        EXPECT_EQ(output.out, row.out);
        EXPECT_EQ(output.err, row.err);
    }
    const Output forced = at("0", [] { forcedMsg(1, "now %s\n", "x"); });
    EXPECT_EQ(forced.out, "ERROR: ");
    EXPECT_EQ(forced.err, "now x\n");
    unsetenv("QUENVALE_LOG_LEVEL");
}

}  // namespace
