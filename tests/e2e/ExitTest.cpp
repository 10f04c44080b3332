// A process may end at any moment, whatever our two threads are doing.

#include "e2e/Fixture.h"

namespace e2e {
namespace {

constexpr int kRuns = 40;  // of each state, of five

void exitInEach(AgentPeer& agent, const Environment& environment,
                const std::vector<std::string>& lines) {
    for (int i = 0; i < kRuns; ++i) {
        Driver driver(quick(agent, environment));
        for (const auto& line : lines) driver.run(line);
        driver.leave();
        if (testing::Test::HasFailure()) FAIL() << "run " << i;
    }
}

TEST(EndToEndExit, WithNoAgent) {
    AgentPeer agent;
    started(agent).stop();
    exitInEach(agent, {{"com.quenvale.interceptor.sdk.asyncTestFreq", "1"}}, {"spin 2"});
}

TEST(EndToEndExit, BeforeAnythingWasReported) {
    AgentPeer agent;
    exitInEach(started(agent), {}, {});
}

TEST(EndToEndExit, WhileTheWatcherIsInItsHandshake) {
    AgentPeer agent;
    QZAgent::Faults silent;
    silent.silentAccept = true;
    agent.setFaults(silent);
    exitInEach(started(agent), {}, {"spin 1"});
}

TEST(EndToEndExit, WhileEventsFlow) {
    QZAgent::PeerSettings settings;
    settings.onEvent = [](const ReceivedEvent&) {};
    AgentPeer agent(settings);
    exitInEach(started(agent), {{"QZ_INTERCEPTOR_FLUSHINTERVAL", "1"}}, {"spin 2", "flush"});
}

TEST(EndToEndExit, WhileASendIsStuck) {
    AgentPeer agent;
    started(agent);
    QZAgent::Faults slow;
    slow.readChunk = 512;
    slow.readPauseMs = 20;
    agent.setFaults(slow, QZAgent::Port::Events);
    exitInEach(agent, {}, {"server http://host.example/svc/a op - -", "spin 2"});
}

}  // namespace
}  // namespace e2e
