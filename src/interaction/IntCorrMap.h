#pragma once

#include "interaction/IIntCorrelator.h"
#include "interaction/Interaction.h"
#include "util/Map.h"
#include "util/annotations.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

/// Interactions by key. One map holds servers and clients: a client put under a server's key
/// replaces it, and getServer() of that key then answers with the client.
///
/// Threads:   any; an interaction may be reached from a thread other than its own.
/// Ownership: interactions are borrowed. The correlator's own map counts its entries in them, so
///            that one that is destroyed can take them out; of any other map its owner drops them.
class QZ_API IntCorrMap : public IIntCorrelator {
public:
    static constexpr const char* kServerKeyDefault = "-101";  // In place of an empty key.
    static constexpr const char* kClientKeyDefault = "-102";  // The same for clients.

    /// `isCorrelators`: the map of the process's correlator, which counts its entries.
    explicit IntCorrMap(bool isCorrelators = false) : itIsCorrelators(isCorrelators) {}
    ~IntCorrMap() override;

    Interaction* getServer(const Util::String& key) override;
    Interaction* getClient(const Util::String& key) override;
    void putServer(Interaction* interaction, const Util::String& key) override;
    void putClient(Interaction* interaction, const Util::String& key) override;
    void dropKey(const Util::String& key) override;
    /// All keys of the interaction.
    void dropValue(Interaction* interaction, bool flag) override;

    /// For the correlator's own map: the same at a cost that does not grow with the map, but for an
    /// interaction whose keys it does not know itself.
    void forget(Interaction* interaction);

private:
    Interaction* getInteraction(const Util::String& key, const char* defaultKey);
    void putInteraction(Interaction* interaction, const Util::String& key, const char* defaultKey);
    void eraseKey(const char* key) QZ_REQUIRES(itsLock);
    void eraseValue(Interaction* interaction) QZ_REQUIRES(itsLock);

    void count(Interaction* interaction, const char* key) QZ_REQUIRES(itsLock);
    void discount(Interaction* interaction) QZ_REQUIRES(itsLock);

    const bool itIsCorrelators;
    Util::qzmutex itsLock;
    Util::Map<Interaction*> itsMap QZ_GUARDED_BY(itsLock){0};
};

}  // namespace Quenvale::Interceptor::SDK
