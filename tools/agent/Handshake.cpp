#include "agent/Handshake.h"

namespace QZAgent {

namespace {

constexpr char kHello[] = "Quenvale-v2";  // The zero byte behind it is sent too.
constexpr unsigned char kHashedPassword = 2;

}  // namespace

Handshake::Step Handshake::feed(Bytes& bytes) {
    Step step = Step::More;
    while (step == Step::More && bytes.size > 0) step = one(bytes);
    return step;
}

Handshake::Step Handshake::fail(const std::string& reason) {
    itsReason = reason;
    return Step::Failed;
}

Handshake::Step Handshake::take(Progress progress, const std::string& reason, State next) {
    if (progress == Progress::Bad) return fail(reason);
    if (progress == Progress::Done) itsState = next;
    return Step::More;
}

Handshake::Step Handshake::one(Bytes& bytes) {
    switch (itsState) {
        case State::Hello:
            if (bytes.next() != static_cast<unsigned char>(kHello[itsHelloBytes])) {
                return fail("byte " + std::to_string(itsHelloBytes) + " of the hello is wrong");
            }
            if (++itsHelloBytes < sizeof kHello) return Step::More;
            itsState = State::UserName;
            return Step::Hello;
        case State::UserName: {
            const Progress progress = itsText.feed(bytes);
            if (progress == Progress::Done && itsText.isNull())
                return take(progress, "", State::Echo);
            if (progress == Progress::Done) {
                itsUserName = itsText.text();
                itsText.reset();
            }
            return take(progress, "user name: " + itsText.reason(), State::Method);
        }
        case State::Method:
            if (bytes.next() != kHashedPassword) return fail("unknown kind of credentials");
            itsState = State::Hash;
            return Step::More;
        case State::Hash:
            return take(itsText.feed(bytes), "password hash: " + itsText.reason(), State::Echo);
        case State::Echo: {
            const Progress progress = itsBlock.feed(bytes);
            if (progress == Progress::Done)
                itsEcho.assign(itsBlock.bytes().begin(), itsBlock.bytes().end());
            return take(progress, "echo of the id: " + itsBlock.reason(), State::End);
        }
        default:
            if (bytes.next() != 0) return fail("the last byte isn't 0");
            return Step::Complete;
    }
}

}  // namespace QZAgent
