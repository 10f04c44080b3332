#include "config/DecisionCache.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "util/blocks.h"
#include "util/hashSeed.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr std::size_t kFirstChains = 64;

}  // namespace

// What is looked for. It borrows the characters.
struct DecisionCache::Text {
    Text(const Util::String& of, std::uint64_t start)
        : text(of.c_str()), length(of.length()), hash(Util::hashText(text, length, start)) {}

    // A copy that found no memory is NIL, and then nothing is in it.
    bool isIn(const Util::String& copy) const {
        if (length != copy.length()) return false;
        if (length == 0) return (text == nullptr) == (copy.c_str() == nullptr);
        return std::memcmp(text, copy.c_str(), length) == 0;
    }
    Util::String copy() const { return Util::String::ofLength(text, length); }

    const char* const text;
    const std::size_t length;
    const std::uint64_t hash;  // Of what stands before it, too.
};

struct DecisionCache::Key {
    Key(const Util::String& ofSite, const Util::String& name)
        : url(ofSite, Util::ourHashSeed), operation(name, url.hash) {}

    const Text url;
    const Text operation;
};

struct DecisionCache::Link : Util::Pooled {
    explicit Link(std::uint64_t ofTexts) : hash(ofTexts) {}

    Link* next = nullptr;
    const std::uint64_t hash;
};

// A URL, and what was decided for it.
struct DecisionCache::Site : Link {
    explicit Site(const Text& text) : Link(text.hash), url(text.copy()) {}
    ~Site();
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    int place = 0;
    Decision* decisions = nullptr;
    const Util::String url;
};

struct DecisionCache::Decision : Link {
    Decision(const Text& name, const EntryRef& decided)
        : Link(name.hash), operation(name.copy()), entry(decided) {}

    Site* site = nullptr;
    Decision* nextOfSite = nullptr;
    const Util::String operation;
    EntryRef entry;
};

DecisionCache::DecisionCache(int urls)
    : itsPlaces(new Site*[static_cast<std::size_t>(urls)]),
      itsUses(new std::uint64_t[static_cast<std::size_t>(urls)]),
      itsMaxSites(urls) {}

EntryRef DecisionCache::find(const Util::String& url, const Util::String& operation) {
    const Key key(url, operation);
    const Util::LatchGuard guard(itsLatch);
    const Decision* decision = search(key);
    if (decision == nullptr) return nullptr;
    makeNewest(decision->site);
    return decision->entry;
}

void DecisionCache::addSite(const Util::String& url) {
    const Text text(url, Util::ourHashSeed);
    auto fresh = std::make_unique<Site>(text);
    std::unique_ptr<Site> dropped;
    const Util::LatchGuard guard(itsLatch);
    use(text, fresh, dropped);
}

void DecisionCache::insert(const Util::String& url, const Util::String& operation,
                           const EntryRef& entry) {
    const Key key(url, operation);
    auto fresh = std::make_unique<Site>(key.url);
    auto decision = std::make_unique<Decision>(key.operation, entry);
    std::unique_ptr<Site> dropped;
    const Util::LatchGuard guard(itsLatch);
    if (Decision* former = search(key)) {
        former->entry.swap(decision->entry);
        makeNewest(former->site);
        return;
    }
    Site* site = use(key.url, fresh, dropped);
    decision->site = site;
    decision->nextOfSite = std::exchange(site->decisions, decision.get());
    itsDecisions.add(decision.release());
}

void DecisionCache::clear() {
    Link* dropped = nullptr;
    {
        const Util::LatchGuard guard(itsLatch);
        itsSites.clear();
        itsDecisions.clear();
        for (int i = 0; i < itsSiteCount; ++i)
            itsPlaces[i]->next = std::exchange(dropped, itsPlaces[i]);
        itsSiteCount = 0;
    }
    while (dropped != nullptr) delete static_cast<Site*>(std::exchange(dropped, dropped->next));
}

DecisionCache::Site::~Site() {
    while (decisions != nullptr) delete std::exchange(decisions, decisions->nextOfSite);
}

inline DecisionCache::Decision* DecisionCache::search(const Key& key) {
    for (Link* link = itsDecisions.chainOf(key.operation.hash); link != nullptr;
         link = link->next) {
        if (link->hash != key.operation.hash) continue;
        auto* decision = static_cast<Decision*>(link);
        if (key.operation.isIn(decision->operation) && key.url.isIn(decision->site->url))
            return decision;
    }
    return nullptr;
}

DecisionCache::Site* DecisionCache::use(const Text& url, std::unique_ptr<Site>& fresh,
                                        std::unique_ptr<Site>& dropped) {
    for (Link* link = itsSites.chainOf(url.hash); link != nullptr; link = link->next) {
        auto* site = static_cast<Site*>(link);
        if (!url.isIn(site->url)) continue;
        makeNewest(site);
        return site;
    }
    int place = itsSiteCount;
    if (place < itsMaxSites) {
        ++itsSiteCount;
    } else {
        const std::uint64_t* uses = itsUses.get();
        place = static_cast<int>(std::min_element(uses, uses + itsMaxSites) - uses);
        dropped.reset(itsPlaces[place]);
        takeOut(dropped.get());
    }
    Site* site = itsPlaces[place] = fresh.release();
    site->place = place;
    itsSites.add(site);
    makeNewest(site);
    return site;
}

inline void DecisionCache::makeNewest(const Site* site) {
    itsUses[site->place] = ++itsLastUse;
}

void DecisionCache::takeOut(Site* site) {
    itsSites.remove(site);
    for (Decision* decision = site->decisions; decision != nullptr; decision = decision->nextOfSite)
        itsDecisions.remove(decision);
}

DecisionCache::Table::Table() : itsChains(makeChains(kFirstChains)), itsChainCount(kFirstChains) {
    if (itsChains == nullptr) throw std::bad_alloc();
}

DecisionCache::Table::~Table() {
    std::free(itsChains);
}

void DecisionCache::Table::add(Link* link) {
    if (itsSize >= itsChainCount) grow();
    Link*& chain = chainOf(link->hash);
    link->next = std::exchange(chain, link);
    ++itsSize;
}

void DecisionCache::Table::remove(Link* link) {
    Link** place = &chainOf(link->hash);
    while (*place != link) place = &(*place)->next;
    *place = link->next;
    --itsSize;
}

// The room of the most that it ever held goes too.
void DecisionCache::Table::clear() {
    if (Link** chains = makeChains(kFirstChains)) {
        std::free(std::exchange(itsChains, chains));
        itsChainCount = kFirstChains;
    } else {
        std::memset(itsChains, 0, itsChainCount * sizeof *itsChains);
    }
    itsSize = 0;
}

// Where there is no memory for more chains the present ones go on.
void DecisionCache::Table::grow() {
    const std::size_t formerCount = itsChainCount;
    Link** chains = makeChains(2 * formerCount);
    if (chains == nullptr) return;
    Link** former = std::exchange(itsChains, chains);
    itsChainCount = 2 * formerCount;
    for (std::size_t i = 0; i < formerCount; ++i)
        while (Link* link = former[i]) {
            former[i] = link->next;
            Link*& chain = chainOf(link->hash);
            link->next = std::exchange(chain, link);
        }
    std::free(former);
}

DecisionCache::Link** DecisionCache::Table::makeChains(std::size_t count) {
    return static_cast<Link**>(std::calloc(count, sizeof(Link*)));
}

}  // namespace Quenvale::Interceptor::SDK
