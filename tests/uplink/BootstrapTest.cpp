// Where the control connection goes, for each source and each way that one can be of no use.
#include <filesystem>
#include <fstream>
#include <map>

#include "harness/values.h"
#include "uplink/BootstrapConfig.h"

using namespace Quenvale::Interceptor::SDK;

namespace {

constexpr const char* kNames[] = {"com.quenvale.bootstrap.url", "com.quenvale.bootstrap.file",
                                  "QUENVALE_BOOTSTRAP_URL", "user.home"};
constexpr const char* kUnknown = "tcp://256.256.256.256:7";
using Sources = std::map<int, std::string>;

/// A directory of its own to work in, with a file "quenvale.conf".
class Bootstrap : public testing::Test {
protected:
    Bootstrap() {
        char name[] = "/tmp/bootstrapXXXXXX";
        itsDirectory = mkdtemp(name);
        std::filesystem::current_path(itsDirectory);
        std::ofstream("quenvale.conf") << "addr=10.1.2.3\nport=99\n";
    }
    ~Bootstrap() override {
        for (const char* variable : kNames) unsetenv(variable);
        std::filesystem::current_path(itsBefore);
        std::filesystem::remove_all(itsDirectory);
    }

    static std::string searched(const Sources& sources) {
        for (const char* variable : kNames) unsetenv(variable);
        for (const auto& source : sources) setenv(kNames[source.first], source.second.c_str(), 1);
        AsyncBinaryUplink::BootstrapConfig config;
        config.search();
        config.settle();
        return shown(config);
    }
    static std::string shown(const AsyncBinaryUplink::BootstrapConfig& config) {
        return harness::text(config.itsAddr) + " " + std::to_string(config.itsPort);
    }

    const std::filesystem::path itsBefore = std::filesystem::current_path();
    std::string itsDirectory;
};

TEST_F(Bootstrap, TheFirstSourceThatAnswersWins) {
    const std::string file = itsDirectory + "/quenvale.conf";
    const Sources::value_type other(2, "tcp://10.0.0.2:2");
    const struct {
        const char* why;
        Sources sources;
        const char* expected;
    } rows[] = {
        {"nothing set", {}, "127.0.0.1 4848"},
        {"localhost needs no look-up", {{0, "tcp://localhost:900"}}, "127.0.0.1 900"},
        {"the path is ignored", {{2, "tcp://10.0.0.1:902/some:1/path"}}, "10.0.0.1 902"},
        {"an empty port is 0", {{2, "tcp://localhost:"}}, "127.0.0.1 0"},
        {"the system url first", {{0, "tcp://10.0.0.1"}, {1, file}, other}, "10.0.0.1 4848"},
        {"no scheme, and the next source", {{0, "localhost:3"}, other}, "10.0.0.2 2"},
        {"an empty url", {{0, ""}, other}, "10.0.0.2 2"},
        {"nothing behind the scheme", {{0, "tcp://"}, other}, "10.0.0.2 2"},
        {"a slash behind the scheme belongs to the host", {{0, "tcp:///:5"}, other}, "10.0.0.2 2"},
        {"no such host, and its port goes with it", {{0, kUnknown}, {1, file}}, "NIL 4848"},
        {"and with no other source", {{2, kUnknown}}, "127.0.0.1 4848"},
        {"a file that is missing", {{1, "/nowhere"}, other}, "10.0.0.2 2"},
        {"a file that opens ends the search, unread", {{1, file}, other}, "NIL 4848"},
        {"so does the one in the home directory", {{3, itsDirectory}}, "NIL 4848"},
    };
    for (const auto& row : rows) EXPECT_EQ(searched(row.sources), row.expected) << row.why;

    setenv(kNames[0], "tcp://some-host.invalid:5", 1);
    AsyncBinaryUplink::BootstrapConfig config;
    config.search();
    EXPECT_EQ(shown(config), "NIL 5") << "loading looks no name up";
}

TEST_F(Bootstrap, PropertiesComeFromTheFileNamedByTheStream) {
    std::FILE* file = std::fopen("quenvale.conf", "r");
    ASSERT_NE(file, nullptr);
    std::ofstream(Util::String::addrToString(file).c_str())
        << "username=u\npassword=p\nport=77\naddr=10.9.9.9\nusername=v\n";
    AsyncBinaryUplink::BootstrapConfig config;
    EXPECT_TRUE(config.bootstrapFromFile(file));
    std::fclose(file);
    EXPECT_EQ(shown(config), "10.9.9.9 77");
    EXPECT_EQ(config.itsUsername.c_str(), nullptr) << "what the file says of it is dropped";
}

TEST_F(Bootstrap, PromisesThatAreBrokenEndTheProcess) {
    EXPECT_DEATH(searched({{0, "http://localhost:1"}}), "");
    EXPECT_DEATH(searched({{3, itsDirectory + "/nowhere"}}), "");
}

}  // namespace
