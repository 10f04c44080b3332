#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "util/List.h"
#include "util/Pair.h"

namespace Quenvale::Interceptor::SDK::Util {

/// Which bucket a key has depends on this and so on the process: keys come from peers as well, who
/// can't have them all meet in one bucket. 0 for null.
QZ_API unsigned long hashKey(const char* key) noexcept;

/// A hash table keyed by text, and at once a list of its entries: iteration follows the list, which
/// is insertion order but for the moves of the LRU mode. A search never fails: a key that is not
/// there gives the blank item.
///
/// With useLRU a hit moves its entry to the tail, and with a maxSize above 0 an insertion into a
/// full map drops the head, the oldest or the least recently used.
///
/// A null key is legal and found only by null.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: keys are copied, values by T's own copy; freeMode says what happens to a value that
///            leaves.
template <class T>
class Map : public Collection {
public:
    using Entry = Pair<T>;                          // A key and its value.
    using EntryNode = typename List<Entry*>::Node;  // An entry's place in the order.

    /// A walk over the entries in their order.
    class Iterator : public IIterator<Entry*>, public Pooled {
    public:
        /// Stands at the first entry.
        explicit Iterator(Map* map) : itsMap(map), itsEntries(map->itsEntryList) {}

        bool hasNext() override { return itsEntries.hasNext(); }
        Entry*& next() override {
            itsLast = itsEntries.getNode();
            return itsEntries.next();
        }
        Entry*& get() override { return itsEntries.get(); }
        void remove() override {
            if (itsLast == nullptr) return;
            const String key = itsLast->data->key;
            itsLast = nullptr;
            itsMap->erase(key);
        }
        /// @{
        /// Of the entry that next() will return. There must be one.
        virtual String& getKey() { return itsEntries.get()->key; }
        virtual T& getVal() { return itsEntries.get()->value; }
        /// @}

    private:
        Map* itsMap;
        typename List<Entry*>::Iterator itsEntries;
        EntryNode* itsLast = nullptr;
    };

    /// A freeMode as for List. The map grows with its entries, but above a maxSize it drops the
    /// head.
    explicit Map(int freeMode = 2, int useLRU = 0, int maxSize = 0)
        : itsFreeMode(freeMode), itsUseLRU(useLRU), itsMaxSize(maxSize) {
        makeBuckets(kInitialBuckets);
    }
    /// As many buckets as `other` has entries, at least one; freeMode, useLRU and maxSize 0.
    explicit Map(Map* other) : itsFreeMode(0), itsUseLRU(0), itsMaxSize(0) {
        makeBuckets(other->size() > 0 ? other->size() : 1);
        putAll(other);
    }
    virtual ~Map() {
        std::free(itsBuckets);
        delete itsEntryList;
    }
    Map(const Map&) = delete;
    Map& operator=(const Map&) = delete;

    /// @{
    /// The value, in place, or the blank item; what is written into that stands in for later
    /// misses.
    virtual T& find(const String& key) { return find(key.c_str()); }
    virtual T& find(const char* key) {
        EntryNode* node = search(key, hashKey(key));
        if (node == nullptr) return itsBlank;
        if (itsUseLRU == 1) itsEntryList->moveToTail(node);
        return node->data->value;
    }
    /// @}
    /// Does not count as a use, which find() does with useLRU.
    virtual bool hasKey(const String& key) {
        return search(key.c_str(), hashKey(key.c_str())) != nullptr;
    }
    /// By the raw value: texts count as equal only when they are the very buffer.
    virtual bool hasValue(const T& value) {
        for (EntryNode* node = itsEntryList->getHead(); node != nullptr; node = node->next)
            if (isSameItem(node->data->value, value)) return true;
        return false;
    }
    /// @{
    /// Removes the entry and disposes of its value. False when there is none.
    virtual bool erase(const String& key) { return erase(key.c_str()); }
    /// True when something was removed. The cost does not grow with the map.
    virtual bool erase(const char* key) {
        EntryNode* node = search(key, hashKey(key));
        if (node == nullptr) return false;
        dropEntry(node);
        return true;
    }
    /// @}
    /// @{
    /// A copy under a copy of the key. A value that stands there already is disposed of and
    /// replaced, in its place in the order.
    virtual void insert(const String& key, const T& value) { insert(key.c_str(), value); }
    virtual void insert(const char* key, const T& value) {
        const unsigned long hash = hashKey(key);
        if (EntryNode* node = search(key, hash)) {
            replaceValue(node->data, value);
            if (itsUseLRU == 1) itsEntryList->moveToTail(node);
            return;
        }
        // Built before the oldest goes: key and value may stand in it.
        auto entry = std::make_unique<Entry>(key, value, itsFreeMode);
        entry->hash = hash;
        if (itsMaxSize > 0 && itsSize >= itsMaxSize) dropEntry(itsEntryList->getHead());
        EntryNode* node = itsEntryList->addEx(entry.get());
        static_cast<void>(entry.release());
        addNode(node);
    }
    /// @}
    /// As insert().
    virtual void put(const String& key, const T& value) { insert(key.c_str(), value); }
    /// Inserts all entries of `other` in their order.
    virtual void putAll(Map* other) {
        for (EntryNode* node = other->itsEntryList->getHead(); node != nullptr; node = node->next)
            insert(node->data->key.c_str(), node->data->value);
    }
    /// A map with the default modes, in the same order, that the caller owns. Pointer values are
    /// then held by both.
    virtual Map* copy() {
        auto* result = new Map();
        result->putAll(this);
        return result;
    }
    /// Whether there is no entry.
    virtual bool empty() { return itsSize == 0; }
    /// Disposes of all entries; the buckets stay.
    virtual void clear() {
        std::memset(itsBuckets, 0, static_cast<std::size_t>(itsBucketCount) * sizeof(*itsBuckets));
        itsEntryList->clear();
        itsSize = 0;
    }
    /// The number of entries.
    virtual int size() { return itsSize; }
    /// @{
    /// As find(): a key that isn't there is not inserted.
    virtual T& operator[](const String& key) { return find(key.c_str()); }
    virtual T& operator[](const char* key) { return find(key); }
    /// @}
    /// As iterator(), with the operations of a map.
    virtual Iterator* iteratorEx() { return new Iterator(this); }
    /// A walk from the first entry, which the caller deletes. Only remove() of its own may change
    /// the map meanwhile.
    virtual IIterator<Entry*>* iterator() { return new Iterator(this); }
    /// The entries in their order, for reading; the map's own list.
    virtual List<Entry*>* getEntryList() { return itsEntryList; }

    /// 16 at first, or what the constructor took from the other map.
    int bucketCount() const { return itsBucketCount; }

    /// h * 65599 + c over the characters, modulo so many; 0 stands for the present number of
    /// buckets. It doesn't say which bucket a key has.
    unsigned long computeKey(const char* key, int buckets) const {
        unsigned long hash = 0;
        for (; key != nullptr && *key != '\0'; ++key)
            hash = hash * 65599UL + static_cast<unsigned long>(static_cast<signed char>(*key));
        return hash % static_cast<unsigned long>(buckets == 0 ? itsBucketCount : buckets);
    }

private:
    static constexpr int kInitialBuckets = 16;

    static unsigned long bucketOf(unsigned long hash, int buckets) {
        return ((hash >> 32) * static_cast<unsigned long>(buckets)) >> 32;
    }

    static bool isSameKey(const char* a, const char* b) {
        if (a == nullptr || b == nullptr) return a == b;
        return std::strcmp(a, b) == 0;
    }

    EntryNode* search(const char* key, unsigned long hash) {
        EntryNode* node = itsBuckets[bucketOf(hash, itsBucketCount)];
        while (node != nullptr &&
               (node->data->hash != hash || !isSameKey(node->data->key.c_str(), key)))
            node = nextOf(node);
        return node;
    }

    static EntryNode* nextOf(EntryNode* node) {
        return static_cast<EntryNode*>(node->data->nextInBucket);
    }

    void dropEntry(EntryNode* node) {
        EntryNode*& head = itsBuckets[bucketOf(node->data->hash, itsBucketCount)];
        if (head == node) {
            head = nextOf(node);
        } else {
            EntryNode* before = head;
            while (nextOf(before) != node) before = nextOf(before);
            before->data->nextInBucket = node->data->nextInBucket;
        }
        itsEntryList->eraseNode(node);
        --itsSize;
    }

    void replaceValue(Entry* entry, const T& value) {
        // A copy first: the new value may stand in the old one.
        T fresh = value;  // NOLINT(performance-unnecessary-copy-initialization)
        if (!isSameItem(entry->value, value)) Free<T>(itsFreeMode, entry->value);
        entry->value = fresh;
    }

    void addNode(EntryNode* node) {
        if (itsSize >= itsBucketCount) grow();
        link(node);
        ++itsSize;
    }

    void link(EntryNode* node) {
        EntryNode*& head = itsBuckets[bucketOf(node->data->hash, itsBucketCount)];
        node->data->nextInBucket = head;
        head = node;
    }

    // Where there is no memory for more buckets the present ones go on.
    void grow() {
        const int count = static_cast<int>(static_cast<float>(itsSize) * itsGrowthFactor + 0.5F);
        EntryNode** const old = itsBuckets;
        try {
            makeBuckets(count);
        } catch (const std::bad_alloc&) {
            return;
        }
        for (EntryNode* node = itsEntryList->getHead(); node->next != nullptr; node = node->next)
            link(node);
        std::free(old);
    }

    void makeBuckets(int count) {
        void* buckets = std::calloc(static_cast<std::size_t>(count), sizeof(EntryNode*));
        if (buckets == nullptr) throw std::bad_alloc();
        itsBuckets = static_cast<EntryNode**>(buckets);
        itsBucketCount = count;
    }

    T itsBlank = blankItem<T>();
    List<Entry*>* itsEntryList = new List<Entry*>(2);
    EntryNode** itsBuckets = nullptr;  // Heads of the chains through nextInBucket.
    int itsFreeMode;
    int itsBucketCount = 0;
    int itsSize = 0;
    int itsUseLRU;
    int itsMaxSize;
    float itsGrowthFactor = 2.0F;
};

}  // namespace Quenvale::Interceptor::SDK::Util
