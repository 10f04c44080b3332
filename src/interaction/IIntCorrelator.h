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
    virtual Interaction* getServer(const Util::String& key) = 0;
    virtual Interaction* getClient(const Util::String& key) = 0;
    virtual void putServer(Interaction* interaction, const Util::String& key) = 0;
    virtual void putClient(Interaction* interaction, const Util::String& key) = 0;
    virtual void dropKey(const Util::String& key) = 0;
    virtual void dropValue(Interaction* interaction, bool keepKeys) = 0;
    /// The open interaction that a begin joins, or a new one; null where it may not be reused.
    virtual Interaction* getForBegin(const Util::String& /*key*/, bool /*isServer*/,
                                     int /*reuseMode*/, bool /*keyOnly*/) {
        return nullptr;
    }
    virtual bool hasInteraction(Interaction* /*interaction*/) { return false; }
    virtual ~IIntCorrelator() = default;
};

}  // namespace Quenvale::Interceptor::SDK
