#pragma once

#include "interaction/FlowStub.h"

namespace Quenvale::Interceptor::SDK {

/// A flow and the site that is called in it: group, service, operation, url and addresses. It also
/// stands alone, as what a split hands to another thread.
class QZ_API SiteStub : public FlowStub {
public:
    static const Util::String& SSTB_CLASSNAME;  // The name of this class.

    SiteStub() { itsClassName = &SSTB_CLASSNAME; }
    ~SiteStub() override;

    /// @{
    /// As it stands. A setter stores what it is given.
    virtual Util::String& getUrl();
    virtual void setUrl(Util::String url);
    virtual Util::String& getOpName();
    virtual void setOpName(Util::String name);
    virtual Util::String& getPeerAddr();
    virtual void setPeerAddr(Util::String address);
    /// @}

    /// The site only; the flow is setFlowStubFields().
    void setSiteStubFields(const SiteStub* source);

    /// Does nothing: a site owns no more than texts.
    void deinit() {}

    Util::String itsOpID;         // Derived; see loadFromCache().
    Util::String itsOpName;       // What is called, such as a method.
    Util::String itsGroupID;      // At most 32 characters, or derived.
    Util::String itsGroupName;    // The application.
    Util::String itsServiceName;  // A part of the application.
    Util::String itsServiceID;    // Given or derived.
    short itsPeerType = 0;        // -252 after a join of a flow.
    short itsPlatformType = 0;    // Of the process; a client has its server's.
    short itsAppType = 0;         // 8 without a group name.
    short itsSvcType = 0;         // See InteractionStub::adjustSvcType().
    short itsOpType = 0;          // The caller's own.
    Util::String itsUrl;          // What the identifiers are derived from.
    Util::String itsSiteAttr;     // The caller's own, for the event.
    Util::String itsPeerAddr;     // The other side of the connection.
    /// Empty: the process's host name serves.
    Util::String itsLocalAddr;
    /// Continues a split with the same operation, so it sends no event of its own.
    bool itIsContinuation = false;
    Util::String itsUpstreamOpID;  // Of a server: its caller's operation.
};

}  // namespace Quenvale::Interceptor::SDK
