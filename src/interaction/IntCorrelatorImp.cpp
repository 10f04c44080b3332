#include "interaction/IntCorrelatorImp.h"

#include "interaction/ClientInteraction.h"
#include "interaction/IntCorrMap.h"
#include "interaction/OwnCorrelator.h"
#include "interaction/ServerInteraction.h"
#include "interaction/ThreadStacks.h"
#include "util/diagnostics.h"
#include "util/dispose.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr int kRequestStage = 0;
constexpr int kNotReusable = 1;
constexpr int kReuseAsCopy = 2;

// The copy stands where the old one does, but in the request stage and without its payload.
void becomeCopy(Interaction* fresh, Interaction* old) {
    fresh->setFlowStubFields(old);
    fresh->setSiteStubFields(old);
    fresh->setInteractionStubFields(old);
    fresh->copyUplink(old);
    if (fresh->itsPayload != nullptr && !fresh->itsRqstNotified) fresh->requestAnalyzed();
    Util::nullify(&fresh->itsPayload, false);
    fresh->copyUplink(old);
    fresh->itsState = kRequestStage;
    fresh->itsRqstNotified = false;
}

}  // namespace

void IntCorrelatorImp::init() {
    ourKeyMap = new IntCorrMap(true);
    auto* stacks = new IntCorrTlsStack;
    ourTlsMap = stacks;
    OwnCorrelator::setStacks(stacks);
}

void IntCorrelatorImp::deinit() {
    Util::nullify(&ourKeyMap, false);
    Util::nullify(&ourTlsMap, false);
    OwnCorrelator::setStacks(nullptr);
}

Interaction* IntCorrelatorImp::getServer(const Util::String& key) {
    return key.empty() ? ourTlsMap->getServer(Util::String::NIL) : ourKeyMap->getServer(key);
}

Interaction* IntCorrelatorImp::getClient(const Util::String& key) {
    return key.empty() ? ourTlsMap->getClient(Util::String::NIL) : ourKeyMap->getClient(key);
}

void IntCorrelatorImp::putServer(Interaction* interaction, const Util::String& key) {
    if (!key.empty()) ourKeyMap->putServer(interaction, key);
    ourTlsMap->putServer(interaction, Util::String::NIL);
}

void IntCorrelatorImp::putClient(Interaction* interaction, const Util::String& key) {
    if (!key.empty()) ourKeyMap->putClient(interaction, key);
    ourTlsMap->putClient(interaction, Util::String::NIL);
}

void IntCorrelatorImp::dropKey(const Util::String& key) {
    ourKeyMap->dropKey(key);
}

void IntCorrelatorImp::dropValue(Interaction* interaction, bool keepKeys) {
    ourTlsMap->dropValue(interaction, keepKeys);
    if (!keepKeys) ourKeyMap->dropValue(interaction, keepKeys);
}

Interaction* IntCorrelatorImp::getForBegin(const Util::String& key, bool isServer, int reuseMode,
                                           bool keyOnly) {
    const auto find = [&](const Util::String& name) {
        return isServer ? getServer(name) : getClient(name);
    };
    Interaction* found = find(key);
    bool isFoundByThread = false;
    if (found == nullptr && !key.empty() && !keyOnly) {
        found = find(Util::String::NIL);
        isFoundByThread = true;
    }
    return OwnCorrelator::joinOrCreate(found, isFoundByThread, key, isServer, reuseMode);
}

bool IntCorrelatorImp::hasInteraction(Interaction* interaction) {
    return ourTlsMap->hasInteraction(interaction);
}

void IntCorrelatorImp::forget(Interaction* interaction) {
    if (interaction->itsKeyEntries != 0) static_cast<IntCorrMap*>(ourKeyMap)->forget(interaction);
    ThreadStacks::forget(interaction);
}

IIntCorrelator* OwnCorrelator::make() {
    auto* correlator = new IntCorrelatorImp;
    IntCorrelatorImp::init();
    ourCorrelator = correlator;
    return correlator;
}

Interaction* OwnCorrelator::begin(const Util::String& key, bool isServer, int reuseMode) {
    if (IntCorrTlsStack* known = key.empty() ? stacks() : nullptr)
        return joinOrCreate(known->getInteraction(key, isServer), false, key, isServer, reuseMode);
    return IntCorrelator::instance()->getForBegin(key, isServer, reuseMode, false);
}

Interaction* OwnCorrelator::joinOrCreate(Interaction* found, bool isFoundByThread,
                                         const Util::String& key, bool isServer, int reuseMode) {
    if (found != nullptr && found->itsState == kRequestStage) {
        ++found->itsRefCount;
        if (isFoundByThread) found->storeLocalKey(key);
        return found;
    }
    if (found != nullptr && reuseMode == kNotReusable) {
        warningMsg("Non-reusable interaction already exists!\n");
        return nullptr;
    }
    Interaction* fresh = nullptr;
    if (isServer)
        fresh = ServerInteraction::create(key);
    else
        fresh = ClientInteraction::create(key, Util::String::NIL, false, false);
    if (found != nullptr && reuseMode == kReuseAsCopy) becomeCopy(fresh, found);
    return fresh;
}

void OwnCorrelator::putNew(Interaction* interaction, const Util::String& key, bool isServer) {
    if (IntCorrTlsStack* known = key.empty() ? stacks() : nullptr)
        ThreadStacks::ensure()->pushNew(known, interaction, isServer);
    else if (isServer)
        IntCorrelator::instance()->putServer(interaction, key);
    else
        IntCorrelator::instance()->putClient(interaction, key);
}

void OwnCorrelator::drop(Interaction* interaction) {
    if (IntCorrTlsStack* known = stacks())
        known->IntCorrTlsStack::dropValue(interaction, true);
    else
        IntCorrelator::instance()->dropValue(interaction, true);
}

}  // namespace Quenvale::Interceptor::SDK
