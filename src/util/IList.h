#pragma once

#include "util/IIterator.h"

namespace Quenvale::Interceptor::SDK::Util {

/// Marks the containers.
class Collection {};

template <class T>
class IList {
public:
    virtual ~IList() = default;
    virtual bool empty() = 0;
    virtual void clear() = 0;
    virtual int size() = 0;
    virtual bool add(const T& item) = 0;
    virtual IIterator<T>* iterator() = 0;
};

}  // namespace Quenvale::Interceptor::SDK::Util
