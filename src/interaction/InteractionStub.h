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
    static const Util::String& ISTB_CLASSNAME;
    static const Util::String& CONSUMER_GROUP;
    static const Util::String& PROVIDER_GROUP;
    static const Util::String& UNKNOWN_SERVICE;
    static const Util::String& DEFAULT_SERVICE;
    static const Util::String& UNKNOWN_OPERATION;

    using Evaluators = Util::List<IMsgFieldEvaluator*>;

    /// Counts the clients of the process that were created under a server.
    static std::atomic<int> itsGlobalSequenceNumber;

    InteractionStub() { itsClassName = &ISTB_CLASSNAME; }
    ~InteractionStub() override;

    void setUrl(Util::String url) override;
    void setOpName(Util::String name) override;
    void setPeerAddr(Util::String address) override;
    virtual Util::String& getInteractionID();
    virtual void setInteractionID(Util::String id);
    /// Of a bare stub, its own interaction id.
    virtual const Util::String& getUpstreamInteractionID();
    /// What the configuration decided for this call; null when it has nothing to say. Only a
    /// server or a client can ask: here it throws an APIException*.
    virtual EntryRef loadConfig();
    virtual void loadFromCacheData(const ConfigEntry* entry);

    void setGroupName(Util::String name);
    void setServiceName(Util::String name);
    void setSecurityID(Util::String id);
    void setSecurityAttr1(Util::String text);
    void setOpID(Util::String id);
    void setServiceID(Util::String id);
    /// As it comes with a header.
    void setUpstreamInteractionID(Util::String id);
    /// At most 32 printable characters, or none; NIL and anything else is an APIException*.
    void setGroupID(Util::String id);
    /// Takes the list over. Copies made from now on share it.
    void setEvaluators(Evaluators* evaluators) { itsEvaluators.reset(evaluators); }

    bool getRqstNotified() const { return itsRqstNotified; }

    /// Of the stub's own fields only; a copy of a loaded object is itself loaded.
    void setInteractionStubFields(const InteractionStub* source);

    /// Everything that reads a group, service or operation value calls this first. It acts once,
    /// also if it throws: the text "You must provide a name for the application." as a plain
    /// `const char*` when no group can be named.
    void loadFromCache() {
        if (!itIsLoaded) loadIdentity();
    }
    void adjustSvcType();
    void computeDefaultGroupData();
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

    void deinit();

    Util::String itsInteractionID;
    Util::String itsUpstreamInteractionID;
    Util::String itsFailure;
    bool itIsFailed = false;
    Util::String itsLocus;
    bool itIsOneWay = false;
    bool itsClientFlag = false;
    int itsSequenceNumber = 0;
    long long itsStartTime = 0;
    int itsRtTime = 0;
    int itsCoTime = 0;
    int itsState = 0;
    Util::List<Util::String>* itsKeys = nullptr;
    bool itIsSplit = false;
    Util::ByteArray* itsPayload = nullptr;
    Util::String itsPayloadContentType;
    bool itIncludesPayload = false;
    long long itsMsgSize = 0;
    long long itsSizeB = 0;
    long long itsSizeC = 0;
    long long itsSizeD = 0;
    Util::String itsSecurityID;
    Util::String itsSecurityAttr1;
    Util::String itsSecurityAttr2;
    /// Malloc blocks of a caller's own, which go with this object. Copies don't get them: their
    /// length is not known here.
    void* itsRawBuffer1 = nullptr;
    void* itsRawBuffer2 = nullptr;
    Util::String itsDebugInfo;
    bool itIsLowPriority = false;
    bool itIsInternal = false;
    bool itsCreateFlag = false;
    bool itIsLoaded = false;
    bool itForcesSvcType = false;
    bool itComputesPath = false;
    bool itsEventFlag = false;
    Util::Map<Util::String>* itsMsgFields = nullptr;
    std::shared_ptr<Evaluators> itsEvaluators;
    bool itsRqstNotified = false;
    Util::String itsTrustSignature;
    Util::String itsCalleeAddr;
    Util::String itsCallerAddr;
    long long itsTrustTimestamp = 0;

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
