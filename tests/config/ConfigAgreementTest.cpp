// qz-agent --check-config tells how the library reads a configuration, from code of its own. Here
// both read the same texts, most of them damaged.
#include <random>

#include "agent/ConfigReading.h"
#include "config/InterceptorConfig.h"
#include "config/Pushed.h"
#include "interaction/ClientInteraction.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

constexpr char kOperation[] = "6zXhIOgbNdAzRQS6Y93HcQ==";  // getQuote on /svc/a

std::string shown(const Util::String& text) {
    return text.c_str() == nullptr ? "" : text.c_str();
}

/// What a call says of itself.
struct Asked {
    std::string group, service, operation;

    bool fits(const QZAgent::FilterRow& row) const {
        return (group.empty() || row.group.empty() || row.group == group) &&
               (row.service.empty() || row.service == service) &&
               (row.operation.empty() || row.operation == operation);
    }
    bool fitsAny(const std::vector<QZAgent::FilterRow>& rows) const {
        return std::any_of(rows.begin(), rows.end(), [&](const auto& row) { return fits(row); });
    }
};

class ConfigAgreement : public testing::Test {
protected:
    ConfigAgreement() : itsRemote(harness::isRemote()) { harness::isRemote() = true; }
    ~ConfigAgreement() override { harness::isRemote() = itsRemote; }

    std::size_t below(std::size_t end) { return itsRandom() % end; }
    std::string any(const std::vector<std::string>& pool) { return pool[below(pool.size())]; }

    std::string text();
    std::string damaged(std::string text);
    void compareTables(InterceptorConfig& config, const QZAgent::ConfigText& expected);
    void compare(const std::string& text);

    std::mt19937 itsRandom{7};

private:
    void addTable(std::string& text, int columns);

    const bool itsRemote;
};

void ConfigAgreement::addTable(std::string& text, int columns) {
    const std::size_t rows = below(4);
    text +=
        (below(20) == 0 ? any({"", "x", "-1", "4294967297", " 1"}) : std::to_string(rows)) + "\n";
    for (std::size_t cells = rows * static_cast<std::size_t>(columns); cells > 0; --cells)
        text += any({"", "", "g", "s", kOperation, std::string(250 + below(10), 'y')}) + "\n";
}

std::string ConfigAgreement::text() {
    std::string text;
    const std::vector<std::string> words = {"T", "true", "false", "", "30", "5", "-1", "\r"};
    if (below(3) == 0)
        for (const char* prefix :
             {"trustKey=", "assertsTrust=", "checksCallerAddress=", "trustInterval="})
            text += prefix + any(words) + "\n";
    text += any({"host", "", "h\r", "localhost "}) + "\n";
    text += any({"4849", "70000", "p", "-3", "99999999999999999999"}) + "\n";
    text += any({"1", "0", "7 ", ""}) + "\n";
    for (const int columns : {3, 3, 4, 3, 1, 1}) addTable(text, columns);
    return text;
}

std::string ConfigAgreement::damaged(std::string text) {
    for (std::size_t times = below(4); times > 0 && !text.empty(); --times) {
        const std::size_t at = below(text.size());
        switch (below(4)) {
            case 0:
                text.resize(at);
                break;
            case 1:
                text.erase(at, 1 + below(3));
                break;
            case 2:
                text.insert(at,
                            any({"\n", std::string("\n\0", 2), std::string(1, '\0'), "\r", "1"}));
                break;
            default:
                text.insert(at, std::string(below(600), 'z'));
        }
    }
    return text;
}

void ConfigAgreement::compareTables(InterceptorConfig& config,
                                    const QZAgent::ConfigText& expected) {
    const char* const groups[] = {"", "g", "h"};
    for (int way = 0; way < 24; ++way) {
        const Asked asked{groups[way / 8], way & 1 ? "s" : "t", way & 2 ? kOperation : ""};
        const bool isClient = (way & 4) != 0;
        ClientInteraction call;
        call.itIsLoaded = true;
        // One cache entry for each; host and port take no part in an id.
        call.itsUrl = ("http://" + asked.group + asked.service + "/svc/a").c_str();
        call.itsOpName = asked.operation.empty() ? "" : "getQuote";
        call.itsGroupID = asked.group.c_str();
        call.itsServiceID = asked.service.c_str();
        const EntryRef entry = config.getConfig(&call, isClient);
        EXPECT_EQ(entry->itIncludesPayload,
                  asked.fitsAny(isClient ? expected.clientFilters : expected.serverFilters));
        EXPECT_EQ(entry->itComputesPath, asked.fitsAny(expected.pathFilters));
        // A line that a zero byte swallowed is no name, and an empty line is: only the library
        // tells them apart.
        std::string names, expectedNames;
        for (int i = 0; entry->cpNames != nullptr && i < entry->cpNames->size(); ++i)
            if (!entry->cpNames->at(i).empty()) names += shown(entry->cpNames->at(i)) + ";";
        for (const auto& row : expected.checkpointFilters)
            if (asked.fits(row.filter) && !row.name.empty()) expectedNames += row.name + ";";
        EXPECT_EQ(names, expectedNames);
    }
}

void ConfigAgreement::compare(const std::string& text) {
    const QZAgent::ConfigReading reading = QZAgent::readConfig(text);
    const QZAgent::ConfigText& expected = reading.config;
    InterceptorConfig config;
    config.load(harness::Pushed(text));
    ASSERT_EQ(config.itIsAlive, !reading.isRefused);
    if (reading.isRefused) return;
    const QZAgent::TrustBlock trust = expected.trust.value_or(QZAgent::TrustBlock());
    EXPECT_EQ(config.itChecksTrust, expected.trust.has_value());
    EXPECT_EQ(shown(config.trustKey()), trust.key);
    EXPECT_EQ(config.itAssertsTrust, trust.assertsTrust);
    EXPECT_EQ(config.itChecksCallerAddress, trust.checksCallerAddress);
    EXPECT_EQ(config.itsTrustInterval, trust.interval);
    Util::String host;
    int port = 0;
    config.agentAddress(host, port);
    EXPECT_EQ(shown(host), expected.host);
    EXPECT_EQ(port, expected.port);
    EXPECT_EQ(config.itsEventTag, expected.eventTag);
    std::vector<std::string> names;
    const auto list = config.flowFieldNames();
    for (auto* node = list->getHead(); node != nullptr; node = node->next)
        names.push_back(shown(node->data));
    EXPECT_EQ(names, expected.flowFieldNames);
    compareTables(config, expected);
}

TEST_F(ConfigAgreement, BothReadersMakeTheSameOfATextHoweverDamaged) {
    int alive = 0;
    for (int i = 0; i < 700 && !HasFailure(); ++i) {
        const std::string whole = text();
        const std::string each = i % 4 == 0 ? whole : damaged(whole);
        SCOPED_TRACE(testing::PrintToString(each));
        compare(each);
        alive += QZAgent::readConfig(each).isRefused ? 0 : 1;
    }
    EXPECT_GT(alive, 400);
}

// Behind its end a text reads as empty rows, of which a table takes no more than 4096; those that
// stand in the text all count.
TEST_F(ConfigAgreement, EmptyRowsEndATableOnlyBehindTheText) {
    compare("h\n1\n1\n0\n2000000000\n\n\no\n");
    compare("h\n1\n1\n0\n0\n0\n5000\n" + std::string(15000, '\n') + "0\n1\nlast\n");
}

}  // namespace
