#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "config/ConfigEntry.h"
#include "util/String.h"
#include "util/annotations.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

/// The decisions of one side by URL and operation name. It knows so many URLs, each with any number
/// of operations; a further URL takes the place of the one that was used least recently, with all
/// that was decided for it. A search is a use.
///
/// Every call of the process comes by here, so a search is one look-up by both texts, with all that
/// can be worked out done before the lock is taken; and what leaves is destroyed behind it. The
/// lock shares its cache line with nothing that calls read on their way. When a URL was used is a
/// number among those of the others, so that a hit writes to one line beside the lock's; which one
/// has to go is looked for when one has to.
///
/// Threads:   any.
/// Ownership: texts are copied, decisions shared.
class alignas(64) DecisionCache {
public:
    /// Of at most so many URLs.
    explicit DecisionCache(int urls);
    ~DecisionCache() { clear(); }
    DecisionCache(const DecisionCache&) = delete;
    DecisionCache& operator=(const DecisionCache&) = delete;

    // A URL is not NIL. An operation that is NIL is another one than the empty text.

    /// Null when there is none.
    EntryRef find(const Util::String& url, const Util::String& operation);
    /// The URL is known and was used now, whatever becomes of the decision.
    void addSite(const Util::String& url);
    /// Adds a decision, or puts it in the place of the one that is there.
    void insert(const Util::String& url, const Util::String& operation, const EntryRef& entry);
    /// Drops all.
    void clear();

private:
    struct Text;
    struct Key;
    struct Link;
    struct Decision;
    struct Site;

    // Links in chains by their hashes; it borrows them.
    class Table {
    public:
        Table();
        ~Table();
        Table(const Table&) = delete;
        Table& operator=(const Table&) = delete;

        Link*& chainOf(std::uint64_t hash) { return itsChains[hash & (itsChainCount - 1)]; }
        void add(Link* link);
        void remove(Link* link);
        void clear();

    private:
        static Link** makeChains(std::size_t count);
        void grow();

        Link** itsChains;
        std::size_t itsChainCount;  // A power of two.
        std::size_t itsSize = 0;
    };

    // What is dropped goes into `dropped`, to be destroyed behind the lock.
    Site* use(const Text& url, std::unique_ptr<Site>& fresh, std::unique_ptr<Site>& dropped)
        QZ_REQUIRES(itsLatch);
    inline Decision* search(const Key& key) QZ_REQUIRES(itsLatch);
    inline void makeNewest(const Site* site) QZ_REQUIRES(itsLatch);
    void takeOut(Site* site) QZ_REQUIRES(itsLatch);

    Util::qzlatch itsLatch;
    Table itsDecisions QZ_GUARDED_BY(itsLatch);
    Table itsSites QZ_GUARDED_BY(itsLatch);
    std::uint64_t itsLastUse QZ_GUARDED_BY(itsLatch) = 0;
    /// @{
    /// By a URL's place: the URL, and the number of its latest use. The first itsSiteCount places
    /// are taken.
    const std::unique_ptr<Site*[]> itsPlaces QZ_GUARDED_BY(itsLatch);
    const std::unique_ptr<std::uint64_t[]> itsUses QZ_GUARDED_BY(itsLatch);
    /// @}
    int itsSiteCount QZ_GUARDED_BY(itsLatch) = 0;
    const int itsMaxSites;
};

}  // namespace Quenvale::Interceptor::SDK
