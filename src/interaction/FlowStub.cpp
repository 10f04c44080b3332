#include "interaction/FlowStub.h"

#include <utility>

#include "interaction/ServerInteraction.h"
#include "util/dispose.h"

namespace Quenvale::Interceptor::SDK {

Util::String& FlowStub::getFlowID() {
    return itsFlowID;
}

void FlowStub::setFlowID(Util::String id) {
    itsFlowID = std::move(id);
}

void FlowStub::setPathID(Util::String id) {
    itsPathID = std::move(id);
}

Util::String& FlowStub::getPathID() {
    return itsPathID;
}

Checkpoints* FlowStub::getCheckpoints(bool create) {
    if (itsCheckpoints != nullptr)
        return create || itsCheckpoints->hasAny() ? itsCheckpoints : nullptr;
    if (create) itsCheckpoints = new Checkpoints;
    return itsCheckpoints;
}

void FlowStub::setFlowStubFields(const FlowStub* source) {
    if (source == this) return;
    // A server makes the ids and the path when they are first asked for, on whatever thread.
    itsFlowID = ServerInteraction::publishedText(source->itsFlowID);
    itsParentID = source->itsParentID;
    itsFlowAttr1 = source->itsFlowAttr1;
    itsFlowAttr2 = source->itsFlowAttr2;
    itsSubNode = source->itsSubNode;
    itsPathID = ServerInteraction::publishedText(source->itsPathID);
    itsPPathID = source->itsPPathID;

    auto* fields = source->itsFlowFields == nullptr ? nullptr : source->itsFlowFields->copy();
    Util::nullify(&itsFlowFields, false);
    itsFlowFields = fields;

    Checkpoints* checkpoints = source->itsCheckpoints;
    if (checkpoints != nullptr) checkpoints->retain();
    if (itsCheckpoints != nullptr) itsCheckpoints->drop();
    itsCheckpoints = checkpoints;
    itOwnsShared = false;
}

}  // namespace Quenvale::Interceptor::SDK
