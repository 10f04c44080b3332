#pragma once

#include "util/IIterator.h"

namespace Quenvale::Interceptor::SDK::Util {

/// Marks the containers.
class Collection {};

template <class T>
/// What List and Vector have in common.
class IList {
public:
    virtual ~IList() = default;
    /// Whether there is no element.
    virtual bool empty() = 0;
    /// Disposes of all elements, as the freeMode says.
    virtual void clear() = 0;
    /// The number of elements.
    virtual int size() = 0;
    /// A copy behind the last element.
    virtual bool add(const T& item) = 0;
    /// A walk from the first element, which the caller deletes; null where the collection has none.
    virtual IIterator<T>* iterator() = 0;
};

}  // namespace Quenvale::Interceptor::SDK::Util
