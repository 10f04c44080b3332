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
    const IntCorrTlsStack* owner = nullptr;
    Interaction* interaction = nullptr;
    StackEntry* below = nullptr;
    StackEntry* above = nullptr;
    // Where the interaction's own pointer goes back to. It may meanwhile serve another one, so
    // whoever follows it looks at the entry's interaction first.
    StackEntry* older = nullptr;
    bool isServer = false;
};

/// One thread's stack of servers and its stack of clients. Each IntCorrTlsStack sees only what it
/// put there itself.
///
/// Every operation costs the same however many calls are open: an interaction leads to its newest
/// entry, and only one with entries that this chain has lost is searched for.
///
/// What held one thread's calls serves a later thread. Nothing is freed, so that an interaction can
/// keep a pointer to its entry: there are as many as were in use at once.
///
/// Threads:   the thread itself, and whoever destroys an interaction that is still on a stack. Lock
///            order: the registry's, then that of one thread's stacks.
/// Ownership: interactions are borrowed; they count their entries.
class ThreadStacks {
public:
    enum class Pop { kDone, kOther, kNull, kEmpty };
    using Owner = const IntCorrTlsStack*;

    /// Those of the calling thread; null before its first put.
    static ThreadStacks* ofThread() { return ourStacks; }
    static ThreadStacks* ensure();
    /// For after an entry was taken off. Where the thread's end may not be noticed, empty stacks
    /// are no longer the thread's.
    static void leaveIfSpent() {
        if (ourStacks != nullptr && ourStacks->itIsShortLived) leaveIfEmpty();
    }

    /// Names the calling thread; no other live thread has the same name.
    static Util::String threadName() { return Util::String::addrToString(&ourStacks); }

    /// Take the entries of one interaction or of one owner off all threads' stacks.
    static void forget(Interaction* interaction);
    static void forget(Owner owner);

    Interaction* top(Owner owner, bool isServer);
    void push(Owner owner, Interaction* interaction, bool isServer);
    /// Takes the top off if it is the interaction; otherwise says what is there instead.
    Pop pop(Owner owner, const Interaction* interaction, bool isServer);
    bool holds(Owner owner, const Interaction* interaction, bool isServer);

private:
    struct Registry;

    ThreadStacks() = default;

    static Registry& registry();
    static void endThread(void* unused);
    static void leave();
    static void leaveIfEmpty();

    std::atomic<StackEntry*>& headOf(bool isServer) { return isServer ? itsServers : itsClients; }
    StackEntry* topOf(Owner owner, bool isServer) QZ_REQUIRES(itsLock);
    void remove(StackEntry* entry) QZ_REQUIRES(itsLock);
    /// False when the entry is not the interaction's any more.
    bool take(StackEntry* entry, const Interaction* interaction);
    template <class Condition>
    void takeAll(Condition isMeant);
    template <class Condition>
    static void takeEverywhere(Condition isMeant);

    static __thread ThreadStacks* ourStacks __attribute__((tls_model("initial-exec")));
    static __thread bool ourThreadEnds __attribute__((tls_model("initial-exec")));

    ThreadStacks* itsNext = nullptr;  // These two belong to the registry.
    ThreadStacks* itsNextIdle = nullptr;
    bool itIsShortLived = false;
    Util::qzmutex itsLock;
    // Only the thread itself adds entries: what it finds empty stays so.
    std::atomic<StackEntry*> itsServers{nullptr};
    std::atomic<StackEntry*> itsClients{nullptr};
    StackEntry* itsIdle QZ_GUARDED_BY(itsLock) = nullptr;  // Linked through `below`.
};

}  // namespace Quenvale::Interceptor::SDK
