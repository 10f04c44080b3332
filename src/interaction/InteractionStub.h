#pragma once

#include <atomic>
#include <memory>

#include "config/ConfigEntry.h"
#include "interaction/IMsgFieldEvaluator.h"
#include "interaction/SiteStub.h"
#include "util/ByteArray.h"
#include "util/List.h"

namespace Quenvale::Interceptor::SDK {

/// One call as it stands: identity, stage, times, sizes, payload, failure, security. What a detach
/// hands to another thread, and the base of Interaction.
///
/// The group, service and operation identifiers are derived once, by loadFromCache(), from what
/// the interceptor supplied and from the configuration, and count as frozen from then on.
///
/// Setters take the value whatever the stage and the freeze; they only warn.
///
/// Ownership: a copy has its own keys, payload and message fields, and shares the evaluators.
/// Units:     times are milliseconds, sizes bytes.
class QZ_API InteractionStub : public SiteStub {
public:
    static const Util::String& ISTB_CLASSNAME;     // The name of this class.
    static const Util::String& CONSUMER_GROUP;     // "(consumer)"
    static const Util::String& PROVIDER_GROUP;     // "(provider)"
    static const Util::String& UNKNOWN_SERVICE;    // "(unknown)"
    static const Util::String& DEFAULT_SERVICE;    // "(root)"
    static const Util::String& UNKNOWN_OPERATION;  // "(unknown)"

    using Evaluators = Util::List<IMsgFieldEvaluator*>;  // Borrows its evaluators.

    /// Counts the clients of the process that were created under a server.
    static std::atomic<int> itsGlobalSequenceNumber;

    InteractionStub() { itsClassName = &ISTB_CLASSNAME; }
    ~InteractionStub() override;

    /// @{
    /// As for a site, with the warning of check().
    void setUrl(Util::String url) override;
    void setOpName(Util::String name) override;
    void setPeerAddr(Util::String address) override;
    /// @}
    /// As it stands; a ServerInteraction makes one.
    virtual Util::String& getInteractionID();
    /// Stores the id as given.
    virtual void setInteractionID(Util::String id);
    /// Of a bare stub, its own interaction id.
    virtual const Util::String& getUpstreamInteractionID();
    /// What the configuration decided for this call; null when it has nothing to say. Only a
    /// server or a client can ask: here it throws an APIException*.
    virtual EntryRef loadConfig();
    /// Takes the decision's identifiers, without a warning.
    virtual void loadFromCacheData(const ConfigEntry* entry);

    /// @{
    /// With the warning of check().
    void setGroupName(Util::String name);
    void setServiceName(Util::String name);
    void setSecurityID(Util::String id);
    void setSecurityAttr1(Util::String text);
    /// @}
    /// @{
    /// With the warnings of check() and checkFrozenNGSO().
    void setOpID(Util::String id);
    void setServiceID(Util::String id);
    /// @}
    /// As it comes with a header: with the warning of checkFrozenNGSO() only.
    void setUpstreamInteractionID(Util::String id);
    /// At most 32 printable characters, or none; NIL and anything else is an APIException*.
    void setGroupID(Util::String id);
    /// Takes the list over. Copies made from now on share it.
    void setEvaluators(Evaluators* evaluators) { itsEvaluators.reset(evaluators); }

    /// Whether requestAnalyzed() has begun.
    bool getRqstNotified() const { return itsRqstNotified; }

    /// Of the stub's own fields only; a copy of a loaded object is itself loaded.
    void setInteractionStubFields(const InteractionStub* source);

    /// Everything that reads a group, service or operation value calls this first. It acts once,
    /// also if it throws: the text "You must provide a name for the application." as a plain
    /// `const char*` when no group can be named.
    void loadFromCache() {
        if (!itIsLoaded) loadIdentity();
    }
    /// A call without operation name and service type gets the type -128, until its request is
    /// reported.
    void adjustSvcType();
    /// computeDefaultGroupName(), and the group id from the name where there is none. Throws as
    /// loadFromCache() does.
    void computeDefaultGroupData();
    /// Where there is no group name: that of the URL or, without one, the group id. The application
    /// type becomes 8 with it.
    void computeDefaultGroupName();

    /// Warns of a value that comes after the request stage.
    void check() const {
        if (itsState > 0) warnOfLateValue();
    }
    /// Warns, at log level 4, of a change to a frozen identifier.
    void checkFrozenNGSO() const {
        if (itIsLoaded) warnOfFrozenValue();
    }

    /// Appends "file, line n: " and the formatted text, cut to `maxLength` bytes together, to what
    /// the agent gets as debug text. Only at log level 4; below it costs one load.
    template <class... Args>
    void addDebugInfo(const char* file, int line, int maxLength, const char* format, Args... args) {
        if (__builtin_expect(takesDebugInfo(), 0))
            appendDebugInfo(file, line, maxLength, format, args...);
    }

    /// What the destructor does: releases what the stub owns by pointer.
    void deinit();

    Util::String itsInteractionID;                // Unique; see getInteractionID().
    Util::String itsUpstreamInteractionID;        // Of a server: its caller's id.
    Util::String itsFailure;                      // NIL for none; goes with the reply.
    bool itIsFailed = false;                      // Goes with the reply, beside the text.
    Util::String itsLocus;                        // Of a client: its server's operation id.
    bool itIsOneWay = false;                      // No reply is due.
    bool itsClientFlag = false;                   // Kept for the C record; not sent.
    int itsSequenceNumber = 0;                    // Of a client under a server.
    long long itsStartTime = 0;                   // ms since 1970; see markTime().
    int itsRtTime = 0;                            // ms from start to end, at least 1.
    int itsCoTime = 0;                            // The caller's own; cleared by complete().
    int itsState = 0;                             // The stage, 0 to 3; see Interaction.
    Util::List<Util::String>* itsKeys = nullptr;  // Owned; null for none.
    bool itIsSplit = false;                       // split() or manageExternally() ran.
    Util::ByteArray* itsPayload = nullptr;        // Owned; of the current message.
    Util::String itsPayloadContentType;           // Not sent.
    bool itIncludesPayload = false;               // The configuration wants it.
    long long itsMsgSize = 0;                     // Of the current message.
    long long itsSizeB = 0;                       // The caller's own, for the event.
    long long itsSizeC = 0;                       // The same; cleared with the payload.
    long long itsSizeD = 0;                       // The same as itsSizeB.
    Util::String itsSecurityID;                   // Who calls; travels with trust.
    Util::String itsSecurityAttr1;                // Beside it; goes into the event.
    Util::String itsSecurityAttr2;                // Beside it; not sent.
    /// @{
    /// Malloc blocks of a caller's own, which go with this object. Copies don't get them: their
    /// length is not known here.
    void* itsRawBuffer1 = nullptr;
    void* itsRawBuffer2 = nullptr;
    /// @}
    Util::String itsDebugInfo;                        // See addDebugInfo().
    bool itIsLowPriority = false;                     // A flag of the event.
    bool itIsInternal = false;                        // Never reported.
    bool itsCreateFlag = false;                       // A flag of the event.
    bool itIsLoaded = false;                          // loadFromCache() ran.
    bool itForcesSvcType = false;                     // adjustSvcType() acts for named calls, too.
    bool itComputesPath = false;                      // The configuration wants a path.
    bool itsEventFlag = false;                        // A flag of the event.
    Util::Map<Util::String>* itsMsgFields = nullptr;  // Owned; null for none.
    std::shared_ptr<Evaluators> itsEvaluators;        // For evalMsgField(); null for none.
    bool itsRqstNotified = false;                     // See getRqstNotified().
    Util::String itsTrustSignature;                   // As it came with the header.
    Util::String itsCalleeAddr;                       // As it came with the header.
    Util::String itsCallerAddr;                       // As it came with the header.
    long long itsTrustTimestamp = 0;                  // As it came; ms since 1970.

private:
    // The state of ourDebugInfo: unknown until the level was read, then off or on.
    enum DebugInfo : signed char { kDebugUnknown, kDebugOff, kDebugOn };

    static bool takesDebugInfo() {
        const signed char known = ourDebugInfo.load(std::memory_order_relaxed);
        return known != kDebugOff && (known == kDebugOn || readDebugInfo());
    }
    static bool readDebugInfo();
    void appendDebugInfo(const char* file, int line, int maxLength, const char* format, ...);
    void loadIdentity();
    void warnOfLateValue() const;
    void warnOfFrozenValue() const;

    // Not diagnostics.h's own level: a header that is inlined in many places needs one that has
    // a single address.
    static std::atomic<signed char> ourDebugInfo;
};

}  // namespace Quenvale::Interceptor::SDK
