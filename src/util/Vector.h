#pragma once

#include <cstdlib>
#include <new>
#include <utility>

#include "util/IList.h"
#include "util/dispose.h"

namespace Quenvale::Interceptor::SDK::Util {

/// A growable array, walked by index: iterator() is always null. No bound is checked.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: by freeMode, applied in clear() and where resize() cuts.
template <class T>
class Vector : public Collection, public IList<T> {
public:
    /// A freeMode as for List; a capacity below 0 counts as 0.
    Vector(int freeMode, int capacity) : itsFreeMode(freeMode) {
        grow(capacity < 0 ? 0 : capacity);
    }
    ~Vector() override { Vector::clear(); }
    Vector(const Vector&) = delete;
    Vector& operator=(const Vector&) = delete;

    bool empty() override { return itsSize == 0; }
    /// The storage goes too.
    void clear() override {
        if (itsFreeMode != 0)
            for (int i = 0; i < itsSize; ++i) Free<T>(itsFreeMode, itsItems[i]);
        dropStorage();
        itsSize = 0;
    }
    int size() override { return itsSize; }
    /// A copy behind the last element; always true.
    bool add(const T& item) override {
        insert(itsSize, item);
        return true;
    }
    /// Always null.
    IIterator<T>* iterator() override { return nullptr; }
    /// @{
    /// The element, in place.
    virtual T& at(int index) { return itsItems[index]; }
    virtual T& get(int index) { return itsItems[index]; }
    /// @}
    /// Stores without disposing of what a pointer element led to. At or behind the end the size
    /// becomes index + 1.
    virtual void set(int index, const T& item) {
        itsItems[index] = item;
        if (itsSize <= index) itsSize = index + 1;
    }
    /// Adds one element at the end. Before the end the size stays, and the last element leaves the
    /// visible range.
    virtual void insert(int index, const T& item) {
        // It may stand in the storage that goes.
        const T kept = item;  // NOLINT(performance-unnecessary-copy-initialization)
        resize(itsSize + 1);
        for (int i = itsSize; i > index; --i) itsItems[i] = std::move(itsItems[i - 1]);
        set(index, kept);
    }
    /// The first index whose element is the very value, for texts the very buffer; or -1.
    virtual int indexOf(const T& item) {
        for (int i = 0; i < itsSize; ++i)
            if (isSameItem(itsItems[i], item)) return i;
        return -1;
    }
    /// Makes room beyond n, doubling; or cuts to n what is larger.
    virtual void resize(int n) {
        if (itsCapacity <= n) {
            grow(itsCapacity > n / 2 ? itsCapacity * 2 : n);
        } else if (itsSize > n) {
            if (itsFreeMode != 0)
                for (int i = n; i < itsSize; ++i) Free<T>(itsFreeMode, itsItems[i]);
            itsSize = n;
            grow(n);
        }
    }

    /// Elements that there is room for.
    int capacity() const { return itsCapacity; }

private:
    // New zeroed storage takes over the elements.
    void grow(int capacity) {
        T* items = nullptr;
        if (capacity > 0) {
            items = static_cast<T*>(std::calloc(static_cast<std::size_t>(capacity), sizeof(T)));
            if (items == nullptr) throw std::bad_alloc();
            for (int i = 0; i < capacity; ++i) new (items + i) T();
            for (int i = 0; i < itsSize; ++i) items[i] = std::move(itsItems[i]);
        }
        dropStorage();
        itsItems = items;
        itsCapacity = capacity;
    }

    void dropStorage() {
        for (int i = 0; i < itsCapacity; ++i) itsItems[i].~T();
        std::free(itsItems);
        itsItems = nullptr;
        itsCapacity = 0;
    }

    int itsFreeMode;
    T* itsItems = nullptr;
    int itsSize = 0;
    int itsCapacity = 0;
};

}  // namespace Quenvale::Interceptor::SDK::Util
