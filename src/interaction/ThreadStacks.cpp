#include "interaction/ThreadStacks.h"

#include <pthread.h>

#include <initializer_list>
#include <utility>

#include "interaction/Interaction.h"

namespace Quenvale::Interceptor::SDK {

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

ThreadStacks* ThreadStacks::ensure() {
    if (ourStacks != nullptr) return ourStacks;
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

void ThreadStacks::forget(Interaction* interaction) {
    const auto isHeld = [interaction] {
        return interaction->itsStackEntries.load(std::memory_order_acquire) > 0;
    };
    while (isHeld()) {
        StackEntry* entry = interaction->itsNewestEntry.load(std::memory_order_acquire);
        if (entry == nullptr || !entry->home->take(entry, interaction)) break;
    }
    if (isHeld())
        takeEverywhere([=](const StackEntry& entry) { return entry.interaction == interaction; });
    leaveIfSpent();
}

void ThreadStacks::forget(Owner owner) {
    takeEverywhere([=](const StackEntry& entry) { return entry.owner == owner; });
    leaveIfSpent();
}

Interaction* ThreadStacks::top(Owner owner, bool isServer) {
    if (headOf(isServer).load(std::memory_order_relaxed) == nullptr) return nullptr;
    Util::MutexGuard guard(itsLock);
    const StackEntry* entry = topOf(owner, isServer);
    return entry == nullptr ? nullptr : entry->interaction;
}

void ThreadStacks::push(Owner owner, Interaction* interaction, bool isServer) {
    Util::MutexGuard guard(itsLock);
    StackEntry* entry = itsIdle;
    if (entry == nullptr)
        entry = new StackEntry(this);
    else
        itsIdle = entry->below;
    StackEntry* head = headOf(isServer).load(std::memory_order_relaxed);
    entry->owner = owner;
    entry->interaction = interaction;
    entry->isServer = isServer;
    entry->above = nullptr;
    entry->below = head;
    if (head != nullptr) head->above = entry;
    headOf(isServer).store(entry, std::memory_order_relaxed);
    if (interaction == nullptr) return;
    interaction->itsStackEntries.fetch_add(1, std::memory_order_relaxed);
    entry->older = interaction->itsNewestEntry.exchange(entry, std::memory_order_acq_rel);
}

ThreadStacks::Pop ThreadStacks::pop(Owner owner, const Interaction* interaction, bool isServer) {
    Util::MutexGuard guard(itsLock);
    StackEntry* entry = topOf(owner, isServer);
    if (entry == nullptr) return Pop::kEmpty;
    if (entry->interaction == nullptr) return Pop::kNull;
    if (entry->interaction != interaction) return Pop::kOther;
    remove(entry);
    return Pop::kDone;
}

bool ThreadStacks::holds(Owner owner, const Interaction* interaction, bool isServer) {
    Util::MutexGuard guard(itsLock);
    for (const StackEntry* entry = headOf(isServer); entry != nullptr; entry = entry->below)
        if (entry->owner == owner && entry->interaction == interaction) return true;
    return false;
}

ThreadStacks::Registry& ThreadStacks::registry() {
    static Registry& all = *new Registry;
    return all;
}

void ThreadStacks::endThread(void*) {
    ourThreadEnds = true;
    leave();
}

void ThreadStacks::leave() {
    ThreadStacks* stacks = std::exchange(ourStacks, nullptr);
    if (stacks == nullptr) return;
    stacks->takeAll([](const StackEntry&) { return true; });
    Registry& all = registry();
    Util::MutexGuard guard(all.itsLock);
    stacks->itsNextIdle = all.itsIdleStacks;
    all.itsIdleStacks = stacks;
}

void ThreadStacks::leaveIfEmpty() {
    {
        Util::MutexGuard guard(ourStacks->itsLock);
        if (ourStacks->itsServers != nullptr || ourStacks->itsClients != nullptr) return;
    }
    leave();
}

StackEntry* ThreadStacks::topOf(Owner owner, bool isServer) {
    StackEntry* entry = headOf(isServer);
    while (entry != nullptr && entry->owner != owner) entry = entry->below;
    return entry;
}

void ThreadStacks::remove(StackEntry* entry) {
    Interaction* interaction = entry->interaction;
    if (entry->above == nullptr)
        headOf(entry->isServer).store(entry->below, std::memory_order_relaxed);
    else
        entry->above->below = entry->below;
    if (entry->below != nullptr) entry->below->above = entry->above;
    entry->interaction = nullptr;
    entry->below = itsIdle;
    itsIdle = entry;
    if (interaction == nullptr) return;
    StackEntry* newest = entry;
    interaction->itsNewestEntry.compare_exchange_strong(newest, entry->older,
                                                        std::memory_order_acq_rel);
    // The last look at the interaction: whoever reads 0 may destroy it at once.
    interaction->itsStackEntries.fetch_sub(1, std::memory_order_release);
}

bool ThreadStacks::take(StackEntry* entry, const Interaction* interaction) {
    Util::MutexGuard guard(itsLock);
    if (entry->interaction != interaction) return false;
    remove(entry);
    return true;
}

template <class Condition>
void ThreadStacks::takeAll(Condition isMeant) {
    Util::MutexGuard guard(itsLock);
    for (const bool isServer : {true, false}) {
        for (StackEntry* entry = headOf(isServer); entry != nullptr;) {
            StackEntry* below = entry->below;
            if (isMeant(*entry)) remove(entry);
            entry = below;
        }
    }
}

template <class Condition>
void ThreadStacks::takeEverywhere(Condition isMeant) {
    Registry& all = registry();
    Util::MutexGuard guard(all.itsLock);
    for (ThreadStacks* stacks = all.itsStacks; stacks != nullptr; stacks = stacks->itsNext)
        stacks->takeAll(isMeant);
}

}  // namespace Quenvale::Interceptor::SDK
