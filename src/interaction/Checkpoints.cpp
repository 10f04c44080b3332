#include "interaction/Checkpoints.h"

#include "util/diagnostics.h"
#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr int kFirstCapacity = 16;

bool isSameList(Util::Vector<Util::String>& a, Util::Vector<Util::String>& b) {
    if (a.size() != b.size()) return false;
    for (int i = 0; i < a.size(); ++i)
        if (a.at(i) != b.at(i)) return false;
    return true;
}

}  // namespace

struct Checkpoints::Names : Util::Pooled {
    explicit Names(Util::Vector<Util::String>& source) : texts(0, source.size()) {
        for (int i = 0; i < source.size(); ++i) texts.add(source.at(i));
    }

    Util::Vector<Util::String> texts;
    Names* next = nullptr;
};

void Checkpoints::clear() {
    const Util::LatchGuard guard(itsLatch);
    dropAll();
}

void Checkpoints::dropAll() {
    itsIncomingCount.store(0, std::memory_order_relaxed);
    delete itsIncoming;
    itsIncoming = nullptr;
    itsNewNames.store(nullptr, std::memory_order_relaxed);
    while (Names* names = itsKeptNames) {
        itsKeptNames = names->next;
        delete names;
    }
    delete itsIncomingMap.load(std::memory_order_relaxed);
    itsIncomingMap.store(nullptr, std::memory_order_relaxed);
}

int Checkpoints::getTotalCheckpointsCount() const {
    Util::Vector<Util::String>* names = itsNewNames;
    return itsIncomingCount + (names == nullptr ? 0 : names->size());
}

Util::Map<long long>::Iterator* Checkpoints::getIncomingCheckpoints() {
    if (itsIncomingCount == 0) return nullptr;
    Util::Map<long long>* map = itsIncomingMap;
    if (map == nullptr) {
        const Util::LatchGuard guard(itsLatch);
        map = itsIncomingMap;
        if (map == nullptr) {
            map = new Util::Map<long long>();
            for (int i = 0; i < itsIncoming->size(); ++i) {
                const Checkpoint* checkpoint = itsIncoming->at(i);
                map->put(checkpoint->itsName, checkpoint->itsElapsed);
            }
            itsIncomingMap = map;
        }
    }
    return map->iteratorEx();
}

void Checkpoints::addIncomingCheckpoint(const Util::String& name, long long elapsed) {
    if (name.empty()) {
        if (canLog(4))
            Util::raise<Util::IllegalArgumentException>("A checkpoint must have a name.");
        return;
    }
    const Util::LatchGuard guard(itsLatch);
    if (itsIncoming == nullptr) itsIncoming = new Util::Vector<Checkpoint*>(2, kFirstCapacity);
    itsIncoming->add(new Checkpoint(name, elapsed));
    itsIncomingCount = itsIncoming->size();
}

void Checkpoints::setNewCheckpoints(Util::Vector<Util::String>* names) {
    const Util::LatchGuard guard(itsLatch);
    if (names == nullptr) {
        itsNewNames = nullptr;
        return;
    }
    for (Names* kept = itsKeptNames; kept != nullptr; kept = kept->next) {
        if (!isSameList(kept->texts, *names)) continue;
        itsNewNames = &kept->texts;
        return;
    }
    auto* fresh = new Names(*names);
    fresh->next = itsKeptNames;
    itsKeptNames = fresh;
    itsNewNames = &fresh->texts;
}

}  // namespace Quenvale::Interceptor::SDK
