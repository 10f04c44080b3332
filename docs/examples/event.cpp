// The call whose request event docs/protocol.md takes apart. What a clock or a generator would give
// is set by hand.

#include "event.h"

#include <cstring>

using namespace Quenvale::Interceptor::SDK;

void describeCall(ServerInteraction& call) {
    call.itsStartTime = 1700000000000;
    call.setFlowID("flow-1");
    call.setInteractionID("call-1");
    call.setUpstreamInteractionID("caller-1");
    call.itsParentID = "parent-1";
    call.itsSubNode = "node1";
    call.setUrl("http://shop.example/cart/add");
    call.setOpName("POST");
    call.setPeerAddr("10.0.0.1");
    call.setMsgField("customer", "42", true);
    call.getCheckpoints(true)->addIncomingCheckpoint("paid", 25);
    call.loadFromCache();

    call.itIncludesPayload = true;  // as if the configuration said so
    call.itsPayload = new Util::ByteArray(new unsigned char[9], 9, true);
    std::memcpy(call.itsPayload->data, "article=7", 9);
    call.itsMsgSize = 9;
}
