// What is told of a configuration text. That it is also read so, tests/config holds against the
// library's own reader.
#include "agent/ConfigCheck.h"

#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "agent/ConfigReading.h"
#include "agent/ConfigText.h"
#include "harness/test.h"

namespace {

using namespace QZAgent;

std::string contentOf(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// The findings of the report, each behind the number of the line that it stands beneath.
std::vector<std::string> findingsOf(const std::string& text) {
    std::istringstream report(ConfigCheck(text).report);
    std::vector<std::string> findings;
    std::string number = "0";
    for (std::string line; std::getline(report, line);) {
        if (line.compare(0, 9, "       ! ") == 0)
            findings.push_back(number + ": " + line.substr(9));
        else
            number = std::to_string(std::atoi(line.c_str()));
    }
    return findings;
}

const std::string kEmpty = "0\n0\n0\n0\n0\n0\n";
const std::string kHead = "host\n4849\n1\n";
const char kId[] = "6zXhIOgbNdAzRQS6Y93HcQ==\n";

std::string trust(const char* key, const char* asserts, const char* interval) {
    return std::string("trustKey=") + key + "\nassertsTrust=" + asserts +
           "\nchecksCallerAddress=F\ntrustInterval=" + interval + "\n" + kHead + kEmpty;
}

TEST(ConfigCheck, TellsEachLineAndTheSum) {
    const ConfigCheck fine(trust("k", "T", "5"));
    EXPECT_FALSE(fine.isOdd);
    EXPECT_EQ(fine.report.substr(0, fine.report.find("    5  ")),
              "    1  trust key = \"k\"\n    2  headers name the caller's address = true\n"
              "    3  the caller's address counts = false\n    4  trust interval = 5 s\n");
    EXPECT_NE(fine.report.find("\n13 lines, nothing odd\n"), std::string::npos) << fine.report;
    const ConfigCheck odd("trustKey=k\nno flag\nhost\n");
    EXPECT_TRUE(odd.isOdd);
    EXPECT_NE(odd.report.find("\n    3  not read = host\n3 lines, 1 finding, refused\n"),
              std::string::npos)
        << odd.report;
}

TEST(ConfigCheck, FindsWhatWillNotDoWhatItsAuthorThinks) {
    const std::string empty3 = "\n\n\n";
    const std::string long254(254, 'x');
    const struct {
        std::string text;
        std::vector<const char*> findings;  // The beginning of each.
    } rows[] = {
        {trust("key", "t", "5"), {"1: \"key\" is longer than one"}},
        {trust("", "t", "5"), {"1: no key:"}},
        {trust("k", "turnip", "5"), {"2: \"turnip\" reads as true"}},
        {trust("k", "yes", "5"), {"2: \"yes\" reads as false"}},
        {trust("k", "", "5"), {"2: \"\" reads as false"}},
        {trust("k", "no", "5"), {}},  // Plain words.
        {trust("k", "TRUE", "30"), {"4: \"30\": only the first digit"}},
        {trust("k", "t", "-1"), {"4: \"-1\" is no digit", "4: with 0 s"}},
        {"trustKey=k\nassertsTrust=t\ntrustInterval=1\n",
         {"3: \"checksCallerAddress=\" is awaited"}},
        {"trustKey=k\n", {"1: the text ends before \"assertsTrust=\", and is"}},
        {"TrustKey=k\n4849\n1\n" + kEmpty, {"1: reads as the host."}},
        {"\n4849\n1\n" + kEmpty, {"1: no host"}},
        {"4849\n1\n" + kEmpty,
         {"1: a number:", "3: goes into events",
          "8: the text ends before \"flow field names\"; what is missing, 1 line"}},
        {"\xef\xbb\xbf" + kHead + kEmpty, {"1: begins with a byte order"}},
        {"h\n0\n1\n" + kEmpty, {"2: not from 1 to 65535: events go to port 0"}},
        {"h\n70000\n1\n" + kEmpty, {"2: not from 1 to 65535: events go to port 4464"}},
        {"h\n4849 # port\n1\n" + kEmpty, {"2: \" # port\" behind"}},
        {"h\n4294972145\n1\n" + kEmpty, {"2: \"4294972145\" is out of range"}},
        {"h\n1\n0\n" + kEmpty, {"3: goes into events as 1"}},
        {"h\n1\none\n" + kEmpty, {"3: \"one\" is no number"}},
        {kHead + "-1\n0\n0\n0\n0\n0\n", {"4: below 0"}},
        {"h\r\n4849\r\n1\r\n1\r\n\r\n\r\n\r\n0\r\n0\r\n0\r\n0\r\n0\r\n",
         {"1: the carriage return", "5: the carriage", "6: the carriage", "7: the carriage",
          "7: no operation has this id"}},
        {kHead + "2\n" + empty3 + "0\n0\n0\n0\n0\n",
         {"4: does not match its rows: with 1", "10: no operation", "10: row 2 is hidden: row 1",
          "12: the text ends before \"path rows\"; what is missing, 3 lines"}},
        {kHead + kEmpty.substr(2) + "2\na\nb\nc\n",
         {"9: does not match its rows: with 3", "12: the configuration is complete"}},
        {kHead + kEmpty + "\n\n", {}},     // Empty lines at the end.
        {kHead + "0\n0\n0\n0\n0\n0", {}},  // No last line feed.
        {kHead + "3\n\n\n\ng\n\n\ng\ns\n" + kId + "0\n0\n0\n0\n0\n",
         {"10: row 2 is hidden: row 1", "13: row 3 is hidden: row 1"}},
        {kHead + "2\ng\ns\n" + kId + "g\n\n\n0\n0\n0\n0\n0\n", {}},  // Not by a narrower one.
        {kHead + "0\n0\n0\n1\n\n\ngetQuote\n0\n0\n", {"10: no operation has this id"}},
        {kHead + "0\n1\n*\n\n\n0\n0\n0\n0\n", {"6: \"*\" is no wildcard"}},
        {kHead + "0\n1\n \n\n\n0\n0\n0\n0\n", {"6: the blanks around it"}},
        {kHead + "0\n1\n# all\n\n\n0\n0\n0\n0\n", {"6: there are no comments"}},
        {kHead + "0\n0\n2\n\n\n\na\ng\n\n\nb\n0\n0\n0\n", {}},  // Checkpoints all count.
        {kHead + "0\n0\n2\n\n\n\na\ng\n\n\na\n0\n0\n0\n", {"14: row 1 gives this name"}},
        {kHead + "0\n0\n1\n\n\n\n\n0\n0\n0\n", {"10: an empty name counts"}},
        {kHead + kEmpty.substr(2) + "2\na\na\n", {"11: the same as number 1"}},
        {kHead + "1\n" + long254 + "\n\n\n0\n0\n0\n0\n0\n", {}},  // The longest line.
        {kHead + "1\n" + long254 + "x\n\n0\n0\n0\n0\n0\n", {"5: longer than 254 bytes"}},
        {std::string("ho\0st\n4849\n1\n", 13) + kEmpty, {"1: a zero byte ends"}},
        {std::string("\0\n4849\n1\n", 9) + kEmpty,
         {"1: begins with a zero byte: 21 bytes", "1: no host", "1: the text ends before"}},
        {"", {"0: an empty text"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text + "\n" + ConfigCheck(row.text).report);
        const std::vector<std::string> findings = findingsOf(row.text);
        EXPECT_TRUE(std::equal(findings.begin(), findings.end(), row.findings.begin(),
                               row.findings.end(), [](const std::string& whole, const char* start) {
                                   return whole.rfind(start, 0) == 0;
                               }));
        EXPECT_EQ(ConfigCheck(row.text).isOdd, !row.findings.empty());
    }
}

TEST(ConfigCheck, ReadsBackWhatTheAgentWritesAndThePageShows) {
    for (const std::string& text : {ConfigText::reportAll("h", 12).text(), trust("k", "true", "3")})
        EXPECT_EQ(findingsOf(text), std::vector<std::string>());
    const std::string example = contentOf(QZ_DOCS "/examples/all-rows.conf");
    EXPECT_EQ(readConfig(example).config.text(), example);
    EXPECT_EQ(findingsOf(example), std::vector<std::string>());
    // The page shows the file with a comment behind a bar in each line.
    std::istringstream page(contentOf(QZ_DOCS "/operating.md"));
    std::string shown;
    for (std::string line; std::getline(page, line);) {
        const std::size_t bar = line.find(" | ");
        if (line.compare(0, 4, "    ") != 0 || bar == std::string::npos) continue;
        const std::string value = line.substr(4, bar - 4);
        shown += value.substr(0, value.find_last_not_of(' ') + 1) + "\n";
    }
    EXPECT_EQ(shown, example);
}

TEST(ConfigCheck, EndsTheProgramWithItsStatus) {
    const std::string odd = ::testing::TempDir() + "qz-odd-config-" + std::to_string(getpid());
    std::ofstream(odd) << "h\n";
    const std::string files[] = {QZ_DOCS "/examples/all-rows.conf", odd, odd + ".none"};
    for (int status = 0; status < 3; ++status) {
        const std::string command = QZ_AGENT " --check-config '" + files[status] + "'";
        const int ended = std::system((command + " >/dev/null 2>&1").c_str());
        EXPECT_TRUE(WIFEXITED(ended)) << command;
        EXPECT_EQ(WEXITSTATUS(ended), status) << command;
    }
    std::remove(odd.c_str());
}

}  // namespace
