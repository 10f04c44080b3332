#pragma once

#include <string>

#include "agent/Wire.h"

namespace QZAgent {

/// The agent's side of the conversation that opens each connection, as bytes in and decisions out:
/// what to send, and when, is the caller's, so that it can also send something wrong.
///
/// The other side says hello (12 bytes), is told the agent's id, answers with credentials (none, or
/// a user name and a hash), an echo of the id that it first met, and a 0.
class Handshake {
public:
    enum class Step {
        More,      // Nothing to do but feed on.
        Hello,     // The hello is right: send the id block, feed on.
        Complete,  // All is there: send the accept byte. What is left of the bytes is the
                   // connection's.
        Failed,    // reason() says why.
    };

    Step feed(Bytes& bytes);

    const std::string& userName() const { return itsUserName; }  // Empty without credentials.
    /// The echoed id. A process that met another agent before echoes that one's, cut or filled up
    /// with zero bytes to the present length: it isn't compared.
    const std::string& echo() const { return itsEcho; }
    const std::string& reason() const { return itsReason; }

private:
    enum class State { Hello, UserName, Method, Hash, Echo, End };

    Step fail(const std::string& reason);
    Step take(Progress progress, const std::string& reason, State next);
    Step one(Bytes& bytes);

    State itsState = State::Hello;
    std::size_t itsHelloBytes = 0;
    TextReader itsText{4096};
    BlockReader itsBlock{65536};
    std::string itsUserName;
    std::string itsEcho;
    std::string itsReason;
};

}  // namespace QZAgent
