#include "config/InterceptorConfig.h"
#include "harness/Vectors.h"
#include "harness/values.h"
#include "interaction/ClientInteraction.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

using harness::TextReader;

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
    for (const auto& row : harness::readVectors("decision.tsv")) {
        SCOPED_TRACE(row.line());
        const EntryRef entry = decide(row.at(0), row.at(1));
        EXPECT_STREQ(entry->itsServiceID.c_str(), row.at(2));
        EXPECT_STREQ(entry->itsOpID.c_str(), row.at(3));
        EXPECT_STREQ(entry->itsGroupID.c_str(), "group");
        EXPECT_EQ(entry->cpNames, nullptr);
        EXPECT_FALSE(entry->itIncludesPayload || entry->itComputesPath);
    }
    // A path beyond any buffer takes part whole.
    const std::string longUrl = "http://h/" + std::string(5000, 'a');
    const EntryRef shorter = decide(longUrl.c_str(), nullptr);
    EXPECT_NE(decide((longUrl + "b").c_str(), nullptr)->itsOpID, shorter->itsOpID);
}

TEST_F(Decisions, ARowMatchesByWildcardsAndExactTexts) {
    const struct {
        const char *why, *row;
        const char *group, *service, *operation;
        bool matches;
    } rows[] = {
        {"all equal", "g\ns\no\n", "g", "s", "o", true},
        {"case counts", "G\n\n\n", "g", "s", "o", false},
        {"a blank group passes any cell", "G\n\n\n", "", "s", "o", true},
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
}

TEST_F(Decisions, CheckpointNamesComeFromAllRowsInOrder) {
    TextReader text("5\n\n\n\nlast\ng\n\n\nfirst\nother\n\n\nhidden\n\n\n\nlast\n\n\n\n\n");
    const std::unique_ptr<InterceptorConfig::Table> table(InterceptorConfig::ReadFilters(text, 4));
    const auto named = [](InterceptorConfig::Table* among) {
        const std::unique_ptr<InterceptorConfig::Row> names(
            InterceptorConfig::findCPNames("g", "s", "o", among));
        std::string joined;
        if (names == nullptr) return std::string("none");
        for (int i = 0; i < names->size(); ++i) joined += names->at(i).c_str() + std::string(";");
        return joined;
    };
    EXPECT_EQ(named(table.get()), "last;first;last;;");
    for (int i = 0; i < table->size(); ++i) table->at(i)->set(3, Util::String());
    EXPECT_EQ(named(table.get()), "") << "no text at all is no name, but its row has matched";
    EXPECT_EQ(named(nullptr), "none");
}

// Side by side with the agent's reading stand the other ways to a row, in ConfigAgreementTest.cpp.
TEST_F(Decisions, RowsMeetTheIdsThatAreDerived) {
    // The hash of getQuote@/svc/a; a call without an operation name has no operation to match.
    configure("2\n\n\n6zXhIOgbNdAzRQS6Y93HcQ==\n\n\nEDihpnRb8sxNjuw13WOEzg==\n", "0\n", "0\n",
              "1\n\nEDihpnRb8sxNjuw13WOEzg==\n\n");
    EXPECT_TRUE(decide("http://h/svc/a", "getQuote")->itIncludesPayload);
    EXPECT_TRUE(decide("http://h/svc/a", "getQuote")->itComputesPath);
    EXPECT_FALSE(decide("http://h/svc/a", "")->itIncludesPayload);
    const EntryRef declared = decide("http://h/svc/b", "op", true, nullptr, "svc");
    EXPECT_FALSE(declared->itComputesPath);
    EXPECT_STREQ(declared->itsServiceID.c_str(), "svc");
}

TEST_F(Decisions, TheFirstCallOfAKeyDecidesUntilAGoodConfigurationComes) {
    EXPECT_EQ(decide("", "op"), nullptr);
    EXPECT_EQ(decide(nullptr, "op"), nullptr);
    const EntryRef first = decide("/a", "op", false, "one");
    EXPECT_EQ(decide("/a", "op", false, "two"), first);
    const EntryRef client = decide("/a", "op", true);
    EXPECT_NE(client, first);
    EXPECT_NE(decide("/a", "other"), first);
    fail();
    EXPECT_EQ(decide("/a", "op"), first);
    configure("0\n", "0\n", "0\n", "1\n\n\n\n");
    const EntryRef second = decide("/a", "op", false, "two");
    EXPECT_NE(second, first);
    EXPECT_NE(decide("/a", "op", true), client);
    EXPECT_STREQ(first->itsGroupID.c_str(), "one") << "held by its reader";
    EXPECT_STREQ(second->itsGroupID.c_str(), "two");
    EXPECT_TRUE(second->itComputesPath);
    fail();
    EXPECT_FALSE(decide("/b", "op")->itComputesPath) << "the tables of a failed text are gone";
}

TEST_F(Decisions, AUrlHasAnyNumberOfOperationsAndGoesWithAllOfThem) {
    const auto name = [](int i) { return "op" + std::to_string(i); };
    constexpr int kOperations = 1000;
    std::vector<EntryRef> entries;
    for (int i = 0; i < kOperations; ++i) entries.push_back(decide("/many", name(i).c_str()));
    for (int i = 0; i < kOperations; ++i) EXPECT_EQ(decide("/many", name(i).c_str()), entries[i]);
    EXPECT_NE(decide("/many", nullptr), decide("/many", "")) << "no name is not the empty one";
    EXPECT_EQ(decide("/many", nullptr), decide("/many", nullptr));
    EXPECT_NE(decide("/man", "yop1"), entries[1]);
    for (int i = 0; i < 256; ++i) decide(("/" + std::to_string(i)).c_str(), "op");
    for (int i = 0; i < kOperations; i += 99)
        EXPECT_NE(decide("/many", name(i).c_str()), entries[i]);
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
    const auto call = [&] {
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
    };
    const auto push = [&] {
        for (int i = 0; i < 200; ++i) configure("0\n", "0\n", "1\n\n\n\ncp\n", "0\n");
        isOver = true;
    };
    harness::onThreads(call, call, push);
}

}  // namespace
