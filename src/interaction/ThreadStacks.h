#pragma once

#include <atomic>

#include "interaction/Interaction.h"
#include "util/String.h"

namespace Quenvale::Interceptor::SDK {

class IntCorrTlsStack;
class ThreadStacks;

/// One place on a thread's stack. It is kept for the next push when it is taken off.
struct StackEntry {
    explicit StackEntry(ThreadStacks* stacks) : home(stacks) {}

    ThreadStacks* const home;
    // Null for a place that is not used. Its thread sets it. Whoever makes it null, its thread or
    // another, has the entry from then on and hands it back.
    std::atomic<Interaction*> interaction{nullptr};
    // Null once that one has gone: nobody finds the entry any more.
    std::atomic<const IntCorrTlsStack*> owner{nullptr};
    // The interaction's further entry before this one. Whoever follows it looks at that entry's
    // interaction first, since it may meanwhile serve another one.
    std::atomic<StackEntry*> older{nullptr};
    StackEntry* next = nullptr;         // Among all of its home; fixed once others know the entry.
    StackEntry* nextCleared = nullptr;  // Of whoever has the entry.
    /// @{
    /// Its thread's own.
    StackEntry* below = nullptr;
    StackEntry* above = nullptr;
    bool isServer = false;
    /// @}
};

/// One thread's stack of servers and its stack of clients. Each IntCorrTlsStack sees only what it
/// put there itself.
///
/// Only the thread itself links and unlinks entries, so pushing and popping take no lock. Who
/// destroys an interaction that is still on a stack, on its own thread or another, clears the entry
/// and hands it back; the thread unlinks it with its next operation. An owner that goes only takes
/// its name off its entries; the thread unlinks them before it would make a further one.
///
/// Every operation costs the same however many calls are open: an interaction leads to the entry
/// of its first push and to the newest of all further ones, and only one with entries that this
/// chain has lost is searched for.
///
/// What held one thread's calls serves a later thread. Nothing is freed, so that an interaction can
/// keep a pointer to its entry, and others can look at entries: there are as many as were in use at
/// once.
///
/// Threads:   the thread itself, and whoever destroys an interaction that is still on a stack. A
///            thread that ends touches its entries only and no interaction, since others may be
///            destroying those.
/// Ownership: interactions are borrowed; they know whether entries may lead to them.
class ThreadStacks {
public:
    enum class Pop { kDone, kOther, kNull, kEmpty };
    using Owner = const IntCorrTlsStack*;

    /// Those of the calling thread; null before its first put.
    static ThreadStacks* ofThread() { return ourStacks; }
    static ThreadStacks* ensure() { return ourStacks != nullptr ? ourStacks : join(); }
    /// For after an entry was taken off. Where the thread's end may not be noticed, empty stacks
    /// are no longer the thread's.
    static void leaveIfSpent() {
        const ThreadStacks* stacks = ourStacks;
        if (stacks != nullptr && __builtin_expect(stacks->itIsShortLived, 0)) leaveIfEmpty();
    }

    /// Names the calling thread; no other live thread has the same name.
    static Util::String threadName() { return Util::String::addrToString(&ourStacks); }

    /// Whether an entry may lead to the interaction. Never false while one does.
    static bool mayHold(const Interaction& interaction) {
        const StackEntry* first = interaction.itsFirstEntry.load(std::memory_order_acquire);
        return (first != nullptr &&
                first->interaction.load(std::memory_order_relaxed) == &interaction) ||
               interaction.itsFurtherEntries.load(std::memory_order_acquire) != 0;
    }
    /// Take the entries of one interaction or of one owner off all threads' stacks.
    static void forget(Interaction* interaction);
    static void forget(Owner owner);

    Interaction* top(Owner owner, bool isServer) {
        // Most threads that ask have nothing open.
        return headOf(isServer) == nullptr ? nullptr : heldOnTop(owner, isServer);
    }
    void push(Owner owner, Interaction* interaction, bool isServer);
    /// The first push of an interaction that no other thread can know yet.
    void pushNew(Owner owner, Interaction* interaction, bool isServer);
    /// Takes the top off if it is the interaction; otherwise says what is there instead.
    Pop pop(Owner owner, Interaction* interaction, bool isServer);
    bool holds(Owner owner, const Interaction* interaction, bool isServer);

private:
    struct Registry;

    ThreadStacks() = default;

    static Registry& registry();
    static ThreadStacks* join();
    static void endThread(void* unused);
    static void leave();
    static void leaveIfEmpty();
    static bool clear(StackEntry& entry, Interaction* interaction);
    template <class Action>
    static void everywhere(Action action);

    StackEntry*& headOf(bool isServer) { return isServer ? itsServers : itsClients; }
    Interaction* heldOnTop(Owner owner, bool isServer);
    StackEntry* topOf(Owner owner, bool isServer, Interaction*& held);
    StackEntry* place(Owner owner, Interaction* interaction, bool isServer);
    void takeOff(StackEntry* entry);
    void takeBackCleared() {
        if (__builtin_expect(itsCleared.load(std::memory_order_relaxed) != nullptr, 0))
            takeOffCleared();
    }
    void takeOffCleared();
    template <class Condition>
    void takeOffIf(Condition isMeant);
    void addIdle();

    static __thread ThreadStacks* ourStacks;
    static __thread bool ourThreadEnds;

    /// @{
    /// The thread's own, from when it takes the stacks over until it leaves them.
    StackEntry* itsServers = nullptr;
    StackEntry* itsClients = nullptr;
    StackEntry* itsIdle = nullptr;  // Linked through `below`.
    bool itIsShortLived = false;
    /// @}

    std::atomic<StackEntry*> itsCleared{nullptr};  // Handed back, through `nextCleared`.
    std::atomic<StackEntry*> itsEntries{nullptr};  // All that were ever made, through `next`.
    std::atomic<bool> itHasOwnerless{false};       // Some entry lost its owner.
    ThreadStacks* itsNext = nullptr;               // These two belong to the registry.
    ThreadStacks* itsNextIdle = nullptr;
};

}  // namespace Quenvale::Interceptor::SDK
