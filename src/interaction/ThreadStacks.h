#pragma once

#include <atomic>

#include "util/String.h"
#include "util/annotations.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

class IntCorrTlsStack;
class Interaction;
class ThreadStacks;

/// One place on a thread's stack. It is kept for the next push when it is taken off.
struct StackEntry {
    explicit StackEntry(ThreadStacks* stacks) : home(stacks) {}

    ThreadStacks* const home;  // Whose lock guards the rest.
    Interaction* interaction = nullptr;
    StackEntry* below = nullptr;
    StackEntry* above = nullptr;
    // Where the interaction's own pointer goes back to. It may meanwhile serve another one, so
    // whoever follows it looks at the entry's interaction first.
    StackEntry* older = nullptr;
    bool isServer = false;
};

/// One thread's stack of servers and its stack of clients.
///
/// Every operation costs the same however many calls are open: an interaction leads to its newest
/// entry, and only one with entries that this chain has lost is searched for.
///
/// Threads:   the thread itself, and whoever destroys an interaction that is still on a stack.
/// Ownership: IntCorrTlsStack keeps the objects; a thread uses one until it ends.
class ThreadStacks {
public:
    enum class Pop { kDone, kOther, kNull, kEmpty };

    /// With `isCounted` the interactions know of their entries.
    ThreadStacks(IntCorrTlsStack* owner, bool isCounted);
    ~ThreadStacks();
    ThreadStacks(const ThreadStacks&) = delete;
    ThreadStacks& operator=(const ThreadStacks&) = delete;

    /// Those of the calling thread; null before its first put.
    static ThreadStacks* ofThread(const IntCorrTlsStack* owner) {
        ThreadStacks* stacks = ourStacks;
        while (stacks != nullptr && stacks->itsOwner.load(std::memory_order_acquire) != owner)
            stacks = stacks->itsNextOfThread;
        return stacks;
    }

    /// Gives the stacks to the calling thread, until it ends.
    void attach();
    /// Takes them from it again. False when they are not its own.
    bool detach();

    Interaction* top(bool isServer);
    void push(Interaction* interaction, bool isServer);
    /// Takes the top off if it is the interaction; otherwise says what is there instead.
    Pop pop(Interaction* interaction, bool isServer);
    bool holds(Interaction* interaction, bool isServer);
    bool empty();

    /// Takes one entry off, wherever it stands. False when it is not the interaction's any more.
    bool take(StackEntry* entry, Interaction* interaction);
    void takeAll(Interaction* interaction);
    void clear();

    /// The thread's end may not be noticed, so the stacks go as soon as they are empty.
    bool isShortLived() const { return itIsShortLived; }
    const Util::String& name() const { return itsName; }

    std::atomic<IntCorrTlsStack*> itsOwner;  // Null once the owner is gone.
    ThreadStacks* itsNext = nullptr;         // These two belong to the owner's registry.
    ThreadStacks* itsNextIdle = nullptr;

private:
    static void endThread(void* unused);
    static bool watchThread();

    StackEntry*& topOf(bool isServer) QZ_REQUIRES(itsLock) {
        return isServer ? itsServers : itsClients;
    }
    void remove(StackEntry* entry) QZ_REQUIRES(itsLock);

    static __thread ThreadStacks* ourStacks __attribute__((tls_model("initial-exec")));
    static __thread bool ourThreadEnds __attribute__((tls_model("initial-exec")));

    const Util::String itsName;
    const bool itIsCounted;
    ThreadStacks* itsNextOfThread = nullptr;  // One for each owner; only the thread looks at it.
    bool itIsShortLived = false;
    Util::qzmutex itsLock;
    StackEntry* itsServers QZ_GUARDED_BY(itsLock) = nullptr;
    StackEntry* itsClients QZ_GUARDED_BY(itsLock) = nullptr;
    StackEntry* itsIdle QZ_GUARDED_BY(itsLock) = nullptr;  // Linked through `below`.
};

}  // namespace Quenvale::Interceptor::SDK
