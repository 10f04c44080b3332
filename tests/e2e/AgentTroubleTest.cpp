// What the agent may do: no failure reaches the caller, and reporting goes on.

#include "e2e/Fixture.h"

namespace e2e {
namespace {

constexpr const char* kCall = "server http://host.example/svc/a op - -";

/// Calls until the agent has something: reports made while the agent is away are dropped.
void callUntil(Driver& driver, AgentPeer& agent, std::size_t events) {
    for (int i = 0; i < 2000 && agent.waitForEvents(events, 20).size() < events; ++i)
        driver.run(kCall);
    EXPECT_GE(agent.waitForEvents(events, 0).size(), events);
}

TEST(EndToEndTrouble, AnAgentThatComesLateAndComesBackIsFound) {
    AgentPeer agent;
    started(agent).stop();
    Driver driver(quick(agent));
    driver.run(kCall);  // Waits for one refused connect and no longer.
    for (int i = 0; i < 2; ++i) {
        agent.forgetEvents();
        started(agent);
        callUntil(driver, agent, 2);
        agent.stop();
        EXPECT_EQ(driver.ask("flood 4 2000"), "ok") << "no agent holds nobody up";
        driver.run("flush");
    }
    driver.leave();
}

TEST(EndToEndTrouble, EveryFaultIsSurvivedAndTheNextConnectionWorks) {
    using QZAgent::Faults;
    const struct {
        const char* why;
        void (*set)(Faults&);
    } rows[] = {
        {"refuses", [](Faults& f) { f.refuse = true; }},
        {"an id block of no bytes", [](Faults& f) { f.emptyId = true; }},
        {"another byte than 1 at the end", [](Faults& f) { f.acceptByte = 0; }},
        {"garbage instead of the id", [](Faults& f) { f.garbage = "\xff\xff\xff\xff\x7f"; }},
        {"closes inside the handshake", [](Faults& f) { f.closeAfterBytes = 13; }},
        {"resets inside the handshake",
         [](Faults& f) { f.closeAfterBytes = 13, f.closeByReset = true; }},
        {"closes behind the handshake", [](Faults& f) { f.closeAfterEventBytes = 2; }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Faults faults;
        row.set(faults);
        for (const QZAgent::Port port : {QZAgent::Port::Control, QZAgent::Port::Events}) {
            AgentPeer agent;
            agent.setFaults(faults, port);
            Driver driver(quick(started(agent)));
            for (int i = 0; i < 3; ++i) driver.run(kCall);
            agent.setFaults(Faults(), port);
            callUntil(driver, agent, 2);
            driver.leave();
        }
    }
}

TEST(EndToEndTrouble, AnAgentThatSaysNothingIsGivenUpAfterSeconds) {
    AgentPeer agent;
    QZAgent::Faults silent;
    silent.silentId = true;
    agent.setFaults(silent);
    Driver driver(quick(started(agent)));
    EXPECT_EQ(driver.ask(kCall, 30000), "ok") << "the first report waits for the time-out only";
    agent.setFaults(QZAgent::Faults());
    callUntil(driver, agent, 2);
    driver.leave();
}

// The first write to a connection that was closed orderly still succeeds, and its event is lost
// with it; from the second on the retry rule holds.
TEST(EndToEndTrouble, AConnectionThatDiesUnderABatchTakesOneEventAtMost) {
    const struct {
        int pool;
        bool byReset;
        std::size_t events;  // Of four.
    } rows[] = {{1, false, 3}, {1, true, 4}, {2, false, 2}};
    for (const auto& row : rows) {
        AgentPeer agent;
        Driver driver(quick(started(agent), {{"QZ_INTERCEPTOR_POOL", std::to_string(row.pool)},
                                             {"QZ_INTERCEPTOR_FLUSHINTERVAL", "3600000"}}));
        std::uint64_t reported = 0;
        // Four threads come to use all of the pool; the watcher's connection is one more.
        while (agent.counters().openConnections <= row.pool && reported < 1000000) {
            driver.run("flood 4 2000");
            driver.run("flush");
            reported += 2 * 4 * 2000;
        }
        driver.run("open http://host.example/svc/a op");
        driver.run("flush");
        EXPECT_TRUE(agent.waitFor([=](const Counters& c) { return c.events > reported; }, kLimit));
        agent.closeConnections(QZAgent::Role::EventStream, row.byReset);
        agent.forgetEvents();
        driver.run("close");
        for (int i = 0; i < 3; ++i) driver.run("whole http://host.example/svc/a op");
        driver.run("flush");
        EXPECT_EQ(agent.waitForEvents(row.events, kLimit).size(), row.events) << row.pool;
        driver.leave();
    }
}

TEST(EndToEndTrouble, ANewConfigurationMovesTheEvents) {
    AgentPeer agent;
    Driver driver(quick(started(agent)));
    callUntil(driver, agent, 2);
    const int port = agent.moveEvents();
    QZAgent::ConfigText config = QZAgent::ConfigText::reportAll("127.0.0.1", port);
    config.eventTag = 5;
    EXPECT_EQ(agent.pushConfig(config), 1);
    for (int i = 0; i < 2000; ++i) {
        agent.forgetEvents();
        callUntil(driver, agent, 2);
        if (agent.events().back().event.eventTag == 5) break;
    }
    EXPECT_EQ(agent.events().back().event.eventTag, 5);
    agent.sendStabilizers({"a", "b"});
    agent.updateStabilizers({"c"}, {"a"});
    EXPECT_EQ(agent.counters().subscriptions, 1) << "stabilizers leave the connection as it is";
    agent.sendRaw("\x05");
    EXPECT_TRUE(agent.waitForSubscription(2, kLimit)) << "an unknown message ends it";
    agent.forgetEvents();
    callUntil(driver, agent, 2);
    driver.leave();
}

TEST(EndToEndTrouble, AProcessThatCannotHaveThreadsGoesOn) {
    if (*QZ_LONELY_DRIVER == '\0') GTEST_SKIP() << "a sanitizer needs threads of its own";
    AgentPeer agent;
    Driver driver(quick(started(agent)), QZ_LONELY_DRIVER);
    for (int i = 0; i < 3; ++i) driver.run(kCall);
    driver.run("flush");
    driver.leave();
    EXPECT_EQ(agent.counters().controlConnections, 0);
}

TEST(EndToEndTrouble, BlocksThatHoldNoMoreThanWasAskedForAreKeptAsSuch) {
    if (*QZ_MALLOC_DRIVER == '\0') GTEST_SKIP() << "a sanitizer needs malloc of its own";
    AgentPeer agent;
    Driver driver(quick(started(agent)), QZ_MALLOC_DRIVER);
    driver.run("records 100");
    driver.run(kCall);
    driver.leave();
}

}  // namespace
}  // namespace e2e
