#include "interaction/IntCorrMap.h"

#include "interaction/Interaction.h"

namespace Quenvale::Interceptor::SDK {

IntCorrMap::~IntCorrMap() {
    Util::MutexGuard guard(itsLock);
    for (Util::Map<Interaction*>::Iterator i(&itsMap); i.hasNext();) discount(i.next()->value);
}

Interaction* IntCorrMap::getServer(const Util::String& key) {
    return getInteraction(key, kServerKeyDefault);
}

Interaction* IntCorrMap::getClient(const Util::String& key) {
    return getInteraction(key, kClientKeyDefault);
}

void IntCorrMap::putServer(Interaction* interaction, const Util::String& key) {
    putInteraction(interaction, key, kServerKeyDefault);
}

void IntCorrMap::putClient(Interaction* interaction, const Util::String& key) {
    putInteraction(interaction, key, kClientKeyDefault);
}

void IntCorrMap::dropKey(const Util::String& key) {
    Util::MutexGuard guard(itsLock);
    eraseKey(key.c_str());
}

void IntCorrMap::dropValue(Interaction* interaction, bool) {
    Util::MutexGuard guard(itsLock);
    eraseValue(interaction);
}

void IntCorrMap::forget(Interaction* interaction) {
    const auto isHeld = [interaction] {
        return interaction->itsKeyEntries.load(std::memory_order_acquire) > 0;
    };
    Util::MutexGuard guard(itsLock);
    const auto eraseOwn = [&](const char* key) QZ_REQUIRES(itsLock) {
        if (itsMap.find(key) == interaction) eraseKey(key);
    };
    if (isHeld()) eraseOwn(interaction->itsOldestKey.c_str());
    if (isHeld() && interaction->itsKeys != nullptr) {
        for (auto* node = interaction->itsKeys->getHead(); node != nullptr; node = node->next)
            eraseOwn(node->data.c_str());
    }
    if (isHeld()) eraseValue(interaction);
}

Interaction* IntCorrMap::getInteraction(const Util::String& key, const char* defaultKey) {
    Util::MutexGuard guard(itsLock);
    return itsMap.find(key.empty() ? defaultKey : key.c_str());
}

void IntCorrMap::putInteraction(Interaction* interaction, const Util::String& key,
                                const char* defaultKey) {
    const char* name = key.empty() ? defaultKey : key.c_str();
    Util::MutexGuard guard(itsLock);
    Interaction* former = itsMap.find(name);
    itsMap.insert(name, interaction);
    if (former == interaction) return;
    count(interaction, name);
    discount(former);
}

void IntCorrMap::eraseKey(const char* key) {
    Interaction* former = itsMap.find(key);
    if (itsMap.erase(key)) discount(former);
}

void IntCorrMap::eraseValue(Interaction* interaction) {
    for (Util::Map<Interaction*>::Iterator i(&itsMap); i.hasNext();) {
        if (i.next()->value != interaction) continue;
        i.remove();
        discount(interaction);
    }
}

void IntCorrMap::count(Interaction* interaction, const char* key) {
    if (!itIsCorrelators || interaction == nullptr) return;
    // Only the oldest key is noted: later ones are in the interaction's own list.
    if (interaction->itsKeyEntries.fetch_add(1, std::memory_order_relaxed) == 0)
        interaction->itsOldestKey = key;
}

// The last look at the interaction: whoever reads 0 may destroy it at once.
void IntCorrMap::discount(Interaction* interaction) {
    if (!itIsCorrelators || interaction == nullptr) return;
    interaction->itsKeyEntries.fetch_sub(1, std::memory_order_release);
}

}  // namespace Quenvale::Interceptor::SDK
