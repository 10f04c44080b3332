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
    ThreadStacks::forget(this);
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
    ThreadStacks* stacks = ThreadStacks::ofThread();
    return stacks == nullptr ? nullptr : stacks->top(this, isServer);
}

void IntCorrTlsStack::putInteraction(Interaction* interaction, const Util::String& key,
                                     bool isServer) {
    refuseKey(key);
    ThreadStacks::ensure()->push(this, interaction, isServer);
}

Interaction* IntCorrTlsStack::popInteraction(Interaction* interaction, bool isServer) {
    if (interaction == nullptr) {
        debugMsg("request to pop NULL interaction - ERROR!\n");
        return nullptr;
    }
    ThreadStacks* stacks = ThreadStacks::ofThread();
    const auto result =
        stacks == nullptr ? ThreadStacks::Pop::kEmpty : stacks->pop(this, interaction, isServer);
    ThreadStacks::leaveIfSpent();
    if (result == ThreadStacks::Pop::kDone) return interaction;
    if (result == ThreadStacks::Pop::kEmpty) {
        interaction->addDebugInfo(kFile, 214, kNoteLength, "TLS stack is NULL or empty.\n");
        return nullptr;
    }
    if (result == ThreadStacks::Pop::kNull)
        interaction->addDebugInfo(kFile, 222, kNoteLength,
                                  "TLS stack popped a NULL - this should not happen.\n");
    interaction->addDebugInfo(kFile, 228, kNoteLength,
                              "top of TLS stack does not match incoming interaction.\n");
    return nullptr;
}

bool IntCorrTlsStack::findInteraction(Interaction* interaction, bool isServer) {
    if (interaction == nullptr) {
        debugMsg("request to peek for NULL interaction - ERROR!\n");
        return false;
    }
    ThreadStacks* stacks = ThreadStacks::ofThread();
    return stacks != nullptr && stacks->holds(this, interaction, isServer);
}

Interaction* IntCorrTlsStack::peekInteraction(Interaction* interaction, bool isServer) {
    if (interaction == nullptr) {
        debugMsg("request to peek for NULL interaction - ERROR!\n");
        return nullptr;
    }
    ThreadStacks* stacks = ThreadStacks::ofThread();
    return stacks != nullptr && stacks->top(this, isServer) == interaction ? interaction : nullptr;
}

Util::String IntCorrTlsStack::getTID() {
    return ThreadStacks::threadName();
}

}  // namespace Quenvale::Interceptor::SDK
