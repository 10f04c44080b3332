#include "interaction/ThreadStacks.h"

#include <pthread.h>

#include <utility>

#include "util/annotations.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// Stands for a null that was pushed, so that null itself means a place that is not used.
Interaction* pushedNull() {
    static char place;
    return reinterpret_cast<Interaction*>(&place);
}

bool isOwnerless(const StackEntry& entry) {
    return entry.owner.load(std::memory_order_relaxed) == nullptr;
}

}  // namespace

// Plain data, so that they stay usable while a thread ends, whatever else goes before or after.
__thread ThreadStacks* ThreadStacks::ourStacks = nullptr;
__thread bool ThreadStacks::ourThreadEnds = false;

// For the rare moments: a thread's first put, its end, and an interaction that goes while stacks
// still lead to it by ways that it has lost.
struct ThreadStacks::Registry {
    // A key's destructor and no thread_local object: those of the main thread run at exit, and
    // nothing of ours may.
    Registry() : itIsWatching(pthread_key_create(&itsKey, endThread) == 0) {}

    pthread_key_t itsKey = 0;
    const bool itIsWatching;
    Util::qzmutex itsLock;
    ThreadStacks* itsStacks QZ_GUARDED_BY(itsLock) = nullptr;
    ThreadStacks* itsIdleStacks QZ_GUARDED_BY(itsLock) = nullptr;  // Those that no thread uses.
};

void ThreadStacks::forget(Interaction* interaction) {
    if (StackEntry* first = interaction->itsFirstEntry.load(std::memory_order_acquire))
        clear(*first, interaction);
    int left = interaction->itsFurtherEntries.load(std::memory_order_acquire);
    StackEntry* entry = interaction->itsNewestEntry.load(std::memory_order_acquire);
    while (left > 0 && entry != nullptr) {
        StackEntry* older = entry->older.load(std::memory_order_relaxed);
        if (!clear(*entry, interaction)) break;
        --left;
        entry = older;
    }
    if (left > 0) everywhere([=](StackEntry& other) { clear(other, interaction); });
    leaveIfSpent();
}

void ThreadStacks::forget(Owner owner) {
    // Not by what the entries hold: until they are cleared, one may serve another owner, and its
    // next interaction may have the same address.
    everywhere([=](StackEntry& entry) {
        Owner known = owner;
        if (entry.owner.compare_exchange_strong(known, nullptr, std::memory_order_relaxed))
            entry.home->itHasOwnerless.store(true, std::memory_order_release);
    });
    leaveIfSpent();
}

void ThreadStacks::push(Owner owner, Interaction* interaction, bool isServer) {
    StackEntry* entry = place(owner, interaction, isServer);
    if (interaction == nullptr) return;
    // Its first entry may well serve it again.
    StackEntry* first = interaction->itsFirstEntry.load(std::memory_order_relaxed);
    if (first == entry) return;
    if (first == nullptr && interaction->itsFirstEntry.compare_exchange_strong(
                                first, entry, std::memory_order_release, std::memory_order_relaxed))
        return;
    entry->older.store(interaction->itsNewestEntry.exchange(entry, std::memory_order_acq_rel),
                       std::memory_order_relaxed);
    interaction->itsFurtherEntries.fetch_add(1, std::memory_order_release);
}

void ThreadStacks::pushNew(Owner owner, Interaction* interaction, bool isServer) {
    interaction->itsFirstEntry.store(place(owner, interaction, isServer),
                                     std::memory_order_relaxed);
}

ThreadStacks::Pop ThreadStacks::pop(Owner owner, Interaction* interaction, bool isServer) {
    Interaction* held = nullptr;
    StackEntry* entry = topOf(owner, isServer, held);
    if (entry == nullptr) return Pop::kEmpty;
    if (held == pushedNull()) return Pop::kNull;
    if (held != interaction) return Pop::kOther;
    if (interaction->itsFirstEntry.load(std::memory_order_relaxed) != entry) {
        StackEntry* newest = entry;
        interaction->itsNewestEntry.compare_exchange_strong(
            newest, entry->older.load(std::memory_order_relaxed), std::memory_order_acq_rel);
        interaction->itsFurtherEntries.fetch_sub(1, std::memory_order_release);
    }
    entry->interaction.store(nullptr, std::memory_order_relaxed);
    takeOff(entry);
    return Pop::kDone;
}

bool ThreadStacks::holds(Owner owner, const Interaction* interaction, bool isServer) {
    for (const StackEntry* entry = headOf(isServer); entry != nullptr; entry = entry->below)
        if (entry->owner.load(std::memory_order_relaxed) == owner &&
            entry->interaction.load(std::memory_order_relaxed) == interaction)
            return true;
    return false;
}

inline StackEntry* ThreadStacks::place(Owner owner, Interaction* interaction, bool isServer) {
    takeBackCleared();
    if (__builtin_expect(itsIdle == nullptr, 0)) addIdle();
    StackEntry* entry = itsIdle;
    itsIdle = entry->below;
    StackEntry*& head = headOf(isServer);
    entry->isServer = isServer;
    entry->above = nullptr;
    entry->below = head;
    entry->owner.store(owner, std::memory_order_relaxed);
    entry->interaction.store(interaction == nullptr ? pushedNull() : interaction,
                             std::memory_order_release);
    if (head != nullptr) head->above = entry;
    head = entry;
    return entry;
}

Interaction* ThreadStacks::heldOnTop(Owner owner, bool isServer) {
    Interaction* held = nullptr;
    topOf(owner, isServer, held);
    return held == pushedNull() ? nullptr : held;
}

inline StackEntry* ThreadStacks::topOf(Owner owner, bool isServer, Interaction*& held) {
    takeBackCleared();
    for (StackEntry* entry = headOf(isServer); entry != nullptr; entry = entry->below) {
        if (entry->owner.load(std::memory_order_relaxed) != owner) continue;
        held = entry->interaction.load(std::memory_order_relaxed);
        // One may have been cleared this moment.
        if (__builtin_expect(held != nullptr, 1)) return entry;
    }
    return nullptr;
}

// Of an entry that the thread has.
inline void ThreadStacks::takeOff(StackEntry* entry) {
    if (entry->above == nullptr)
        headOf(entry->isServer) = entry->below;
    else
        entry->above->below = entry->below;
    if (entry->below != nullptr) entry->below->above = entry->above;
    entry->below = itsIdle;
    itsIdle = entry;
}

__attribute__((noinline)) void ThreadStacks::takeOffCleared() {
    StackEntry* entry = itsCleared.exchange(nullptr, std::memory_order_acquire);
    while (entry != nullptr) takeOff(std::exchange(entry, entry->nextCleared));
}

// An entry that somebody else has cleared stays until it is handed back.
template <class Condition>
void ThreadStacks::takeOffIf(Condition isMeant) {
    for (const bool isServer : {true, false})
        for (StackEntry* entry = headOf(isServer); entry != nullptr;) {
            StackEntry* below = entry->below;
            if (isMeant(*entry) &&
                entry->interaction.exchange(nullptr, std::memory_order_acq_rel) != nullptr)
                takeOff(entry);
            entry = below;
        }
}

__attribute__((cold)) void ThreadStacks::addIdle() {
    if (itHasOwnerless.exchange(false, std::memory_order_acquire)) takeOffIf(isOwnerless);
    if (itsIdle != nullptr) return;
    auto* entry = new StackEntry(this);
    entry->next = itsEntries.load(std::memory_order_relaxed);
    itsEntries.store(entry, std::memory_order_release);
    itsIdle = entry;
}

ThreadStacks::Registry& ThreadStacks::registry() {
    static Registry& all = *new Registry;
    return all;
}

__attribute__((cold)) ThreadStacks* ThreadStacks::join() {
    Registry& all = registry();
    Util::MutexGuard guard(all.itsLock);
    ThreadStacks* stacks = all.itsIdleStacks;
    if (stacks == nullptr) {
        stacks = new ThreadStacks;
        stacks->itsNext = all.itsStacks;
        all.itsStacks = stacks;
    } else {
        all.itsIdleStacks = stacks->itsNextIdle;
    }
    guard.unlock();
    // Calls that come after the notice of the thread's end, from another module's part of it, get
    // a second notice if the system still gives one.
    const bool isWatched = all.itIsWatching && pthread_setspecific(all.itsKey, stacks) == 0;
    stacks->itIsShortLived = ourThreadEnds || !isWatched;
    ourStacks = stacks;
    return stacks;
}

void ThreadStacks::endThread(void*) {
    ourThreadEnds = true;
    leave();
}

void ThreadStacks::leave() {
    ThreadStacks* stacks = std::exchange(ourStacks, nullptr);
    if (stacks == nullptr) return;
    stacks->takeOffIf([](const StackEntry&) { return true; });
    Registry& all = registry();
    Util::MutexGuard guard(all.itsLock);
    stacks->itsNextIdle = all.itsIdleStacks;
    all.itsIdleStacks = stacks;
}

void ThreadStacks::leaveIfEmpty() {
    for (const bool isServer : {true, false})
        for (const StackEntry* entry = ourStacks->headOf(isServer); entry != nullptr;
             entry = entry->below)
            if (entry->interaction.load(std::memory_order_relaxed) != nullptr &&
                !isOwnerless(*entry))
                return;
    leave();
}

// False when the entry is not the interaction's any more.
bool ThreadStacks::clear(StackEntry& entry, Interaction* interaction) {
    if (!entry.interaction.compare_exchange_strong(interaction, nullptr, std::memory_order_acq_rel))
        return false;
    std::atomic<StackEntry*>& cleared = entry.home->itsCleared;
    entry.nextCleared = cleared.load(std::memory_order_relaxed);
    while (!cleared.compare_exchange_weak(entry.nextCleared, &entry, std::memory_order_release,
                                          std::memory_order_relaxed)) {
    }
    return true;
}

template <class Action>
void ThreadStacks::everywhere(Action action) {
    Registry& all = registry();
    Util::MutexGuard guard(all.itsLock);
    for (ThreadStacks* stacks = all.itsStacks; stacks != nullptr; stacks = stacks->itsNext)
        for (StackEntry* entry = stacks->itsEntries.load(std::memory_order_acquire);
             entry != nullptr; entry = entry->next)
            action(*entry);
}

}  // namespace Quenvale::Interceptor::SDK
