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

    const Util::String itsGroupID;
    const Util::String itsServiceID;
    const Util::String itsOpID;
    Util::Vector<Util::String>* const cpNames;  // Owned; null if no row matched.
    const bool itIncludesPayload;
    const bool itComputesPath;
};

using EntryRef = std::shared_ptr<const ConfigEntry>;

}  // namespace Quenvale::Interceptor::SDK
