#pragma once

#include <cstdlib>
#include <new>
#include <type_traits>

#include "util/ByteArray.h"
#include "util/String.h"

namespace Quenvale::Interceptor::SDK::Util {

/// Logs that a void* has no destructor.
QZ_API void reportVoidDeletion();

/// Disposes of what a slot points to and clears the slot. A null slot, or one that holds null,
/// does nothing. With `useFree` the memory goes back by free(), otherwise by delete.
template <class T>
void nullify(T** slot, bool useFree) {
    if (slot == nullptr || *slot == nullptr) return;
    T* item = *slot;
    *slot = nullptr;
    if constexpr (std::is_void_v<T>) {
        if (useFree)
            std::free(item);
        else
            reportVoidDeletion();
    } else {
        if constexpr (std::is_same_v<T, ByteArray>) item->releaseContent();
        if (useFree) {
            item->~T();
            std::free(item);
        } else {
            delete item;
        }
    }
}

/// Disposes of one element of a collection: the meaning of every collection's freeMode (0 nothing,
/// 1 free, 2 delete). A String is released whatever the mode, a number never.
template <class T>
void Free(int freeMode, T& item) {
    if constexpr (std::is_same_v<T, String>) {
        item = String();
    } else if constexpr (std::is_pointer_v<T>) {
        using Target = std::remove_cv_t<std::remove_pointer_t<T>>;
        if (freeMode == 1) {
            std::free(const_cast<Target*>(item));
        } else if (freeMode == 2) {
            if constexpr (std::is_same_v<Target, char>)
                ::operator delete(const_cast<Target*>(item));
            else if constexpr (!std::is_void_v<Target>)
                delete item;
        }
    }
}

/// What a search that finds nothing answers with: 0, null or the empty text (not NIL).
template <class T>
T blankItem() {
    if constexpr (std::is_same_v<T, String>)
        return String::BLANK;
    else
        return T();
}

/// Equality of the raw value: for a String that of the two text pointers, not of the texts.
template <class T>
bool isSameItem(const T& a, const T& b) {
    if constexpr (std::is_same_v<T, String>)
        return a.c_str() == b.c_str();
    else
        return a == b;
}

}  // namespace Quenvale::Interceptor::SDK::Util
