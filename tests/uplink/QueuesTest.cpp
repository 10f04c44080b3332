// From the report into a queue, and from a queue over the pool to an agent.
#include <gtest/gtest.h>

#include <climits>
#include <future>
#include <memory>
#include <new>

#include "harness/RawAgent.h"
#include "harness/loopback.h"
#include "interaction/ServerInteraction.h"
#include "uplink/AgentEvent.h"
#include "uplink/TestUplink.h"

using namespace Quenvale::Interceptor::SDK;
using harness::RawAgent;

namespace {

constexpr std::chrono::seconds kLimit(60);

/// A text as the bytes of an event or a payload.
struct Bytes : Util::ByteArray {
    explicit Bytes(std::string content = "") : text(std::move(content)) {
        data = text.empty() ? nullptr : reinterpret_cast<unsigned char*>(text.data());
        length = static_cast<int>(text.size());
        owned = false;
    }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    std::string text;
};

std::string eventOf(std::size_t length, char fill = 'e') {
    return std::string(length, fill);
}

/// What the agent gets of an event of fewer than 127 bytes without a payload.
std::string message(const std::string& event) {
    return std::string("\1") + static_cast<char>(event.size() + 1) + event + std::string(2, '\0');
}

void queue(TestUplink& uplink, const std::string& event, AsyncBinaryUplink::SocketQueue* queue) {
    const Bytes bytes(event);
    uplink.queueEvent(queue, 1, bytes, true, Util::ByteArray(),
                      AgentEvent::DEFAULT_PAYLOAD_CONTENT_TYPE);
}

/// A dead agent's port, or so it seems to the pool.
int closedPort() {
    return RawAgent().port();
}

TEST(Queues, AnEventTakesItsLengthAndTwoOrThreeFields) {
    const struct {
        const char* why;
        int event;
        int payload;
        int expected;
    } rows[] = {
        {"no event, so a flush", 0, 0, 0},
        {"no event, whatever the payload", 0, 7, 0},
        {"two lengths", 5, 0, 13},
        {"two lengths and the content type", 5, 7, 21},
        {"too long for any queue, and not negative", INT_MAX - 3, 0, INT_MAX},
        {"the same with a payload", INT_MAX - 3, INT_MAX - 3, INT_MAX},
    };
    unsigned char byte = 0;
    for (const auto& row : rows) {
        const Util::ByteArray event(row.event > 0 ? &byte : nullptr, row.event, false);
        const Util::ByteArray payload(row.payload > 0 ? &byte : nullptr, row.payload, false);
        EXPECT_EQ(TestUplink::computeEventLength(event, payload), row.expected) << row.why;
    }
}

TEST(Queues, TheLeastUsedQueueIsPickedAndCounted) {
    const UplinkParameters::Values params = TestUplink::with(1024, 3, 1);
    TestUplink uplink(params);
    const int counts[] = {3, 1, 1};
    for (int i = 0; i < 3; ++i) uplink.itsQueues[i].itsRefCount = counts[i];

    const std::unique_ptr<UplinkData> picked(uplink.pick());
    EXPECT_EQ(static_cast<AsyncBinaryUplink::SocketQueueRef*>(picked.get())->itsQueue,
              &uplink.itsQueues[1]);
    const std::unique_ptr<UplinkData> copy(uplink.copyUplinkData(picked.get()));
    EXPECT_EQ(uplink.itsQueues[1].itsRefCount, 3);
    copy->clear();
    copy->clear();
    EXPECT_EQ(uplink.itsQueues[1].itsRefCount, 2) << "one attachment is given up once";
}

TEST(Queues, AnySettingMakesAtLeastOneQueueAndOneSlot) {
    for (const int count : {INT_MIN, -1, 0}) {
        const UplinkParameters::Values params = TestUplink::with(count, count, count);
        TestUplink uplink(params);
        EXPECT_EQ(uplink.itsQueueCount, 1);
        EXPECT_EQ(uplink.itsPoolSize, 1);
        uplink.itsAgentAlive = false;
        queue(uplink, eventOf(70000), &uplink.itsQueues[0]);
        EXPECT_EQ(TestUplink::used(uplink.itsQueues[0]), 0) << "no event fits a queue of size 0";
    }
    const UplinkParameters::Values params = TestUplink::with(1, INT_MAX, INT_MAX);
    TestUplink uplink(params);
    EXPECT_EQ(uplink.itsQueueCount, 1024);
    EXPECT_EQ(uplink.itsPoolSize, 1024);
}

TEST(Queues, OldEventsAreDue) {
    const struct {
        const char* why;
        long long first;
        long long now;
        long long limit;
        bool expected;
    } rows[] = {
        {"a millisecond young", 1000, 5999, 5000, false},
        {"just old enough", 1000, 6000, 5000, true},
        {"ahead of the clock", 6000, 1000, 5000, false},
        {"ahead of the clock, with a limit below 0", 6000, 1000, -5000, false},
        {"a limit below 0 makes all else due", 1000, 1000, -5000, true},
        {"no sum of these may overflow", LLONG_MAX, LLONG_MAX - 1, 5000, false},
    };
    TestUplink uplink;
    AsyncBinaryUplink::SocketQueue& first = uplink.itsQueues[0];
    EXPECT_FALSE(TestUplink::isDue(&first, LLONG_MAX, 0)) << "an empty queue never is";
    queue(uplink, "event", &first);
    for (const auto& row : rows) {
        {
            Util::MutexGuard guard(first.itsDataLock);
            first.itsFirstEventTime = row.first;
        }
        EXPECT_EQ(TestUplink::isDue(&first, row.now, row.limit), row.expected) << row.why;
    }
}

TEST(Queues, AFlushSendsWhatIsQueuedAndNothingElse) {
    RawAgent agent;
    TestUplink::use(agent.port());
    TestUplink uplink;
    uplink.flushAllQueues();
    EXPECT_EQ(uplink.itsOpenSockets, 0) << "an idle system acquires no socket";

    const Bytes event("event");
    const Bytes payload("pay");
    uplink.queueEvent(&uplink.itsQueues[0], 1, event, true, payload,
                      AgentEvent::DEFAULT_PAYLOAD_CONTENT_TYPE);
    queue(uplink, "second", &uplink.itsQueues[0]);
    queue(uplink, "other queue", &uplink.itsQueues[1]);
    EXPECT_EQ(TestUplink::used(uplink.itsQueues[0]), 5 + 3 + 9 + 6 + 8);
    uplink.flushAllQueues();
    const std::string withPayload(
        "\1\6event\0"
        "\1\0\11text/xml\0\0\4pay\0"
        "\0",
        8 + 11 + 2 + 5 + 1);
    EXPECT_EQ(agent.waitForMessages(3),
              (std::vector<std::string>{withPayload, message("second"), message("other queue")}));
    EXPECT_EQ(uplink.itsOpenSockets, 1);
    EXPECT_EQ(uplink.stateOf(0), TestUplink::kIdle);
}

TEST(Queues, OnlyWhatNoLongerFitsGoesOut) {
    constexpr int kSize = 64;
    const struct {
        const char* why;
        std::size_t event;
        std::size_t sent;
        int used;
    } rows[] = {
        {"fits exactly", 64 - 18 - 8, 0, 64},
        {"a byte more flushes first, and then fits", 64 - 18 - 8 + 1, 1, 47},
        {"one as large as the buffer goes out itself", 64 - 8, 2, 0},
        {"larger than the buffer", 65, 2, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        RawAgent agent;
        TestUplink::use(agent.port());
        const UplinkParameters::Values params = TestUplink::with(kSize, 1, 1);
        TestUplink uplink(params);
        queue(uplink, eventOf(10, 'a'), &uplink.itsQueues[0]);
        queue(uplink, eventOf(row.event, 'b'), &uplink.itsQueues[0]);
        const std::vector<std::string> all = {message(eventOf(10, 'a')),
                                              message(eventOf(row.event, 'b'))};
        EXPECT_EQ(agent.waitForMessages(row.sent),
                  std::vector<std::string>(all.begin(), all.begin() + static_cast<long>(row.sent)));
        EXPECT_EQ(TestUplink::used(uplink.itsQueues[0]), row.used);
    }
}

TEST(Queues, AFailedMessageGetsOneOtherSocket) {
    RawAgent agent({{"id", 1, 1}, {"id", 1, 1}, {"id", 1, -1}});
    TestUplink::use(agent.port());
    TestUplink uplink;
    AsyncBinaryUplink::SocketQueue* first = &uplink.itsQueues[0];
    const auto send = [&](const char* event) {
        queue(uplink, event, first);
        uplink.flushAllQueues();
    };
    send("1");
    agent.waitForMessages(1);
    send("2");
    EXPECT_EQ(agent.waitForMessages(2).back(), message("2")) << "again, whole, on another";
    EXPECT_EQ(uplink.itsOpenSockets, 1);

    queue(uplink, "3", first);
    queue(uplink, "4", first);
    uplink.flushAllQueues();
    EXPECT_EQ(agent.waitForMessages(4).back(), message("4")) << "the rest follows on that one";
}

TEST(Queues, TwoFailuresInARowLoseTheRest) {
    RawAgent agent({{"id", 1, 1}, {"id", 1, 1}, {"id", 1, -1}});
    TestUplink::use(agent.port());
    TestUplink uplink;
    AsyncBinaryUplink::SocketQueue* first = &uplink.itsQueues[0];
    const auto send = [&](const char* event) {
        queue(uplink, event, first);
        uplink.flushAllQueues();
    };
    const int held = uplink.acquire();
    send("1");
    uplink.release(held, false);
    agent.waitForMessages(1);
    send("2");
    agent.waitForMessages(2);  // Both sockets are dead now, and in the pool.

    queue(uplink, "lost", first);
    queue(uplink, "lost too", first);
    uplink.flushAllQueues();
    EXPECT_EQ(uplink.itsOpenSockets, 0);
    send("next");
    const std::vector<std::string> all = agent.waitForMessages(3);
    EXPECT_EQ(all.size(), 3U);
    EXPECT_EQ(all.back(), message("next"));
}

TEST(Queues, ACallKeepsItsQueueUntilItsReply) {
    TestUplink uplink;
    ServerInteraction server;
    server.itIsLoaded = true;
    const auto report = [&](int state) {
        server.itsState = state;
        uplink.notifyAgent(&server);
        return server.itsUplinkData != nullptr;
    };
    AsyncBinaryUplink::SocketQueue& first = uplink.itsQueues[0];
    uplink.itsAgentAlive = false;
    EXPECT_FALSE(report(0)) << "dropped without an agent";
    uplink.itsAgentAlive = true;

    EXPECT_TRUE(report(0));
    const int used = TestUplink::used(first);
    EXPECT_GT(used, 0);
    EXPECT_EQ(first.itsRefCount, 1);
    EXPECT_FALSE(report(2));
    EXPECT_EQ(first.itsRefCount, 0);
    EXPECT_GT(TestUplink::used(first), used) << "in the same queue";

    EXPECT_TRUE(report(1)) << "a first report in stage 1 keeps what it picked";
    EXPECT_FALSE(report(1));
    server.itsState = 3;
}

TEST(QueuesPool, AnIdleSocketWinsOverAnEmptySlot) {
    RawAgent agent;
    TestUplink::use(agent.port());
    TestUplink uplink;
    EXPECT_EQ(uplink.acquire(), 0);
    EXPECT_EQ(uplink.acquire(), 1);
    uplink.release(0, true);
    uplink.release(1, false);
    EXPECT_EQ(uplink.acquire(), 1);
    EXPECT_EQ(uplink.stateOf(0), TestUplink::kEmpty);
    EXPECT_EQ(uplink.itsOpenSockets, 1);
}

TEST(QueuesPool, ANewConfigurationMovesTrafficToNewSockets) {
    RawAgent before;
    RawAgent after;
    TestUplink::use(before.port());
    TestUplink uplink;
    const int busy = uplink.acquire();
    uplink.release(uplink.acquire(), false);
    TestUplink::use(after.port());
    uplink.closeAll();
    EXPECT_EQ(uplink.stateOf(busy), TestUplink::kInUseToBeClosed);
    EXPECT_EQ(uplink.stateOf(1), TestUplink::kEmpty);
    EXPECT_EQ(uplink.itsOpenSockets, 1) << "the one in use counts until its release";
    uplink.closeAll();
    uplink.release(busy, false);
    EXPECT_EQ(uplink.itsOpenSockets, 0);
    EXPECT_EQ(uplink.acquire(), 0);
    EXPECT_EQ(after.waitFor([](auto& all) { return !all.empty(); }).size(), 1U);
}

TEST(QueuesPool, WithoutALiveAgentNoConnectIsTried) {
    RawAgent agent;
    TestUplink::use(agent.port());
    TestUplink uplink;
    const int slot = uplink.acquire();
    uplink.itsAgentAlive = false;
    EXPECT_TRUE(uplink.getAlive()) << "while a pool socket is open";
    uplink.release(slot, true);
    EXPECT_FALSE(uplink.getAlive());
    EXPECT_LT(uplink.acquire(), 0);
    EXPECT_EQ(agent.waitFor([](auto& all) { return all[0].isOver; }).size(), 1U);
}

// Several wait, and all must come through, whether each gets a socket or none is to be had.
TEST(QueuesPool, EveryWaiterGoesOnWhenSlotsComeFree) {
    for (const bool isAgentGone : {false, true}) {
        SCOPED_TRACE(isAgentGone ? "agent gone" : "agent there");
        RawAgent agent;
        TestUplink::use(agent.port());
        TestUplink uplink;
        const int held[] = {uplink.acquire(), uplink.acquire()};
        std::vector<std::future<int>> waiters;
        for (int i = 0; i < 6; ++i)
            waiters.push_back(std::async(std::launch::async, [&] {
                const int slot = uplink.acquire();
                if (slot >= 0) uplink.release(slot, false);
                return slot;
            }));
        while (uplink.slotWaiters() < 6) std::this_thread::yield();
        if (isAgentGone) TestUplink::use(closedPort());
        for (const int slot : held) uplink.release(slot, isAgentGone);
        for (std::future<int>& waiter : waiters) {
            ASSERT_EQ(waiter.wait_for(kLimit), std::future_status::ready);
            EXPECT_EQ(waiter.get() < 0, isAgentGone);
        }
    }
}

// The thread that a signal woke may end by an exception, or by its cancellation.
TEST(QueuesPool, AWaiterThatIsThrownOutHandsItsSlotOn) {
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
    RawAgent agent;
    TestUplink::use(agent.port());
    const UplinkParameters::Values params = TestUplink::with(1024, 1, 1);
    Throwing uplink(params);
    const int held = uplink.acquire();
    std::future<int> waiters[2];
    for (std::future<int>& waiter : waiters)
        waiter = std::async(std::launch::async, [&] { return uplink.acquire(); });
    while (uplink.slotWaiters() < 2) std::this_thread::yield();
    uplink.isThrowing = true;
    uplink.release(held, true);
    int thrown = 0;
    for (std::future<int>& waiter : waiters) {
        ASSERT_EQ(waiter.wait_for(kLimit), std::future_status::ready);
        try {
            EXPECT_LT(waiter.get(), 0);
        } catch (const std::bad_alloc&) {
            ++thrown;
        }
    }
    EXPECT_EQ(thrown, 1);
}

TEST(QueuesPool, ManyThreadsLoseAndDoubleNothing) {
    constexpr std::size_t kThreads = 4;
    constexpr std::size_t kEvents = 200;
    RawAgent agent;
    TestUplink::use(agent.port());
    const UplinkParameters::Values params = TestUplink::with(100, 2, 2);
    TestUplink uplink(params);
    std::vector<std::future<void>> threads;
    for (std::size_t t = 0; t < kThreads; ++t)
        threads.push_back(std::async(std::launch::async, [&, t] {
            const std::unique_ptr<UplinkData> ref(uplink.pick());
            for (std::size_t i = 0; i < kEvents; ++i) {
                queue(uplink, eventOf(8 + i % 40, static_cast<char>('a' + t)),
                      static_cast<AsyncBinaryUplink::SocketQueueRef*>(ref.get())->itsQueue);
                if (i % 50 == 0) uplink.closeAll();
                if (i % 60 == 0) uplink.flushAged();
            }
            ref->clear();
        }));
    for (std::future<void>& thread : threads) thread.get();
    uplink.flushAllQueues();
    EXPECT_EQ(agent.waitForMessages(kThreads * kEvents).size(), kThreads * kEvents);
}

TEST(QueuesHandshake, TheFirstIdOfTheProcessIsEchoed) {
    RawAgent agent({{"first id"}, {"a much longer id"}, {"id"}});
    TestUplink uplink;
    std::unique_ptr<AsyncBinaryUplink::SocketStreams> streams;
    for (int i = 0; i < 3; ++i)
        EXPECT_NE(uplink.createAndTestSocket("127.0.0.1", agent.port(), streams), nullptr);
    const auto all = agent.waitFor([](auto& a) { return a.size() == 3 && a[2].isOver; });
    EXPECT_EQ(all[0].handshake, std::string("Quenvale-v2\0\0\11first id\0\0", 24))
        << "hello, no credentials, the id as a block, the end";
    EXPECT_EQ(all[0].echo, "first id");
    EXPECT_EQ(all[1].echo, std::string("first id") + std::string(8, '\0'));
    EXPECT_EQ(all[2].echo, "fi");
}

TEST(QueuesHandshake, ARefusalLeavesNeitherSocketNorStreams) {
    RawAgent agent({{"", 1}, {"id", 0}, {"id", 2}});
    TestUplink uplink;
    const struct {
        const char* why;
        const char* host;
        int port;
    } rows[] = {
        {"an id of no bytes", "127.0.0.1", agent.port()},
        {"refused", "127.0.0.1", agent.port()},
        {"only 1 means yes", "127.0.0.1", agent.port()},
        {"nobody there", "127.0.0.1", closedPort()},
        {"no such host", "256.256.256.256", agent.port()},
        {"no host at all", nullptr, agent.port()},
    };
    for (const auto& row : rows) {
        std::unique_ptr<AsyncBinaryUplink::SocketStreams> streams;
        EXPECT_EQ(uplink.createAndTestSocket(row.host, row.port, streams), nullptr) << row.why;
        EXPECT_EQ(streams, nullptr) << row.why;
    }
}

// An id that fills every buffer on its way back must not hold the thread.
TEST(QueuesHandshake, AnAgentThatStopsReadingIsGivenUp) {
    constexpr int kIdLength = 16 << 20;
    const int listener = Loopback::listenOn(0);
    TestUplink uplink;
    auto socket = std::async(std::launch::async, [&] {
        std::unique_ptr<AsyncBinaryUplink::SocketStreams> streams;
        return uplink.createAndTestSocket("127.0.0.1", Loopback::portOf(listener), streams);
    });
    const int agent = accept(listener, nullptr, nullptr);
    std::string id = "\x81\x80\x80\x08";  // kIdLength + 1
    id += std::string(kIdLength + 1, '\0');
    for (std::size_t sent = 0; sent < id.size();) {
        const ssize_t count = send(agent, id.data() + sent, id.size() - sent, MSG_NOSIGNAL);
        ASSERT_GT(count, 0);
        sent += static_cast<std::size_t>(count);
    }
    EXPECT_EQ(socket.wait_for(kLimit), std::future_status::ready);
    close(agent);
    EXPECT_EQ(socket.get(), nullptr);
    close(listener);
}

}  // namespace
