// The parts of qz-agent around the peer: configuration texts, options, and what can be printed.
#include <fstream>
#include <iterator>
#include <sstream>

#include "Bytes.h"
#include "agent/ConfigFile.h"
#include "agent/ConfigText.h"
#include "agent/Options.h"
#include "agent/Printable.h"

namespace {

using namespace QZAgent;

TEST(ConfigText, PutsEachLineInItsPlace) {
    ConfigText config;
    config.trust = TrustBlock{"k", true, false, 5};
    config.host = "h";
    config.port = 7;
    config.eventTag = 9;
    config.serverFilters = {{"g", "s", "o"}};
    config.clientFilters = {{"", "", ""}, {"c", "", ""}};
    config.checkpointFilters = {{{"", "", "x"}, "cp"}};
    config.pathFilters = {{"", "p", ""}};
    config.params = {"p1"};
    config.flowFieldNames = {"f1", "f2"};
    EXPECT_EQ(config.text(),
              "trustKey=k\nassertsTrust=true\nchecksCallerAddress=false\ntrustInterval=5\nh\n7\n9\n"
              "1\ng\ns\no\n2\n\n\n\nc\n\n\n1\n\n\nx\ncp\n1\n\np\n\n1\np1\n2\nf1\nf2\n");
    EXPECT_EQ(portOfConfig(config.text()), 7);
    EXPECT_EQ(portOfConfig(ConfigText::reportAll("h", 12).text()), 12);
    for (const char* text : {"", "host\n", "host\nport\n", "host\n65536\n", "trustKey=k\n12\n"})
        EXPECT_EQ(portOfConfig(text), std::nullopt) << text;
}

TEST(ConfigFile, TakesAChangeOnceAndOnlyWhenItHasSettled) {
    const std::string path = ::testing::TempDir() + "qz-agent-config-" + std::to_string(getpid());
    const auto write = [&](const char* text) { std::ofstream(path) << text; };
    write("one");
    ConfigFile file(path);
    EXPECT_EQ(file.read(), "one");
    for (const char* text : {"one", "two", "three"}) {
        write(text);
        EXPECT_EQ(file.poll(), std::nullopt);
    }
    EXPECT_EQ(file.poll(), "three");
    EXPECT_EQ(file.poll(), std::nullopt);
    std::remove(path.c_str());
    EXPECT_EQ(file.read(), std::nullopt);
    EXPECT_NE(file.error(), "");
}

TEST(Options, AreTakenInAnyOrder) {
    Options options;
    std::string error;
    std::istringstream line(
        "--json --tree --events 0 --listen 10.0.0.1:5000 --quiet --config f --fault-on events "
        "--fault-refuse --fault-accept-byte 0 --fault-garbage 00fF --fault-close-after 12 "
        "--fault-read-pause 3 --check-config g");
    using Word = std::istream_iterator<std::string>;
    ASSERT_TRUE(parseOptions({Word(line), Word()}, options, error)) << error;
    EXPECT_TRUE(options.json && options.tree && options.quiet && options.faults.refuse);
    EXPECT_EQ(options.address, "10.0.0.1");
    EXPECT_EQ(options.controlPort, 5000);
    EXPECT_EQ(options.eventsPort, 0);
    EXPECT_EQ(options.configFile, "f");
    EXPECT_EQ(options.checkFile, "g");
    EXPECT_EQ(options.faultsOn, Port::Events);
    EXPECT_EQ(options.faults.acceptByte, 0);
    EXPECT_EQ(options.faults.garbage, bytes("00 FF"));
    EXPECT_EQ(options.faults.closeAfterBytes, 12u);
    EXPECT_EQ(options.faults.readPauseMs, 3);
}

TEST(Options, AreRefusedWithTheReason) {
    const struct {
        std::vector<std::string> arguments;
        const char* error;
    } rows[] = {
        {{"--jsn"}, "unknown option --jsn"},
        {{"--events"}, "--events wants a value"},
        {{"--events", "65536"}, "--events can't be 65536"},
        {{"--events", "-1"}, "--events can't be -1"},
        {{"--listen", "4848"}, "--listen can't be 4848"},
        {{"--fault-garbage", "0"}, "--fault-garbage can't be 0"},
        {{"--fault-accept-byte", "256"}, "--fault-accept-byte can't be 256"},
        {{"--fault-on", "all"}, "--fault-on can't be all"},
    };
    for (const auto& row : rows) {
        Options options;
        std::string error;
        EXPECT_FALSE(parseOptions(row.arguments, options, error));
        EXPECT_EQ(error, row.error);
    }
}

TEST(Printable, TellsTextFromBytes) {
    const struct {
        const char* written;
        bool isUtf8;
        const char* escaped;
    } rows[] = {
        {"'a' 00 1b 7f", true, "a\\x00\\x1b\\x7f"},
        {"f0 9f 98 80 5c", true, "\xf0\x9f\x98\x80\\\\"},
        {"e9 'a'", false, "\\xe9a"},                     // Latin-1
        {"c0 80", false, "\\xc0\\x80"},                  // overlong
        {"ed a0 80", false, "\\xed\\xa0\\x80"},          // a surrogate
        {"f4 90 80 80", false, "\\xf4\\x90\\x80\\x80"},  // too high
        {"e2 82", false, "\\xe2\\x82"},                  // cut
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.written);
        EXPECT_EQ(isUtf8(bytes(row.written)), row.isUtf8);
        EXPECT_EQ(escaped(bytes(row.written)), row.escaped);
    }
    EXPECT_EQ(base64("a") + base64("ab") + base64(bytes("00 FF FE")), "YQ==YWI=AP/+");
    EXPECT_EQ(latin1ToUtf8(bytes("'a' e9 ff")), bytes("'a' c3 a9 c3 bf"));
}

}  // namespace
