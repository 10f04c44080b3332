// qz-agent --check-config tells how the library reads a configuration, from code of its own. Here
// both read the same texts, most of them damaged.
#include <random>

#include "agent/ConfigReading.h"
#include "config/InterceptorConfig.h"
#include "config/Pushed.h"
#include "interaction/ClientInteraction.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using Texts = std::vector<std::string>;

constexpr char kOperation[] = "6zXhIOgbNdAzRQS6Y93HcQ==";  // getQuote on /svc/a

std::string shown(const Util::String& text) {
    return text.c_str() == nullptr ? "" : text.c_str();
}

std::size_t below(std::size_t end) {
    static std::mt19937 random{7};
    return random() % end;
}

std::string any(const Texts& pool) {
    return pool[below(pool.size())];
}

/// A configuration, or nearly so.
std::string madeText() {
    std::string text;
    if (below(3) == 0)
        for (const char* prefix :
             {"trustKey=", "assertsTrust=", "checksCallerAddress=", "trustInterval="})
            text += prefix + any({"T", "true", "false", "", "30", "5", "-1", "\r"}) + "\n";
    text += any({"host", "", "h\r", "localhost "}) + "\n";
    text += any({"4849", "70000", "p", "-3", "99999999999999999999"}) + "\n";
    text += any({"1", "0", "7 ", ""}) + "\n";
    for (const std::size_t columns : {3, 3, 4, 3, 1, 1}) {
        const std::size_t rows = below(4);
        text += below(20) == 0 ? any({"", "x", "-1", "4294967297", " 1"}) : std::to_string(rows);
        for (std::size_t cells = rows * columns; cells > 0; --cells)
            text +=
                "\n" + any({"", "", "g", "G", "s", kOperation, std::string(250 + below(10), 'y')});
        text += "\n";
    }
    return text;
}

void damage(std::string& text) {
    for (std::size_t times = below(4); times > 0 && !text.empty(); --times) {
        const std::size_t at = below(text.size());
        if (below(4) == 0)
            text.resize(at);
        else
            text.replace(at, below(4),
                         any({"", "\n", std::string("\n\0", 2), std::string(1, '\0'), "\r", "1",
                              std::string(below(600), 'z')}));
    }
}

void compareTables(InterceptorConfig& config, const QZAgent::ConfigText& expected) {
    const char* const groups[] = {"", "g", "h"};
    for (int way = 0; way < 24; ++way) {
        const std::string group = groups[way / 8], service = way & 1 ? "s" : "t",
                          operation = way & 2 ? kOperation : "";
        const bool isClient = (way & 4) != 0;
        const auto fits = [&](const QZAgent::FilterRow& row) {
            return (group.empty() || row.group.empty() || row.group == group) &&
                   (row.service.empty() || row.service == service) &&
                   (row.operation.empty() || row.operation == operation);
        };
        const auto fitsAny = [&](const auto& rows) {
            return std::any_of(rows.begin(), rows.end(), fits);
        };
        ClientInteraction call;
        call.itIsLoaded = true;
        // One cache entry for each; host and port take no part in an id.
        call.itsUrl = ("http://" + group + service + "/svc/a").c_str();
        call.itsOpName = operation.empty() ? "" : "getQuote";
        call.itsGroupID = group.c_str();
        call.itsServiceID = service.c_str();
        const EntryRef entry = config.getConfig(&call, isClient);
        EXPECT_EQ(entry->itIncludesPayload,
                  fitsAny(isClient ? expected.clientFilters : expected.serverFilters));
        EXPECT_EQ(entry->itComputesPath, fitsAny(expected.pathFilters));
        // A line that a zero byte swallowed is no name, and an empty line is: only the library
        // tells them apart.
        Texts names, expectedNames;
        for (int i = 0; entry->cpNames != nullptr && i < entry->cpNames->size(); ++i)
            if (!entry->cpNames->at(i).empty()) names.push_back(shown(entry->cpNames->at(i)));
        for (const auto& row : expected.checkpointFilters)
            if (fits(row.filter) && !row.name.empty()) expectedNames.push_back(row.name);
        EXPECT_EQ(names, expectedNames);
    }
}

/// Whether the text was taken, which both agree on too.
bool compare(const std::string& text) {
    const QZAgent::ConfigReading reading = QZAgent::readConfig(text);
    const QZAgent::ConfigText& expected = reading.config;
    InterceptorConfig config;
    harness::isRemote() = true;
    config.load(harness::Pushed(text));
    harness::isRemote() = false;
    EXPECT_EQ(config.itIsAlive, !reading.isRefused);
    if (reading.isRefused || !config.itIsAlive) return false;
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
    Texts names;
    const auto list = config.flowFieldNames();
    for (auto* node = list->getHead(); node != nullptr; node = node->next)
        names.push_back(shown(node->data));
    EXPECT_EQ(names, expected.flowFieldNames);
    compareTables(config, expected);
    return true;
}

TEST(ConfigAgreement, BothReadersMakeTheSameOfATextHoweverDamaged) {
    int alive = 0;
    for (int i = 0; i < 700 && !testing::Test::HasFailure(); ++i) {
        std::string text = madeText();
        if (i % 4 != 0) damage(text);
        SCOPED_TRACE(testing::PrintToString(text));
        alive += compare(text) ? 1 : 0;
    }
    EXPECT_GT(alive, 400);
}

// Behind its end a text reads as empty rows, of which a table takes no more than 4096; those that
// stand in the text all count.
TEST(ConfigAgreement, EmptyRowsEndATableOnlyBehindTheText) {
    compare("h\n1\n1\n0\n2000000000\n\n\no\n");
    compare("h\n1\n1\n0\n0\n0\n0\n2000000000\nkept\n");
    compare("h\n1\n1\n0\n0\n0\n0\n0\n2000000000\nfield\n");
    compare("h\n1\n1\n0\n0\n0\n0\n5000\n" + std::string(5000, '\n') + "1\nlast\n");
    compare("h\n1\n1\n0\n0\n0\n5000\n" + std::string(15000, '\n') + "0\n1\nlast\n");
}

}  // namespace
