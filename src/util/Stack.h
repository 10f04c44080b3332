#pragma once

#include "util/List.h"

namespace Quenvale::Interceptor::SDK::Util {

/// A List used from its tail.
template <class T>
class Stack : public List<T> {
public:
    /// As for List.
    explicit Stack(int freeMode) : List<T>(freeMode) {}

    /// A copy, on top.
    virtual void push(const T& item) { this->add(item); }
    /// The top, or the blank item of an empty stack.
    virtual T& peek() { return this->itsTail == nullptr ? this->itsBlank : this->itsTail->data; }
    /// Takes the top off. With freeMode 0 a popped pointer stays valid. An empty stack gives the
    /// blank item.
    virtual T pop() {
        T item = peek();
        this->eraseTail();
        return item;
    }
};

}  // namespace Quenvale::Interceptor::SDK::Util
