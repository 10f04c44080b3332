// A process may end at any moment, whatever our two threads are doing.

#include "e2e/Fixture.h"

namespace e2e {
namespace {

TEST(EndToEndExit, IsCleanWhateverOurThreadsAreDoing) {
    QZAgent::Faults none, silent, slow;
    silent.silentAccept = true;
    slow.readChunk = 512;
    slow.readPauseMs = 20;
    const Environment noAgent = {{"QUENVALE_BOOTSTRAP_URL", "tcp://127.0.0.1:1"},
                                 {"com.quenvale.interceptor.sdk.asyncTestFreq", "1"}};
    const struct {
        const char* when;
        QZAgent::Faults faults;
        Environment environment;
        std::vector<std::string> lines;
    } rows[] = {
        {"nothing was reported", none, {}, {}},
        {"no agent", none, noAgent, {"spin 2"}},
        {"in the watcher's handshake", silent, {}, {"spin 1"}},
        {"events flow", none, {{"QZ_INTERCEPTOR_FLUSHINTERVAL", "1"}}, {"spin 2", "flush"}},
        {"a send is stuck", slow, {}, {"server http://host.example/a op - -", "spin 2"}},
    };
    for (const auto& row : rows) {
        QZAgent::PeerSettings settings;
        settings.onEvent = [](const ReceivedEvent&) {};
        AgentPeer agent(settings);
        agent.setFaults(row.faults);
        started(agent);
        for (int i = 0; i < 40 && !HasFailure(); ++i) {
            SCOPED_TRACE(row.when + (", run " + std::to_string(i)));
            Driver driver(quick(agent, row.environment));
            for (const auto& line : row.lines) driver.run(line);
            driver.leave();
        }
    }
}

}  // namespace
}  // namespace e2e
