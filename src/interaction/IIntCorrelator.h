#pragma once

#include "util/String.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

class Interaction;

/// Finds the interaction that a call belongs to: by a key that the interceptor names, or, with an
/// empty key, by thread.
///
/// Ownership: interactions are borrowed; dropValue() and Interaction's destructor take them out.
class QZ_API IIntCorrelator {
public:
    /// @{
    /// The interaction of the key or, with an empty one, the innermost on the thread; null for
    /// none.
    virtual Interaction* getServer(const Util::String& key) = 0;
    virtual Interaction* getClient(const Util::String& key) = 0;
    /// @}
    /// @{
    /// Makes the interaction known by the key and, without one, by the thread.
    virtual void putServer(Interaction* interaction, const Util::String& key) = 0;
    virtual void putClient(Interaction* interaction, const Util::String& key) = 0;
    /// @}
    /// Nothing is known by the key any more; an unknown one does nothing.
    virtual void dropKey(const Util::String& key) = 0;
    /// Takes the interaction off its thread and, unless keepKeys, out of the keys.
    virtual void dropValue(Interaction* interaction, bool keepKeys) = 0;
    /// The open interaction that a begin joins, or a new one; null where it may not be reused.
    virtual Interaction* getForBegin(const Util::String& /*key*/, bool /*isServer*/,
                                     int /*reuseMode*/, bool /*keyOnly*/) {
        return nullptr;
    }
    /// Whether it is open on this thread; false where a correlator does not keep threads.
    virtual bool hasInteraction(Interaction* /*interaction*/) { return false; }
    virtual ~IIntCorrelator() = default;
};

}  // namespace Quenvale::Interceptor::SDK
