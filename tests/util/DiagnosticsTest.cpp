#include "util/diagnostics.h"

#include "harness/test.h"

namespace {

using Output = std::pair<std::string, std::string>;  // Of stdout and stderr.

// This file's private copy of the level is read anew.
Output at(const char* level) {
    level == nullptr ? unsetenv("QUENVALE_LOG_LEVEL") : setenv("QUENVALE_LOG_LEVEL", level, 1);
    ourLogLevel = kLevelUnknown;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    errorMsg("e%d\n", 1);
    warningMsg("w\n");
    infoMsg("i\n");
    debugMsg("d\n");
    forcedMsg(1, "forced %s\n", "x");
    std::fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();
    return {out, testing::internal::GetCapturedStderr()};
}

TEST(Diagnostics, TheLevelComesFromTheEnvironment) {
    const char* const rows[][3] = {
        {"0", "", ""},
        {"5", "", ""},
        {"debug", "", ""},
        {"1", "ERROR: ", "e1\n"},
        {"2", "ERROR: WARNING: ", "e1\nw\n"},
        {"3", "ERROR: WARNING: INFO: i\n", "e1\nw\n"},
        {"4", "ERROR: WARNING: INFO: i\nDEBUG: d\n", "e1\nw\n"},
        {nullptr, "", ""},
    };
    for (const auto& [level, out, err] : rows)
        EXPECT_EQ(at(level), Output(out + std::string("ERROR: "), err + std::string("forced x\n")));
}

}  // namespace
