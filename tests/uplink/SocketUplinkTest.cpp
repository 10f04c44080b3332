// The uplink of bare events against a raw receiver. Nobody has to accept for a connect to succeed,
// so the tests take connections and bytes when they want them, and the receiver needs no thread.
#include "uplink/SocketUplink.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <climits>
#include <fstream>
#include <future>

#include "config/InterceptorConfig.h"
#include "harness/RecordingUplink.h"
#include "harness/loopback.h"
#include "interaction/ServerInteraction.h"
#include "uplink/SocketQueue.h"
#include "util/Clock.h"

using namespace Quenvale::Interceptor::SDK;

namespace {

constexpr std::chrono::seconds kLimit(60);

class TestSocketUplink final : public SocketUplink {
public:
    TestSocketUplink(const Params& params, InterceptorConfig& config)
        : SocketUplink(params, config) {}
    ~TestSocketUplink() { stop(); }

    bool getAlive() override {
        ++lifeChecks;
        return SocketUplink::getAlive();
    }
    int used(int queue) {
        Util::MutexGuard guard(itsQueues[queue].itsDataLock);
        return itsQueues[queue].itsUsed;
    }
    void add(const std::string& event, int queue = 0) {
        std::string copy = event;
        auto* bytes = reinterpret_cast<unsigned char*>(copy.data());
        const Util::ByteArray array(bytes, static_cast<int>(copy.size()), false);
        queueEvent(&itsQueues[queue], 1, array, true);
    }
    SlotState stateOf(int slot) {
        Util::MutexGuard guard(itsPoolLock);
        return itsSocketStates[static_cast<std::size_t>(slot)];
    }
    long long lastFailure() {
        Util::MutexGuard guard(itsPoolLock);
        return itsLastConnectTry;
    }
    void setLastFailure(long long time) {
        Util::MutexGuard guard(itsPoolLock);
        itsLastConnectTry = time;
    }

    std::atomic<int> lifeChecks{0};

    using SocketUplink::acquire;
    using SocketUplink::closeAll;
    using SocketUplink::flushAged;
    using SocketUplink::flushQueue;
    using SocketUplink::itsLastPoll;
    using SocketUplink::itsOpenSockets;
    using SocketUplink::itsQueues;
    using SocketUplink::kEmpty;
    using SocketUplink::kIdle;
    using SocketUplink::kInUse;
    using SocketUplink::kInUseToBeClosed;
    using SocketUplink::release;
    using SocketUplink::socketOf;
    using SocketUplink::startFlusher;
};

/// A raw receiver. What it waits for comes within the limit, or the test fails there.
class Receiver {
public:
    explicit Receiver(int port = 0) : itsListener(Loopback::listenOn(port)) {
        listen(itsListener, SOMAXCONN);
    }
    ~Receiver() {
        for (const int descriptor : itsConnections) close(descriptor);
        close(itsListener);
    }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    int port() const { return Loopback::portOf(itsListener); }
    int take() {
        pollfd waiting = {itsListener, POLLIN, 0};
        const bool isThere = poll(&waiting, 1, kLimitMs) == 1;
        EXPECT_TRUE(isThere) << "no connection";
        if (!isThere) return -1;
        const int descriptor = accept(itsListener, nullptr, nullptr);
        const timeval limit = {kLimitMs / 1000, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        itsConnections.push_back(descriptor);
        return descriptor;
    }
    /// So many bytes, or fewer where the connection ended before.
    static std::string read(int descriptor, std::size_t count) {
        std::string bytes(count, '\0');
        const ssize_t got = recv(descriptor, bytes.data(), count, MSG_WAITALL);
        EXPECT_GE(got, 0) << "neither bytes nor an end";
        bytes.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return bytes;
    }
    static std::string rest(int descriptor) { return read(descriptor, 1 << 16); }
    /// The other end finds out at its next write.
    static void reset(int descriptor, const Util::Socket* peer) {
        const linger atOnce = {1, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        const sockaddr none = {};
        connect(descriptor, &none, sizeof none);
        pollfd waiting = {peer->itsDescriptor, POLLIN, 0};
        EXPECT_EQ(poll(&waiting, 1, kLimitMs), 1);
    }

private:
    static constexpr int kLimitMs = 60000;
    const int itsListener;
    std::vector<int> itsConnections;
};

void say(int descriptor, const std::string& text, Util::Socket* to) {
    send(descriptor, text.data(), text.size(), MSG_NOSIGNAL);
    while (to->poll() < static_cast<int>(text.size())) std::this_thread::yield();
}

class SocketUplinkTest : public testing::Test {
protected:
    SocketUplinkTest() : itsPath("/tmp/qz-socket-uplink-" + std::to_string(getpid())) {
        InterceptorConfig::getConfigFilename() = itsPath.c_str();
        use(agent.port());
        config.Refresh(true);
    }
    ~SocketUplinkTest() override {
        unlink(itsPath.c_str());
        InterceptorConfig::getConfigFilename() = Util::String();
    }

    /// What stands in the file from now on.
    void use(int port) const {
        std::ofstream(itsPath) << "host\n" << port << "\n1\n0\n0\n0\n0\n0\n0\n";
    }
    static SocketUplink::Params with(int bufferSize, int queueCount, int poolSize) {
        return {bufferSize, queueCount, poolSize, 10000, 15000, false};
    }

    Receiver agent;
    std::string itsPath;
    InterceptorConfig config{true};
    TestSocketUplink uplink{with(1024, 3, 2), config};
};

TEST_F(SocketUplinkTest, EventsStandOneBehindTheOtherWithTheirPayloadInside) {
    ServerInteraction server;
    server.itIsLoaded = true;
    server.itIncludesPayload = true;
    unsigned char payload[] = "<payload/>";
    Util::ByteArray content(payload, 10, false);
    server.itsPayload = &content;
    uplink.notifyAgent(&server);
    server.itsPayload = nullptr;
    const auto first = static_cast<std::size_t>(uplink.used(0));
    uplink.notifyAgent(&server);
    const auto both = static_cast<std::size_t>(uplink.used(0));
    uplink.flushAllQueues();
    const std::string bytes = Receiver::read(agent.take(), both);
    ASSERT_EQ(bytes.size(), both);
    const auto number = [&](std::size_t at) {
        std::size_t value = 0;
        for (std::size_t i = 0; i < 4; ++i)
            value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
        return value;
    };
    EXPECT_EQ(number(5), first) << "no byte but the event's own";
    EXPECT_EQ(number(9), first - 10);
    EXPECT_EQ(bytes.substr(first - 10, 10), "<payload/>");
    EXPECT_EQ(number(first + 5), both - first);
}

TEST_F(SocketUplinkTest, OnlyWhatNoLongerFitsGoesOut) {
    const struct {
        const char* why;
        std::size_t event, sent;
        int used;
    } rows[] = {
        {"fits exactly", 54, 0, 64},
        {"a byte more flushes first, and then fits", 55, 10, 55},
        {"one as large as the buffer goes out itself", 64, 74, 0},
        {"larger than the buffer", 65, 75, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        TestSocketUplink small(with(64, 1, 1), config);
        const std::string all = std::string(10, 'a') + std::string(row.event, 'b');
        small.add(std::string(10, 'a'));
        small.add(std::string(row.event, 'b'));
        EXPECT_EQ(small.used(0), row.used);
        if (row.sent == 0) continue;
        EXPECT_EQ(Receiver::read(agent.take(), row.sent), all.substr(0, row.sent));
    }
}

TEST_F(SocketUplinkTest, AFlushOfAnEmptyQueueTakesASocketAndSendsNothing) {
    config.itIsAlive = false;
    uplink.flushAllQueues();
    EXPECT_EQ(uplink.lifeChecks, 3) << "each queue asked for one";
    EXPECT_EQ(uplink.lastFailure(), 0) << "and with the agent away none was tried";
    config.itIsAlive = true;
    uplink.flushAged();
    EXPECT_EQ(uplink.itsOpenSockets, 0) << "the flusher opens none";
    uplink.flushAllQueues();
    EXPECT_EQ(uplink.itsOpenSockets, 1);
    uplink.itsLastPoll = 0;
    uplink.flushAged();
    EXPECT_GT(uplink.itsLastPoll, 0) << "but looks after one that is there";

    config.itIsAlive = false;
    EXPECT_TRUE(uplink.getAlive()) << "while a socket is open";
    uplink.closeAll(-1);
    EXPECT_FALSE(uplink.getAlive());
    EXPECT_EQ(Receiver::rest(agent.take()), "");
}

TEST_F(SocketUplinkTest, AWordOfTheAgentClosesTheOthersAndReadsTheConfiguration) {
    TestSocketUplink three(with(1024, 1, 3), config);
    for (int i = 0; i < 3; ++i) ASSERT_EQ(three.acquire(), i);
    const int first = agent.take();
    const int second = agent.take();
    three.release(0, false);
    three.release(1, false);
    say(first, std::string(200, '!'), three.socketOf(0));
    use(4850);
    config.itsAgentPort = 0;
    EXPECT_EQ(three.acquire(), 0);
    EXPECT_EQ(config.itsAgentPort, 4850);
    EXPECT_EQ(three.socketOf(0)->poll(), 0) << "all of it was read";
    EXPECT_EQ(three.stateOf(0), TestSocketUplink::kInUse);
    EXPECT_EQ(three.stateOf(1), TestSocketUplink::kEmpty);
    EXPECT_EQ(three.stateOf(2), TestSocketUplink::kInUseToBeClosed);
    EXPECT_EQ(Receiver::rest(second), "") << "closed";
    three.release(2, false);
    EXPECT_EQ(three.itsOpenSockets, 1);

    three.socketOf(0)->closeSocket();
    three.release(0, false);
    use(agent.port());
    ASSERT_EQ(three.acquire(), 0);
    EXPECT_GT(three.socketOf(0)->itsDescriptor, 0) << "a dead one made way for a new one";
}

TEST_F(SocketUplinkTest, AFailedConnectHoldsTheNextBackForAMinute) {
    const int port = Receiver().port();
    use(port);
    EXPECT_LT(uplink.acquire(), 0);
    EXPECT_GT(uplink.lastFailure(), 0);
    const Receiver late(port);
    EXPECT_LT(uplink.acquire(), 0);
    const long long now = Util::Clock::_currentTimeMillis();
    uplink.setLastFailure(now - 30000);
    EXPECT_LT(uplink.acquire(), 0);
    EXPECT_EQ(uplink.lastFailure(), now - 30000) << "nothing was tried";
    uplink.setLastFailure(now - 60000);
    EXPECT_EQ(uplink.acquire(), 0);
    EXPECT_EQ(uplink.lastFailure(), now - 60000);
    EXPECT_EQ(uplink.acquire(), 1) << "a success holds nothing back";
}

TEST_F(SocketUplinkTest, WithoutAFileOrAnAddressNoConnectionComesAbout) {
    InterceptorConfig pushed;
    pushed.itIsAlive = true;
    pushed.itsLastCheck = Util::Clock::_currentTimeMillis();
    pushed.itsAgentPort = agent.port();
    TestSocketUplink refused(with(1024, 1, 1), pushed);
    refused.flushAllQueues();
    EXPECT_EQ(refused.itsOpenSockets, 0);
    EXPECT_GT(refused.lastFailure(), 0);

    TestSocketUplink remote({1024, 1, 1, 10000, 15000, true}, config);
    EXPECT_LT(remote.acquire(), 0) << "no name of a remote host";
    EXPECT_GT(remote.lastFailure(), 0);
}

TEST_F(SocketUplinkTest, ABufferThatFailsIsSentWholeOnceMore) {
    uplink.release(uplink.acquire(), false);
    Receiver::reset(agent.take(), uplink.socketOf(0));
    uplink.add("one");
    uplink.add("two");
    uplink.flushAllQueues();
    EXPECT_EQ(Receiver::read(agent.take(), 6), "onetwo");
    EXPECT_EQ(uplink.itsOpenSockets, 1);
}

TEST_F(SocketUplinkTest, TheSecondFailureLosesTheBufferAndKeepsTheSocket) {
    for (const int slot : {uplink.acquire(), uplink.acquire()})
        Receiver::reset(agent.take(), uplink.socketOf(slot));
    uplink.release(0, false);
    uplink.release(1, false);
    uplink.add("lost");
    uplink.flushQueue(&uplink.itsQueues[0]);
    EXPECT_EQ(uplink.itsOpenSockets, 1);
    EXPECT_EQ(uplink.stateOf(1), TestSocketUplink::kIdle) << "nobody looked at how it went";
    uplink.add("next");
    uplink.flushQueue(&uplink.itsQueues[0]);
    EXPECT_EQ(Receiver::read(agent.take(), 4), "next") << "by way of the dead one";
}

TEST_F(SocketUplinkTest, ACallKeepsItsQueueUntilItsReplyAndHasNoOther) {
    ServerInteraction server;
    server.itIsLoaded = true;
    server.itsUplinkData = new harness::RecordingUplink::Attachment(1);
    const auto report = [&](int state) {
        server.itsState = state;
        uplink.notifyAgent(&server);
    };
    TestSocketUplink other(with(1024, 1, 1), config);
    other.notifyAgent(&server);
    const int before = other.used(0);
    report(0);
    EXPECT_EQ(harness::RecordingUplink::Attachment::alive, 0) << "one of another uplink goes";
    EXPECT_EQ(other.used(0), before) << "one of another object too";
    EXPECT_EQ(uplink.itsQueues[0].itsRefCount, 1);
    const std::unique_ptr<UplinkData> copy(uplink.copyUplinkData(server.itsUplinkData));
    EXPECT_EQ(uplink.itsQueues[0].itsRefCount, 2);
    copy->clear();
    const int used = uplink.used(0);
    report(2);
    EXPECT_EQ(server.itsUplinkData, nullptr);
    EXPECT_EQ(uplink.itsQueues[0].itsRefCount, 0);
    EXPECT_GT(uplink.used(0), used);
    server.itsState = 3;
}

TEST_F(SocketUplinkTest, ManyThreadsLoseNothing) {
    constexpr int kThreads = 4;
    constexpr int kEvents = 200;
    constexpr std::size_t kLength = 20;
    {
        TestSocketUplink busy(with(100, 2, 1), config);
        std::vector<std::future<void>> threads;
        for (int t = 0; t < kThreads; ++t)
            threads.push_back(std::async(std::launch::async, [&, t] {
                for (int i = 0; i < kEvents; ++i) {
                    busy.add(std::string(kLength, 'e'), t % 2);
                    if (i % 50 == 0) busy.closeAll(-1);
                    if (i % 60 == 0) busy.flushAged();
                }
            }));
        for (std::future<void>& thread : threads) {
            ASSERT_EQ(thread.wait_for(kLimit), std::future_status::ready);
            thread.get();
        }
        busy.flushAllQueues();
    }
    std::size_t count = 0;
    while (count < kThreads * kEvents * kLength) {
        const std::string bytes = Receiver::rest(agent.take());
        EXPECT_EQ(bytes.find_first_not_of('e'), std::string::npos);
        count += bytes.size();
        ASSERT_FALSE(HasFailure());
    }
    EXPECT_EQ(count, kThreads * kEvents * kLength);
}

TEST_F(SocketUplinkTest, TheEndWaitsNeitherForASleepNorForAReceiver) {
    for (const bool isSending : {false, true}) {
        SCOPED_TRACE(isSending ? "sending" : "sleeping");
        constexpr int kMuch = 64 << 20;
        SocketUplink::Params params = with(isSending ? kMuch : 1024, 1, 1);
        params.flushInterval = isSending ? 1 : INT_MAX;
        params.maxAge = 0;
        auto ending = std::make_unique<TestSocketUplink>(params, config);
        ending->startFlusher();
        if (isSending) {
            ending->add(std::string(kMuch, 'e'));
            // Taking the first byte is all the receiver ever does.
            EXPECT_EQ(Receiver::read(agent.take(), 1), "e");
        }
        const auto end = std::async(std::launch::async, [&] { ending.reset(); });
        ASSERT_EQ(end.wait_for(kLimit), std::future_status::ready);
    }
    uplink.shutdown();
    uplink.run();  // Is over before its first sleep.
    const SocketUplink shipped;
}

}  // namespace
