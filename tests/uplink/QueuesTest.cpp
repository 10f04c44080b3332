// From the report into a queue, and from a queue over the pool to an agent.
#include <new>

#include "harness/RawAgent.h"
#include "harness/RecordingUplink.h"
#include "harness/values.h"
#include "interaction/ServerInteraction.h"
#include "uplink/AgentEvent.h"
#include "uplink/TestUplink.h"

using namespace Quenvale::Interceptor::SDK;
using harness::kLimit;
using harness::RawAgent;

namespace {

using Streams = std::unique_ptr<AsyncBinaryUplink::SocketStreams>;

std::string block(const std::string& bytes) {
    std::string length;
    std::size_t rest = bytes.size() + 1;
    for (; rest > 127; rest /= 128) length += static_cast<char>(rest % 128 + 128);
    return length + static_cast<char>(rest) + bytes + '\0';
}

/// What the agent gets of an event.
std::string message(const std::string& event, const std::string& payload = "") {
    std::string result = '\1' + block(event);
    if (!payload.empty()) result += std::string("\1\0\11text/xml\0\0", 13) + block(payload);
    return result + '\0';
}

void queue(TestUplink& uplink, std::string event, AsyncBinaryUplink::SocketQueue* queue,
           std::string payload = "") {
    const auto borrowed = [](std::string& text) {
        return Util::ByteArray(text.empty() ? nullptr : harness::bytesOf(text),
                               static_cast<int>(text.size()), false);
    };
    uplink.queueEvent(queue, 1, borrowed(event), true, borrowed(payload),
                      AgentEvent::DEFAULT_PAYLOAD_CONTENT_TYPE);
}

void send(TestUplink& uplink, const char* event) {
    queue(uplink, event, &uplink.itsQueues[0]);
    uplink.flushAllQueues();
}

struct Queues : testing::Test {
    explicit Queues(std::vector<RawAgent::Manners> manners = {{}}) : agent(std::move(manners)) {
        TestUplink::use(agent.port());
        call.itIsLoaded = true;
    }
    ~Queues() override { call.itsState = 3; }

    /// Whether something is attached to the call behind it.
    bool report(int state) {
        call.itsState = state;
        uplink.notifyAgent(&call);
        return call.itsUplinkData != nullptr;
    }

    RawAgent agent;
    TestUplink uplink;
    AsyncBinaryUplink::SocketQueue* first = &uplink.itsQueues[0];
    ServerInteraction call;
};
/// The first two connections die behind their first message.
struct QueuesFailures : Queues {
    QueuesFailures() : Queues({{"id", 1, 5}, {"id", 1, 5}, {"id", 1, -1}}) {}
};

TEST_F(Queues, ACallKeepsItsQueueUntilItsReplyAndWhatAnotherUplinkHasAttached) {
    TestUplink other;
    harness::RecordingUplink::Attachment foreign(1);
    const std::unique_ptr<UplinkData> ofOther(other.pick());
    for (UplinkData* attached : {static_cast<UplinkData*>(&foreign), ofOther.get()}) {
        call.itsUplinkData = attached;
        for (const int state : {0, 3}) {
            EXPECT_TRUE(report(state));
            EXPECT_EQ(call.itsUplinkData, attached);
        }
    }
    call.itsUplinkData = nullptr;
    EXPECT_GT(TestUplink::used(*first), 0);
    for (int i = 0; i < uplink.itsQueueCount; ++i) EXPECT_EQ(uplink.itsQueues[i].itsRefCount, 0);

    uplink.itsAgentAlive = false;
    EXPECT_FALSE(report(0)) << "dropped without an agent";
    uplink.itsAgentAlive = true;
    EXPECT_TRUE(report(0));
    const int used = TestUplink::used(*first);
    EXPECT_EQ(first->itsRefCount, 1);
    EXPECT_FALSE(report(2));
    EXPECT_EQ(first->itsRefCount, 0);
    EXPECT_GT(TestUplink::used(*first), used) << "in the same queue";

    EXPECT_TRUE(report(1)) << "a first report in stage 1 keeps what it picked";
    EXPECT_FALSE(report(1));
}

TEST_F(Queues, TheLeastUsedQueueIsPickedAndThereIsAlwaysOne) {
    TestUplink three(1024, 3, 1);
    const int counts[] = {3, 1, 1};
    for (int i = 0; i < 3; ++i) three.itsQueues[i].itsRefCount = counts[i];

    const std::unique_ptr<UplinkData> picked(three.pick());
    EXPECT_EQ(static_cast<AsyncBinaryUplink::SocketQueueRef*>(picked.get())->itsQueue,
              &three.itsQueues[1]);
    const std::unique_ptr<UplinkData> copy(three.copyUplinkData(picked.get()));
    EXPECT_EQ(three.itsQueues[1].itsRefCount, 3);
    copy->clear();
    copy->clear();
    EXPECT_EQ(three.itsQueues[1].itsRefCount, 2) << "one attachment is given up once";

    for (const int count : {INT_MIN, -1, 0}) {
        TestUplink least(count, count, count);
        EXPECT_EQ(least.itsQueueCount, 1);
        EXPECT_EQ(least.itsPoolSize, 1);
        least.itsAgentAlive = false;
        queue(least, std::string(70000, 'e'), &least.itsQueues[0]);
        EXPECT_EQ(TestUplink::used(least.itsQueues[0]), 0) << "no event fits a queue of size 0";
    }
    TestUplink most(1, INT_MAX, INT_MAX);
    EXPECT_EQ(most.itsQueueCount, 1024);
    EXPECT_EQ(most.itsPoolSize, 1024);
}

TEST_F(Queues, OldEventsAreDue) {
    EXPECT_FALSE(TestUplink::isDue(first, LLONG_MAX, 0)) << "an empty queue never is";
    queue(uplink, "event", first);
    const auto isDue = [this](long long reported, long long now, long long limit) {
        {
            Util::LatchGuard guard(first->itsDataLock);
            first->itsFirstEventTime = reported;
        }
        return TestUplink::isDue(first, now, limit);
    };
    EXPECT_TRUE(isDue(1000, 6000, 5000)) << "just old enough";
    EXPECT_FALSE(isDue(6000, 1000, -5000)) << "ahead of the clock, with a limit below 0";
    EXPECT_TRUE(isDue(1000, 1000, -5000)) << "a limit below 0 makes all else due";
    EXPECT_FALSE(isDue(LLONG_MAX, LLONG_MAX - 1, 5000)) << "no sum of these may overflow";
}

TEST_F(Queues, AFlushSendsWhatIsQueuedAndNothingElse) {
    uplink.flushAllQueues();
    EXPECT_EQ(uplink.itsOpenSockets, 0) << "an idle system acquires no socket";
    queue(uplink, "event", first, "pay");
    queue(uplink, "second", first);
    queue(uplink, "other queue", &uplink.itsQueues[1]);
    EXPECT_EQ(TestUplink::used(*first), 5 + 3 + 9 + 6 + 8);
    unsigned char byte = 0;
    EXPECT_EQ(TestUplink::computeEventLength({&byte, 5, false}, {&byte, 3, false}), 5 + 3 + 9);
    EXPECT_EQ(TestUplink::computeEventLength({&byte, INT_MAX - 3, false}, {}), INT_MAX)
        << "too long for any queue, and not negative";
    uplink.flushAllQueues();
    const std::string all = message("event", "pay") + message("second") + message("other queue");
    EXPECT_EQ(agent.waitForBytes(all.size()), all);
    EXPECT_EQ(uplink.itsOpenSockets, 1);
    EXPECT_EQ(uplink.stateOf(0), TestUplink::SlotState::kIdle);
}

// In messages that fill a send, that are longer than any, and that are longer than their records.
TEST_F(Queues, ALongQueueGoesOutInOrderWhateverItsMessagesTake) {
    constexpr std::size_t kSizes[] = {1, 126, 127, 300, 16382, 16383, 40000, 70000};
    TestUplink large(1 << 21, 1, 1);
    std::string expected;
    const auto report = [&](std::size_t event, std::size_t payload) {
        const std::string bytes[] = {std::string(event, 'e'), std::string(payload, 'p')};
        queue(large, bytes[0], &large.itsQueues[0], bytes[1]);
        expected += message(bytes[0], bytes[1]);
    };
    for (const std::size_t size : kSizes)
        for (const std::size_t payload : {kSizes[size % 8], std::size_t{0}}) report(size, payload);
    for (int i = 0; i < 200; ++i) report(1, 1);
    EXPECT_EQ(agent.waitForBytes(0), "") << "all of it fits the queue";
    large.flushAllQueues();
    EXPECT_TRUE(agent.waitForBytes(expected.size()) == expected);
}

TEST_F(Queues, OnlyWhatNoLongerFitsGoesOut) {
    const struct {
        const char* why;
        std::size_t event, sent;
        int used;
    } rows[] = {
        {"fits exactly", 64 - 18 - 8, 0, 64},
        {"a byte more flushes first, and then fits", 64 - 18 - 8 + 1, 14, 47},
        {"one as large as the buffer goes out itself", 64 - 8, 74, 0},
    };
    std::string expected;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        TestUplink small(64, 1, 1);
        const std::string events[] = {std::string(10, 'a'), std::string(row.event, 'b')};
        for (const std::string& event : events) queue(small, event, &small.itsQueues[0]);
        expected += (message(events[0]) + message(events[1])).substr(0, row.sent);
        EXPECT_EQ(agent.waitForBytes(expected.size()), expected);
        EXPECT_EQ(TestUplink::used(small.itsQueues[0]), row.used);
    }
}

TEST_F(QueuesFailures, AFailedMessageGetsOneOtherSocket) {
    send(uplink, "1");
    agent.waitForBytes(5);
    send(uplink, "2");
    EXPECT_EQ(agent.waitForBytes(10), message("1") + message("2")) << "again, whole, on another";
    EXPECT_EQ(uplink.itsOpenSockets, 1);

    queue(uplink, "3", first);
    send(uplink, "4");
    EXPECT_EQ(agent.waitForBytes(20).substr(10), message("3") + message("4"))
        << "the rest follows on that one";
}

TEST_F(QueuesFailures, TwoFailuresInARowLoseTheRest) {
    const int held = uplink.acquire();
    send(uplink, "1");
    uplink.release(held, false);
    agent.waitForBytes(5);
    send(uplink, "2");
    agent.waitForBytes(10);  // Both sockets are dead now, and in the pool.

    queue(uplink, "lost", first);
    send(uplink, "lost too");
    EXPECT_EQ(uplink.itsOpenSockets, 0);
    send(uplink, "next");
    EXPECT_EQ(agent.waitForBytes(18).substr(10), message("next"));
}

TEST_F(Queues, AnIdleSocketWinsOverAnEmptySlotAndNoneIsMadeWithoutAnAgent) {
    EXPECT_EQ(uplink.acquire(), 0);
    EXPECT_EQ(uplink.acquire(), 1);
    uplink.release(0, true);
    uplink.release(1, false);
    EXPECT_EQ(uplink.stateOf(0), TestUplink::SlotState::kEmpty);
    EXPECT_EQ(uplink.itsOpenSockets, 1);
    EXPECT_EQ(uplink.acquire(), 1);

    uplink.itsAgentAlive = false;
    EXPECT_TRUE(uplink.getAlive()) << "while a pool socket is open";
    uplink.release(1, true);
    EXPECT_FALSE(uplink.getAlive());
    EXPECT_LT(uplink.acquire(), 0) << "no connect is tried";
    const auto areOver = [](const auto& all) { return all[0].isOver && all[1].isOver; };
    EXPECT_TRUE(areOver(agent.waitFor(areOver)));
}

TEST_F(Queues, EveryWaiterGoesOnWhenSlotsComeFree) {
    const int held[] = {uplink.acquire(), uplink.acquire()};
    std::future<int> waiters[6];
    for (std::future<int>& waiter : waiters)
        waiter = std::async(std::launch::async, [&] {
            const int slot = uplink.acquire();
            if (slot >= 0) uplink.release(slot, false);
            return slot;
        });
    while (uplink.slotWaiters() < 6) std::this_thread::yield();
    for (const int slot : held) uplink.release(slot, false);
    for (std::future<int>& waiter : waiters) {
        ASSERT_EQ(waiter.wait_for(kLimit), std::future_status::ready);
        EXPECT_GE(waiter.get(), 0);
    }
}

// The thread that a signal woke may end by an exception, or by its cancellation.
TEST_F(Queues, AWaiterThatIsThrownOutHandsItsSlotOn) {
    struct Throwing : TestUplink {
        using TestUplink::TestUplink;
        bool getAlive() override {
            if (!isThrowing) return TestUplink::getAlive();
            if (!hasThrown.exchange(true)) throw std::bad_alloc();
            return false;
        }
        std::atomic<bool> isThrowing{false};
        std::atomic<bool> hasThrown{false};
    };
    Throwing throwing(1024, 1, 1);
    const int held = throwing.acquire();
    std::future<bool> waiters[2];
    for (std::future<bool>& waiter : waiters)
        waiter = std::async(std::launch::async, [&] {
            try {
                EXPECT_LT(throwing.acquire(), 0);
                return false;
            } catch (const std::bad_alloc&) {
                return true;
            }
        });
    while (throwing.slotWaiters() < 2) std::this_thread::yield();
    throwing.isThrowing = true;
    throwing.release(held, true);
    for (std::future<bool>& waiter : waiters)
        ASSERT_EQ(waiter.wait_for(kLimit), std::future_status::ready);
    EXPECT_NE(waiters[0].get(), waiters[1].get()) << "one was thrown out, and the other went on";
}

TEST(QueuesHandshake, TheFirstIdOfTheProcessIsEchoed) {
    RawAgent agent({{"first id"}, {"a much longer id"}, {"id"}});
    TestUplink uplink;
    Streams streams;
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(uplink.createAndTestSocket("127.0.0.1", agent.port(), streams), nullptr);
    const auto all = agent.waitFor([](auto& a) { return a.size() == 3 && a[2].isOver; });
    EXPECT_EQ(all[0].handshake, std::string("Quenvale-v2\0\0\11first id\0\0", 24))
        << "hello, no credentials, the id as a block, the end";
    EXPECT_EQ(all[1].handshake.substr(14), std::string("first id") + std::string(10, '\0'));
    EXPECT_EQ(all[2].handshake.substr(14), std::string("fi\0\0", 4));
}

TEST(QueuesHandshake, ARefusalLeavesNeitherSocketNorStreams) {
    RawAgent agent({{"", 1}, {"id", 2}});
    TestUplink uplink;
    const auto leavesNothing = [&](const char* host, int port) {
        Streams streams;
        return uplink.createAndTestSocket(host, port, streams) == nullptr && streams == nullptr;
    };
    EXPECT_TRUE(leavesNothing("127.0.0.1", agent.port())) << "an id of no bytes";
    EXPECT_TRUE(leavesNothing("127.0.0.1", agent.port())) << "refused";
    EXPECT_TRUE(leavesNothing(nullptr, agent.port())) << "no host at all";
}

// An id that fills every buffer on its way back must not hold the thread.
TEST(QueuesHandshake, AnAgentThatStopsReadingIsGivenUp) {
    constexpr int kIdLength = 16 << 20;
    const RawSocket listener(Loopback::listenOn(0));
    TestUplink uplink;
    auto socket = std::async(std::launch::async, [&] {
        Streams streams;
        const int port = Loopback::portOf(listener.descriptor());
        return uplink.createAndTestSocket("127.0.0.1", port, streams);
    });
    RawSocket agent(accept(listener.descriptor(), nullptr, nullptr));
    agent.send("\x81\x80\x80\x08" + std::string(kIdLength + 1, '\0'));
    EXPECT_EQ(socket.wait_for(kLimit), std::future_status::ready);
    shutdown(agent.descriptor(), SHUT_RDWR);
    EXPECT_EQ(socket.get(), nullptr);
}

}  // namespace
