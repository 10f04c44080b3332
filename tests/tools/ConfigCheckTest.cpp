// What is told of a configuration text. That it is also read so stands in
// tests/config/ConfigAgreementTest.cpp, beside the library's own reader.
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
        const char* why;
        std::string text;
        std::vector<const char*> findings;  // The beginning of each.
    } rows[] = {
        {"long key", trust("key", "t", "5"), {"1: \"key\" is longer than one"}},
        {"no key", trust("", "t", "5"), {"1: no key:"}},
        {"a flag by its first letter", trust("k", "turnip", "5"), {"2: \"turnip\" reads as true"}},
        {"yes is no", trust("k", "yes", "5"), {"2: \"yes\" reads as false"}},
        {"no flag", trust("k", "", "5"), {"2: \"\" reads as false"}},
        {"plain words", trust("k", "no", "5"), {}},
        {"two digits", trust("k", "TRUE", "30"), {"4: \"30\": only the first digit"}},
        {"no digit", trust("k", "t", "-1"), {"4: \"-1\" is no digit", "4: with 0 s"}},
        {"trust line left out",
         "trustKey=k\nassertsTrust=t\ntrustInterval=1\n",
         {"3: \"checksCallerAddress=\" is awaited"}},
        {"trust block cut", "trustKey=k\n", {"1: the text ends before \"assertsTrust=\", and is"}},
        {"trust block misspelt", "TrustKey=k\n4849\n1\n" + kEmpty, {"1: reads as the host."}},
        {"no host", "\n4849\n1\n" + kEmpty, {"1: no host"}},
        {"host left out",
         "4849\n1\n" + kEmpty,
         {"1: a number:", "3: goes into events",
          "8: the text ends before \"flow field names\"; what is missing, 1 line"}},
        {"byte order mark", "\xef\xbb\xbf" + kHead + kEmpty, {"1: begins with a byte order"}},
        {"port 0", "h\n0\n1\n" + kEmpty, {"2: not from 1 to 65535: events go to port 0"}},
        {"port wraps",
         "h\n70000\n1\n" + kEmpty,
         {"2: not from 1 to 65535: events go to port 4464"}},
        {"port with more", "h\n4849 # port\n1\n" + kEmpty, {"2: \" # port\" behind"}},
        {"port past all", "h\n4294972145\n1\n" + kEmpty, {"2: \"4294972145\" is out of range"}},
        {"tag 0", "h\n1\n0\n" + kEmpty, {"3: goes into events as 1"}},
        {"no number", "h\n1\none\n" + kEmpty, {"3: \"one\" is no number"}},
        {"count below 0", kHead + "-1\n0\n0\n0\n0\n0\n", {"4: below 0"}},
        {"carriage returns",
         "h\r\n4849\r\n1\r\n1\r\n\r\n\r\n\r\n0\r\n0\r\n0\r\n0\r\n0\r\n",
         {"1: the carriage return", "5: the carriage", "6: the carriage", "7: the carriage",
          "7: no operation has this id"}},
        {"count too large",
         kHead + "2\n" + empty3 + "0\n0\n0\n0\n0\n",
         {"4: does not match its rows: with 1", "10: no operation", "10: row 2 is hidden: row 1",
          "12: the text ends before \"path rows\"; what is missing, 3 lines"}},
        {"count too small",
         kHead + kEmpty.substr(2) + "2\na\nb\nc\n",
         {"9: does not match its rows: with 3", "12: the configuration is complete"}},
        {"empty lines at the end", kHead + kEmpty + "\n\n", {}},
        {"no last line feed", kHead + "0\n0\n0\n0\n0\n0", {}},
        {"hidden by a wider row",
         kHead + "2\ng\n\n\ng\ns\n" + kId + "0\n0\n0\n0\n0\n",
         {"10: row 2 is hidden: row 1"}},
        {"not by a narrower one", kHead + "2\ng\ns\n" + kId + "g\n\n\n0\n0\n0\n0\n0\n", {}},
        {"a name rather than an id",
         kHead + "0\n0\n0\n1\n\n\ngetQuote\n0\n0\n",
         {"10: no operation has this id"}},
        {"a star", kHead + "0\n1\n*\n\n\n0\n0\n0\n0\n", {"6: \"*\" is no wildcard"}},
        {"blanks", kHead + "0\n1\n \n\n\n0\n0\n0\n0\n", {"6: the blanks around it"}},
        {"a comment", kHead + "0\n1\n# all\n\n\n0\n0\n0\n0\n", {"6: there are no comments"}},
        {"checkpoints all count", kHead + "0\n0\n2\n\n\n\na\ng\n\n\nb\n0\n0\n0\n", {}},
        {"but one name twice",
         kHead + "0\n0\n2\n\n\n\na\ng\n\n\na\n0\n0\n0\n",
         {"14: row 1 gives this name"}},
        {"an empty name", kHead + "0\n0\n1\n\n\n\n\n0\n0\n0\n", {"10: an empty name counts"}},
        {"a field twice", kHead + kEmpty.substr(2) + "2\na\na\n", {"11: the same as number 1"}},
        {"the longest line", kHead + "1\n" + long254 + "\n\n\n0\n0\n0\n0\n0\n", {}},
        {"one byte more is two lines",
         kHead + "1\n" + long254 + "x\n\n0\n0\n0\n0\n0\n",
         {"5: longer than 254 bytes"}},
        {"a zero byte", std::string("ho\0st\n4849\n1\n", 13) + kEmpty, {"1: a zero byte ends"}},
        {"a zero byte in front",
         std::string("\0\n4849\n1\n", 9) + kEmpty,
         {"1: begins with a zero byte: 21 bytes", "1: no host", "1: the text ends before"}},
        {"nothing", "", {"0: an empty text"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why + ("\n" + ConfigCheck(row.text).report));
        const std::vector<std::string> findings = findingsOf(row.text);
        EXPECT_EQ(findings.size(), row.findings.size());
        for (std::size_t i = 0; i < std::min(findings.size(), row.findings.size()); ++i)
            EXPECT_EQ(findings[i].compare(0, std::strlen(row.findings[i]), row.findings[i]), 0)
                << findings[i];
        EXPECT_EQ(ConfigCheck(row.text).isOdd, !row.findings.empty());
    }
}

TEST(ConfigCheck, ReadsBackWhatTheAgentWritesAndThePageShows) {
    for (const std::string& text : {ConfigText::reportAll("h", 12).text(), trust("k", "true", "3")})
        EXPECT_EQ(findingsOf(text), std::vector<std::string>());
    const std::string example = contentOf(QZ_DOCS "/examples/all-rows.conf");
    const ConfigReading reading = readConfig(example);
    EXPECT_EQ(reading.config.text(), example);
    EXPECT_EQ(reading.config.serverFilters.size(), 2u);
    EXPECT_EQ(reading.config.checkpointFilters[1].name, "quoted");
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
    const struct {
        std::string file;
        int status;
    } rows[] = {{QZ_DOCS "/examples/all-rows.conf", 0}, {odd, 1}, {odd + ".none", 2}};
    for (const auto& row : rows) {
        const int ended =
            std::system((QZ_AGENT " --check-config '" + row.file + "' >/dev/null 2>&1").c_str());
        EXPECT_TRUE(WIFEXITED(ended)) << row.file;
        EXPECT_EQ(WEXITSTATUS(ended), row.status) << row.file;
    }
    std::remove(odd.c_str());
}

}  // namespace
