#pragma once

namespace Quenvale::Interceptor::SDK::Util {

/// A walk over a collection. An iterator that an operation returns is a heap object that the
/// caller deletes. Behind the last element next() and get() give the collection's blank item.
template <class T>
class IIterator {
public:
    virtual ~IIterator() = default;
    /// Whether next() has an element to give.
    virtual bool hasNext() = 0;
    /// The present element, in place, and a step behind it.
    virtual T& next() = 0;
    /// The element that next() would give, without the step.
    virtual T& get() = 0;
    /// Removes the element that next() returned last.
    virtual void remove() = 0;
};

}  // namespace Quenvale::Interceptor::SDK::Util
