#include "interaction/ClientInteraction.h"

#include <memory>

#include "config/InterceptorConfig.h"
#include "interaction/OwnCorrelator.h"
#include "interaction/ServerInteraction.h"
#include "util/base64.h"
#include "util/guid.h"
#include "util/identifiers.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr int kEndedStage = 3;
constexpr int kGuidBytes = 16;

}  // namespace

ClientInteraction* ClientInteraction::create(const Util::String& key, const Util::String& clientKey,
                                             bool /*ignored*/, bool flag) {
    std::unique_ptr<ClientInteraction> client(new ClientInteraction);
    Interaction* parent = Interaction::get(key, false);
    // Every client uses up an id for a flow, also one that takes its parent's: the ids that follow
    // depend on it. Only the text is left out.
    unsigned char flowGuid[kGuidBytes];
    Util::getBytes(flowGuid);
    if (parent != nullptr)
        client->inherit(parent);
    else
        client->itsFlowID =
            Util::base64::encode(reinterpret_cast<const char*>(flowGuid), kGuidBytes);
    client->itsCreateFlag = flag;
    client->itsInteractionID = Util::newGuid();
    OwnCorrelator::putNew(client.get(), clientKey.empty() ? key : Util::String::NIL, false);
    return client.release();
}

ClientInteraction::ClientInteraction() {
    itsKind = kClient;
    itsClassName = &CINT_CLASSNAME;
    itsPlatformType = itsDefaultPlatformType;
}

const Util::String& ClientInteraction::getUpstreamInteractionID() {
    return Util::String::NIL;
}

EntryRef ClientInteraction::loadConfig() {
    return InterceptorConfig::itsCurrent.getConfig(this, true);
}

Util::String& ClientInteraction::_getPathID(bool argument) {
    if (itsPathID.empty()) computePath(argument);
    return itsPathID;
}

void ClientInteraction::setCleanEnd() {
    setClean();
    itsState = kEndedStage;
    if (!itIsManagedExternally) dropAllKeys(true);
}

void ClientInteraction::computePath(bool /*argument*/) {
    if (itsPathComputed) return;
    itsPathComputed = true;
    const Util::String& parentPath = _getPPathID();
    if (parentPath.empty()) return;
    loadFromCache();
    setPathID(
        Util::pathID(parentPath.c_str(), getUrl().c_str(), getPeerAddr().c_str(), itsOpID.c_str()));
}

void ClientInteraction::manageExternally() {
    addDebugInfo("ClientInteraction", 244, 256, "manageExternally\n");
    itIsManagedExternally = true;
    itIsSplit = true;
    dropAllKeys(true);
}

void ClientInteraction::inherit(Interaction* parent) {
    // A server whose client goes out has been seen by now.
    parent->requestAnalyzed();
    // Made by now, the flow's id is among the fields that are copied.
    parent->getFlowID();
    setFlowStubFields(parent);
    itsParentID = ServerInteraction::publishedText(parent->itsInteractionID);
    itsPlatformType = parent->itsPlatformType;
    copyUplink(parent);
    itsClientFlag = false;
    parent->loadFromCache();
    itsLocus = parent->itsOpID;
    itsPathID = Util::String();
    itsPPathID = parent->_getPathID(false);
    itComputesPath = parent->itComputesPath;
    const auto before = static_cast<unsigned int>(itsGlobalSequenceNumber.fetch_add(1));
    itsSequenceNumber = static_cast<int>(before + 1);
}

}  // namespace Quenvale::Interceptor::SDK
