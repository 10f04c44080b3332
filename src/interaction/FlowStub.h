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
    static const Util::String& FSTB_CLASSNAME;

    FlowStub() : itsClassName(&FSTB_CLASSNAME) {}
    virtual ~FlowStub();
    FlowStub(const FlowStub&) = delete;
    FlowStub& operator=(const FlowStub&) = delete;

    static void* operator new(std::size_t bytes) { return Util::Pooled::operator new(bytes); }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* block) noexcept { Util::release(block); }

    virtual Util::String& getFlowID();
    virtual void setFlowID(Util::String id);
    virtual void setPathID(Util::String id);
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

    void deinit();

    const Util::String* itsClassName;
    Util::String itsFlowID;
    Util::String itsParentID;
    Util::String itsFlowAttr1;
    Util::String itsFlowAttr2;
    Util::String itsSubNode;
    Util::String itsPathID;
    Util::String itsPPathID;
    Util::Map<Util::String>* itsFlowFields = nullptr;
    Checkpoints* itsCheckpoints = nullptr;
    /// False in a copy: checkpoints and evaluators came from another object.
    bool itOwnsShared = true;
};

}  // namespace Quenvale::Interceptor::SDK
