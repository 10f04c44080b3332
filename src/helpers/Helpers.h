#pragma once

#include "util/Map.h"
#include "util/String.h"
#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

class ClientInteraction;
class HeaderText;
class Interaction;
class ServerInteraction;

/// The context header that travels with a request to the next process, and the trust built on it.
///
/// The header is a run of pairs, each the key, "=", the value and ";". There is no escaping: a ";"
/// ends its pair, and a "=" inside a value belongs to it. Keys are case-sensitive; a reader takes
/// them in any order and needs none of them.
///
/// Threads:   any; an interaction belongs to the caller for the call. The two caches of the trust
///            check have a lock each, and no name is looked up under one.
/// Ownership: texts go in by reference and come out as copies.
/// Errors:    results only.
class QZ_API Helpers {
public:
    /// The name under which the header travels as a whole: "QZ_Header".
    static const Util::String& kQZTransport;

    /// @{
    /// What stands between a key and its value, and behind each pair.
    static const Util::String& kHdrDelimEq;
    static const Util::String& kHdrDelimSem;
    /// @}
    static const Util::String& kInteractionName;    // "Interaction": the client's id
    static const Util::String& kLocusName;          // "Locus": operation id of its server
    static const Util::String& kFlowName;           // "Flow": id of the flow
    static const Util::String& kUpstreamOpID;       // "UpstreamOpID": operation id of the client
    static const Util::String& kPathName;           // "Path": the client's path id
    static const Util::String& kCPName;             // "name": a checkpoint, its time behind it
    static const Util::String& kCPTime;             // "CPTime": elapsed ms of the checkpoint
    static const Util::String& kCallerAddressName;  // "CallerAddress"
    static const Util::String& kCalleeAddressName;  // "CalleeAddress"
    static const Util::String& kTrustTimeHdr;   // "TrustTimestamp": ms since 1970; read, never sent
    static const Util::String& kTrustSigHdr;    // "TrustSignature"
    static const Util::String& kTrustSecIDHdr;  // "SecurityID"
    static const Util::String& kFlowFieldName;  // "FlowFields": the list of flow fields

    /// @{
    /// For sizing the text under construction: pairs, bytes of an id, of all keys and of a
    /// checkpoint.
    static constexpr int kHdrCount = 5;
    static constexpr int kTokenLen = 16;
    static constexpr int kHdrNamesLen = 72;
    static constexpr int kCPLen = 46;
    /// @}

    /// Blank when there is nothing to send: a call with no callee, no flow field and no asserted
    /// trust sends no header. `trust` asks for a trust assertion.
    static Util::String writeHeader(ClientInteraction* interaction, bool trust);

    /// False for a blank header, true for any other, understood or not.
    static bool readHeader(const Util::String& header, ServerInteraction* interaction);

    /// Applies one pair; a blank name or value changes nothing.
    static void processHeader(const char* name, const char* value, ServerInteraction* interaction);

    /// Adds an incoming checkpoint; an elapsed time of 0 is refused with a debug note.
    static void processCheckpoint(const char* name, const char* elapsed, Interaction* interaction);

    /// A list of items joined by commas, each a key, ":" and a value, or a key that is its own
    /// value. The caller owns the map.
    static Util::Map<Util::String>* readMultiValueHeader(const char* value);

    /// Appends a pair; a blank name or value leaves no trace.
    static void writeKVPair(HeaderText& text, const char* name, const char* value);

    /// The flow fields as a list; blank when there are none.
    static Util::String buildFlowField(ClientInteraction* interaction);

    /// Appends the trust keys to a header; false, and the header as it was, where the
    /// configuration, a key or an id is missing.
    static bool assertTrust(Util::String& header, ClientInteraction* interaction);

    /// Whether the caller's header shows that it knows the shared key. True for everything while
    /// the configuration has no trust block. What follows from it is the interceptor's decision.
    static bool checkTrust(ServerInteraction* interaction);
    /// What checkTrust() calls.
    static bool checkTrustImp(ServerInteraction* interaction);

    /// @{
    /// The hash over the five texts joined; blank ones add nothing. `timestamp` is ms since 1970.
    /// With `noHash` a blank text.
    static Util::String buildTrustSig(const Util::String& key, const Util::String& callerAddr,
                                      long long timestamp, const Util::String& interactionID,
                                      const Util::String& securityID, bool noHash);
    static Util::String buildTrustSig(const Util::String& key, const Util::String& callerAddr,
                                      const Util::String& timestamp,
                                      const Util::String& interactionID,
                                      const Util::String& securityID, bool noHash);
    /// @}

    /// Whether this id was not seen within the window (ms). Each call renews the block on it.
    static bool checkTrustID(const Util::String& interactionID, long long window);

    /// Whether the time is at most the window old; one in the future is.
    static bool checkTrustTS(long long timestamp, long long window);

    /// Whether the caller's address is among the names of the peer. A peer that isn't known yet is
    /// looked up on this thread.
    static bool checkCallerAddr(const Util::String& callerAddr, const Util::String& peerAddr);

    /// When a check last saw an interaction id, in ms; the thousand seen last.
    static Util::Map<long long>& intIDCache QZ_GUARDED_BY(intIDCacheLock);
    static Util::qzmutex& intIDCacheLock;  // Guards intIDCache.
};

}  // namespace Quenvale::Interceptor::SDK
