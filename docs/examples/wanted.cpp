// The C interface does not tell whether a payload is wanted, but the object behind a record does.

#include "wanted.h"

#include "interaction/FlowStub.h"
#include "interaction/Interaction.h"

using namespace Quenvale::Interceptor::SDK;

int payloadIsWanted(ServerInteractionStruct* call) {
    auto* object = static_cast<FlowStub*>(call->interaction->stub->site->flow->impl);
    return object != nullptr && static_cast<Interaction*>(object)->itIncludesPayload ? 1 : 0;
}
