#pragma once

namespace Quenvale::Interceptor::SDK {

/// While one lives, servers that its thread creates have their flow ids from the start. It is for a
/// caller that reads the id next: two ids at once cost less than one and another, and nobody else
/// can be asking for it yet. A host's correlator could be, and gets its servers without.
class FlowIDWanted {
public:
    FlowIDWanted() { ourIsWanted = true; }
    ~FlowIDWanted() { ourIsWanted = false; }
    FlowIDWanted(const FlowIDWanted&) = delete;
    FlowIDWanted& operator=(const FlowIDWanted&) = delete;

    /// Whether the calling thread has one.
    static bool isWanted() { return ourIsWanted; }

private:
    static __thread bool ourIsWanted __attribute__((tls_model("initial-exec")));
};

}  // namespace Quenvale::Interceptor::SDK
