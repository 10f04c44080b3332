#include "agent/AgentPeer.h"

#include "Bytes.h"
#include "harness/loopback.h"

namespace {

using namespace QZAgent;

constexpr int kLimit = 20000;  // ms, for what happens at once on an idle machine

const std::string kHello = bytes("'Quenvale-v2' 00");
const std::string kIdBlock = bytes("09 'qz-agent' 00");
const std::string kAnswer = bytes("00") + kIdBlock + bytes("00");
const std::string kSubscription = bytes("05 03 00 00");

const std::string kMessage = bytes("01 17") + smallestEvent() + bytes("00 00");
const std::size_t kGreeting = kHello.size() + kAnswer.size();

/// A client of the agent.
struct Client : RawSocket {
    explicit Client(int port) : RawSocket(Loopback::connectTo(port)) {}
    /// What the agent says in a handshake that keeps to the protocol.
    std::string greet(std::size_t idSize = kIdBlock.size()) {
        send(kHello);
        const std::string id = receive(idSize);
        send(kAnswer);
        return id + receive(1);
    }
};

/// One that has shaken hands.
struct Meeting : Client {
    explicit Meeting(int port) : Client(port) { EXPECT_EQ(greet(), kIdBlock + "\x01"); }
};

class AgentPeerTest : public ::testing::Test {
protected:
    void start(const PeerSettings& settings = {}) {
        agent = std::make_unique<AgentPeer>(settings);
        ASSERT_TRUE(agent->start()) << agent->error();
    }
    void subscribe(Meeting& client, int count) {
        client.send(kSubscription);
        ASSERT_TRUE(agent->waitForSubscription(count, kLimit));
    }
    bool waitFor(const std::function<bool(const Counters&)>& met) {
        return agent->waitFor(met, kLimit);
    }
    bool waitForMalformed(std::uint64_t count) {
        return waitFor([=](const Counters& seen) { return seen.malformed >= count; });
    }

    std::unique_ptr<AgentPeer> agent;
};

TEST_F(AgentPeerTest, GreetsASubscriberAndTellsItWhatItIsTold) {
    PeerSettings settings;
    settings.config = "cfg";
    start(settings);
    Meeting watcher(agent->controlPort());
    subscribe(watcher, 1);
    EXPECT_EQ(agent->pushConfig("new"), 1);
    EXPECT_EQ(agent->sendStabilizers({"a", "bc"}), 1);
    EXPECT_EQ(agent->updateStabilizers({"d"}, {"a"}), 1);
    EXPECT_EQ(agent->sendRaw(bytes("09")), 1);
    EXPECT_EQ(watcher.receive(27), bytes("04 04'cfg'00 04 04'new'00 06 02 02'a'03'bc' "
                                         "07 01 02'd' 01 02'a' 09"));
    Meeting later(agent->controlPort());
    subscribe(later, 2);
    EXPECT_EQ(later.receive(6), bytes("04 04 'new' 00"));
}

TEST_F(AgentPeerTest, KeepsEventsInTheOrderOfTheirArrivalAndClosesByRole) {
    start();
    Meeting first(agent->eventsPort());
    first.send(kMessage + kMessage);
    ASSERT_EQ(agent->waitForEvents(2, kLimit).size(), 2u);
    Meeting second(agent->controlPort());
    second.send(kMessage);
    const auto events = agent->waitForEvents(3, kLimit);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].arrival, 2u);
    EXPECT_EQ(events[1].connection, 1);
    EXPECT_EQ(events[2].connection, 2);
    const Counters counters = agent->counters();
    EXPECT_EQ(counters.replies, 3u);
    EXPECT_EQ(counters.eventStreams, 2);
    EXPECT_EQ(counters.controlConnections, 1);
    EXPECT_EQ(counters.bytes, 2 * kGreeting + 3 * kMessage.size());

    Meeting watcher(agent->controlPort());
    subscribe(watcher, 1);
    EXPECT_EQ(agent->closeConnections(Role::EventStream, true), 2);
    EXPECT_EQ(first.outcome(), "reset");
    EXPECT_EQ(agent->counters().openConnections, 1);
    EXPECT_EQ(agent->closeConnections(Role::Watcher), 1);
    watcher.receive(1 + 1 + agent->config().size() + 1);
    EXPECT_EQ(watcher.outcome(), "end");
}

TEST_F(AgentPeerTest, RefusesWhatIsNoHandshake) {
    start();
    const std::string rows[] = {
        "GET / HTTP/1.1\r\n",
        bytes("'Quenvale-v2' 01"),
        kHello + bytes("02 'm' 03"),
        kHello + bytes("00") + kIdBlock + bytes("07"),
    };
    int failed = 0;
    for (const std::string& row : rows) {
        SCOPED_TRACE(row);
        Client client(agent->controlPort());
        client.send(row);
        ++failed;
        EXPECT_TRUE(waitFor([=](const Counters& seen) {
            return seen.failedHandshakes == failed && seen.openConnections == 0;
        }));
    }
    EXPECT_EQ(agent->counters().handshakes, 0);
    Client client(agent->controlPort());
    client.send(kHello + bytes("03 'me' 02 04 'abc' 09 'OTHER' 00*3 00 00"));
    EXPECT_EQ(client.receive(kIdBlock.size() + 1), kIdBlock + "\x01")
        << "credentials and the echo of another agent's id";
}

TEST_F(AgentPeerTest, ReportsWhatIsNoMessageDropsTheConnectionAndGoesOn) {
    start();
    const struct {
        std::string sent;
        std::size_t offset;
        const char* reason;
    } rows[] = {
        {bytes("07"), 0, "first byte behind the handshake is 7 and neither 1 nor 5"},
        {bytes("05 03 01"), 2, "byte 2 of the subscription is 1"},
        {kSubscription + bytes("00"), 4, "a subscriber has nothing more to send"},
        {kMessage + bytes("01 01"), kMessage.size() + 1, "head: 21 bytes wanted, 0 are left"},
    };
    std::uint64_t count = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reason);
        Meeting meeting(agent->eventsPort());
        meeting.send(row.sent);
        ASSERT_TRUE(waitForMalformed(++count));
        EXPECT_EQ(agent->malformed().back().offset, kGreeting + row.offset);
        EXPECT_EQ(agent->malformed().back().reason, row.reason);
        meeting.receive(1000);
    }
    EXPECT_EQ(agent->events().size(), 1u);
    { Meeting(agent->eventsPort()).send(kMessage.substr(0, 10)); }
    EXPECT_TRUE(waitFor([](const Counters& seen) { return seen.cut == 1; }))
        << "a connection that ends inside a message is no malformed one";
    EXPECT_EQ(agent->counters().malformed, count);
}

TEST_F(AgentPeerTest, BoundsWhatUnfinishedMessagesHold) {
    PeerSettings settings;
    settings.bufferLimit = 150;
    start(settings);
    const std::string part = bytes("01 80 08") + std::string(100, 'x');
    Meeting first(agent->eventsPort());
    first.send(part);
    const std::uint64_t enough = kGreeting + part.size();
    ASSERT_TRUE(waitFor([=](const Counters& seen) { return seen.bytes >= enough; }));
    Meeting second(agent->eventsPort());
    second.send(part);
    ASSERT_TRUE(waitForMalformed(1));
    EXPECT_EQ(agent->malformed()[0].reason, "unfinished messages hold too many bytes");
    EXPECT_EQ(agent->malformed()[0].connection, 2);
    // What the dropped one held is free again.
    Meeting third(agent->eventsPort());
    for (const std::size_t count : {1u, 2u}) {
        third.send(kMessage);
        EXPECT_EQ(agent->waitForEvents(count, kLimit).size(), count);
    }
}

TEST_F(AgentPeerTest, MisbehavesAsAsked) {
    const struct {
        const char* why;
        void (*set)(Faults&);
        std::size_t idSize;
        const char* answer;
    } rows[] = {
        {"refuse", [](Faults& f) { f.refuse = true; }, 1, ""},
        {"empty id", [](Faults& f) { f.emptyId = true; }, 1, "01 01"},
        {"accept byte", [](Faults& f) { f.acceptByte = 9; }, 10, "09 'qz-agent' 00 09"},
        {"garbage", [](Faults& f) { f.garbage = bytes("FF FE"); }, 2, "FF FE 01"},
        {"closed in the answer", [](Faults& f) { f.closeAfterBytes = 15; }, 10, "09 'qz-agent' 00"},
        {"closed behind it", [](Faults& f) { f.closeAfterEventBytes = 0; }, 10,
         "09 'qz-agent' 00 01"},
    };
    start();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Faults faults;
        row.set(faults);
        agent->setFaults(faults, Port::Control);
        Client client(agent->controlPort());
        EXPECT_EQ(client.greet(row.idSize), bytes(row.answer));
    }
    const Meeting spared(agent->eventsPort());
}

TEST_F(AgentPeerTest, StaysSilentAndReadsSlowlyOrNotAtAll) {
    start();
    Faults faults;
    faults.silentId = faults.silentAccept = faults.withholdConfig = true;
    agent->setFaults(faults);
    Client client(agent->controlPort());
    client.send(kHello + kAnswer + kSubscription);
    ASSERT_TRUE(agent->waitForSubscription(1, kLimit));
    agent->sendRaw("!");
    EXPECT_EQ(client.receive(1), "!") << "neither id nor accept byte nor configuration";
    EXPECT_EQ(agent->counters().handshakes, 0);
    faults = Faults();
    faults.readChunk = 7;
    faults.readPauseMs = 1;
    agent->setFaults(faults, Port::Events);
    agent->pauseReading(true);
    const auto before = agent->counters().bytes;
    Client slow(agent->eventsPort());
    slow.send(kHello + kAnswer + kMessage);
    ASSERT_TRUE(waitFor([](const Counters& c) { return c.eventConnections == 1; }));
    EXPECT_EQ(agent->counters().bytes, before);
    agent->pauseReading(false);
    EXPECT_EQ(agent->waitForEvents(1, kLimit).size(), 1u);
}

TEST_F(AgentPeerTest, ComesBackOnItsPortsWithWhatItKnew) {
    start();
    const int control = agent->controlPort();
    const int events = agent->eventsPort();
    agent->pushConfig("kept");
    Meeting before(events);
    before.send(kMessage);
    ASSERT_EQ(agent->waitForEvents(1, kLimit).size(), 1u);
    agent->stop();
    EXPECT_EQ(before.outcome(), "end");
    EXPECT_EQ(Loopback::connectTo(control), -1);
    {
        const RawSocket thief(Loopback::listenOn(control));
        EXPECT_FALSE(agent->start());
        EXPECT_NE(agent->error().find("can't listen on 127.0.0.1:"), std::string::npos);
    }
    ASSERT_TRUE(agent->start()) << agent->error();
    EXPECT_EQ(agent->controlPort(), control);
    EXPECT_EQ(agent->eventsPort(), events);
    Meeting after(events);
    after.send(kMessage);
    EXPECT_EQ(agent->waitForEvents(2, kLimit).size(), 2u);
    EXPECT_EQ(agent->config(), "kept");
}

TEST_F(AgentPeerTest, GivesEventsOfManyConnectionsToACallbackThatMayUseThePeer) {
    constexpr int each = 500;
    std::atomic<int> seen{0};
    PeerSettings settings;
    settings.onEvent = [&](const ReceivedEvent&) {
        if (++seen == each) agent->pushConfig("from the callback");
    };
    start(settings);
    const auto send = [&] {
        Meeting meeting(agent->eventsPort());
        for (int sent = 0; sent < each; ++sent) meeting.send(kMessage);
    };
    harness::onThreads(send, send, send, send, [&] {
        for (int i = 0; i < 50; ++i) agent->sendStabilizers({"s"});
    });
    EXPECT_TRUE(waitFor([](const Counters& now) { return now.events == 4 * each; }));
    EXPECT_EQ(seen, 4 * each);
    EXPECT_TRUE(agent->events().empty());
    EXPECT_EQ(agent->config(), "from the callback");
}

}  // namespace
