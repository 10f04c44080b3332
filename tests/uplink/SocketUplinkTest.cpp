// The uplink of bare events against a raw receiver. Nobody has to accept for a connect to succeed,
// so the receiver needs no thread.
#include "uplink/SocketUplink.h"

#include <fstream>

#include "harness/loopback.h"
#include "harness/values.h"
#include "interaction/ServerInteraction.h"
#include "uplink/AgentEvent.h"
#include "uplink/TestUplink.h"
#include "util/Clock.h"

using namespace Quenvale::Interceptor::SDK;

namespace {

constexpr int kNobody = 1;  // A port that has no listener.

class TestSocketUplink final : public Exposed<SocketUplink> {
public:
    explicit TestSocketUplink(InterceptorConfig& config, int bufferSize = 1024, int queueCount = 1,
                              int poolSize = 1, int flushInterval = 10000, bool isRemote = false)
        : Exposed({bufferSize, queueCount, poolSize, flushInterval, 15000, isRemote}, config) {}
    ~TestSocketUplink() { stop(); }

    void add(std::string event, int queue = 0) {
        const Util::ByteArray bytes(harness::bytesOf(event), static_cast<int>(event.size()), false);
        queueEvent(&itsQueues[queue], 1, bytes, true);
    }
    // For when no other thread is there.
    long long& lastFailure() QZ_NO_THREAD_SAFETY_ANALYSIS { return itsLastConnectTry; }

    using SocketUplink::itsLastPoll;
    using SocketUplink::socketOf;
    using SocketUplink::startFlusher;
};

using Slot = TestSocketUplink::SlotState;

class SocketUplinkTest : public testing::Test {
protected:
    SocketUplinkTest() : itsPath("/tmp/qz-socket-uplink-" + std::to_string(getpid())) {
        InterceptorConfig::getConfigFilename() = itsPath.c_str();
        listen(itsListener.descriptor(), SOMAXCONN);
        use(port());
        config.Refresh(true);
        server.itIsLoaded = true;
    }
    ~SocketUplinkTest() override {
        unlink(itsPath.c_str());
        InterceptorConfig::getConfigFilename() = Util::String();
    }

    int port() const { return Loopback::portOf(itsListener.descriptor()); }
    /// The next connection. Waits, but not for ever; what never comes has no bytes.
    std::unique_ptr<RawSocket> take() const {
        return std::make_unique<RawSocket>(accept(itsListener.descriptor(), nullptr, nullptr));
    }
    /// What stands in the file from now on.
    void use(int port) const {
        std::ofstream(itsPath) << "host\n" << port << "\n1\n0\n0\n0\n0\n0\n0\n";
    }
    void report(TestSocketUplink& to, int state) {
        server.itsState = state;
        to.notifyAgent(&server);
    }

    const RawSocket itsListener{Loopback::listenOn(0)};
    const std::string itsPath;
    InterceptorConfig config{true};
    TestSocketUplink uplink{config, 1024, 3, 3};
    ServerInteraction server;
};

TEST_F(SocketUplinkTest, EventsStandOneBehindTheOtherWithTheirPayloadInside) {
    server.itIncludesPayload = true;
    unsigned char bytes[] = "<payload/>";
    Util::ByteArray payload(bytes, 10, false);
    std::string expected;
    for (Util::ByteArray* given : {static_cast<Util::ByteArray*>(nullptr), &payload}) {
        server.itsPayload = given;
        Util::ByteArray event = AgentEvent(&server, false, false).serialize();
        expected += harness::textOf(event.data, event.length);
        event.releaseContent();
        report(uplink, 0);
    }
    server.itsPayload = nullptr;
    EXPECT_EQ(expected.substr(expected.size() - 10), "<payload/>");
    uplink.flushAllQueues();
    EXPECT_EQ(take()->receive(expected.size()), expected);
    report(uplink, 3);
}

TEST_F(SocketUplinkTest, OnlyWhatNoLongerFitsGoesOut) {
    const struct {
        const char* why;
        std::size_t event, sent;
        int size, used;
    } rows[] = {
        {"fits exactly", 54, 0, 64, 64},
        {"a byte more flushes first, and then fits", 55, 10, 64, 55},
        {"one as large as the buffer goes out itself", 64, 74, 64, 0},
        {"larger than the buffer", 65, 75, 64, 0},
        {"where no buffer is wanted each goes out", 5, 15, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        TestSocketUplink small(config, row.size);
        small.add(std::string(10, 'a'));
        small.add(std::string(row.event, 'b'));
        EXPECT_EQ(TestSocketUplink::used(small.itsQueues[0]), row.used);
        if (row.sent == 0) continue;
        const std::string sent = std::string(10, 'a') + std::string(row.sent - 10, 'b');
        EXPECT_EQ(take()->receive(row.sent), sent);
    }
}

TEST_F(SocketUplinkTest, AFlushOfAnEmptyQueueTakesASocketAndSendsNothing) {
    config.itIsAlive = false;
    uplink.flushAllQueues();
    EXPECT_EQ(uplink.lastFailure(), 0) << "with the agent away none was tried";
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
    EXPECT_EQ(take()->outcome(), "end");
}

TEST_F(SocketUplinkTest, AWordOfTheAgentClosesTheOthersAndReadsTheConfiguration) {
    for (int i = 0; i < 3; ++i) ASSERT_EQ(uplink.acquire(), i);
    const auto first = take();
    const auto second = take();
    uplink.release(0, false);
    uplink.release(1, false);
    first->send(std::string(200, '!'));
    while (uplink.socketOf(0)->poll() < 200) std::this_thread::yield();
    use(kNobody);
    config.itsAgentPort = 0;
    EXPECT_EQ(uplink.acquire(), 0);
    EXPECT_EQ(config.itsAgentPort, kNobody);
    EXPECT_EQ(uplink.socketOf(0)->poll(), 0) << "all of it was read";
    EXPECT_EQ(uplink.stateOf(0), Slot::kInUse);
    EXPECT_EQ(uplink.stateOf(1), Slot::kEmpty);
    EXPECT_EQ(uplink.stateOf(2), Slot::kInUseToBeClosed);
    EXPECT_EQ(second->outcome(), "end");
    uplink.release(2, false);
    EXPECT_EQ(uplink.itsOpenSockets, 1);

    use(port());
    for (int i = 1; i < 3; ++i) ASSERT_EQ(uplink.acquire(), i);
    for (int i = 0; i < 3; ++i) uplink.socketOf(i)->closeSocket();
    for (int i = 0; i < 3; ++i) uplink.release(i, false);
    ASSERT_EQ(uplink.acquire(), 0);
    EXPECT_GT(uplink.socketOf(0)->itsDescriptor, 0) << "all dead ones made way for a new one";
    EXPECT_EQ(uplink.itsOpenSockets, 1);
}

TEST_F(SocketUplinkTest, AFailedConnectHoldsTheNextBackForAMinute) {
    InterceptorConfig pushed;
    pushed.itIsAlive = true;
    pushed.itsLastCheck = Util::Clock::_currentTimeMillis();
    pushed.itsAgentPort = port();
    TestSocketUplink withoutAFile(pushed);
    TestSocketUplink withoutAHost(config, 1024, 1, 1, 10000, true);
    for (TestSocketUplink* each : {&withoutAFile, &withoutAHost}) {
        EXPECT_LT(each->acquire(), 0);
        EXPECT_GT(each->lastFailure(), 0);
    }

    use(kNobody);
    EXPECT_LT(uplink.acquire(), 0);
    EXPECT_GT(uplink.lastFailure(), 0);
    use(port());
    EXPECT_LT(uplink.acquire(), 0);
    const long long now = Util::Clock::_currentTimeMillis();
    uplink.lastFailure() = now - 30000;
    EXPECT_LT(uplink.acquire(), 0);
    EXPECT_EQ(uplink.lastFailure(), now - 30000) << "nothing was tried";
    uplink.lastFailure() = now - 60000;
    EXPECT_EQ(uplink.acquire(), 0);
    EXPECT_EQ(uplink.lastFailure(), now - 60000);
    EXPECT_EQ(uplink.acquire(), 1) << "a success holds nothing back";
}

TEST_F(SocketUplinkTest, ABufferThatFailsIsSentWholeOnceMoreAndNobodyLooksAtHowThatWent) {
    const struct {
        int broken, kept;
        const char* received;
    } rows[] = {{1, 0, "onetwonext"}, {2, 1, "next"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.broken);
        TestSocketUplink sending(config, 1024, 1, 2);
        for (int i = 0; i < row.broken; ++i) {
            shutdown(sending.socketOf(sending.acquire())->itsDescriptor, SHUT_RDWR);
            take();
        }
        for (int i = 0; i < row.broken; ++i) sending.release(i, false);
        sending.add("one");
        sending.add("two");
        sending.flushAllQueues();
        EXPECT_EQ(sending.itsOpenSockets, 1);
        EXPECT_EQ(sending.stateOf(row.kept), Slot::kIdle);
        sending.add("next");
        sending.flushAllQueues();
        const std::string expected = row.received;
        EXPECT_EQ(take()->receive(expected.size()), expected);
    }
}

TEST_F(SocketUplinkTest, ManyThreadsLoseNothing) {
    constexpr std::size_t kAll = 4 * 200 * 20;
    {
        TestSocketUplink busy(config, 100, 2, 1, 1);
        busy.startFlusher();
        const auto work = [&](int queue) {
            for (int i = 0; i < 200; ++i) {
                busy.add(std::string(20, 'e'), queue);
                if (i % 50 == 0) busy.closeAll(-1);
            }
        };
        harness::onThreads([&] { work(0); }, [&] { work(1); }, [&] { work(0); }, [&] { work(1); });
        busy.flushAllQueues();
    }
    std::string received;
    for (std::string bytes = "-"; received.size() < kAll && !bytes.empty(); received += bytes)
        bytes = take()->receive(kAll);
    EXPECT_EQ(received, std::string(kAll, 'e'));
}

// A fault here hangs.
TEST_F(SocketUplinkTest, TheEndWaitsNeitherForASleepNorForAReceiver) {
    constexpr int kMuch = 64 << 20;
    std::unique_ptr<RawSocket> receiver;
    TestSocketUplink asleep(config, 1024, 1, 1, INT_MAX);
    TestSocketUplink sending(config, kMuch, 1, 1, 1);
    asleep.startFlusher();
    sending.startFlusher();
    sending.add(std::string(kMuch, 'e'));
    receiver = take();
    EXPECT_EQ(receiver->receive(1), "e") << "which is all it ever takes";
    uplink.shutdown();
    uplink.run();  // Is over before its first sleep.
    const SocketUplink shipped;
}

}  // namespace
