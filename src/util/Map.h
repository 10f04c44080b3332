#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "util/List.h"
#include "util/Pair.h"

namespace Quenvale::Interceptor::SDK::Util {

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
    using Entry = Pair<T>;
    using EntryNode = typename List<Entry*>::Node;

    class Iterator : public IIterator<Entry*>, public Pooled {
    public:
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
        /// Of the entry that next() will return. There must be one.
        virtual String& getKey() { return itsEntries.get()->key; }
        virtual T& getVal() { return itsEntries.get()->value; }

    private:
        Map* itsMap;
        typename List<Entry*>::Iterator itsEntries;
        EntryNode* itsLast = nullptr;
    };

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
        for (int i = 0; i < itsBucketCount; ++i) delete itsBuckets[i];
        std::free(itsBuckets);
        delete itsEntryList;
    }
    Map(const Map&) = delete;
    Map& operator=(const Map&) = delete;

    virtual T& find(const String& key) { return find(key.c_str()); }
    virtual T& find(const char* key) {
        EntryNode* node = search(key);
        if (node == nullptr) return itsBlank;
        if (itsUseLRU == 1) itsEntryList->moveToTail(node);
        return node->data->value;
    }
    virtual bool hasKey(const String& key) { return search(key.c_str()) != nullptr; }
    /// By the raw value: texts count as equal only when they are the very buffer.
    virtual bool hasValue(const T& value) {
        for (EntryNode* node = itsEntryList->getHead(); node != nullptr; node = node->next)
            if (isSameItem(node->data->value, value)) return true;
        return false;
    }
    virtual bool erase(const String& key) { return erase(key.c_str()); }
    /// True when something was removed. The entry is unlinked through its node, so that the cost
    /// does not grow with the map.
    virtual bool erase(const char* key) {
        const unsigned long bucket = computeKey(key, itsBucketCount);
        EntryNode* node = takeFromBucket(bucket, key);
        if (node == nullptr) return false;
        dropEntry(node);
        return true;
    }
    virtual void insert(const String& key, const T& value) { insert(key.c_str(), value); }
    virtual void insert(const char* key, const T& value) {
        if (EntryNode* node = search(key)) {
            replaceValue(node->data, value);
            if (itsUseLRU == 1) itsEntryList->moveToTail(node);
            return;
        }
        // Built before the oldest goes: key and value may stand in it.
        auto entry = std::make_unique<Entry>(key, value, itsFreeMode);
        if (itsMaxSize > 0 && itsSize >= itsMaxSize) dropOldest();
        EntryNode* node = itsEntryList->addEx(entry.get());
        static_cast<void>(entry.release());
        try {
            addNode(node);
        } catch (...) {
            // Short of memory: the value stays the caller's.
            node->data->freeMode = 0;
            itsEntryList->eraseNode(node);
            throw;
        }
    }
    virtual void put(const String& key, const T& value) { insert(key.c_str(), value); }
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
    virtual bool empty() { return itsSize == 0; }
    virtual void clear() {
        for (int i = 0; i < itsBucketCount; ++i) nullify(&itsBuckets[i], false);
        itsEntryList->clear();
        itsSize = 0;
    }
    virtual int size() { return itsSize; }
    virtual T& operator[](const String& key) { return find(key.c_str()); }
    virtual T& operator[](const char* key) { return find(key); }
    virtual Iterator* iteratorEx() { return new Iterator(this); }
    virtual IIterator<Entry*>* iterator() { return new Iterator(this); }
    virtual List<Entry*>* getEntryList() { return itsEntryList; }

    int bucketCount() const { return itsBucketCount; }

    /// The bucket of a key among so many; 0 stands for the present number.
    unsigned long computeKey(const char* key, int buckets) const {
        if (key == nullptr) return 0;
        if (buckets == 0) buckets = itsBucketCount;
        unsigned long hash = 0;
        for (; *key != '\0'; ++key)
            hash = hash * 65599UL + static_cast<unsigned long>(static_cast<signed char>(*key));
        return hash % static_cast<unsigned long>(buckets);
    }

private:
    using Bucket = List<EntryNode*>;
    static constexpr int kInitialBuckets = 16;

    static bool isSameKey(const char* a, const char* b) {
        if (a == nullptr || b == nullptr) return a == b;
        return std::strcmp(a, b) == 0;
    }

    EntryNode* search(const char* key) {
        Bucket* bucket = itsBuckets[computeKey(key, itsBucketCount)];
        if (bucket == nullptr) return nullptr;
        for (auto* link = bucket->getHead(); link != nullptr; link = link->next)
            if (isSameKey(link->data->data->key.c_str(), key)) return link->data;
        return nullptr;
    }

    EntryNode* takeFromBucket(unsigned long index, const char* key) {
        Bucket* bucket = itsBuckets[index];
        if (bucket == nullptr) return nullptr;
        for (auto* link = bucket->getHead(); link != nullptr; link = link->next) {
            EntryNode* node = link->data;
            if (!isSameKey(node->data->key.c_str(), key)) continue;
            bucket->eraseNode(link);
            return node;
        }
        return nullptr;
    }

    void dropEntry(EntryNode* node) {
        itsEntryList->eraseNode(node);
        --itsSize;
    }

    void dropOldest() {
        EntryNode* oldest = itsEntryList->getHead();
        const char* key = oldest->data->key.c_str();
        takeFromBucket(computeKey(key, itsBucketCount), key);
        dropEntry(oldest);
    }

    void replaceValue(Entry* entry, const T& value) {
        // A copy first: the new value may stand in the old one.
        T fresh = value;
        if (!isSameItem(entry->value, value)) Free<T>(itsFreeMode, entry->value);
        entry->value = fresh;
    }

    void addNode(EntryNode* node) {
        if (itsSize < itsBucketCount)
            addToBucket(node);
        else
            resize(static_cast<int>(static_cast<float>(itsSize) * itsGrowthFactor + 0.5F));
        ++itsSize;
    }

    void addToBucket(EntryNode* node) {
        Bucket*& bucket = itsBuckets[computeKey(node->data->key.c_str(), itsBucketCount)];
        if (bucket == nullptr) bucket = new Bucket(0);
        bucket->add(node);
    }

    // The list already holds the entry that asked for more room.
    void resize(int count) {
        Bucket** const old = itsBuckets;
        const int oldCount = itsBucketCount;
        makeBuckets(count);
        for (int i = 0; i < oldCount; ++i) delete old[i];
        std::free(old);
        for (EntryNode* node = itsEntryList->getHead(); node != nullptr; node = node->next)
            addToBucket(node);
    }

    void makeBuckets(int count) {
        void* buckets = std::calloc(static_cast<std::size_t>(count), sizeof(Bucket*));
        if (buckets == nullptr) throw std::bad_alloc();
        itsBuckets = static_cast<Bucket**>(buckets);
        itsBucketCount = count;
    }

    T itsBlank = blankItem<T>();
    List<Entry*>* itsEntryList = new List<Entry*>(2);
    Bucket** itsBuckets = nullptr;
    int itsFreeMode;
    int itsBucketCount = 0;
    int itsSize = 0;
    int itsUseLRU;
    int itsMaxSize;
    float itsGrowthFactor = 2.0F;
};

}  // namespace Quenvale::Interceptor::SDK::Util
