#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "config/InterceptorConfig.h"
#include "interaction/ClientInteraction.h"
#include "util/StreamReader.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

class TextReader final : public Util::StreamReader {
public:
    explicit TextReader(const std::string& text) : itsText(text) {}
    void closeReader() override {}
    explicit operator bool() const override { return true; }
    Util::String ReadLine() override {
        std::string line;
        std::getline(itsText, line);
        return line.c_str();
    }

private:
    std::istringstream itsText;
};

class Decisions : public testing::Test {
protected:
    // The tables as the text has them: each the count and the cells.
    void configure(const std::string& server, const std::string& client, const std::string& names,
                   const std::string& path) {
        TextReader text("host\n1\n1\n" + server + client + names + path + "0\n0\n");
        itsConfig.updateConfig(text);
        ASSERT_TRUE(itsConfig.itIsAlive);
    }
    void fail() {
        TextReader text("trustKey=k\nno block\n");
        itsConfig.updateConfig(text);
        ASSERT_FALSE(itsConfig.itIsAlive);
    }
    EntryRef decide(const char* url, const char* opName, bool isClient = false,
                    const char* group = "group", const char* service = nullptr) {
        ClientInteraction call;
        call.itIsLoaded = true;
        call.itsUrl = url;
        call.itsOpName = opName;
        call.itsGroupID = group;
        call.itsServiceID = service;
        return itsConfig.getConfig(&call, isClient);
    }

    InterceptorConfig itsConfig;
};

TEST_F(Decisions, IdentifiersAreThoseThatAgentsKnow) {
    std::ifstream file(QZ_TEST_DATA "/decision.tsv");
    std::string line;
    std::getline(file, line);
    int rows = 0;
    for (; std::getline(file, line); ++rows) {
        SCOPED_TRACE(line);
        std::istringstream cells(line);
        std::string url, opName, service, operation;
        std::getline(cells, url, '\t');
        std::getline(cells, opName, '\t');
        std::getline(cells, service, '\t');
        std::getline(cells, operation, '\t');
        const EntryRef entry = decide(url.c_str(), opName == "\\N" ? nullptr : opName.c_str());
        EXPECT_EQ(entry->itsServiceID.c_str(), service);
        EXPECT_EQ(entry->itsOpID.c_str(), operation);
        EXPECT_STREQ(entry->itsGroupID.c_str(), "group");
        EXPECT_EQ(entry->cpNames, nullptr);
        EXPECT_FALSE(entry->itIncludesPayload || entry->itComputesPath);
    }
    EXPECT_EQ(rows, 7);
    // A path beyond any buffer takes part whole.
    const std::string longUrl = "http://h/" + std::string(5000, 'a');
    const EntryRef shorter = decide(longUrl.c_str(), nullptr);
    EXPECT_NE(decide((longUrl + "b").c_str(), nullptr)->itsOpID, shorter->itsOpID);
}

TEST_F(Decisions, ARowMatchesByWildcardsAndExactTexts) {
    const struct {
        const char* why;
        const char* row;
        const char *group, *service, *operation;
        bool matches;
    } rows[] = {
        {"all wildcards", "\n\n\n", "g", "s", "o", true},
        {"all equal", "g\ns\no\n", "g", "s", "o", true},
        {"case counts", "G\n\n\n", "g", "s", "o", false},
        {"a blank group passes any cell", "G\n\n\n", "", "s", "o", true},
        {"and so does none", "G\n\n\n", nullptr, "s", "o", true},
        {"a blank service passes only a wildcard", "\ns\n\n", "g", "", "o", false},
        {"a blank operation too", "\n\no\n", "g", "s", nullptr, false},
        {"which it does pass", "\n\n\n", nullptr, nullptr, nullptr, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        TextReader text(std::string("2\nno\nno\nno\n") + row.row);
        const std::unique_ptr<InterceptorConfig::Table> table(
            InterceptorConfig::ReadFilters(text, 3));
        EXPECT_EQ(InterceptorConfig::findFilter(row.group, row.service, row.operation, table.get()),
                  row.matches ? table->at(1) : nullptr);
    }
    EXPECT_EQ(InterceptorConfig::findFilter("g", "s", "o", nullptr), nullptr);
    EXPECT_EQ(InterceptorConfig::findCPNames("g", "s", "o", nullptr), nullptr);
}

TEST_F(Decisions, CheckpointNamesComeFromAllRowsInOrder) {
    TextReader text("5\n\n\n\nlast\ng\n\n\nfirst\nother\n\n\nhidden\n\n\n\nlast\n\n\n\n\n");
    const std::unique_ptr<InterceptorConfig::Table> table(InterceptorConfig::ReadFilters(text, 4));
    const std::unique_ptr<InterceptorConfig::Row> names(
        InterceptorConfig::findCPNames("g", "s", "o", table.get()));
    std::string joined;
    for (int i = 0; i < names->size(); ++i) joined += std::string(names->at(i).c_str()) + ";";
    EXPECT_EQ(joined, "last;first;last;;");
    // A cell that is no text at all is no name, but its row has matched.
    for (int i = 0; i < table->size(); ++i) table->at(i)->set(3, Util::String());
    const std::unique_ptr<InterceptorConfig::Row> none(
        InterceptorConfig::findCPNames("g", "s", "o", table.get()));
    ASSERT_NE(none, nullptr);
    EXPECT_TRUE(none->empty());
}

TEST_F(Decisions, EachSideHasItsPayloadTableAndTheOthersAreCommon) {
    // The hash of getQuote@/svc/a; a call without an operation name has no operation to match.
    configure("1\n\n\n6zXhIOgbNdAzRQS6Y93HcQ==\n", "1\nelse\n\n\n", "1\n\nsvc\n\ncp\n",
              "1\n\nEDihpnRb8sxNjuw13WOEzg==\n\n");
    const EntryRef server = decide("http://h/svc/a", "getQuote");
    EXPECT_TRUE(server->itIncludesPayload);
    EXPECT_TRUE(server->itComputesPath) << "by the derived service id";
    EXPECT_EQ(server->cpNames, nullptr);
    const EntryRef client = decide("http://h/svc/a", "getQuote", true);
    EXPECT_FALSE(client->itIncludesPayload);
    EXPECT_TRUE(client->itComputesPath);
    EXPECT_FALSE(decide("http://h/svc/a", "")->itIncludesPayload);
    const EntryRef named = decide("http://h/svc/b", "op", true, nullptr, "svc");
    EXPECT_TRUE(named->itIncludesPayload) << "no group passes a row that names one";
    EXPECT_FALSE(named->itComputesPath);
    EXPECT_STREQ(named->itsServiceID.c_str(), "svc");
    ASSERT_NE(named->cpNames, nullptr);
    EXPECT_EQ(named->cpNames->size(), 1);
}

TEST_F(Decisions, TheFirstCallOfAKeyDecidesUntilAGoodConfigurationComes) {
    EXPECT_EQ(decide("", "op"), nullptr);
    EXPECT_EQ(decide(nullptr, "op"), nullptr);
    const EntryRef first = decide("/a", "op", false, "one");
    EXPECT_EQ(decide("/a", "op", false, "two"), first);
    EXPECT_NE(decide("/a", "op", true), first);
    EXPECT_NE(decide("/a", "other"), first);
    fail();
    EXPECT_EQ(decide("/a", "op"), first);
    configure("0\n", "0\n", "0\n", "1\n\n\n\n");
    const EntryRef second = decide("/a", "op", false, "two");
    EXPECT_NE(second, first);
    EXPECT_STREQ(first->itsGroupID.c_str(), "one") << "held by its reader";
    EXPECT_STREQ(second->itsGroupID.c_str(), "two");
    EXPECT_TRUE(second->itComputesPath);
    fail();
    EXPECT_FALSE(decide("/b", "op")->itComputesPath) << "the tables of a failed text are gone";
}

TEST_F(Decisions, TheUrlUsedLeastRecentlyGivesWay) {
    const EntryRef kept = decide("/0", "op");
    const EntryRef dropped = decide("/1", "op");
    for (int i = 2; i < 256; ++i) decide(("/" + std::to_string(i)).c_str(), "op");
    EXPECT_EQ(decide("/0", "op"), kept);
    decide("/256", "op");
    EXPECT_EQ(decide("/0", "op"), kept);
    EXPECT_NE(decide("/1", "op"), dropped);
}

TEST_F(Decisions, AreReadWhileNewConfigurationsCome) {
    configure("0\n", "0\n", "0\n", "0\n");
    std::atomic<bool> isOver{false};
    std::vector<std::thread> callers;
    for (int i = 0; i < 2; ++i)
        callers.emplace_back([&] {
            while (!isOver) {
                const EntryRef entry = decide("http://h/svc/a", "getQuote");
                EXPECT_STREQ(entry->itsOpID.c_str(), "6zXhIOgbNdAzRQS6Y93HcQ==");
                if (entry->cpNames != nullptr) {
                    EXPECT_STREQ(entry->cpNames->at(0).c_str(), "cp");
                }
                if (itsConfig.hasFlowFieldNames()) itsConfig.flowFieldNames();
                Util::String host;
                int port = 0;
                itsConfig.agentAddress(host, port);
                EXPECT_EQ(port, 1);
                EXPECT_TRUE(itsConfig.trustKey().empty());
            }
        });
    for (int i = 0; i < 200; ++i) configure("0\n", "0\n", "1\n\n\n\ncp\n", "0\n");
    isOver = true;
    for (auto& caller : callers) caller.join();
}

}  // namespace
