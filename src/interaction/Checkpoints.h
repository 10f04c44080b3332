#pragma once

#include <atomic>
#include <cstddef>

#include "util/Map.h"
#include "util/String.h"
#include "util/Vector.h"
#include "util/annotations.h"
#include "util/blocks.h"
#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

/// A timing that came in with a request.
struct QZ_API Checkpoint {
    /// Copies the name.
    Checkpoint(const Util::String& name, long long elapsed) : itsName(name), itsElapsed(elapsed) {}

    /// @{
    /// Blocks come from the per-thread cache of blocks.h and go back to it.
    static void* operator new(std::size_t bytes) { return Util::Pooled::operator new(bytes); }
    static void operator delete(void* block, std::size_t bytes) noexcept {
        Util::Pooled::operator delete(block, bytes);
    }
    /// @}

    Util::String itsName;  // Not empty.
    long long itsElapsed;  // ms, as the header had it.
};

/// The named timings of a flow: those that came in with the request, and the names of those to
/// send onward from `itsBaseline`. A server, its clients and their stubs hold the same object.
///
/// Threads:   any. A split takes the object to another thread while the first one still reports,
///            so a list of names and the map of incoming timings never change once they are
///            handed out: other names are another list, and the map is built once.
/// Ownership: the holders count themselves by retain() and drop(), and the last one destroys it:
///            a client or a stub may outlive its server. Lists and names given out belong to the
///            object; an iterator to the caller.
/// Units:     milliseconds.
class QZ_API Checkpoints {
public:
    Checkpoints() = default;
    /// No lock: the last holder is alone.
    ~Checkpoints() {
        if (!isUntouched()) dropAll();
    }
    Checkpoints(const Checkpoints&) = delete;
    Checkpoints& operator=(const Checkpoints&) = delete;

    /// @{
    /// Blocks come from the per-thread cache of blocks.h and go back to it.
    static void* operator new(std::size_t bytes) { return Util::Pooled::operator new(bytes); }
    static void operator delete(void* block, std::size_t bytes) noexcept {
        Util::Pooled::operator delete(block, bytes);
    }
    /// @}

    /// One holder more.
    void retain() { itsHolders.fetch_add(1, std::memory_order_relaxed); }
    /// One holder less; the last one destroys the object.
    void drop() {
        // While there is one holder only that one can make another: most objects need no more.
        if (itsHolders.load(std::memory_order_acquire) == 1 ||
            itsHolders.fetch_sub(1, std::memory_order_acq_rel) == 1)
            delete this;
    }

    /// Back to the state of a new object. Only for a sole holder.
    void clear();

    /// Incoming timings and new names, each counted as often as it came.
    int getTotalCheckpointsCount() const;
    /// Whether that is more than 0.
    bool hasAny() const {
        Util::Vector<Util::String>* names = itsNewNames;
        return itsIncomingCount > 0 || (names != nullptr && names->size() > 0);
    }
    /// As often as they came.
    int getIncomingCheckpointsCount() const { return itsIncomingCount; }

    /// Name to elapsed time, the last one where a name came twice; null when there are none. What
    /// is added after the first call still counts but is not seen here.
    Util::Map<long long>::Iterator* getIncomingCheckpoints();

    /// The names to send onward; null when none were set.
    Util::Vector<Util::String>* getNewCheckpoints() const { return itsNewNames; }

    /// An empty name is refused: by an IllegalArgumentException* at log level 4, else in silence.
    void addIncomingCheckpoint(const Util::String& name, long long elapsed);

    /// Copies the names; null clears them.
    void setNewCheckpoints(Util::Vector<Util::String>* names);

    /// See getNewCheckpoints(); set by setNewCheckpoints() only.
    std::atomic<Util::Vector<Util::String>*> itsNewNames{nullptr};
    /// When the server started, in ms since 1970; 0 until its request is reported.
    std::atomic<long long> itsBaseline{0};

private:
    // A list that was in use. It stays until the object goes, since another thread may be reading
    // it; equal names find it again, so there are never more lists than different ones.
    struct Names;

    // Nothing was ever stored but the baseline.
    bool isUntouched() const QZ_REQUIRES(itsLatch) {
        return itsIncoming == nullptr && itsKeptNames == nullptr;
    }
    void dropAll() QZ_REQUIRES(itsLatch);

    Util::qzlatch itsLatch;
    Util::Vector<Checkpoint*>* itsIncoming QZ_GUARDED_BY(itsLatch) = nullptr;
    Names* itsKeptNames QZ_GUARDED_BY(itsLatch) = nullptr;
    std::atomic<Util::Map<long long>*> itsIncomingMap{nullptr};
    std::atomic<int> itsIncomingCount{0};
    std::atomic<int> itsHolders{1};
};

}  // namespace Quenvale::Interceptor::SDK
