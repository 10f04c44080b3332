#include "util/diagnostics.h"

#include "harness/test.h"

namespace {

using Output = std::pair<std::string, std::string>;  // Of stdout and stderr.

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
    std::fflush(stdout);
    const std::string out = testing::internal::GetCapturedStdout();
    return {out, testing::internal::GetCapturedStderr()};
}

void writeAll() {
    errorMsg("e%d\n", 1);
    warningMsg("w\n");
    infoMsg("i\n");
    debugMsg("d\n");
}

TEST(Diagnostics, TheLevelComesFromTheEnvironment) {
    const char* const rows[][3] = {
        {nullptr, "", ""},
        {"0", "", ""},
        {"5", "", ""},
        {"debug", "", ""},
        {"1", "ERROR: ", "e1\n"},
        {"2", "ERROR: WARNING: ", "e1\nw\n"},
        {"3", "ERROR: WARNING: INFO: i\n", "e1\nw\n"},
        {"4", "ERROR: WARNING: INFO: i\nDEBUG: d\n", "e1\nw\n"},
    };
    for (const auto& [level, out, err] : rows) EXPECT_EQ(at(level, writeAll), Output(out, err));
    const auto force = [] { forcedMsg(1, "now %s\n", "x"); };
    EXPECT_EQ(at("0", force), Output("ERROR: ", "now x\n"));
    unsetenv("QUENVALE_LOG_LEVEL");
}

}  // namespace
