#include <pthread.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "harness/CallTest.h"
#include "interaction/IntCorrMap.h"
#include "interaction/IntCorrTlsStack.h"
#include "interaction/IntCorrelator.h"
#include "interaction/IntCorrelatorImp.h"
#include "interaction/ThreadStacks.h"

namespace {

using namespace Quenvale::Interceptor::SDK;
using harness::Beside;
using harness::kLimit;
using harness::thrown;

struct Correlation : harness::CallTest {};
using IntCorrMapTest = Correlation;
using IntCorrTlsStackTest = Correlation;

TEST_F(Correlation, CallsNestOnTheirThread) {
    auto outer = newServer();
    auto inner = newServer();
    auto client = newClient();
    EXPECT_EQ(onThread(true), client.get()) << "neither kind hides the other";
    harness::onThreads([] { EXPECT_EQ(onThread(), nullptr); });
    outer->end();
    EXPECT_EQ(onThread(), inner.get()) << "only the top can be popped";
    inner->end();
    EXPECT_EQ(onThread(), outer.get()) << "an ended call that still lives stays";
    outer.reset();
    EXPECT_EQ(onThread(), nullptr) << "and goes with its object";
    client->end();
}

TEST_F(Correlation, KeysReachAcrossThreads) {
    auto server = newServer("a");
    harness::onThreads([&] {
        EXPECT_EQ(Interaction::get("a", false), server.get());
        EXPECT_EQ(Interaction::get("b", false), nullptr);
    });
    auto client = newClient("a");
    EXPECT_EQ(Interaction::get("a", false), client.get()) << "the later one, of either kind";
    server->end();
    client->end();
    EXPECT_EQ(Interaction::get("a", false), client.get()) << "a key from create outlives the end";
    client.reset();
    EXPECT_EQ(Interaction::get("a", false), nullptr) << "but not the object";
}

TEST_F(Correlation, BeginDecidesByStageAndMode) {
    enum Outcome { kShared, kNew, kRefused };
    const struct {
        const char* why;
        bool isAnalyzed;
        int reuseMode;
        Outcome outcome;
    } rows[] = {
        {"a second report of one call", false, 0, kShared},
        {"shared where calls may not be reused", false, 1, kShared},
        {"an independent call", true, 0, kNew},
        {"not reusable", true, 1, kRefused},
        {"a copy", true, 2, kNew},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        auto open = newServer();
        open->setFlowID("flow");
        if (row.isAnalyzed) open->requestAnalyzed();
        Interaction* begun = Interaction::begin("k", true, row.reuseMode, false);
        EXPECT_EQ(begun == nullptr, row.outcome == kRefused);
        EXPECT_EQ(begun == open.get(), row.outcome == kShared);
        EXPECT_EQ(open->itsRefCount, row.outcome == kShared ? 2 : 1);
        EXPECT_EQ(Interaction::get("k", false), begun);
        if (row.outcome == kNew) {
            const std::unique_ptr<Interaction> owned(begun);
            EXPECT_EQ(begun->itsState, 0);
            EXPECT_EQ(begun->itsRefCount, 1);
            EXPECT_EQ(begun->itsFlowID == "flow", row.reuseMode == 2);
            EXPECT_FALSE(begun->itsRqstNotified);
        }
        open->itsState = 3;
    }
}

TEST_F(Correlation, NothingLeadsToADestroyedInteraction) {
    // Every way in at once: two stacks of this thread, one of another, three keys.
    IIntCorrelator* correlator = IntCorrelator::instance();
    auto below = newServer();
    auto server = newServer("a");
    server->storeLocalKey("b");
    correlator->putServer(server.get(), "c");
    correlator->putClient(server.get(), nullptr);
    Beside other([&] { correlator->putServer(server.get(), nullptr); },
                 [] { EXPECT_EQ(onThread(), nullptr); });
    // What is popped here serves the next call, so that the way to what lies below it is lost.
    correlator->dropValue(server.get(), true);
    auto above = newServer();
    server.reset();
    other.end();
    EXPECT_EQ(onThread(true), nullptr);
    for (const char* key : {"a", "b", "c"}) EXPECT_EQ(Interaction::get(key, false), nullptr);
    EXPECT_EQ(onThread(), above.get());
    above->end();
    EXPECT_EQ(onThread(), below.get());
    below->end();
    EXPECT_EQ(onThread(), nullptr);
}

// A host's own thread-specific data may be destroyed after ours, and make calls then.
TEST_F(Correlation, CallsWorkWhileTheThreadEnds) {
    static pthread_key_t key;
    static int round;
    constexpr int kRounds = 2;  // Of four; in the last one TSan has left the thread.
    round = 0;
    const auto atThreadEnd = [](void* value) {
        auto server = newServer();
        EXPECT_EQ(onThread(), server.get());
        server->end();
        EXPECT_EQ(onThread(), nullptr);
        newServer();
        EXPECT_EQ(onThread(), nullptr) << "nor by a call that never ended";
        if (++round < kRounds)
            pthread_setspecific(key, value);
        else
            EXPECT_EQ(ThreadStacks::ofThread(), nullptr) << "no later notice may come";
    };
    ASSERT_EQ(pthread_key_create(&key, atThreadEnd), 0);
    harness::onThreads([] {
        pthread_setspecific(key, &key);
        newServer()->end();
    });
    EXPECT_EQ(round, kRounds);
    pthread_key_delete(key);
}

// Calls that overlap without end: there is always a newer one above that which goes.
TEST_F(Correlation, PlacesServeAgainWhereverACallGoes) {
    std::set<StackEntry*> places;
    auto newest = newServer();
    for (int i = 0; i < 50; ++i) {
        Server older = std::exchange(newest, newServer());
        places.insert(newest->itsFirstEntry);
        older->end();
        if (i % 2 == 0)
            older.reset();
        else
            harness::onThreads([&] { older.reset(); });
        EXPECT_EQ(onThread(), newest.get());
    }
    EXPECT_LE(places.size(), 3u);
}

// Whoever destroys a call only clears its places; the thread takes them off when it comes by.
TEST_F(Correlation, CallsGoFromAnotherThreadWhileTheirOwnGoesOn) {
    constexpr int kCalls = 2000;
    std::promise<void> isOver;
    std::atomic<ServerInteraction*> handed{nullptr};
    std::thread other([&] {
        for (int i = 0; i < kCalls;)
            if (ServerInteraction* server = handed.exchange(nullptr)) {
                delete server;
                ++i;
            }
    });
    auto outer = newServer();
    for (int i = 0; i < kCalls; ++i) {
        Server left = newServer();
        if (i % 2 == 0) left->storeLocalKey("left");
        ServerInteraction* none = nullptr;
        while (!handed.compare_exchange_weak(none, left.get())) none = nullptr;
        static_cast<void>(left.release());
        auto inner = newServer();
        EXPECT_EQ(onThread(), inner.get());
        inner->end();
    }
    other.join();
    EXPECT_EQ(onThread(), outer.get());
    outer->end();
    EXPECT_EQ(onThread(), nullptr);
}

TEST_F(Correlation, InteractionsGoWhileThreadsEnd) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    for (int i = 0; i < kRounds; ++i) {
        std::vector<Server> servers(kThreads);
        std::vector<std::promise<void>> ends(kThreads);
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int n = 0; n < kThreads; ++n)
            threads.emplace_back([&server = servers[n], &isEnding = ends[n]] {
                server = newServer("shared");
                IntCorrelator::instance()->putServer(server.get(), nullptr);
                server->end();
                isEnding.set_value();
            });
        // The thread takes its entries off while the object takes itself out.
        for (int n = 0; n < kThreads; ++n) {
            ASSERT_EQ(ends[n].get_future().wait_for(kLimit), std::future_status::ready);
            servers[n].reset();
        }
        for (auto& thread : threads) thread.join();
    }
    EXPECT_EQ(Interaction::get("shared", false), nullptr);
    EXPECT_EQ(onThread(), nullptr);
}

TEST_F(IntCorrMapTest, DropValueRemovesAllKeysOfOneInteraction) {
    IntCorrMap map;
    auto server = newServer();
    auto other = newServer();
    map.putServer(server.get(), "a");
    map.putServer(other.get(), "b");
    map.putClient(server.get(), "c");
    map.putServer(server.get(), nullptr);
    map.putClient(other.get(), nullptr);
    EXPECT_EQ(map.getServer("-101"), server.get()) << "an empty key has a name of its own";
    EXPECT_EQ(map.getServer("-102"), other.get());
    map.dropValue(server.get(), false);
    for (const char* key : {"a", "c", "-101"}) EXPECT_EQ(map.getServer(key), nullptr);
    EXPECT_EQ(map.getServer("b"), other.get());
    map.dropKey("b");
    EXPECT_EQ(map.getServer("b"), nullptr);
}

TEST_F(IntCorrTlsStackTest, RefusesKeysAndWhatIsNoCall) {
    IntCorrTlsStack stack;
    auto server = newServer();
    Interaction bare;
    const char* key = "Not supposed to be called.";
    const char* type = "Unexpected type of interaction.";
    EXPECT_EQ(thrown([&] { stack.getServer("k"); }), key);
    EXPECT_EQ(thrown([&] { stack.putClient(server.get(), "k"); }), key);
    EXPECT_EQ(thrown([&] { stack.dropKey(nullptr); }), key);
    EXPECT_EQ(thrown([&] { stack.dropValue(nullptr, true); }), type);
    EXPECT_EQ(thrown([&] { stack.dropValue(&bare, true); }), type);
    EXPECT_EQ(thrown([&] { stack.hasInteraction(&bare); }), type);
}

TEST_F(IntCorrTlsStackTest, AnswersForTheCallingThreadOnly) {
    IntCorrTlsStack stack;
    auto outer = newServer();
    auto inner = newServer();
    EXPECT_FALSE(stack.hasInteraction(outer.get())) << "each object has stacks of its own";
    stack.putServer(outer.get(), nullptr);
    stack.putServer(inner.get(), nullptr);
    EXPECT_TRUE(stack.hasInteraction(outer.get()));
    EXPECT_EQ(stack.peekInteraction(outer.get(), true), nullptr);
    EXPECT_EQ(stack.peekInteraction(inner.get(), true), inner.get());
    EXPECT_EQ(stack.popInteraction(outer.get(), true), nullptr);
    harness::onThreads([&, name = stack.getTID()] {
        EXPECT_FALSE(stack.hasInteraction(inner.get()));
        EXPECT_EQ(stack.popInteraction(inner.get(), true), nullptr);
        EXPECT_NE(stack.getTID(), name);
    });
    stack.putServer(outer.get(), nullptr);
    EXPECT_EQ(onThread(), inner.get()) << "objects don't hide each other's calls";
    outer.reset();
    EXPECT_EQ(stack.getServer(nullptr), inner.get()) << "a call that goes leaves every object";
    stack.putServer(nullptr, nullptr);
    EXPECT_EQ(stack.popInteraction(inner.get(), true), nullptr);
    EXPECT_EQ(stack.getServer(nullptr), nullptr) << "a null on top stays there";
    inner->end();
}

TEST_F(IntCorrTlsStackTest, AnObjectThatGoesTakesItsEntriesFromAllThreads) {
    const Server server(new ServerInteraction);
    std::optional<IntCorrTlsStack> stack;
    const auto put = [&] {
        stack->putServer(server.get(), nullptr);
        stack->putServer(nullptr, nullptr);
        stack->putServer(server.get(), nullptr);
    };
    const auto isBare = [&] {
        return stack->getServer(nullptr) == nullptr && !stack->hasInteraction(server.get());
    };
    stack.emplace();
    put();
    std::promise<void> isPut;
    std::promise<void> isReplaced;
    std::thread other([&] {
        put();
        isPut.set_value();
        EXPECT_EQ(isReplaced.get_future().wait_for(kLimit), std::future_status::ready);
        EXPECT_TRUE(isBare());
    });
    EXPECT_EQ(isPut.get_future().wait_for(kLimit), std::future_status::ready);
    stack.emplace();  // At the same address.
    isReplaced.set_value();
    other.join();
    EXPECT_TRUE(isBare());
}

// The owner's entries are taken while their thread uses the same places, and the same addresses,
// for another owner.
TEST_F(IntCorrTlsStackTest, AnObjectThatGoesTakesNothingOfAnother) {
    constexpr int kRounds = 50;
    constexpr int kCalls = 50;
    IntCorrTlsStack stays;
    std::vector<std::optional<ServerInteraction>> servers(kCalls);
    std::set<StackEntry*> places;
    for (int round = 0; round < kRounds; ++round) {
        auto goes = std::make_unique<IntCorrTlsStack>();
        for (auto& server : servers) goes->putServer(&server.emplace(), nullptr);
        goes->putServer(nullptr, nullptr);
        std::thread other([&] { goes.reset(); });
        for (auto& server : servers) stays.putServer(&server.emplace(), nullptr);
        other.join();
        for (int i = kCalls - 1; i >= 0; --i) {
            places.insert(servers[i]->itsFirstEntry);
            ASSERT_EQ(stays.popInteraction(&*servers[i], true), &*servers[i]);
        }
        ASSERT_EQ(stays.getServer(nullptr), nullptr);
    }
    EXPECT_LE(places.size(), 2u * (kCalls + 1)) << "places that lost their owner serve again";
}

// A correlator of the host's own is asked whenever it stands in ours' place.
TEST_F(Correlation, AHostsCorrelatorIsNotPassedBy) {
    struct Hosts : IntCorrelatorImp {
        std::string asked;

        Interaction* getServer(const Util::String& key) override {
            asked += "get ";
            return IntCorrelatorImp::getServer(key);
        }
        void putServer(Interaction* interaction, const Util::String& key) override {
            asked += "put ";
            IntCorrelatorImp::putServer(interaction, key);
        }
        void dropValue(Interaction* interaction, bool keepKeys) override {
            asked += "drop ";
            IntCorrelatorImp::dropValue(interaction, keepKeys);
        }
    };
    Hosts hosts;
    IIntCorrelator* ours = IntCorrelator::instance();
    IntCorrelator::ourBaseImpl = &hosts;
    const std::unique_ptr<Interaction> server(Interaction::begin(nullptr, true, 0, false));
    server->itsGroupName = "shop";
    server->end();
    IntCorrelator::ourBaseImpl = ours;
    EXPECT_EQ(hosts.asked, "get put drop ");
    reports();
}

}  // namespace
