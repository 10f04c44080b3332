#include "interaction/ServerInteraction.h"

#include <memory>
#include <utility>

#include "config/InterceptorConfig.h"
#include "interaction/OwnCorrelator.h"
#include "util/guid.h"
#include "util/identifiers.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr const char* kFile = "ServerInteraction";
constexpr int kNoteLength = 256;
constexpr short kJoinedPeerType = -252;

// TSan takes a compare-and-swap that fails for a write, and reports whoever reads the text that has
// won. So in its builds those who publish come one after the other, and none fails.
#if defined(__SANITIZE_THREAD__)
#define QZ_ONE_PUBLISHER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QZ_ONE_PUBLISHER 1
#endif
#endif
#ifdef QZ_ONE_PUBLISHER
Util::qzlatch ourPublishers;
#endif

}  // namespace

ServerInteraction* ServerInteraction::create(const Util::String& key) {
    std::unique_ptr<ServerInteraction> server(new ServerInteraction);
    server->itsParentID = Util::newGuid();
    OwnCorrelator::putNew(server.get(), key, true);
    return server.release();
}

ServerInteraction* ServerInteraction::begin(SiteStub* stub, const Util::String& key,
                                            const Util::String& opName) {
    ServerInteraction* server = beginServer(key, 0);
    server->itsInteractionID = stub->itsParentID;
    server->join(static_cast<FlowStub*>(stub));
    server->setSiteStubFields(stub);
    if (opName.c_str() == nullptr) {
        server->itIsContinuation = true;
    } else {
        server->setOpName(opName);
        server->itIsLoaded = false;
    }
    return server;
}

ServerInteraction* ServerInteraction::beginInternal(const Util::String& key, bool reuse) {
    ServerInteraction* server = beginServer(key, reuse ? 1 : 0);
    if (server != nullptr) server->itIsInternal = true;
    return server;
}

ServerInteraction::ServerInteraction() {
    itsKind = kServer;
    itsClassName = &SINT_CLASSNAME;
    itsPlatformType = itsDefaultPlatformType;
}

void ServerInteraction::join(FlowStub* flow) {
    addDebugInfo(kFile, 89, kNoteLength, "join FlowStub\n");
    Util::String parentID = itsParentID;
    if (flow != this) setFlowStubFields(flow);
    itsParentID = std::move(parentID);
    itsPeerType = kJoinedPeerType;
}

void ServerInteraction::join(InteractionStub* other) {
    addDebugInfo(kFile, 124, kNoteLength, "join InteractionStub\n");
    if (other != this) setFlowStubFields(other);
    itsLocus = other->itsLocus;
    itsUpstreamOpID = other->itsUpstreamOpID;
    itsCallerAddr = other->itsCallerAddr;
    itsCalleeAddr = other->itsCalleeAddr;
    itsInteractionID = other->getInteractionID();
}

Util::String& ServerInteraction::getFlowID() {
    return ensureID(itsFlowID, itsReplacedFlowID);
}

Util::String& ServerInteraction::getInteractionID() {
    return ensureID(itsInteractionID, itsReplacedInteractionID);
}

const Util::String& ServerInteraction::getUpstreamInteractionID() {
    return itsUpstreamInteractionID;
}

EntryRef ServerInteraction::loadConfig() {
    return InterceptorConfig::itsCurrent.getConfig(this, false);
}

void ServerInteraction::loadFromCacheData(const ConfigEntry* entry) {
    Interaction::loadFromCacheData(entry);
    if (entry->cpNames != nullptr && entry->cpNames->size() > 0)
        getCheckpoints(true)->setNewCheckpoints(entry->cpNames);
}

Util::String& ServerInteraction::_getPathID(bool asIs) {
    const char* known = publishedText(itsPathID);
    if (asIs || (known != nullptr && *known != '\0')) return itsPathID;
    loadFromCache();
    if (!itComputesPath) return itsPathID;
    const Util::String& host = itsLocalAddr.empty() ? ourHostname : itsLocalAddr;
    Util::String path = Util::pathID(nullptr, getUrl().c_str(), host.c_str(), itsOpID.c_str());
    publish(itsPathID, std::move(path), itsReplacedPathID);
    return itsPathID;
}

void ServerInteraction::prepareCheckpoints() {
    Checkpoints* checkpoints = getCheckpoints(true);
    const long long baseline = checkpoints->itsBaseline;
    if (baseline > 0 && baseline != itsStartTime)
        addDebugInfo(kFile, 263, kNoteLength,
                     "WARNING - Overwriting checkpoints baseline timestamp %lld with %lld.\n",
                     baseline, itsStartTime);
    checkpoints->itsBaseline.store(itsStartTime, std::memory_order_relaxed);
    if (itsStartTime == 0)
        addDebugInfo(kFile, 273, kNoteLength,
                     "WARNING - Encountered an SI with a zero timestamp.\n");
}

// A key may lead to a client. That is no server to work on as one, so a new one takes the key.
ServerInteraction* ServerInteraction::beginServer(const Util::String& key, int reuseMode) {
    Interaction* found = Interaction::begin(key, true, reuseMode, false);
    if (found == nullptr || found->isServer()) return static_cast<ServerInteraction*>(found);
    --found->itsRefCount;
    return create(key);
}

__attribute__((noinline)) void ServerInteraction::makeID(Util::String& field,
                                                         Util::String& replaced) {
    publish(field, Util::newGuid(), replaced);
}

// Whoever comes second finds a text and drops its own.
void ServerInteraction::publish(Util::String& field, Util::String&& text, Util::String& replaced) {
#ifdef QZ_ONE_PUBLISHER
    const Util::LatchGuard guard(ourPublishers);
#endif
    char** slot = slotOf(field);
    char* found = __atomic_load_n(slot, __ATOMIC_ACQUIRE);
    while (found == nullptr || *found == '\0') {
        if (!__atomic_compare_exchange_n(slot, &found, *slotOf(text), false, __ATOMIC_ACQ_REL,
                                         __ATOMIC_ACQUIRE))
            continue;
        *slotOf(text) = nullptr;
        if (found != nullptr) replaced = Util::String::adopt(found);
        return;
    }
}

}  // namespace Quenvale::Interceptor::SDK
