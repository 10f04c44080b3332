// The watcher's side of its connection.
#include "harness/RawAgent.h"
#include "harness/values.h"
#include "uplink/BootstrapConfig.h"
#include "uplink/TestUplink.h"

using namespace Quenvale::Interceptor::SDK;
using harness::thrown;

namespace {

using Watcher = AsyncBinaryUplink::AgentAliveWatcher;

std::string text(const std::string& value) {
    return static_cast<char>(value.size() + 1) + value;
}

/// Lets the watcher read `bytes` and the end of the stream, and gives what it threw.
std::string listen(Watcher& watcher, const std::string& bytes) {
    Loopback connection;
    Util::Socket socket(connection.takeClient(), "127.0.0.1");
    AsyncBinaryUplink::SocketStreams streams(&socket, false);
    RawSocket agent(connection.takeServer());
    agent.send(bytes);
    shutdown(agent.descriptor(), SHUT_WR);
    const std::string outcome = thrown([&] { watcher.listenAgentNotifications(&streams); });
    EXPECT_EQ(agent.receive(4), std::string("\5\3\0\0", 4));
    return outcome;
}

TEST(Watcher, MessagesAreFollowedUntilOneIsNotKnown) {
    const std::string reset = std::string("\6\2") + text("a") + text("b");
    const std::string update = std::string("\7\1") + text("c") + "\1" + text("a");
    const char* badCount = "IOException: Invalid number of stabilizers";
    const struct {
        const char* why;
        std::string bytes;
        const char *thrown, *names;
    } rows[] = {
        {"nothing but the end", "", "nothing", "none"},
        {"a reset", reset, "nothing", "a=TRUE b=TRUE "},
        {"an update", reset + update, "nothing", "b=TRUE c=TRUE "},
        {"an update first starts from nothing", update, "nothing", "c=TRUE "},
        {"a reset that is cut keeps the old set", reset + reset.substr(0, 4), "EOFException",
         "a=TRUE b=TRUE "},
        {"a second reset replaces", reset + std::string("\6\1") + text("z"), "nothing", "z=TRUE "},
        {"a count above all bounds ends it, and keeps the old set",
         reset + std::string("\6\x81\x80\x40") + text("z"), badCount, "a=TRUE b=TRUE "},
        {"so does one that is negative", reset + "\6\xff\xff\xff\xff\x0f" + reset, badCount,
         "a=TRUE b=TRUE "},
        {"nothing behind an unknown message", std::string("\5") + reset, "nothing", "none"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        TestUplink uplink;
        EXPECT_EQ(listen(*uplink.itsWatcher, row.bytes), row.thrown);
        EXPECT_EQ(harness::fieldsOf(uplink.itsWatcher->itsStabilizers.get()), row.names);
    }
}

TEST(Watcher, AConfigurationEmptiesThePoolAndIsLoaded) {
    harness::RawAgent agent;
    TestUplink::use(agent.port());
    TestUplink uplink;
    uplink.release(uplink.acquire(), false);
    const std::string lines = text("host\n1234\n1\n0\n0\n0\n0\n0\n0\n");
    EXPECT_EQ(listen(*uplink.itsWatcher, '\4' + lines + '\0'), "nothing");
    EXPECT_EQ(uplink.itsOpenSockets, 0);
    EXPECT_EQ(InterceptorConfig::itsCurrent.itsAgentPort, 1234);
    EXPECT_TRUE(InterceptorConfig::itsCurrent.itIsAlive);

    for (const char emptyOrNull : {'\1', '\0'}) {
        InterceptorConfig::itsCurrent.itIsAlive = true;
        const std::string block = {'\4', emptyOrNull, '\6', '\1'};
        EXPECT_EQ(listen(*uplink.itsWatcher, block + text("next")), "nothing");
        EXPECT_FALSE(InterceptorConfig::itsCurrent.itIsAlive);
        EXPECT_EQ(harness::fieldsOf(uplink.itsWatcher->itsStabilizers.get()), "next=TRUE ")
            << "goes on";
    }
}

TEST(Watcher, TheEndOfTheStartReleasesEveryReportAndAShutdownIsTheEnd) {
    const struct {
        const char* why;
        void (*end)(Watcher&);
    } rows[] = {
        {"a configuration", [](Watcher& watcher) { listen(watcher, std::string("\4\0", 2)); }},
        {"a configuration that is cut",
         [](Watcher& watcher) { EXPECT_EQ(listen(watcher, "\4\5ab"), "EOFException"); }},
        {"a failed attempt", [](Watcher& watcher) { EXPECT_FALSE(watcher.connectandListen()); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        TestUplink uplink;
        uplink.bootstrap()->itsPort = harness::RawAgent().port();
        Watcher watcher(&uplink);
        std::future<void> waiters[4];
        std::atomic<int> begun{0};
        for (std::future<void>& waiter : waiters)
            waiter = std::async(std::launch::async, [&] {
                ++begun;
                watcher.waitForInitialConfig();
            });
        while (begun < 4) std::this_thread::yield();
        EXPECT_EQ(waiters[0].wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
        row.end(watcher);
        for (std::future<void>& waiter : waiters)
            ASSERT_EQ(waiter.wait_for(harness::kLimit), std::future_status::ready);
        watcher.waitForInitialConfig();
    }
    harness::RawAgent agent;
    TestUplink uplink;
    uplink.bootstrap()->itsPort = agent.port();
    uplink.shutdown();
    EXPECT_FALSE(uplink.itsWatcher->connectandListen()) << "after it nothing is connected to";
}

}  // namespace
