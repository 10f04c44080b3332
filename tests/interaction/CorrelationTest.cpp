#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "harness/thrown.h"
#include "interaction/ClientInteraction.h"
#include "interaction/IntCorrMap.h"
#include "interaction/IntCorrTlsStack.h"
#include "interaction/IntCorrelator.h"
#include "interaction/ServerInteraction.h"
#include "interaction/ThreadStacks.h"

using namespace Quenvale::Interceptor::SDK;
using harness::thrown;
using Util::String;

namespace {

const String kNone;
constexpr std::chrono::seconds kLimit{60};

template <class T>
using Owned = std::unique_ptr<T>;

Owned<ServerInteraction> newServer(const char* key = nullptr) {
    Owned<ServerInteraction> server(ServerInteraction::create(key));
    server->itsGroupName = "shop";
    return server;
}

Owned<ClientInteraction> newClient(const char* key = nullptr) {
    Owned<ClientInteraction> client(ClientInteraction::create(key, kNone, false, false));
    client->itsGroupName = "shop";
    return client;
}

Interaction* onThread(bool isClient = false) {
    return Interaction::get(kNone, isClient);
}

template <class F>
void onOtherThread(F action) {
    std::thread(action).join();
}

TEST(Correlation, CallsNestOnTheirThread) {
    EXPECT_EQ(onThread(), nullptr);
    auto outer = newServer();
    auto inner = newServer();
    auto client = newClient();
    EXPECT_EQ(onThread(), inner.get());
    EXPECT_EQ(onThread(true), client.get()) << "neither kind hides the other";
    onOtherThread([] { EXPECT_EQ(onThread(), nullptr); });
    inner->end();
    EXPECT_EQ(onThread(), outer.get());
    outer->end();
    EXPECT_EQ(onThread(), nullptr);
    client->end();
}

TEST(Correlation, OnlyTheTopCanBePopped) {
    auto outer = newServer();
    auto inner = newServer();
    outer->end();
    EXPECT_EQ(onThread(), inner.get());
    inner->end();
    EXPECT_EQ(onThread(), outer.get()) << "an ended call that still lives stays";
    outer.reset();
    EXPECT_EQ(onThread(), nullptr) << "and goes with its object";
}

TEST(Correlation, KeysReachAcrossThreads) {
    auto server = newServer("a");
    onOtherThread([&] {
        EXPECT_EQ(Interaction::get("a", false), server.get());
        EXPECT_EQ(Interaction::get("a", true), server.get()) << "one map for both kinds";
        EXPECT_EQ(Interaction::get("b", false), nullptr);
    });
    auto client = newClient("a");
    EXPECT_EQ(Interaction::get("a", false), client.get()) << "the later one has the key";
    server->end();
    client->end();
    EXPECT_EQ(Interaction::get("a", false), client.get()) << "a key from create outlives the end";
    client.reset();
    EXPECT_EQ(Interaction::get("a", false), nullptr) << "but not the object";
}

TEST(Correlation, BeginDecidesByStageAndMode) {
    enum Outcome { kShared, kNew, kRefused };
    const struct {
        const char* why;
        bool isAnalyzed;
        int reuseMode;
        Outcome outcome;
    } rows[] = {
        {"a second report of one call", false, 0, kShared},
        {"shared in every mode", false, 1, kShared},
        {"shared in every mode", false, 2, kShared},
        {"an independent call", true, 0, kNew},
        {"not reusable", true, 1, kRefused},
        {"a copy", true, 2, kNew},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.why) + ", mode " + std::to_string(row.reuseMode));
        auto open = newServer();
        open->setFlowID("flow");
        if (row.isAnalyzed) open->requestAnalyzed();
        Interaction* begun = Interaction::begin("k", true, row.reuseMode, false);
        if (row.outcome == kShared) {
            EXPECT_EQ(begun, open.get());
            EXPECT_EQ(open->itsRefCount, 2);
            EXPECT_EQ(Interaction::get("k", false), open.get());
        } else if (row.outcome == kRefused) {
            EXPECT_EQ(begun, nullptr);
        } else {
            Owned<Interaction> owned(begun);
            EXPECT_NE(begun, open.get());
            EXPECT_EQ(begun->itsState, 0);
            EXPECT_EQ(begun->itsRefCount, 1);
            EXPECT_EQ(begun->itsFlowID == "flow", row.reuseMode == 2);
            EXPECT_FALSE(begun->itsRqstNotified);
            EXPECT_EQ(Interaction::get("k", false), begun);
        }
        open->itsState = 3;
    }
}

TEST(Correlation, AKeyThatJoinsTheThreadsCallLeavesAnEntryAtItsEnd) {
    auto server = newServer();
    Interaction::begin("k", true, 0, false);
    server->end();
    server->end();
    EXPECT_EQ(server->itsState, 3);
    EXPECT_EQ(Interaction::get("k", false), nullptr);
    EXPECT_EQ(onThread(), server.get());
    server.reset();
    EXPECT_EQ(onThread(), nullptr);
}

TEST(Correlation, NothingLeadsToADestroyedInteraction) {
    // Every way in at once: two stacks of this thread, one of another, three keys.
    IIntCorrelator* correlator = IntCorrelator::instance();
    auto below = newServer();
    auto server = newServer("a");
    server->storeLocalKey("b");
    correlator->putServer(server.get(), "c");
    correlator->putClient(server.get(), kNone);
    std::promise<void> isPut;
    std::promise<void> isGone;
    std::thread other([&] {
        correlator->putServer(server.get(), kNone);
        isPut.set_value();
        EXPECT_EQ(isGone.get_future().wait_for(kLimit), std::future_status::ready);
        EXPECT_EQ(onThread(), nullptr);
    });
    EXPECT_EQ(isPut.get_future().wait_for(kLimit), std::future_status::ready);
    // What is popped here serves the next call, so that the way to what lies below it is lost.
    correlator->dropValue(server.get(), true);
    auto above = newServer();
    server.reset();
    isGone.set_value();
    other.join();
    EXPECT_EQ(onThread(true), nullptr);
    for (const char* key : {"a", "b", "c"}) EXPECT_EQ(Interaction::get(key, false), nullptr);
    EXPECT_EQ(onThread(), above.get());
    above->end();
    EXPECT_EQ(onThread(), below.get());
    below->end();
    EXPECT_EQ(onThread(), nullptr);
}

TEST(Correlation, AThreadThatEndsTakesItsEntriesWithIt) {
    auto server = newServer();
    onOtherThread([&] { IntCorrelator::instance()->putServer(server.get(), kNone); });
    EXPECT_EQ(server->itsStackEntries, 1);
    onOtherThread([] {
        EXPECT_EQ(onThread(), nullptr) << "also where a new thread takes over what it left";
        auto own = newServer();
        EXPECT_EQ(onThread(), own.get());
    });
    server->end();
}

// A host's own thread-specific data may be destroyed after ours, and make calls then.
TEST(Correlation, CallsWorkWhileTheThreadEnds) {
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
    onOtherThread([] {
        pthread_setspecific(key, &key);
        newServer()->end();
    });
    EXPECT_EQ(round, kRounds);
    pthread_key_delete(key);
}

TEST(Correlation, InteractionsGoWhileThreadsEnd) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 50;
    for (int i = 0; i < kRounds; ++i) {
        std::vector<Owned<ServerInteraction>> servers(kThreads);
        std::vector<std::promise<void>> ends(kThreads);
        std::vector<std::thread> threads;
        for (int n = 0; n < kThreads; ++n) {
            threads.emplace_back([&server = servers[n], &isEnding = ends[n]] {
                server = newServer("shared");
                IntCorrelator::instance()->putServer(server.get(), kNone);
                server->end();
                isEnding.set_value();
            });
        }
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

TEST(IntCorrMap, DropValueRemovesAllKeysOfOneInteraction) {
    IntCorrMap map;
    auto server = newServer();
    auto other = newServer();
    map.putServer(server.get(), "a");
    map.putServer(other.get(), "b");
    map.putClient(server.get(), "c");
    map.putServer(server.get(), kNone);
    map.putClient(other.get(), kNone);
    EXPECT_EQ(map.getServer("-101"), server.get()) << "an empty key has a name of its own";
    EXPECT_EQ(map.getServer("-102"), other.get());
    map.dropValue(server.get(), false);
    for (const char* key : {"a", "c", "-101"}) EXPECT_EQ(map.getServer(key), nullptr);
    EXPECT_EQ(map.getServer("b"), other.get());
    map.dropKey("b");
    EXPECT_EQ(map.getServer("b"), nullptr);
    other.reset();
    EXPECT_NE(map.getServer("-102"), nullptr) << "only the correlator's own map hears of it";
}

TEST(IntCorrTlsStack, RefusesKeysAndWhatIsNoCall) {
    IntCorrTlsStack stack;
    auto server = newServer();
    Interaction bare;
    const char* key = "Not supposed to be called.";
    const char* type = "Unexpected type of interaction.";
    EXPECT_EQ(thrown([&] { stack.getServer("k"); }), key);
    EXPECT_EQ(thrown([&] { stack.putClient(server.get(), "k"); }), key);
    EXPECT_EQ(thrown([&] { stack.dropKey(kNone); }), key);
    EXPECT_EQ(thrown([&] { stack.dropValue(nullptr, true); }), type);
    EXPECT_EQ(thrown([&] { stack.dropValue(&bare, true); }), type);
    EXPECT_EQ(thrown([&] { stack.hasInteraction(&bare); }), type);
}

TEST(IntCorrTlsStack, AnswersForTheCallingThreadOnly) {
    IntCorrTlsStack stack;
    auto outer = newServer();
    auto inner = newServer();
    EXPECT_FALSE(stack.hasInteraction(outer.get())) << "each object has stacks of its own";
    stack.putServer(outer.get(), kNone);
    stack.putServer(inner.get(), kNone);
    EXPECT_TRUE(stack.hasInteraction(outer.get()));
    EXPECT_EQ(stack.peekInteraction(outer.get(), true), nullptr);
    EXPECT_EQ(stack.peekInteraction(inner.get(), true), inner.get());
    EXPECT_EQ(stack.popInteraction(outer.get(), true), nullptr);
    const String name = stack.getTID();
    onOtherThread([&] {
        EXPECT_FALSE(stack.hasInteraction(inner.get()));
        EXPECT_EQ(stack.popInteraction(inner.get(), true), nullptr);
        EXPECT_NE(stack.getTID(), name);
    });
    EXPECT_EQ(stack.getTID(), name);
    EXPECT_EQ(onThread(), inner.get());
    auto above = newServer();
    EXPECT_EQ(stack.getServer(kNone), inner.get()) << "objects don't hide each other's calls";
    stack.putServer(outer.get(), kNone);
    EXPECT_EQ(onThread(), above.get());
    above->end();
    outer.reset();
    EXPECT_EQ(stack.getServer(kNone), inner.get()) << "a call that goes leaves every object";
    stack.putServer(nullptr, kNone);
    EXPECT_EQ(stack.popInteraction(inner.get(), true), nullptr);
    EXPECT_EQ(stack.getServer(kNone), nullptr) << "a null on top stays there";
    inner->end();
}

TEST(IntCorrTlsStack, AnObjectThatGoesTakesItsEntriesFromAllThreads) {
    Owned<ServerInteraction> server(new ServerInteraction);
    auto stack = std::make_unique<IntCorrTlsStack>();
    std::promise<void> isPut;
    std::promise<void> isGone;
    std::thread other([&] {
        stack->putServer(server.get(), kNone);
        isPut.set_value();
        EXPECT_EQ(isGone.get_future().wait_for(kLimit), std::future_status::ready);
    });
    EXPECT_EQ(isPut.get_future().wait_for(kLimit), std::future_status::ready);
    stack->putServer(server.get(), kNone);
    EXPECT_EQ(server->itsStackEntries, 2);
    stack.reset();
    EXPECT_EQ(server->itsStackEntries, 0);
    isGone.set_value();
    other.join();
}

}  // namespace
