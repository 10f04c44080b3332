#pragma once

#include "util/ByteArray.h"
#include "util/String.h"
#include "util/Vector.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

class Interaction;

/// Turns one interaction into one flat run of bytes, the agent event. docs/protocol.md has the
/// fields; their order and conditions stand in one table. One walk over it writes the event where
/// there is room and says how much it takes where there is not.
///
/// An object serves for one report: make it, call serialize() once, take the bytes.
///
/// Threads:   the one that reports; there is no lock. Nothing may change the interaction meanwhile.
/// Ownership: the interaction is borrowed. The event and the separate payload are the caller's, to
///            be released by releaseContent().
/// Units:     sizes and positions are bytes.
/// Errors:    an exception of the interaction passes through and leaves nothing behind. A size that
///            comes out wrong is logged, and the event is handed out as it is.
class QZ_API AgentEvent {
public:
    static constexpr unsigned char AGENT_EVENT_TYPE = 0;  // Absent from the event, being 0.
    /// The content type that an interceptor gives never reaches the agent.
    static const Util::String& DEFAULT_PAYLOAD_CONTENT_TYPE;

    /// Null makes serialize() give nothing. With separatePayload the payload is no part of the
    /// event.
    AgentEvent(Interaction* interaction, bool firstFlag, bool separatePayload);

    /// The event: in `room` if the caller has some and it is enough, and then not owned; otherwise
    /// in a block. With a separate payload itsPayloadCopy is set.
    Util::ByteArray serialize(unsigned char* room = nullptr, int roomSize = 0);

    /// Loads the interaction's decisions, chooses the payload and fills mask and sizes.
    void computeSize(bool isClient);

    /// Copies a payload to `pos` and returns the position behind it. Fill regions hide bytes, they
    /// do not change the length; one that reaches the payload's end aborts the process.
    static int addOptionalDataOnly(Util::ByteArray& out, const Util::ByteArray* message, int pos);

    Interaction* itsInteraction;                 // Borrowed.
    bool itsFirstFlag;                           // Stored and never read.
    long long itsOptionalMask = 0;               // A bit for each field that is there.
    int itsPos = 1;                              // Byte 0 is for the flags.
    int itsEventSize = 0;                        // Without the payload.
    int itsTotalSize = 0;                        // With it, also where it travels separately.
    bool itsSeparatePayload;                     // As given.
    Util::ByteArray* itsEventPayload = nullptr;  // Borrowed; null when there is none.
    Util::ByteArray itsPayloadCopy;              // The separate payload, once serialized.
    const Util::String* itsOtherOpID = nullptr;  // Borrowed; null while it is the own operation id.
    const Util::String& itsContentType = DEFAULT_PAYLOAD_CONTENT_TYPE;  // Not sent.
    bool itsIsClient;                                                   // All but a whole server.

private:
    QZ_LOCAL void prepare(bool isClient);
    /// Fills mask and sizes, and writes what the room takes. Returns how much it would have to be.
    QZ_LOCAL int walkFields(unsigned char* room, int size, bool isClient);
    QZ_LOCAL void addHead(unsigned char* at) const;
    QZ_LOCAL void addPayload(unsigned char* bytes, int size);
    void computeParts();
    int payloadLength() const;
    unsigned char flags() const;

    // What each walk must find alike. Checkpoints are shared with other threads, which may replace
    // the list of names in between.
    bool itHasRequest = false;
    bool itHasReply = false;
    int itsIncomingCount = 0;
    Util::Vector<Util::String>* itsNewNames = nullptr;
};

}  // namespace Quenvale::Interceptor::SDK
