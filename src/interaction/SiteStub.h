#pragma once

#include "interaction/FlowStub.h"

namespace Quenvale::Interceptor::SDK {

/// A flow and the site that is called in it: group, service, operation, url and addresses. It also
/// stands alone, as what a split hands to another thread.
class QZ_API SiteStub : public FlowStub {
public:
    static const Util::String& SSTB_CLASSNAME;

    SiteStub() { itsClassName = &SSTB_CLASSNAME; }
    ~SiteStub() override;

    virtual Util::String& getUrl();
    virtual void setUrl(Util::String url);
    virtual Util::String& getOpName();
    virtual void setOpName(Util::String name);
    virtual Util::String& getPeerAddr();
    virtual void setPeerAddr(Util::String address);

    /// The site only; the flow is setFlowStubFields().
    void setSiteStubFields(const SiteStub* source);

    void deinit() {}

    Util::String itsOpID;
    Util::String itsOpName;
    Util::String itsGroupID;
    Util::String itsGroupName;
    Util::String itsServiceName;
    Util::String itsServiceID;
    short itsPeerType = 0;
    short itsPlatformType = 0;
    short itsAppType = 0;
    short itsSvcType = 0;
    short itsOpType = 0;
    Util::String itsUrl;
    Util::String itsSiteAttr;
    Util::String itsPeerAddr;
    /// Empty: the process's host name serves.
    Util::String itsLocalAddr;
    /// Continues a split with the same operation, so it sends no event of its own.
    bool itIsContinuation = false;
    Util::String itsUpstreamOpID;
};

}  // namespace Quenvale::Interceptor::SDK
