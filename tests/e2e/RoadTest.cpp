// The road of one request, from the C interface to the bytes at the agent.
#include "e2e/Fixture.h"

namespace e2e {
namespace {

constexpr const char* kUrl = "http://host.example:8080/svc/a?x=1";

// The identifiers that an independent program derives for the path /svc/a and getQuote.
constexpr const char* kServiceID = "EDihpnRb8sxNjuw13WOEzg==";
constexpr const char* kOpID = "6zXhIOgbNdAzRQS6Y93HcQ==";

class EndToEndRoad : public testing::Test {
protected:
    AgentPeer agent;
    std::unique_ptr<Driver> driver;

    void begin(const std::string& config = "", const Environment& more = {}) {
        if (agent.controlPort() == 0) started(agent);
        if (!config.empty()) agent.pushConfig(config);
        driver = std::make_unique<Driver>(quick(agent, more));
        // The first call of a process is decided before its report waits for the configuration.
        driver->run("whole http://host.example/first/call -");
        driver->run("flush");
        EXPECT_EQ(agent.waitForEvents(1, kLimit).size(), 1U);
        agent.forgetEvents();
    }
    std::vector<ReceivedEvent> events(std::size_t count) {
        auto got = agent.waitForEvents(count, kLimit);
        EXPECT_EQ(got.size(), count);
        EXPECT_TRUE(agent.malformed().empty());
        got.resize(count);
        return got;
    }
};

TEST_F(EndToEndRoad, AServerCallIsARequestAndThenAReplyOrOneWholeEvent) {
    begin();
    driver->run(std::string("server ") + kUrl + " getQuote hello broken");
    driver->run(std::string("whole ") + kUrl + " -");
    const auto got = events(3);
    const Event& request = got[0].event;
    const Event& reply = got[1].event;
    const Event& whole = got[2].event;

    EXPECT_EQ(request.kind(), EventKind::Request);
    EXPECT_EQ(request.flags, 0);
    EXPECT_EQ(request.url, kUrl);
    EXPECT_EQ(request.opName, "getQuote");
    EXPECT_EQ(request.groupName, "svc");
    EXPECT_EQ(request.groupID->size(), 24U);
    EXPECT_EQ(request.serviceID, kServiceID);
    EXPECT_EQ(request.opID, kOpID);
    EXPECT_EQ(request.peerAddr, "peer.example");
    EXPECT_EQ(request.subNode, "node1");
    EXPECT_EQ(request.msgSize, 5);
    EXPECT_EQ(got[0].payload, "hello");
    EXPECT_EQ(got[0].contentType, "text/xml");
    // Fields 1, 2, 4, 6, 7, 13, 17, 20, 22 to 24, 26, 29, 34, 43 and the payload.
    EXPECT_EQ(request.mask, 0x1802'024b'742dULL) << std::hex << request.mask;

    EXPECT_EQ(reply.kind(), EventKind::Reply);
    EXPECT_EQ(reply.flags, Event::REPLIED | Event::FAILURE);
    EXPECT_EQ(reply.failure, "broken");
    EXPECT_EQ(reply.msgSize, 7);
    EXPECT_EQ(reply.flowID, request.flowID);
    EXPECT_EQ(reply.interactionID, request.interactionID);
    EXPECT_GE(*reply.time, *request.time + 1);
    EXPECT_EQ(got[0].connection, got[1].connection);

    EXPECT_EQ(whole.flags, Event::REPLIED | Event::WHOLE);
    EXPECT_EQ(whole.opID, kServiceID) << "without a name the path stands for the operation too";
    EXPECT_EQ(whole.svcType, -128);
    EXPECT_GE(*whole.rtTime, 1);
}

TEST_F(EndToEndRoad, TheConfigurationDecidesWhatIsReported) {
    QZAgent::ConfigText config;
    started(agent);
    config.port = agent.eventsPort();
    config.eventTag = 77;
    config.checkpointFilters = {{{"", "", kOpID}, "first"}, {{"other", "", ""}, "never"}};
    begin(config.text());
    driver->run(std::string("server ") + kUrl + " getQuote hello -");
    const auto got = events(2);
    EXPECT_EQ(got[0].event.eventTag, 77);
    EXPECT_FALSE(got[0].event.hasPayload()) << "no row asks for payloads";
    EXPECT_EQ(got[0].event.newCheckpoints, std::vector<std::string>{"first"});
}

TEST_F(EndToEndRoad, AnEventThatFillsTheBufferGoesStraightOut) {
    begin("", {{"QZ_INTERCEPTOR_BUFFER", "1"},
               {"QZ_INTERCEPTOR_FLUSHINTERVAL", "100000"},
               {"QZ_INTERCEPTOR_MAXAGE", "200000"}});
    driver->run(std::string("server ") + kUrl + " getQuote " + std::string(2000, 'p') + " -");
    EXPECT_EQ(events(1)[0].payload, std::string(2000, 'p'));
    driver->run("flush");
    EXPECT_EQ(events(2)[1].event.kind(), EventKind::Reply) << "a flush sends what waits";
}

// Batches of one queue may take different sockets, and an agent reads its sockets in an order of
// its own: what it sees in order is what comes over one connection.
class EndToEndFlood : public testing::TestWithParam<const char*> {};

TEST_P(EndToEndFlood, FourThreadsLoseAndReorderNothing) {
    constexpr int kThreads = 4;
    constexpr int kCalls = 50000;
    std::map<std::string, std::string> calls;  // What came, by interaction id.
    int lastSize[kThreads] = {};
    QZAgent::PeerSettings settings;
    settings.onEvent = [&](const ReceivedEvent& received) {
        const Event& event = received.event;
        const bool isReply = event.kind() == EventKind::Reply;
        calls[*event.interactionID] += isReply ? "reply " : "request ";
        if (isReply) return;
        // A thread's calls take different queues, so only the call itself has an order.
        int& last = lastSize[event.opName->back() - '0'];
        last = std::max(last, static_cast<int>(*event.msgSize));
    };
    AgentPeer agent(settings);
    started(agent);
    Driver driver(quick(agent, {{"QZ_INTERCEPTOR_POOL", GetParam()}}));
    EXPECT_EQ(driver.ask("flood 4 50000", 240000), "ok");
    driver.run("flush");
    EXPECT_TRUE(agent.waitFor(
        [](const Counters& c) { return c.events >= 2ULL * kThreads * kCalls; }, kLimit));
    agent.stop();
    EXPECT_EQ(agent.counters().malformed, 0U);
    EXPECT_EQ(calls.size(), static_cast<std::size_t>(kThreads) * kCalls);
    const bool mayReorder = agent.counters().eventStreams > 1;
    for (const auto& [id, came] : calls)
        ASSERT_TRUE(came == "request reply " || (mayReorder && came == "reply request "))
            << id << ": " << came;
    for (const int size : lastSize) EXPECT_EQ(size, kCalls);
    driver.leave();
}

INSTANTIATE_TEST_SUITE_P(Pools, EndToEndFlood, testing::Values("1", "2"));

}  // namespace
}  // namespace e2e
