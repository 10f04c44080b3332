// What is left to do when a call's object goes. The destructors of the whole chain stand together,
// so that those of the two kinds of call become one piece of code each: every call goes through all
// of them, and most of what they look for is not there.
#include <pthread.h>

#include <cstdint>

#include "interaction/ClientInteraction.h"
#include "interaction/IntCorrelator.h"
#include "interaction/ServerInteraction.h"
#include "interaction/ThreadStacks.h"
#include "uplink/UplinkData.h"
#include "util/dispose.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// With one branch for all of them.
template <class... Pointers>
bool isAnySet(Pointers... pointers) {
    return (reinterpret_cast<std::uintptr_t>(pointers) | ...) != 0;
}

// What few calls have stays out of the way of the others.
template <class T>
__attribute__((noinline)) void dispose(T** slot, bool useFree) {
    Util::nullify(slot, useFree);
}

}  // namespace

FlowStub::~FlowStub() {
    FlowStub::deinit();
}

void FlowStub::deinit() {
    if (itsCheckpoints != nullptr) {
        itsCheckpoints->drop();
        itsCheckpoints = nullptr;
    }
    if (itsFlowFields != nullptr) dispose(&itsFlowFields, false);
}

SiteStub::~SiteStub() {
    SiteStub::deinit();
}

InteractionStub::~InteractionStub() {
    InteractionStub::deinit();
}

void InteractionStub::deinit() {
    itsEvaluators.reset();
    if (!isAnySet(itsMsgFields, itsKeys, itsPayload, itsRawBuffer1, itsRawBuffer2)) return;
    dispose(&itsMsgFields, false);
    dispose(&itsKeys, false);
    dispose(&itsPayload, false);
    dispose(&itsRawBuffer1, true);
    dispose(&itsRawBuffer2, true);
}

Interaction::~Interaction() {
    Interaction::deinit();
}

void Interaction::deinit() {
    // A server that continues a split has no report of its own to make up for.
    const bool isUnfinished = itsState == 1 || itsState == 2;
    if (isUnfinished && !(itIsContinuation && hasClassName(SINT_CLASSNAME))) endUnfinished();
    // The queue behind the attachment keeps its count, which only spreads the load.
    if (itsUplinkData != nullptr) dispose(&itsUplinkData, false);
    if (ThreadStacks::mayHold(*this) || itsKeyEntries != 0) IntCorrelator::forget(this);
}

__attribute__((flatten)) ServerInteraction::~ServerInteraction() {
    itsKind = kNeither;
}

__attribute__((flatten)) ClientInteraction::~ClientInteraction() {
    itsKind = kNeither;
}

__attribute__((noinline, cold)) void Interaction::endUnfinished() {
    markTime();
    if (itsFailure.c_str() == nullptr) {
        itsFailure = INTERACTION_NOT_ENDED;
    } else {
        itsFailure.append("\n\n");
        itsFailure.append(INTERACTION_NOT_ENDED);
    }
    // Nothing may leave a destructor, a cancellation of the thread neither.
    int cancelState = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    try {
        end();
    } catch (Util::APIException* exception) {
        // The usual way out of here: what is no longer a server or a client has no stack to be
        // dropped from. It comes after the event.
        delete exception;
    } catch (...) {
    }
    pthread_setcancelstate(cancelState, nullptr);
}

}  // namespace Quenvale::Interceptor::SDK
