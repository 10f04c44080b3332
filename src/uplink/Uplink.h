#pragma once

#include "uplink/UplinkData.h"
#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

class Interaction;

/// The channel from the interaction model to the agent. The model knows nothing else of the agent:
/// all that touches a socket lies behind it.
///
/// Threads:   any application thread, all operations at once.
/// Ownership: an uplink lives as long as the process and is not deleted through this type.
/// Errors:    none reaches the caller; a report that can't be delivered is dropped.
class QZ_API Uplink {
public:
    /// True if the agent can be reached. The first call of a process may block for the answer.
    virtual bool getAlive() = 0;
    /// Reports the stage that the interaction is in.
    virtual void notifyAgent(Interaction* interaction) = 0;
    /// A new attachment that shares the channel of the given one.
    virtual UplinkData* copyUplinkData(UplinkData* data);
    /// Sends what is queued, now, on the calling thread.
    virtual void flushAllQueues() = 0;
    /// Stops the background work.
    virtual void shutdown() = 0;

protected:
    Util::qzmutex itsLock;  // For implementations of a caller's own.
};

}  // namespace Quenvale::Interceptor::SDK
