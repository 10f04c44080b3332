#include "interaction/ThreadStacks.h"

#include <pthread.h>

#include <initializer_list>

#include "interaction/IntCorrTlsStack.h"
#include "interaction/Interaction.h"

namespace Quenvale::Interceptor::SDK {

// Plain data, so that they stay usable while a thread ends, whatever else goes before or after.
__thread ThreadStacks* ThreadStacks::ourStacks = nullptr;
__thread bool ThreadStacks::ourThreadEnds = false;

ThreadStacks::ThreadStacks(IntCorrTlsStack* owner, bool isCounted)
    : itsOwner(owner), itsName(Util::String::addrToString(this)), itIsCounted(isCounted) {}

ThreadStacks::~ThreadStacks() {
    clear();
    Util::MutexGuard guard(itsLock);
    while (itsIdle != nullptr) {
        StackEntry* entry = itsIdle;
        itsIdle = entry->below;
        delete entry;
    }
}

void ThreadStacks::attach() {
    itsNextOfThread = ourStacks;
    ourStacks = this;
    itIsShortLived = !watchThread();
}

bool ThreadStacks::detach() {
    for (ThreadStacks** link = &ourStacks; *link != nullptr; link = &(*link)->itsNextOfThread) {
        if (*link != this) continue;
        *link = itsNextOfThread;
        return true;
    }
    return false;
}

Interaction* ThreadStacks::top(bool isServer) {
    Util::MutexGuard guard(itsLock);
    const StackEntry* entry = topOf(isServer);
    return entry == nullptr ? nullptr : entry->interaction;
}

void ThreadStacks::push(Interaction* interaction, bool isServer) {
    Util::MutexGuard guard(itsLock);
    StackEntry* entry = itsIdle;
    if (entry == nullptr)
        entry = new StackEntry(this);
    else
        itsIdle = entry->below;
    StackEntry*& top = topOf(isServer);
    entry->interaction = interaction;
    entry->isServer = isServer;
    entry->above = nullptr;
    entry->below = top;
    if (top != nullptr) top->above = entry;
    top = entry;
    if (interaction == nullptr || !itIsCounted) return;
    const bool isFirst = interaction->itsStackEntries.fetch_add(1, std::memory_order_relaxed) == 0;
    StackEntry* newest = interaction->itsNewestEntry.exchange(entry, std::memory_order_acq_rel);
    entry->older = isFirst ? nullptr : newest;
}

ThreadStacks::Pop ThreadStacks::pop(Interaction* interaction, bool isServer) {
    Util::MutexGuard guard(itsLock);
    StackEntry* entry = topOf(isServer);
    if (entry == nullptr) return Pop::kEmpty;
    if (entry->interaction == nullptr) return Pop::kNull;
    if (entry->interaction != interaction) return Pop::kOther;
    remove(entry);
    return Pop::kDone;
}

bool ThreadStacks::holds(Interaction* interaction, bool isServer) {
    Util::MutexGuard guard(itsLock);
    const StackEntry* entry = nullptr;
    if (itIsCounted) {
        if (interaction->itsStackEntries.load(std::memory_order_relaxed) == 0) return false;
        entry = interaction->itsNewestEntry.load(std::memory_order_acquire);
        if (entry != nullptr && entry->home == this && entry->interaction == interaction &&
            entry->isServer == isServer)
            return true;
    }
    for (entry = topOf(isServer); entry != nullptr; entry = entry->below)
        if (entry->interaction == interaction) return true;
    return false;
}

bool ThreadStacks::empty() {
    Util::MutexGuard guard(itsLock);
    return itsServers == nullptr && itsClients == nullptr;
}

bool ThreadStacks::take(StackEntry* entry, Interaction* interaction) {
    Util::MutexGuard guard(itsLock);
    if (entry->interaction != interaction) return false;
    remove(entry);
    return true;
}

void ThreadStacks::takeAll(Interaction* interaction) {
    Util::MutexGuard guard(itsLock);
    for (const bool isServer : {true, false}) {
        for (StackEntry* entry = topOf(isServer); entry != nullptr;) {
            StackEntry* below = entry->below;
            if (entry->interaction == interaction) remove(entry);
            entry = below;
        }
    }
}

void ThreadStacks::clear() {
    Util::MutexGuard guard(itsLock);
    for (const bool isServer : {true, false})
        while (topOf(isServer) != nullptr) remove(topOf(isServer));
}

void ThreadStacks::remove(StackEntry* entry) {
    Interaction* interaction = entry->interaction;
    (entry->above == nullptr ? topOf(entry->isServer) : entry->above->below) = entry->below;
    if (entry->below != nullptr) entry->below->above = entry->above;
    entry->interaction = nullptr;
    entry->below = itsIdle;
    itsIdle = entry;
    if (interaction == nullptr || !itIsCounted) return;
    StackEntry* newest = entry;
    interaction->itsNewestEntry.compare_exchange_strong(newest, entry->older,
                                                        std::memory_order_acq_rel);
    // The last look at the interaction: whoever reads 0 may destroy it at once.
    interaction->itsStackEntries.fetch_sub(1, std::memory_order_release);
}

// Calls that come after this one, from another module's part of the thread's end, get fresh stacks
// and a second notice if the system still gives one.
void ThreadStacks::endThread(void*) {
    ourThreadEnds = true;
    while (ourStacks != nullptr) {
        ThreadStacks* stacks = ourStacks;
        ourStacks = stacks->itsNextOfThread;
        if (IntCorrTlsStack* owner = stacks->itsOwner.load(std::memory_order_acquire))
            owner->retire(stacks);
        else
            delete stacks;
    }
}

// A key's destructor and no thread_local object: those of the main thread run at exit, and nothing
// of ours may.
bool ThreadStacks::watchThread() {
    struct Key {
        Key() : works(pthread_key_create(&key, endThread) == 0) {}
        pthread_key_t key = 0;
        bool works;
    };
    static const Key watch;
    const bool isWatched = watch.works && pthread_setspecific(watch.key, &watch) == 0;
    return isWatched && !ourThreadEnds;
}

}  // namespace Quenvale::Interceptor::SDK
