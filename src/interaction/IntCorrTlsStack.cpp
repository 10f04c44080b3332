#include "interaction/IntCorrTlsStack.h"

#include "interaction/Interaction.h"
#include "interaction/ThreadStacks.h"
#include "util/diagnostics.h"
#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr const char* kFile = "IntCorrTlsStack";
constexpr int kNoteLength = 256;

void refuseKey(const Util::String& key) {
    if (!key.empty()) Util::raise<Util::APIException>("Not supposed to be called.");
}

// True for a server, false for a client.
bool kindOf(const Interaction* interaction) {
    if (interaction == nullptr || !(interaction->isServer() || interaction->isClient()))
        Util::raise<Util::APIException>("Unexpected type of interaction.");
    return interaction->isServer();
}

}  // namespace

IntCorrTlsStack::~IntCorrTlsStack() {
    Util::MutexGuard guard(itsLock);
    for (ThreadStacks* stacks = itsIdleStacks; stacks != nullptr; stacks = stacks->itsNextIdle)
        stacks->itsOwner.store(nullptr, std::memory_order_relaxed);
    while (itsStacks != nullptr) {
        ThreadStacks* stacks = itsStacks;
        itsStacks = stacks->itsNext;
        // What a live thread still points to goes with that thread.
        const bool isIdle = stacks->itsOwner.load(std::memory_order_relaxed) == nullptr;
        if (isIdle || stacks->detach()) {
            delete stacks;
        } else {
            stacks->clear();
            stacks->itsOwner.store(nullptr, std::memory_order_release);
        }
    }
}

Interaction* IntCorrTlsStack::getServer(const Util::String& key) {
    return getInteraction(key, true);
}

Interaction* IntCorrTlsStack::getClient(const Util::String& key) {
    return getInteraction(key, false);
}

void IntCorrTlsStack::putServer(Interaction* interaction, const Util::String& key) {
    putInteraction(interaction, key, true);
}

void IntCorrTlsStack::putClient(Interaction* interaction, const Util::String& key) {
    putInteraction(interaction, key, false);
}

void IntCorrTlsStack::dropKey(const Util::String&) {
    Util::raise<Util::APIException>("Not supposed to be called.");
}

void IntCorrTlsStack::dropValue(Interaction* interaction, bool) {
    popInteraction(interaction, kindOf(interaction));
}

bool IntCorrTlsStack::hasInteraction(Interaction* interaction) {
    return findInteraction(interaction, kindOf(interaction));
}

Interaction* IntCorrTlsStack::getInteraction(const Util::String& key, bool isServer) {
    refuseKey(key);
    ThreadStacks* stacks = ThreadStacks::ofThread(this);
    return stacks == nullptr ? nullptr : stacks->top(isServer);
}

void IntCorrTlsStack::putInteraction(Interaction* interaction, const Util::String& key,
                                     bool isServer) {
    refuseKey(key);
    ensureStacks()->push(interaction, isServer);
}

Interaction* IntCorrTlsStack::popInteraction(Interaction* interaction, bool isServer) {
    if (interaction == nullptr) {
        debugMsg("request to pop NULL interaction - ERROR!\n");
        return nullptr;
    }
    ThreadStacks* stacks = ThreadStacks::ofThread(this);
    const auto result =
        stacks == nullptr ? ThreadStacks::Pop::kEmpty : stacks->pop(interaction, isServer);
    if (result == ThreadStacks::Pop::kEmpty)
        interaction->addDebugInfo(kFile, 214, kNoteLength, "TLS stack is NULL or empty.\n");
    if (result == ThreadStacks::Pop::kNull)
        interaction->addDebugInfo(kFile, 222, kNoteLength,
                                  "TLS stack popped a NULL - this should not happen.\n");
    if (result == ThreadStacks::Pop::kNull || result == ThreadStacks::Pop::kOther)
        interaction->addDebugInfo(kFile, 228, kNoteLength,
                                  "top of TLS stack does not match incoming interaction.\n");
    if (stacks != nullptr && stacks->isShortLived() && stacks->empty() && stacks->detach())
        retire(stacks);
    return result == ThreadStacks::Pop::kDone ? interaction : nullptr;
}

bool IntCorrTlsStack::findInteraction(Interaction* interaction, bool isServer) {
    if (interaction == nullptr) {
        debugMsg("request to peek for NULL interaction - ERROR!\n");
        return false;
    }
    ThreadStacks* stacks = ThreadStacks::ofThread(this);
    return stacks != nullptr && stacks->holds(interaction, isServer);
}

Interaction* IntCorrTlsStack::peekInteraction(Interaction* interaction, bool isServer) {
    if (interaction == nullptr) {
        debugMsg("request to peek for NULL interaction - ERROR!\n");
        return nullptr;
    }
    ThreadStacks* stacks = ThreadStacks::ofThread(this);
    return stacks != nullptr && stacks->top(isServer) == interaction ? interaction : nullptr;
}

Util::String IntCorrTlsStack::getTID() {
    return ensureStacks()->name();
}

void IntCorrTlsStack::forget(Interaction* interaction) {
    const auto isHeld = [interaction] {
        return interaction->itsStackEntries.load(std::memory_order_acquire) > 0;
    };
    while (isHeld()) {
        StackEntry* entry = interaction->itsNewestEntry.load(std::memory_order_acquire);
        if (entry == nullptr || !entry->home->take(entry, interaction)) break;
    }
    if (!isHeld()) return;
    Util::MutexGuard guard(itsLock);
    for (ThreadStacks* stacks = itsStacks; stacks != nullptr; stacks = stacks->itsNext)
        stacks->takeAll(interaction);
}

ThreadStacks* IntCorrTlsStack::ensureStacks() {
    ThreadStacks* stacks = ThreadStacks::ofThread(this);
    if (stacks != nullptr) return stacks;
    Util::MutexGuard guard(itsLock);
    stacks = itsIdleStacks;
    if (stacks == nullptr) {
        stacks = new ThreadStacks(this, itIsCorrelators);
        stacks->itsNext = itsStacks;
        itsStacks = stacks;
    } else {
        itsIdleStacks = stacks->itsNextIdle;
    }
    stacks->attach();
    return stacks;
}

void IntCorrTlsStack::retire(ThreadStacks* stacks) {
    stacks->clear();
    Util::MutexGuard guard(itsLock);
    stacks->itsNextIdle = itsIdleStacks;
    itsIdleStacks = stacks;
}

}  // namespace Quenvale::Interceptor::SDK
