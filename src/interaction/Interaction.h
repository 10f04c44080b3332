#pragma once

#include <atomic>

#include "interaction/InteractionStub.h"
#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK {

class Uplink;
class UplinkData;
struct StackEntry;

/// A monitored call from begin to end. Its stages (`itsState`):
///
///     0 request     values are still being set
///     1 analysed    the request is known and was reported        requestAnalyzed()
///     2 completed   the reply is known and was reported          complete()
///     3 ended       keys are dropped, the content is cleared     setCleanEnd()
///
/// A call that completes without having been analysed is reported once, both sides together. One
/// that is destroyed in stage 1 or 2 is reported from its destructor, as a failure.
///
/// Threads:   an interaction belongs to one thread at a time; a split hands out a copy, a detach
///            takes the interaction off its thread.
/// Ownership: the caller of begin, create, attach or fromStub destroys it; end() does not.
///            Stubs that are returned belong to the caller.
/// Errors:    reporting never fails. loadFromCache() inside requestAnalyzed(), complete() and end()
///            throws where no group can be named.
class QZ_API Interaction : public InteractionStub {
public:
    /// Runs while the library loads: host name, server instance, platform type and the uplink.
    class StaticInit {
    public:
        StaticInit();
    };

    /// @{
    /// The names of this class and of those of the two kinds of call.
    static const Util::String& INT_CLASSNAME;
    static const Util::String& SINT_CLASSNAME;
    static const Util::String& CINT_CLASSNAME;
    /// @}
    /// @{
    /// Names of environment variables; docs/operating.md tells what they do.
    static const Util::String& SERVER_INSTANCE;
    static const Util::String& PLATFORM_TYPE;
    /// @}
    /// The failure of a call that is destroyed before its end.
    static const Util::String& INTERACTION_NOT_ENDED;
    static Uplink* ourUplink;                // See uplink().
    static Util::String& ourServerInstance;  // The first sub-node of every call; may be NIL.
    static Util::String& ourHostname;        // NIL where it could not be found.
    static short itsDefaultPlatformType;     // Of every new call.
    static StaticInit ourStaticInit;         // Its constructor is the library's start.

    /// The way out for all events; null when it could not be made, and then reports are dropped.
    static Uplink* uplink() { return ourUplink; }

    /// An open interaction that this call joins, or a new one; null where reuseMode 1 meets one
    /// past its request stage. The last argument has no effect.
    static Interaction* begin(const Util::String& key, bool isServer, int reuseMode, bool ignored);
    /// Null when there is none. The flag's sense is opposite to begin's; an empty key means the
    /// innermost interaction of this thread.
    static Interaction* get(const Util::String& key, bool isClient);
    /// The interaction that a stub from detach() describes, now innermost on this thread.
    static Interaction* attach(InteractionStub* stub);
    /// Null where the stub does not say that it came from a server or a client.
    static Interaction* fromStub(InteractionStub* stub);

    Interaction();
    ~Interaction() override;

    /// A further key, under which the call is found from now on; the calling thread has it on its
    /// stack once more.
    virtual void storeLocalKey(const Util::String& key);
    /// Takes the interaction off its thread; attach() goes on with the stub elsewhere.
    virtual InteractionStub* detach();
    /// What another thread needs to work on this call beside it. A server is analysed first, so
    /// that its flow and ids are settled.
    virtual SiteStub* split();
    /// The request is known: fixes the identifiers, reports it and clears the payload. Past stage 0
    /// it does nothing.
    virtual void requestAnalyzed();
    /// The parent's path id, as it stands.
    virtual Util::String& _getPPathID();
    /// The path id; a server and a client compute theirs where there is none. With `asIs` a server
    /// does not.
    virtual Util::String& _getPathID(bool asIs);
    /// Null when there are no checkpoints.
    virtual Util::Vector<Util::String>* getNewCheckpoints();
    /// The caller deletes the iterator.
    virtual Util::Map<long long>::Iterator* getIncomingCheckpoints();
    /// setClean(), stage 3, and the call is found by no key and no thread any more.
    virtual void setCleanEnd();
    /// Drops the payload with its content type and sets itsMsgSize and itsSizeC to 0.
    virtual void setClean();
    /// Runs before the request's report. A server sets the baseline of its flow to its start.
    virtual void prepareCheckpoints();
    /// Takes the decision's identifiers and merges the flow fields.
    void loadFromCacheData(const ConfigEntry* entry) override;

    /// The reply is known: takes the time and reports. Past stage 1 it does nothing.
    void complete();
    /// The last of as many calls as there were begins completes and cleans.
    void end();
    /// The call starts now. A new one is marked.
    void markTime();

    /// The message only; null does nothing.
    void setFailure(Util::APIException* exception);
    /// @{
    /// An empty name or value does nothing. Without `overwrite` a field that is there stays.
    /// Message fields go into the call's events, flow fields also to the next hops.
    void setMsgField(const Util::String& name, const Util::String& value, bool overwrite);
    void addFlowFieldToPropagate(const Util::String& name, const Util::String& value,
                                 bool overwrite);
    /// @}
    /// setMsgField() for each of the map; null does nothing.
    void addMsgFields(Util::Map<Util::String>* fields, bool overwrite);
    /// All of the map, over what is there; null does nothing.
    void addFlowFieldsToPropagate(Util::Map<Util::String>* fields);
    /// Sets the field from the first evaluator with a result, or else propagates the value it has.
    void evalMsgField(const Util::String& name, const Util::String& text, bool propagate);
    /// For the names that the configuration lists, flow fields and message fields get each other's
    /// values; where both have one the flow field wins.
    void mergeFlowFields();

    /// The call is found by none of its keys any more and, with `dropValue`, not by its thread. It
    /// keeps the list of keys.
    void dropAllKeys(bool dropValue);
    /// Makes the call known by all keys of its list; the calling thread gets it on its stack for
    /// each.
    void addAllKeys();

    /// @{
    /// A copy of so much of the call, for the caller to delete.
    InteractionStub* toStub();
    SiteStub* toSiteStub();
    FlowStub* toFlowStub();
    /// @}

    /// Reports on the source's queue from now on; nothing happens if the source has reported
    /// nothing.
    void copyUplink(Interaction* source);

    /// @{
    /// What the object is at this moment: in its destructor it is neither.
    bool isServer() const { return itsKind == kServer; }
    bool isClient() const { return itsKind == kClient; }
    /// @}

    /// What the destructor does: the report of a call that was not ended, and letting go of the
    /// queue.
    void deinit();

    UplinkData* itsUplinkData = nullptr;  // Owned; null before the first report.
    int itsRefCount = 1;                  // Begins that were not ended.
    void* itsRecord = nullptr;            // The C interface's record of this call, not owned.

    /// @{
    /// The ways that lead here, kept by the correlator: the entry on a thread's stack that came
    /// first, the newest of any further ones, and the oldest key. A stack's entry serves other
    /// interactions once it was taken off.
    std::atomic<StackEntry*> itsFirstEntry{nullptr};
    std::atomic<StackEntry*> itsNewestEntry{nullptr};
    Util::String itsOldestKey;
    /// @}
    /// @{
    /// How many further entries there are on stacks, at most, and how many in the key map.
    std::atomic<int> itsFurtherEntries{0};
    std::atomic<int> itsKeyEntries{0};
    /// @}

protected:
    /// What the object is while it is whole.
    enum Kind : signed char { kNeither, kServer, kClient };

    /// Set by the derived constructors and taken back by their destructors.
    Kind itsKind = kNeither;

private:
    void notifyAgent();
    void putUnder(const Util::String& key);
    void endUnfinished();
};

}  // namespace Quenvale::Interceptor::SDK
