#include "interaction/SiteStub.h"

#include <utility>

namespace Quenvale::Interceptor::SDK {

Util::String& SiteStub::getUrl() {
    return itsUrl;
}

void SiteStub::setUrl(Util::String url) {
    itsUrl = std::move(url);
}

Util::String& SiteStub::getOpName() {
    return itsOpName;
}

void SiteStub::setOpName(Util::String name) {
    itsOpName = std::move(name);
}

Util::String& SiteStub::getPeerAddr() {
    return itsPeerAddr;
}

void SiteStub::setPeerAddr(Util::String address) {
    itsPeerAddr = std::move(address);
}

void SiteStub::setSiteStubFields(const SiteStub* source) {
    itsOpID = source->itsOpID;
    itsOpName = source->itsOpName;
    itsGroupID = source->itsGroupID;
    itsGroupName = source->itsGroupName;
    itsServiceName = source->itsServiceName;
    itsServiceID = source->itsServiceID;
    itsPeerType = source->itsPeerType;
    itsPlatformType = source->itsPlatformType;
    itsAppType = source->itsAppType;
    itsSvcType = source->itsSvcType;
    itsOpType = source->itsOpType;
    itsUrl = source->itsUrl;
    itsSiteAttr = source->itsSiteAttr;
    itsLocalAddr = source->itsLocalAddr;
    itsPeerAddr = source->itsPeerAddr;
    itsUpstreamOpID = source->itsUpstreamOpID;
    itIsContinuation = source->itIsContinuation;
}

}  // namespace Quenvale::Interceptor::SDK
