// The one-time step from what an interceptor supplied to the identifiers under which the system
// knows a call.
#include <utility>

#include "interaction/Interaction.h"
#include "util/identifiers.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr int kDebugLength = 256;
constexpr short kDerivedAppType = 8;
constexpr short kServiceWithoutOperation = -128;
// Thrown as it stands, not as an exception object: that is what interceptors catch.
const char* const kNameMissing = "You must provide a name for the application.";

}  // namespace

void InteractionStub::loadIdentity() {
    addDebugInfo("InteractionStub", 96, kDebugLength, "loadFromCache after itIsLoaded check\n");
    // Before the steps that can throw or come back here.
    itIsLoaded = true;
    adjustSvcType();
    // A decision brings the group's id with it, so that the id is only derived for a new one: there
    // by the configuration, and here where there is none.
    computeDefaultGroupName();
    if (itsGroupID.empty() && itsGroupName.empty()) throw kNameMissing;
    if (const EntryRef entry = loadConfig())
        loadFromCacheData(entry.get());
    else
        computeDefaultGroupData();
}

EntryRef InteractionStub::loadConfig() {
    Util::raise<Util::APIException>("Unexpected call to loadConfig");
}

void InteractionStub::loadFromCacheData(const ConfigEntry* entry) {
    itsGroupID = entry->itsGroupID;
    itsServiceID = entry->itsServiceID;
    itsOpID = entry->itsOpID;
    itIncludesPayload = entry->itIncludesPayload;
    itComputesPath = entry->itComputesPath;
}

void InteractionStub::adjustSvcType() {
    if (itsState > 0 && itsRqstNotified) return;
    if (itsSvcType != 0) return;
    if (getOpName().empty() || itForcesSvcType) itsSvcType = kServiceWithoutOperation;
}

void InteractionStub::computeDefaultGroupData() {
    computeDefaultGroupName();
    if (!itsGroupID.empty()) return;
    if (itsGroupName.empty()) throw kNameMissing;
    itsGroupID = Util::md5hash(itsGroupName.c_str());
}

void InteractionStub::computeDefaultGroupName() {
    if (!itsGroupName.empty()) return;
    if (itsUrl.empty()) {
        itsGroupName = itsGroupID;
        itsAppType = kDerivedAppType;
        return;
    }
    const bool isSpecial = Util::specialSvc(itsSvcType) != 0;
    const bool hasService = !itsServiceName.empty();
    const bool isServer = hasClassName(Interaction::SINT_CLASSNAME);
    Util::String name = Util::groupID(itsUrl.c_str(), isServer, isSpecial, hasService);
    // True only for the shared constants themselves, never for a text that groupID made.
    if (!Util::isDefaultGroup(name)) {
        itsGroupName = std::move(name);
        itsAppType = kDerivedAppType;
    } else if (hasService || !itsOpName.empty()) {
        itsGroupName = std::move(name);
    }
}

}  // namespace Quenvale::Interceptor::SDK
