#pragma once

#include <memory>
#include <utility>

#include "util/String.h"
#include "util/Vector.h"

namespace Quenvale::Interceptor::SDK {

/// What the configuration decided for one URL and operation name. Made once and never changed, so
/// that any number of calls may read one at a time.
///
/// Ownership: shared. A new configuration drops the caches at any moment, and the entry stays
///            until the last call that asked for it has read it.
struct ConfigEntry {
    /// Takes over `names`, a new list or null.
    ConfigEntry(Util::String groupID, Util::String serviceID, Util::String opID,
                Util::Vector<Util::String>* names, bool includesPayload, bool computesPath)
        : itsGroupID(std::move(groupID)),
          itsServiceID(std::move(serviceID)),
          itsOpID(std::move(opID)),
          cpNames(names),
          itIncludesPayload(includesPayload),
          itComputesPath(computesPath) {}
    ~ConfigEntry() { delete cpNames; }
    ConfigEntry(const ConfigEntry&) = delete;
    ConfigEntry& operator=(const ConfigEntry&) = delete;

    const Util::String itsGroupID;              // Of the first call of the kind.
    const Util::String itsServiceID;            // Given by that call, or derived from the URL.
    const Util::String itsOpID;                 // Derived from operation name and URL.
    Util::Vector<Util::String>* const cpNames;  // Owned; null if no row matched.
    const bool itIncludesPayload;               // Events carry the payload.
    const bool itComputesPath;                  // A server makes a path of its own.
};

/// A decision, shared with the cache that it came from.
using EntryRef = std::shared_ptr<const ConfigEntry>;

}  // namespace Quenvale::Interceptor::SDK
