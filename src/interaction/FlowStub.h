#pragma once

#include <cstddef>

#include "interaction/Checkpoints.h"
#include "util/Map.h"
#include "util/String.h"
#include "util/blocks.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

/// What a call shares with the flow it belongs to. Base of the one chain of call records:
/// FlowStub, SiteStub, InteractionStub, Interaction, then ServerInteraction and ClientInteraction.
///
/// The fields are open to the C layer, the event and the header; where a field has a rule there is
/// a setter that applies it. Objects come from the per-thread block cache.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: texts and maps are owned; checkpoints are shared with every copy.
class QZ_API FlowStub {
public:
    static const Util::String& FSTB_CLASSNAME;  // The name of this class.

    FlowStub() : itsClassName(&FSTB_CLASSNAME) {}
    virtual ~FlowStub();
    FlowStub(const FlowStub&) = delete;
    FlowStub& operator=(const FlowStub&) = delete;

    /// @{
    /// Blocks come from the per-thread cache of blocks.h and go back to it; placement takes the
    /// caller's.
    static void* operator new(std::size_t bytes) { return Util::Pooled::operator new(bytes); }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* block, std::size_t bytes) noexcept {
        Util::Pooled::operator delete(block, bytes);
    }
    /// @}

    /// As it stands, empty if there is none; a ServerInteraction makes one.
    virtual Util::String& getFlowID();
    /// Stores the id as given.
    virtual void setFlowID(Util::String id);
    /// Stores the id as given.
    virtual void setPathID(Util::String id);
    /// As it stands; Interaction::_getPathID() computes one.
    virtual Util::String& getPathID();

    /// With `create` the object, made on first need. Without it, null as long as it is empty.
    Checkpoints* getCheckpoints(bool create);

    /// Takes over the source's flow: texts and flow fields as copies, the checkpoints shared.
    void setFlowStubFields(const FlowStub* source);

    /// Whether the record says that it is of the given class. Unlike the object's type the name
    /// outlives the derived destructors.
    bool hasClassName(const Util::String& name) const {
        return itsClassName == &name || *itsClassName == name;
    }

    /// What the destructor does: lets go of checkpoints and flow fields.
    void deinit();

    const Util::String* itsClassName;                  // Borrowed; one of the constants.
    Util::String itsFlowID;                            // Shared by all calls of a flow.
    Util::String itsParentID;                          // Of a client or split: its server's id.
    Util::String itsFlowAttr1;                         // The caller's own, for the event.
    Util::String itsFlowAttr2;                         // The same.
    Util::String itsSubNode;                           // Starts as the server instance.
    Util::String itsPathID;                            // The way the flow took to here.
    Util::String itsPPathID;                           // The parent's.
    Util::Map<Util::String>* itsFlowFields = nullptr;  // Owned; null for none.
    Checkpoints* itsCheckpoints = nullptr;             // Counted; null for none.
    /// False in a copy: checkpoints and evaluators came from another object.
    bool itOwnsShared = true;
};

}  // namespace Quenvale::Interceptor::SDK
