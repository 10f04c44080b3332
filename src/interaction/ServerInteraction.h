#pragma once

#include <type_traits>

#include "interaction/Interaction.h"

namespace Quenvale::Interceptor::SDK {

/// A request that comes in. Its flow and interaction ids may still come with a header; otherwise
/// the first read makes them. It computes its own path, and holds the checkpoint baseline of its
/// flow.
///
/// Threads:   as Interaction, but its ids and path may be asked for by children on other threads.
/// Ownership: create, begin and beginInternal give an object that the caller destroys; stubs and
///            interactions that are passed in are only read.
class QZ_API ServerInteraction : public Interaction {
public:
    /// A new one, innermost on this thread and known by the key unless that is empty.
    static ServerInteraction* create(const Util::String& key);
    /// Goes on with a split. With a NIL operation name it is the same operation on another thread
    /// and reports nothing; with a name it is a new operation in the same flow.
    static ServerInteraction* begin(SiteStub* stub, const Util::String& key,
                                    const Util::String& opName);
    /// One that never reports. With `reuse`, null where the call is already past its request stage.
    static ServerInteraction* beginInternal(const Util::String& key, bool reuse);

    /// Outside of the correlator and without ids: what fromStub() fills.
    ServerInteraction();
    ~ServerInteraction() override;

    /// Takes the flow over, but keeps its own parent.
    void join(FlowStub* flow);
    /// Takes the flow over, and the identity of the other one with it.
    void join(InteractionStub* other);

    /// @{
    /// The first read makes an id where none came with a header or a join, on whatever thread.
    Util::String& getFlowID() override;
    Util::String& getInteractionID() override;
    /// @}
    /// What came with the header; NIL for none.
    const Util::String& getUpstreamInteractionID() override;
    /// The decision for servers of this URL and operation name.
    EntryRef loadConfig() override;
    /// Takes the decision's checkpoint names as well.
    void loadFromCacheData(const ConfigEntry* entry) override;
    /// As it stands, or computed if it is empty and the configuration wants it.
    Util::String& _getPathID(bool asIs) override;
    /// Sets the baseline of the flow's checkpoints to the start of this call.
    void prepareCheckpoints() override;

    /// The text of a field that another thread may be filling; null until it is there. It stays
    /// valid until the owner of the interaction changes the field.
    static const char* publishedText(const Util::String& field) {
        return __atomic_load_n(slotOf(field), __ATOMIC_ACQUIRE);
    }

private:
    // A String is its one pointer, so that the pointer can be stored and read atomically.
    static char** slotOf(const Util::String& field) {
        static_assert(std::is_standard_layout_v<Util::String> &&
                      sizeof(Util::String) == sizeof(char*));
        return reinterpret_cast<char**>(const_cast<Util::String*>(&field));
    }
    static ServerInteraction* beginServer(const Util::String& key, int reuseMode);
    Util::String& ensureID(Util::String& field, Util::String& replaced) {
        const char* known = publishedText(field);
        if (__builtin_expect(known == nullptr || *known == '\0', 0)) makeID(field, replaced);
        return field;
    }
    static void makeID(Util::String& field, Util::String& replaced);
    static void publish(Util::String& field, Util::String&& text, Util::String& replaced);

    // A lazy field is filled without a lock, by the first thread that puts its text there. An empty
    // text that gave way stays readable for whoever still looks at it.
    Util::String itsReplacedFlowID;
    Util::String itsReplacedInteractionID;
    Util::String itsReplacedPathID;
};

}  // namespace Quenvale::Interceptor::SDK
