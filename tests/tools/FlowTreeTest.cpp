// Flows drawn from events alone: who stands under whom, when a flow is drawn, and what is kept.
#include "agent/FlowTree.h"
#include "harness/test.h"

namespace {

using namespace QZAgent;

std::int64_t ourTime = 1795390449000;

Event request(const char* flow, bool isClient, const char* id, const char* caller,
              const char* url) {
    Event event;
    event.flags = isClient ? Event::CLIENT : 0;
    event.flowID = flow;
    event.interactionID = id;
    if (*caller != '\0') (isClient ? event.parentID : event.upstreamInteractionID) = caller;
    event.opName = "GET";
    event.url = url;
    event.subNode = isClient ? std::nullopt : std::optional<std::string>("vm");
    event.time = ourTime++;
    return event;
}

Event reply(const Event& request) {
    Event event = request;
    event.flags |= Event::REPLIED;
    event.time = ourTime++;
    return event;
}

class FlowTreeTest : public ::testing::Test {
protected:
    void add(const Event& event) { itsText += itsTree.add(event, itsNow); }
    void addBoth(const Event& event) {
        add(event);
        add(reply(event));
    }
    std::string drawn(std::int64_t later) {
        itsNow += later;
        std::string text = std::move(itsText) + itsTree.drawComplete(itsNow);
        itsText.clear();
        return text;
    }
    std::string left() { return itsTree.drawAll(); }

    FlowLimits itsLimits = [] {
        FlowLimits limits;
        limits.flows = 2;
        limits.interactionsPerFlow = 3;
        return limits;
    }();
    FlowTree itsTree{itsLimits};
    std::int64_t itsNow = 5;
    std::string itsText;
};

TEST_F(FlowTreeTest, JoinsProcessesInWhateverOrderTheirEventsCome) {
    ourTime = 1795390449000;
    const Event gateway = request("f", false, "s1", "", "/a");
    Event client = request("f", true, "c1", "s1", "/b");
    Event backend = request("f", false, "s2", "c1", "/b");
    // What the server made up itself ties it to nobody.
    backend.parentID = "s1";
    backend.incomingCheckpoints = {{"far", *gateway.time}, {"near", 7}};
    backend.newCheckpoints = {"own"};
    Event failed = reply(backend);
    failed.failure = "no\nmore";
    addBoth(client);
    EXPECT_EQ(drawn(itsLimits.patience), "") << "its server is not here yet";
    add(backend);
    add(failed);
    add(gateway);
    EXPECT_EQ(drawn(itsLimits.patience), "") << "it has no reply yet";
    add(reply(gateway));
    EXPECT_EQ(drawn(itsLimits.settled - 1), "") << "more may come";
    EXPECT_EQ(drawn(1),
              "flow f: 3 interactions in 5 ms, 1 failed\n"
              "server GET /a at +0 ms, took 5 ms\n"
              "    `-- client GET /b at +1 ms, took 3 ms\n"
              "        `-- server GET /b at +2 ms, took 1 ms, FAILED: no\\x0amore\n"
              "            * passed far at +0 ms\n"
              "            * passed near 7 ms\n"
              "            * checkpoint own\n\n");
    EXPECT_EQ(left(), "");
}

TEST_F(FlowTreeTest, WaitsForAServerThatMayStillAnswer) {
    addBoth(request("f", false, "s1", "", "/a"));
    addBoth(request("f", true, "c1", "s1", "/a"));
    EXPECT_EQ(drawn(itsLimits.patience - 1), "");
    EXPECT_NE(drawn(1).find("`-- client GET /a"), std::string::npos);

    addBoth(request("g", false, "s1", "", "/a"));
    addBoth(request("g", true, "c1", "s1", "/a"));
    addBoth(request("g", false, "s2", "c1", "/a"));
    EXPECT_NE(drawn(itsLimits.settled).find("`-- sub-request GET /a"), std::string::npos);
}

TEST_F(FlowTreeTest, AnEventOfBothSidesHasTheTimeOfTheEnd) {
    Event whole = request("f", false, "s1", "", "/a");
    whole.flags |= Event::REPLIED | Event::WHOLE;
    whole.rtTime = 40;
    whole.failed = 1;
    add(whole);
    EXPECT_EQ(left(),
              "flow f: 1 interaction in 40 ms, 1 failed\n"
              "server GET /a at +0 ms, took 40 ms, FAILED\n\n");
}

TEST_F(FlowTreeTest, SaysWhatIsMissing) {
    addBoth(request("f", false, "s1", "gone", "/a"));
    add(request("f", true, "c1", "lost", "/b"));
    add(reply(request("f", true, "c2", "", "")));
    addBoth(request("circle", false, "s1", "c1", "/in"));
    addBoth(request("circle", true, "c1", "s1", "/out"));
    const std::string text = left();
    for (const char* const part :
         {"1 without a reply, 3 unjoined\n", "unjoined: client gone is not here",
          "no reply, unjoined: server lost is not here", "client c2, its request is not here",
          "1 unjoined\nserver GET /in"})
        EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
    EXPECT_EQ(text.find("/in"), text.rfind("/in")) << "callers in a circle are drawn once";
}

TEST_F(FlowTreeTest, KeepsNoMoreThanItsLimits) {
    add(request("one", false, "s1", "", "/a"));
    add(request("two", false, "s1", "", "/a"));
    add(request("one", false, "s2", "", "/a"));
    EXPECT_EQ(drawn(0), "");
    add(request("three", false, "s1", "", "/a"));
    EXPECT_EQ(drawn(0).rfind("flow two: 1 interaction ", 0), 0u) << "the one silent for longest";
    for (const char* const id : {"s2", "s3", "s4", "s5"})
        add(request("three", false, id, "", "/a"));
    EXPECT_NE(left().find("3 without a reply, 2 more events are left out"), std::string::npos);
}

}  // namespace
