#include "agent/AgentPeer.h"

#include "Bytes.h"
#include "agent/Wire.h"
#include "harness/loopback.h"

namespace {

using QZAgent::AgentPeer;
using QZAgent::Counters;
using QZAgent::Faults;
using QZAgent::PeerSettings;
using QZAgent::Port;
using QZAgent::Role;

constexpr int kLimit = 20000;  // ms, for what happens at once on an idle machine

const std::string kHello = bytes("'Quenvale-v2' 00");
const std::string kIdBlock = bytes("09 'qz-agent' 00");
const std::string kAnswer = bytes("00") + kIdBlock + bytes("00");
const std::string kSubscription = bytes("05 03 00 00");

std::string plainMessage() {
    return bytes("01 17") + smallestEvent() + bytes("00 00");
}

PeerSettings withConfig(const std::string& text) {
    PeerSettings settings;
    settings.config = text;
    return settings;
}

/// What an agent with these faults does to a client that keeps to the protocol.
struct Meeting {
    explicit Meeting(int port) : client(Loopback::connectTo(port)) {
        client.send(kHello);
        id = client.receive(kIdBlock.size());
        client.send(kAnswer);
        accept = client.receive(1);
    }
    RawSocket client;
    std::string id;
    std::string accept;
};

class AgentPeerTest : public ::testing::Test {
protected:
    void startWith(const PeerSettings& settings) {
        agent = std::make_unique<AgentPeer>(settings);
        ASSERT_TRUE(agent->start()) << agent->error();
    }
    void subscribe(RawSocket& client, int count) {
        client.send(kSubscription);
        ASSERT_TRUE(agent->waitForSubscription(count, kLimit));
    }
    bool waitForMalformed(std::uint64_t count) {
        return agent->waitFor([=](const Counters& seen) { return seen.malformed >= count; },
                              kLimit);
    }

    std::unique_ptr<AgentPeer> agent;
};

TEST_F(AgentPeerTest, GreetsASubscriberAndTellsItWhatItIsTold) {
    startWith(withConfig("cfg"));
    Meeting watcher(agent->controlPort());
    EXPECT_EQ(watcher.id, kIdBlock);
    EXPECT_EQ(watcher.accept, "\x01");
    subscribe(watcher.client, 1);
    EXPECT_EQ(watcher.client.receive(6), bytes("04 04 'cfg' 00"));
    EXPECT_EQ(agent->pushConfig("new"), 1);
    EXPECT_EQ(agent->sendStabilizers({"a", "bc"}), 1);
    EXPECT_EQ(agent->updateStabilizers({"d"}, {"a"}), 1);
    EXPECT_EQ(agent->sendRaw(bytes("09")), 1);
    EXPECT_EQ(watcher.client.receive(6), bytes("04 04 'new' 00"));
    EXPECT_EQ(watcher.client.receive(7), bytes("06 02 02 'a' 03 'bc'"));
    EXPECT_EQ(watcher.client.receive(7), bytes("07 01 02 'd' 01 02 'a'"));
    EXPECT_EQ(watcher.client.receive(1), bytes("09"));
    Meeting later(agent->controlPort());
    subscribe(later.client, 2);
    EXPECT_EQ(later.client.receive(6), bytes("04 04 'new' 00"));
}

TEST_F(AgentPeerTest, KeepsEventsInTheOrderOfTheirArrivalAndClosesByRole) {
    startWith(PeerSettings());
    Meeting first(agent->eventsPort());
    first.client.send(plainMessage() + plainMessage());
    ASSERT_EQ(agent->waitForEvents(2, kLimit).size(), 2u);
    Meeting second(agent->controlPort());
    second.client.send(plainMessage());
    const auto events = agent->waitForEvents(3, kLimit);
    ASSERT_EQ(events.size(), 3u);
    EXPECT_EQ(events[2].arrival, 2u);
    EXPECT_EQ(events[1].connection, 1);
    EXPECT_EQ(events[2].connection, 2);
    const Counters counters = agent->counters();
    EXPECT_EQ(counters.replies, 3u);
    EXPECT_EQ(counters.eventStreams, 2);
    EXPECT_EQ(counters.controlConnections, 1);
    EXPECT_EQ(counters.bytes, 2 * (kHello.size() + kAnswer.size()) + 3 * plainMessage().size());

    Meeting watcher(agent->controlPort());
    subscribe(watcher.client, 1);
    EXPECT_EQ(agent->closeConnections(Role::EventStream, true), 2);
    EXPECT_EQ(first.client.outcome(), "reset");
    EXPECT_EQ(agent->counters().openConnections, 1);
    EXPECT_EQ(agent->closeConnections(Role::Watcher), 1);
    watcher.client.receive(1 + 1 + agent->config().size() + 1);
    EXPECT_EQ(watcher.client.outcome(), "end");
}

TEST_F(AgentPeerTest, RefusesWhatIsNoHandshake) {
    startWith(PeerSettings());
    const struct {
        const char* why;
        std::string sent;
    } rows[] = {
        {"another protocol", "GET / HTTP/1.1\r\n"},
        {"hello without its zero byte", bytes("'Quenvale-v2' 01")},
        {"unknown credentials", kHello + bytes("02 'm' 03")},
        {"last byte", kHello + bytes("00") + kIdBlock + bytes("07")},
    };
    int failed = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        RawSocket client(Loopback::connectTo(agent->controlPort()));
        client.send(row.sent);
        ++failed;
        EXPECT_TRUE(agent->waitFor(
            [=](const Counters& seen) {
                return seen.failedHandshakes == failed && seen.openConnections == 0;
            },
            kLimit));
    }
    EXPECT_EQ(agent->counters().handshakes, 0);
    RawSocket client(Loopback::connectTo(agent->controlPort()));
    client.send(kHello + bytes("03 'me' 02 04 'abc' 09 'OTHER' 00*3 00 00"));
    EXPECT_EQ(client.receive(kIdBlock.size() + 1), kIdBlock + "\x01")
        << "credentials and the echo of another agent's id";
}

TEST_F(AgentPeerTest, ReportsWhatIsNoMessageDropsTheConnectionAndGoesOn) {
    startWith(PeerSettings());
    const std::size_t behind = kHello.size() + kAnswer.size();
    const struct {
        const char* why;
        std::string sent;
        std::size_t offset;
        const char* reason;
    } rows[] = {
        {"neither", bytes("07"), behind,
         "first byte behind the handshake is 7 and neither 1 nor 5"},
        {"subscription", bytes("05 03 01"), behind + 2, "byte 2 of the subscription is 1"},
        {"talkative", kSubscription + bytes("00"), behind + 4,
         "a subscriber has nothing more to send"},
        {"second event", plainMessage() + bytes("01 01"), behind + plainMessage().size() + 1,
         "head: 21 bytes wanted, 0 are left"},
    };
    std::uint64_t count = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Meeting meeting(agent->eventsPort());
        meeting.client.send(row.sent);
        ASSERT_TRUE(waitForMalformed(++count));
        EXPECT_EQ(agent->malformed().back().offset, row.offset);
        EXPECT_EQ(agent->malformed().back().reason, row.reason);
        meeting.client.receive(1000);
    }
    EXPECT_EQ(agent->events().size(), 1u);
    { Meeting(agent->eventsPort()).client.send(plainMessage().substr(0, 10)); }
    EXPECT_TRUE(agent->waitFor([](const Counters& seen) { return seen.cut == 1; }, kLimit))
        << "a connection that ends inside a message is no malformed one";
    EXPECT_EQ(agent->counters().malformed, count);
}

TEST_F(AgentPeerTest, BoundsWhatUnfinishedMessagesHold) {
    PeerSettings settings;
    settings.bufferLimit = 150;
    startWith(settings);
    const std::string part = bytes("01 80 08") + std::string(100, 'x');
    Meeting first(agent->eventsPort());
    first.client.send(part);
    const std::uint64_t enough = kHello.size() + kAnswer.size() + part.size();
    ASSERT_TRUE(agent->waitFor([=](const Counters& seen) { return seen.bytes >= enough; }, kLimit));
    Meeting second(agent->eventsPort());
    second.client.send(part);
    ASSERT_TRUE(waitForMalformed(1));
    EXPECT_EQ(agent->malformed()[0].reason, "unfinished messages hold too many bytes");
    EXPECT_EQ(agent->malformed()[0].connection, 2);
    // What the dropped one held is free again.
    Meeting third(agent->eventsPort());
    third.client.send(plainMessage());
    EXPECT_EQ(agent->waitForEvents(1, kLimit).size(), 1u);
}

TEST_F(AgentPeerTest, MisbehavesAsAsked) {
    const struct {
        const char* why;
        void (*set)(Faults&);
        const char *id, *accept;
    } rows[] = {
        {"refuse", [](Faults& f) { f.refuse = true; }, "", ""},
        {"empty id", [](Faults& f) { f.emptyId = true; }, "01", "01"},
        {"wrong accept byte", [](Faults& f) { f.acceptByte = 9; }, "09 'qz-agent' 00", "09"},
        {"garbage", [](Faults& f) { f.garbage = bytes("FF FE"); }, "FF FE", "01"},
        {"closed in the answer", [](Faults& f) { f.closeAfterBytes = 15; }, "09 'qz-agent' 00", ""},
        {"closed at once behind the handshake", [](Faults& f) { f.closeAfterEventBytes = 0; },
         "09 'qz-agent' 00", "01"},
    };
    startWith(PeerSettings());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Faults faults;
        row.set(faults);
        agent->setFaults(faults, Port::Control);
        const std::string id = bytes(row.id);
        RawSocket client(Loopback::connectTo(agent->controlPort()));
        client.send(kHello);
        EXPECT_EQ(client.receive(id.empty() ? 1 : id.size()), id);
        client.send(kAnswer);
        EXPECT_EQ(client.receive(1), bytes(row.accept));
    }
    Meeting spared(agent->eventsPort());
    EXPECT_EQ(spared.accept, "\x01");
}

TEST_F(AgentPeerTest, StaysSilentAndReadsSlowlyOrNotAtAll) {
    startWith(PeerSettings());
    Faults faults;
    faults.silentId = faults.silentAccept = faults.withholdConfig = true;
    agent->setFaults(faults);
    RawSocket client(Loopback::connectTo(agent->controlPort()));
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
    RawSocket slow(Loopback::connectTo(agent->eventsPort()));
    slow.send(kHello + kAnswer + plainMessage());
    ASSERT_TRUE(agent->waitFor([](const Counters& c) { return c.eventConnections == 1; }, kLimit));
    EXPECT_EQ(agent->counters().bytes, before);
    agent->pauseReading(false);
    EXPECT_EQ(agent->waitForEvents(1, kLimit).size(), 1u);
}

TEST_F(AgentPeerTest, ComesBackOnItsPortsWithWhatItKnew) {
    startWith(PeerSettings());
    const int control = agent->controlPort();
    const int events = agent->eventsPort();
    agent->pushConfig("kept");
    Meeting before(events);
    before.client.send(plainMessage());
    ASSERT_EQ(agent->waitForEvents(1, kLimit).size(), 1u);
    agent->stop();
    EXPECT_EQ(before.client.outcome(), "end");
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
    after.client.send(plainMessage());
    EXPECT_EQ(agent->waitForEvents(2, kLimit).size(), 2u);
    EXPECT_EQ(agent->config(), "kept");
}

TEST_F(AgentPeerTest, GivesEventsOfManyConnectionsToACallbackThatMayUseThePeer) {
    constexpr int each = 500;
    std::atomic<int> seen{0};
    PeerSettings settings;
    settings.onEvent = [&](const QZAgent::ReceivedEvent&) {
        if (++seen == each) agent->pushConfig("from the callback");
    };
    startWith(settings);
    std::vector<std::thread> senders;
    for (int i = 0; i < 4; ++i) {
        senders.emplace_back([&] {
            Meeting meeting(agent->eventsPort());
            for (int sent = 0; sent < each; ++sent) meeting.client.send(plainMessage());
        });
    }
    // Others ask and order meanwhile.
    for (int i = 0; i < 50; ++i) agent->sendStabilizers({"s"});
    for (std::thread& sender : senders) sender.join();
    EXPECT_TRUE(agent->waitFor([](const Counters& now) { return now.events == 4 * each; }, kLimit));
    EXPECT_EQ(seen, 4 * each);
    EXPECT_TRUE(agent->events().empty());
    EXPECT_EQ(agent->config(), "from the callback");
}

}  // namespace
