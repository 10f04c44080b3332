// What a row fits, ConfigAgreementTest.cpp asks side by side with the agent's reading.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <random>

#include "config/DecisionCache.h"
#include "config/InterceptorConfig.h"
#include "harness/Vectors.h"
#include "harness/values.h"
#include "interaction/ClientInteraction.h"
#include "util/blockCache.h"

namespace {

using namespace Quenvale::Interceptor::SDK;

using harness::TextReader;

class Decisions : public testing::Test {
protected:
    // The tables as the text has them: each the count and the cells.
    void configure(const std::string& server, const std::string& names, const std::string& path) {
        TextReader text("host\n1\n1\n" + server + "0\n" + names + path + "0\n0\n");
        itsConfig.updateConfig(text);
        ASSERT_TRUE(itsConfig.itIsAlive);
    }
    void fail() {
        TextReader text("trustKey=k\nno block\n");
        itsConfig.updateConfig(text);
        ASSERT_FALSE(itsConfig.itIsAlive);
    }
    EntryRef decide(const std::string& url, const char* opName, bool isClient = false,
                    const char* group = "group", const char* service = nullptr) {
        ClientInteraction call;
        call.itIsLoaded = true;
        call.itsUrl = url.c_str();
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
    }
    const std::string longUrl = "http://h/" + std::string(5000, 'a');
    EXPECT_NE(decide(longUrl + "b", nullptr)->itsOpID, decide(longUrl, nullptr)->itsOpID)
        << "a path beyond any buffer takes part whole";
}

TEST_F(Decisions, RowsMeetTheIdsThatAreDerived) {
    // The hash of getQuote@/svc/a; a call without an operation name has no operation to match.
    configure("2\n\n\n6zXhIOgbNdAzRQS6Y93HcQ==\n\n\nEDihpnRb8sxNjuw13WOEzg==\n", "0\n",
              "1\n\nEDihpnRb8sxNjuw13WOEzg==\n\n");
    EXPECT_TRUE(decide("http://h/svc/a", "getQuote")->itIncludesPayload);
    EXPECT_TRUE(decide("http://h/svc/a", "getQuote")->itComputesPath);
    EXPECT_FALSE(decide("http://h/svc/a", "")->itIncludesPayload);
    const EntryRef declared = decide("http://h/svc/a", "op", true, nullptr, "svc");
    EXPECT_FALSE(declared->itComputesPath);
    EXPECT_STREQ(declared->itsServiceID.c_str(), "svc");
    TextReader text("1\n\nservice\n\nname\n");
    const std::unique_ptr<InterceptorConfig::Table> table(InterceptorConfig::ReadFilters(text, 4));
    EXPECT_EQ(InterceptorConfig::findFilter("g", "", "o", table.get()), nullptr) << "a blank id";
    table->at(0)->set(3, Util::String());
    const std::unique_ptr<InterceptorConfig::Row> names(
        InterceptorConfig::findCPNames("g", "service", "o", table.get()));
    EXPECT_EQ(names->size(), 0) << "no text at all is no name, but its row has matched";
    configure("0\n", "2\n\n\n\nlast\n\n\n\n\n", "0\n");
    EXPECT_EQ(decide("/a", "op")->cpNames->size(), 2) << "an empty line is a name";
}

TEST_F(Decisions, TheFirstCallOfAKeyDecidesUntilAGoodConfigurationComes) {
    EXPECT_EQ(decide("", "op"), nullptr);
    const EntryRef first = decide("/a", "op", false, "one");
    EXPECT_EQ(decide("/a", "op", false, "two"), first);
    const EntryRef client = decide("/a", "op", true);
    EXPECT_NE(client, first);
    EXPECT_NE(decide("/a", "other"), first);
    fail();
    EXPECT_EQ(decide("/a", "op"), first);
    configure("0\n", "0\n", "1\n\n\n\n");
    const EntryRef second = decide("/a", "op", false, "two");
    EXPECT_NE(second, first);
    EXPECT_NE(decide("/a", "op", true), client);
    EXPECT_STREQ(first->itsGroupID.c_str(), "one") << "held by its reader";
    EXPECT_STREQ(second->itsGroupID.c_str(), "two");
    EXPECT_TRUE(second->itComputesPath);
    fail();
    EXPECT_FALSE(decide("/b", "op")->itComputesPath) << "the tables of a failed text are gone";
}

TEST_F(Decisions, TheUrlUsedLeastRecentlyGivesWay) {
    const EntryRef kept = decide("/0", "op");
    const EntryRef dropped = decide("/1", "op");
    for (int i = 2; i < 256; ++i) decide("/" + std::to_string(i), "op");
    EXPECT_EQ(decide("/0", "op"), kept);
    decide("/256", "op");
    EXPECT_EQ(decide("/0", "op"), kept);
    EXPECT_NE(decide("/1", "op"), dropped);
}

TEST_F(Decisions, AreReadWhileNewConfigurationsCome) {
    configure("0\n", "0\n", "0\n");
    std::atomic<bool> isOver{false};
    const auto call = [&] {
        while (!isOver) {
            const EntryRef entry = decide("http://h/svc/a", "getQuote");
            EXPECT_STREQ(entry->itsOpID.c_str(), "6zXhIOgbNdAzRQS6Y93HcQ==");
            EXPECT_TRUE(entry->cpNames == nullptr || entry->cpNames->at(0) == "cp");
            EXPECT_EQ(itsConfig.flowFieldNames() == nullptr, itsConfig.hasFlowFieldNames());
            Util::String host;
            int port = 0;
            itsConfig.agentAddress(host, port);
            EXPECT_EQ(port, 1);
            EXPECT_TRUE(itsConfig.trustKey().empty());
        }
    };
    const auto push = [&] {
        for (int i = 0; i < 200; ++i) configure("0\n", "1\n\n\n\ncp\n", "0\n");
        isOver = true;
    };
    harness::onThreads(call, call, push);
}

EntryRef newEntry() {
    return std::make_shared<const ConfigEntry>("group", "service", "operation", nullptr, false,
                                               false);
}

// Meanwhile the process gets hardly any further memory.
template <class F>
void inShortage(F action) {
    rlim_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit former;
    getrlimit(RLIMIT_AS, &former);
    const rlim_t size = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    const rlimit little{size + (4U << 20), former.rlim_max};
    setrlimit(RLIMIT_AS, &little);
    action();
    setrlimit(RLIMIT_AS, &former);
}

TEST(DecisionCache, WhatFoundNoMemoryForItsTextsIsNotFound) {
#ifdef QZ_PLAIN_BLOCKS
    GTEST_SKIP() << "a sanitizer ends the process where there is no memory";
#endif
    // More than the heap of a thread that has ended could give.
    const Util::String large(std::string(80U << 20, 'x').c_str()), small("/url");
    for (const auto& [url, operation] : {std::pair{large, small}, {small, large}}) {
        DecisionCache cache(2);
        inShortage([&, &at = url, &name = operation] {
            EXPECT_EQ(Util::String(large).c_str(), nullptr);
            cache.insert(at, name, newEntry());
        });
        EXPECT_EQ(cache.find(url, operation), nullptr);
        EXPECT_EQ(cache.find(url, nullptr), nullptr);
        const EntryRef entry = newEntry();
        cache.insert(url, operation, entry);
        EXPECT_EQ(cache.find(url, operation), entry);
    }
}

TEST(DecisionCache, TheUrlNotUsedForLongestMakesRoom) {
    constexpr std::size_t kMost = 3;
    DecisionCache cache(kMost);
    std::vector<std::pair<std::string, bool>> known;  // Oldest use first; whether it is decided.
    std::mt19937 random(7);
    for (int i = 0; i < 3000; ++i) {
        const std::string url = "/" + std::to_string(random() % (kMost + 2));
        const auto at = std::find_if(known.begin(), known.end(),
                                     [&](const auto& each) { return each.first == url; });
        const bool isKnown = at != known.end();
        bool isDecided = isKnown && at->second;
        const auto action = random() % 40;
        if (action == 0) {
            cache.clear();
            known.clear();
            continue;
        }
        if (action < 14) {
            ASSERT_EQ(cache.find(url.c_str(), "op") != nullptr, isDecided) << "step " << i;
            if (!isDecided) continue;
        } else if (action < 27) {
            cache.addSite(url.c_str());
        } else {
            cache.insert(url.c_str(), "op", newEntry());
            isDecided = true;
        }
        if (isKnown || known.size() == kMost) known.erase(isKnown ? at : known.begin());
        known.emplace_back(url, isDecided);
    }
}

TEST(DecisionCache, AUrlHasAnyNumberOfOperationsWhichLeaveTogether) {
    DecisionCache cache(2);
    const auto name = [](int i) { return Util::String(("op" + std::to_string(i)).c_str()); };
    for (const bool isCleared : {true, false, true}) {
        EntryRef entries[] = {newEntry(), newEntry()};
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(cache.find("/url", name(i)), nullptr);
            cache.insert("/url", name(i), entries[i % 2]);
        }
        for (int i = 0; i < 1000; ++i) EXPECT_EQ(cache.find("/url", name(i)), entries[i % 2]);
        EXPECT_EQ(cache.find("/ur", "lop1"), nullptr);
        cache.insert("/url", "", entries[0]);
        EXPECT_EQ(cache.find("/url", nullptr), nullptr) << "no name is not the empty one";
        cache.insert("/url", nullptr, entries[1]);
        EXPECT_EQ(cache.find("/url", ""), entries[0]);
        if (isCleared) cache.clear();
        for (const char* other : {"/a", "/b"}) cache.addSite(other);
        for (const EntryRef& entry : entries)
            EXPECT_EQ(entry.use_count(), 1) << "nothing keeps what was dropped";
    }
}

}  // namespace
