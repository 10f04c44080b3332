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
        started(agent);
        if (!config.empty()) agent.pushConfig(config);
        driver = std::make_unique<Driver>(quick(agent, more));
    }
    std::vector<ReceivedEvent> events(std::size_t count) {
        auto got = agent.waitForEvents(count, kLimit);
        EXPECT_EQ(got.size(), count);
        EXPECT_TRUE(agent.malformed().empty());
        got.resize(count);
        return got;
    }
};

TEST_F(EndToEndRoad, AServerCallIsARequestAndThenAReply) {
    begin();
    driver->run(std::string("server ") + kUrl + " getQuote hello broken");
    const auto got = events(2);
    const Event& request = got[0].event;
    const Event& reply = got[1].event;

    EXPECT_EQ(request.kind(), EventKind::Request);
    EXPECT_EQ(request.flags, 0);
    EXPECT_EQ(request.eventTag, 1);
    EXPECT_EQ(request.url, kUrl);
    EXPECT_EQ(request.opName, "getQuote");
    EXPECT_EQ(request.groupName, "svc");
    EXPECT_EQ(request.groupID->size(), 24U);
    EXPECT_EQ(request.serviceID, kServiceID);
    EXPECT_EQ(request.opID, kOpID);
    EXPECT_EQ(request.peerAddr, "peer.example");
    EXPECT_EQ(request.appType, 8);
    EXPECT_EQ(request.subNode, "node1");
    EXPECT_EQ(request.msgSize, 5);
    EXPECT_FALSE(request.pathID) << "a server's own event carries only a path that it was given";
    EXPECT_EQ(got[0].payload, "hello");
    EXPECT_EQ(got[0].contentType, "text/xml");
    EXPECT_EQ(request.totalSize, request.eventSize + 5);
    EXPECT_EQ(request.mask, 0x880002a8ff2cULL | 0) << std::hex << request.mask;

    EXPECT_EQ(reply.kind(), EventKind::Reply);
    EXPECT_EQ(reply.flags, Event::REPLIED | Event::FAILURE);
    EXPECT_EQ(reply.failure, "broken");
    EXPECT_EQ(reply.msgSize, 7);
    EXPECT_EQ(reply.flowID, request.flowID);
    EXPECT_EQ(reply.interactionID, request.interactionID);
    EXPECT_GE(*reply.time, *request.time + 1);
    EXPECT_FALSE(reply.url || reply.rtTime || reply.subNode);
    EXPECT_EQ(got[0].connection, got[1].connection);
}

TEST_F(EndToEndRoad, ACallLeftUnanalysedIsOneWholeEvent) {
    begin();
    driver->run(std::string("whole ") + kUrl + " -");
    const Event whole = events(1)[0].event;
    EXPECT_EQ(whole.kind(), EventKind::Whole);
    EXPECT_EQ(whole.flags, Event::REPLIED | Event::WHOLE);
    EXPECT_EQ(whole.opID, kServiceID) << "without a name the path stands for the operation too";
    EXPECT_EQ(whole.svcType, -128);
    EXPECT_GE(*whole.rtTime, 1);
}

TEST_F(EndToEndRoad, AClientBelongsToTheServerAroundIt) {
    begin();
    driver->run(std::string("nest ") + kUrl + " getQuote http://back.example/db/rows select");
    const auto got = events(4);
    const Event& server = got[0].event;
    const Event& client = got[1].event;
    EXPECT_FALSE(server.isClient());
    EXPECT_TRUE(client.isClient());
    EXPECT_EQ(client.kind(), EventKind::Request);
    EXPECT_EQ(client.flowID, server.flowID);
    EXPECT_EQ(client.parentID, server.interactionID);
    EXPECT_EQ(client.locus, kOpID);
    EXPECT_EQ(client.sequenceNumber, 1);
    EXPECT_EQ(client.groupName, "db");
    ASSERT_TRUE(client.pPathID) << "the configuration asks for paths";
    EXPECT_EQ(client.pPathID->front(), '~');
    EXPECT_FALSE(client.pathID) << "none was computed, since no header was written";
    EXPECT_EQ(got[2].event.kind(), EventKind::Reply);
    EXPECT_TRUE(got[2].event.isClient());
    EXPECT_FALSE(got[3].event.isClient());
    for (const auto& event : got) EXPECT_EQ(event.connection, got[0].connection);
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

TEST_F(EndToEndRoad, FourThreadsLoseAndReorderNothing) {
    constexpr int kThreads = 4;
    constexpr int kCalls = 50000;
    struct Place {
        int requests = 0;
        int replies = 0;
    };
    Place places[kThreads];
    std::map<std::string, int> open;  // interaction id to thread
    int wrong = 0;
    QZAgent::PeerSettings settings;
    settings.onEvent = [&](const ReceivedEvent& received) {
        const Event& event = received.event;
        if (event.kind() == EventKind::Request) {
            const int thread = event.opName->back() - '0';
            open[*event.interactionID] = thread;
            ++places[thread].requests;
            return;
        }
        const auto found = open.find(*event.interactionID);
        if (found == open.end()) {
            ++wrong;  // a reply in front of its request, or twice
            return;
        }
        ++places[found->second].replies;
        open.erase(found);
    };
    AgentPeer counting(settings);
    started(counting);
    Driver flooding(quick(counting));
    EXPECT_EQ(flooding.ask("flood 4 50000", 240000), "ok");
    flooding.run("flush");
    EXPECT_TRUE(counting.waitFor(
        [](const Counters& c) { return c.events >= 2ULL * kThreads * kCalls; }, kLimit));
    counting.stop();
    EXPECT_EQ(wrong, 0);
    EXPECT_TRUE(open.empty());
    for (const Place& place : places) {
        EXPECT_EQ(place.requests, kCalls);
        EXPECT_EQ(place.replies, kCalls);
    }
    EXPECT_EQ(counting.counters().malformed, 0U);
    flooding.leave();
}

}  // namespace
}  // namespace e2e
