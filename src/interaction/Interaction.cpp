#include "interaction/Interaction.h"

#include <cxxabi.h>

#include <memory>

#include "interaction/ClientInteraction.h"
#include "interaction/IntCorrelator.h"
#include "interaction/OwnCorrelator.h"
#include "interaction/ServerInteraction.h"
#include "uplink/Uplink.h"
#include "uplink/UplinkData.h"
#include "util/Clock.h"
#include "util/dispose.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr int kDebugLength = 256;
const char* const kDebugFile = "Interaction";

Interaction* newOfClass(const Util::String& name) {
    if (name == Interaction::SINT_CLASSNAME) return new ServerInteraction;
    if (name == Interaction::CINT_CLASSNAME) return new ClientInteraction;
    return nullptr;
}

}  // namespace

Interaction* Interaction::begin(const Util::String& key, bool isServer, int reuseMode,
                                bool /*ignored*/) {
    return OwnCorrelator::begin(key, isServer, reuseMode);
}

Interaction* Interaction::get(const Util::String& key, bool isClient) {
    IIntCorrelator* correlator = IntCorrelator::instance();
    return isClient ? correlator->getClient(key) : correlator->getServer(key);
}

Interaction* Interaction::attach(InteractionStub* stub) {
    Interaction* interaction = fromStub(stub);
    if (interaction == nullptr) return nullptr;
    interaction->addDebugInfo(kDebugFile, 123, kDebugLength, "attach\n");
    interaction->putUnder(Util::String::NIL);
    return interaction;
}

Interaction* Interaction::fromStub(InteractionStub* stub) {
    if (stub == nullptr) return nullptr;
    try {
        std::unique_ptr<Interaction> interaction(newOfClass(*stub->itsClassName));
        if (interaction == nullptr) return nullptr;
        interaction->setFlowStubFields(stub);
        interaction->setSiteStubFields(stub);
        interaction->setInteractionStubFields(stub);
        interaction->addAllKeys();
        return interaction.release();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return nullptr;
    }
}

Interaction::Interaction() {
    itsClassName = &INT_CLASSNAME;
    markTime();
    if (ourServerInstance.c_str() != nullptr) itsSubNode = ourServerInstance;
}

void Interaction::storeLocalKey(const Util::String& key) {
    putUnder(key);
    if (itsKeys == nullptr) itsKeys = new Util::List<Util::String>(0);
    itsKeys->add(key);
}

void Interaction::putUnder(const Util::String& key) {
    if (isServer())
        IntCorrelator::instance()->putServer(this, key);
    else if (isClient())
        IntCorrelator::instance()->putClient(this, key);
}

InteractionStub* Interaction::detach() {
    addDebugInfo(kDebugFile, 172, kDebugLength, "detach\n");
    dropAllKeys(true);
    InteractionStub* stub = toStub();
    // attach() makes an object of this class again.
    stub->itsClassName = itsClassName;
    return stub;
}

SiteStub* Interaction::split() {
    addDebugInfo(kDebugFile, 199, kDebugLength, "split\n");
    itIsSplit = true;
    if (isServer()) requestAnalyzed();
    SiteStub* stub = toSiteStub();
    if (isServer()) stub->itsParentID = getInteractionID();
    return stub;
}

void Interaction::requestAnalyzed() {
    if (itsState != 0) return;
    addDebugInfo(kDebugFile, 257, kDebugLength, "requestAnalyzed\n");
    itsRqstNotified = true;
    prepareCheckpoints();
    loadFromCache();
    notifyAgent();
    setClean();
    itsState = 1;
}

void Interaction::complete() {
    if (itsState >= 2) return;
    loadFromCache();
    if (itsRtTime < 1) {
        // Unsigned, since a start that was set by hand may be any number.
        const auto now = static_cast<unsigned long long>(Util::Clock::_currentTimeMillis());
        itsRtTime = static_cast<int>(now - static_cast<unsigned long long>(itsStartTime));
        if (itsRtTime < 1) itsRtTime = 1;
    }
    if (itsCoTime > 0) {
        addDebugInfo(kDebugFile, 396, kDebugLength, "Unexpected coTime set to %d.\n", itsCoTime);
        itsCoTime = 0;
    }
    if (itsState == 0) {
        prepareCheckpoints();
        // Before the event: a completed call whose request was never notified carries both sides.
        itsState = 2;
    }
    addDebugInfo(kDebugFile, 308, kDebugLength, "complete after markTime\n");
    notifyAgent();
    itsState = 2;
}

void Interaction::end() {
    --itsRefCount;
    if (itsRefCount >= 1 || itsState == 3) return;
    complete();
    loadFromCache();
    if (itsState != 3) setCleanEnd();
}

void Interaction::notifyAgent() {
    if (itIsInternal) return;
    if (itIsContinuation && hasClassName(SINT_CLASSNAME)) return;
    if (Uplink* channel = uplink()) channel->notifyAgent(this);
}

void Interaction::markTime() {
    itsStartTime = Util::Clock::_currentTimeMillis();
}

void Interaction::setClean() {
    if (itsPayload != nullptr) Util::nullify(&itsPayload, false);
    const char* type = itsPayloadContentType.c_str();
    if (type == nullptr || *type != '\0') itsPayloadContentType = Util::String::BLANK;
    itsMsgSize = 0;
    itsSizeC = 0;
}

void Interaction::setCleanEnd() {
    setClean();
    itsState = 3;
    dropAllKeys(true);
}

void Interaction::prepareCheckpoints() {}

Util::String& Interaction::_getPPathID() {
    return itsPPathID;
}

Util::String& Interaction::_getPathID(bool /*asIs*/) {
    return itsPathID;
}

void Interaction::loadFromCacheData(const ConfigEntry* entry) {
    InteractionStub::loadFromCacheData(entry);
    mergeFlowFields();
}

void Interaction::dropAllKeys(bool dropValue) {
    IIntCorrelator* correlator = IntCorrelator::instance();
    if (itsKeys != nullptr)
        for (auto* node = itsKeys->getHead(); node != nullptr; node = node->next)
            correlator->dropKey(node->data);
    if (dropValue) OwnCorrelator::drop(this);
}

void Interaction::addAllKeys() {
    if (itsKeys == nullptr) return;
    for (auto* node = itsKeys->getHead(); node != nullptr; node = node->next) putUnder(node->data);
}

InteractionStub* Interaction::toStub() {
    auto* stub = new InteractionStub;
    stub->setFlowStubFields(this);
    stub->setSiteStubFields(this);
    stub->setInteractionStubFields(this);
    return stub;
}

SiteStub* Interaction::toSiteStub() {
    auto* stub = new SiteStub;
    stub->setFlowStubFields(this);
    stub->setSiteStubFields(this);
    return stub;
}

FlowStub* Interaction::toFlowStub() {
    auto* stub = new FlowStub;
    stub->setFlowStubFields(this);
    return stub;
}

void Interaction::copyUplink(Interaction* source) {
    if (uplink() == nullptr || source->itsUplinkData == nullptr) return;
    UplinkData* copy = uplink()->copyUplinkData(source->itsUplinkData);
    Util::nullify(&itsUplinkData, false);
    itsUplinkData = copy;
}

}  // namespace Quenvale::Interceptor::SDK
