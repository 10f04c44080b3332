#include <pthread.h>

#include <optional>
#include <set>

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

TEST_F(Correlation, KeysReachAcrossThreads) {
    auto server = newServer("a");
    harness::onThreads([&] {
        EXPECT_EQ(Interaction::get("a", false), server.get());
        EXPECT_EQ(Interaction::get("b", false), nullptr);
    });
    auto client = newClient("a");
    EXPECT_EQ(Interaction::get("a", false), client.get()) << "the later one, of either kind";
    client->end();
    EXPECT_EQ(Interaction::get("a", false), client.get()) << "a key from create outlives the end";
    client.reset();
    EXPECT_EQ(Interaction::get("a", false), nullptr) << "but not the object";
}

TEST_F(Correlation, BeginDecidesByStageAndMode) {
    const auto begin = [](bool isAnalyzed, int reuseMode) -> std::string {
        auto open = newServer();
        open->setFlowID("flow");
        if (isAnalyzed) open->requestAnalyzed();
        Interaction* begun = Interaction::begin("k", true, reuseMode, false);
        EXPECT_EQ(Interaction::get("k", false), begun);
        EXPECT_EQ(open->itsRefCount, begun == open.get() ? 2 : 1);
        if (begun == nullptr) return "refused";
        if (begun == open.get()) return "shared";
        const std::unique_ptr<Interaction> owned(begun);
        EXPECT_EQ(begun->itsState, 0);
        EXPECT_EQ(begun->itsRefCount, 1);
        EXPECT_FALSE(begun->itsRqstNotified);
        return begun->itsFlowID == "flow" ? "a copy" : "independent";
    };
    EXPECT_EQ(begin(false, 0), "shared");
    EXPECT_EQ(begin(false, 1), "shared");
    EXPECT_EQ(begin(true, 0), "independent");
    EXPECT_EQ(begin(true, 1), "refused");
    EXPECT_EQ(begin(true, 2), "a copy");
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

// Whoever destroys a call only clears its places; the thread takes them off when it comes by, also
// from below calls that go on.
TEST_F(Correlation, CallsGoFromAnotherThreadWhileTheirOwnGoesOn) {
    constexpr int kCalls = 2000;
    std::set<StackEntry*> places;
    std::atomic<ServerInteraction*> handed{nullptr};
    std::thread other([&] {
        for (int i = 0; i < kCalls;)
            if (const Server left{handed.exchange(nullptr)})
                ++i;
            else
                std::this_thread::yield();
    });
    auto outer = newServer();
    for (int i = 0; i < kCalls; ++i) {
        Server left = newServer();
        if (i % 2 == 0) left->storeLocalKey("left");
        while (handed != nullptr) std::this_thread::yield();
        handed = left.release();
        auto inner = newServer();
        places.insert(inner->itsFirstEntry);
        EXPECT_EQ(onThread(), inner.get());
        inner->end();
    }
    other.join();
    EXPECT_EQ(onThread(), outer.get());
    EXPECT_LE(places.size(), 8u) << "places serve again";
}

// A thread takes its entries off while the object takes itself out.
TEST_F(Correlation, InteractionsGoWhileThreadsEnd) {
    const auto work = [] {
        for (int i = 0; i < 50; ++i) {
            Server server;
            std::promise<void> isEnding;
            const auto make = [&] {
                server = newServer("shared");
                IntCorrelator::instance()->putServer(server.get(), nullptr);
                server->end();
                isEnding.set_value();
            };
            harness::onThreads(make, [&] {
                ASSERT_EQ(isEnding.get_future().wait_for(kLimit), std::future_status::ready);
                server.reset();
            });
        }
    };
    harness::onThreads(work, work, work);
    EXPECT_EQ(Interaction::get("shared", false), nullptr);
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
}

TEST_F(IntCorrTlsStackTest, AnObjectThatGoesTakesItsEntriesFromAllThreads) {
    const Server server(new ServerInteraction);
    std::optional<IntCorrTlsStack> stack(std::in_place);
    const auto put = [&] {
        stack->putServer(server.get(), nullptr);
        stack->putServer(nullptr, nullptr);
        stack->putServer(server.get(), nullptr);
    };
    const auto isBare = [&] {
        return stack->getServer(nullptr) == nullptr && !stack->hasInteraction(server.get());
    };
    put();
    Beside other(put, [&] { EXPECT_TRUE(isBare()); });
    stack.emplace();  // At the same address.
    other.end();
    EXPECT_TRUE(isBare());
}

// The owner's entries are taken while their thread uses the same places, and the same addresses,
// for another owner.
TEST_F(IntCorrTlsStackTest, AnObjectThatGoesTakesNothingOfAnother) {
    constexpr int kCalls = 50;
    IntCorrTlsStack stays;
    std::vector<std::optional<ServerInteraction>> servers(kCalls);
    std::set<StackEntry*> places;
    for (int round = 0; round < 50; ++round) {
        auto goes = std::make_unique<IntCorrTlsStack>();
        for (auto& server : servers) {
            goes->putServer(&server.emplace(), nullptr);
            goes->putServer(nullptr, nullptr);
        }
        std::thread other([&] { goes.reset(); });
        for (auto& server : servers) stays.putServer(&server.emplace(), nullptr);
        other.join();
        for (int i = kCalls - 1; i >= 0; --i) {
            places.insert(servers[i]->itsFirstEntry);
            ASSERT_EQ(stays.popInteraction(&*servers[i], true), &*servers[i]);
        }
        ASSERT_EQ(stays.getServer(nullptr), nullptr);
    }
    EXPECT_LE(places.size(), 4u * kCalls) << "places that lost their owner serve again";
}

// A correlator of the host's own is asked whenever it stands in ours' place.
TEST_F(Correlation, AHostsCorrelatorIsNotPassedBy) {
    struct Hosts : IntCorrelatorImp {
        std::string asked;
        Interaction* getServer(const Util::String&) override {
            asked += "get ";
            return nullptr;
        }
        void putServer(Interaction*, const Util::String&) override { asked += "put "; }
        void dropValue(Interaction*, bool) override { asked += "drop "; }
    };
    Hosts hosts;
    IIntCorrelator* ours = IntCorrelator::ourBaseImpl.exchange(&hosts);
    const std::unique_ptr<Interaction> server(Interaction::begin(nullptr, true, 0, false));
    server->itsGroupName = "shop";
    server->end();
    IntCorrelator::ourBaseImpl = ours;
    EXPECT_EQ(hosts.asked, "get put drop ");
}

}  // namespace
