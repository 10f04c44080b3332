#pragma once

#include "agent/AgentPeer.h"
#include "harness/Child.h"
#include "harness/test.h"

namespace e2e {

using QZAgent::AgentPeer;
using QZAgent::Counters;
using QZAgent::Event;
using QZAgent::EventKind;
using QZAgent::ReceivedEvent;
using Environment = std::map<std::string, std::string>;

constexpr int kLimit = 60000;  // ms; only a hanging test meets it

/// Quick watcher and flusher, so that a test waits for events and not for the clock.
inline Environment quick(const AgentPeer& agent, const Environment& more = {}) {
    Environment e = {{"QUENVALE_BOOTSTRAP_URL", agent.bootstrapUrl()},
                     {"com.quenvale.interceptor.sdk.asyncTestFreq", "50"},
                     {"QZ_INTERCEPTOR_FLUSHINTERVAL", "20"},
                     {"QZ_INTERCEPTOR_MAXAGE", "20"},
                     {"com.quenvale.qz.interceptor.sdk.ServerInstance", "node1"}};
    for (const auto& [name, value] : more) e[name] = value;
    return e;
}

/// An instrumented process.
class Driver : public harness::Child {
public:
    explicit Driver(const Environment& environment, const char* program = QZ_DRIVER)
        : Child(program, {}, environment) {}

    void run(const std::string& line) { EXPECT_EQ(ask(line), "ok") << line; }
    void leave() {
        tell("exit");
        EXPECT_EQ(wait(), 0);
    }
};

inline AgentPeer& started(AgentPeer& agent) {
    EXPECT_TRUE(agent.start()) << agent.error();
    return agent;
}

}  // namespace e2e
