#pragma once

#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

/// What an uplink attaches to one interaction: its way to a queue. Each uplink has its own kind.
///
/// Ownership: the interaction that holds it deletes it.
class QZ_API UplinkData {
public:
    /// A new attachment to the same channel, for the caller.
    virtual UplinkData* copy() = 0;
    /// Lets go of the channel.
    virtual void clear() {}
    virtual ~UplinkData() = default;
};

}  // namespace Quenvale::Interceptor::SDK
