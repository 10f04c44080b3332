#pragma once

#include "util/IList.h"
#include "util/blocks.h"
#include "util/dispose.h"

namespace Quenvale::Interceptor::SDK::Util {

/// A doubly linked list. Its freeMode says what is done to an element that leaves.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: elements are copied in by T's own copy.
template <class T>
class List : public Collection, public IList<T> {
public:
    /// One place in the list, with its element.
    struct Node : Pooled {
        /// Not linked anywhere.
        Node(const T& item, int mode) : data(item), freeMode(mode) {}
        ~Node() { Free<T>(freeMode, data); }
        Node(const Node&) = delete;
        Node& operator=(const Node&) = delete;

        T data;                // A copy.
        Node* prev = nullptr;  // Null at the head.
        Node* next = nullptr;  // Null at the tail.
        int freeMode;          // What happens to the element when the node goes.
    };

    /// Stands before the node that next() will return; null is the place behind the end.
    class Iterator : public IIterator<T>, public Pooled {
    public:
        /// Stands at the head.
        explicit Iterator(List* list) : itsList(list), itsCurrent(list->itsHead) {}

        bool hasNext() override { return itsCurrent != nullptr; }
        T& next() override { return dataOf(nextNode()); }
        T& get() override { return dataOf(itsCurrent); }
        void remove() override {
            Node* last = itsCurrent == nullptr ? itsList->itsTail : itsCurrent->prev;
            if (last != nullptr) itsList->eraseNode(last);
        }
        /// The node that next() would return; null behind the end.
        virtual Node* getNode() { return itsCurrent; }
        /// Returns the current node and steps forward; from behind the end it steps to the head.
        virtual Node* nextNode() {
            Node* node = itsCurrent;
            itsCurrent = node == nullptr ? itsList->itsHead : node->next;
            return node;
        }
        /// Steps back, from behind the end to the tail.
        virtual T& prev() {
            itsCurrent = itsCurrent == nullptr ? itsList->itsTail : itsCurrent->prev;
            return dataOf(itsCurrent);
        }
        /// A new element before the current one, or behind the tail.
        virtual void insert(const T& item) {
            itsList->linkBefore(new Node(item, itsList->itsFreeMode), itsCurrent);
        }

    private:
        T& dataOf(Node* node) { return node == nullptr ? itsList->itsBlank : node->data; }

        List* itsList;
        Node* itsCurrent;
    };

    /// Of a list of pointers: 0 leaves what they lead to alone, 1 frees it, 2 deletes it.
    explicit List(int freeMode) : itsFreeMode(freeMode) {}
    ~List() override { List::clear(); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    bool empty() override { return itsCount == 0; }
    void clear() override {
        while (itsHead != nullptr) {
            Node* node = itsHead;
            itsHead = node->next;
            delete node;
        }
        itsTail = nullptr;
        itsCount = 0;
    }
    int size() override { return itsCount; }
    /// Appends. True when the element became the head; so does addToHead().
    bool add(const T& item) override { return addEx(item) == itsHead; }
    IIterator<T>* iterator() override { return iteratorEx(); }
    /// As iterator(), with the operations of a list.
    virtual Iterator* iteratorEx() { return new Iterator(this); }
    /// A copy in front of the first element.
    virtual bool addToHead(const T& item) {
        linkBefore(new Node(item, itsFreeMode), itsHead);
        return true;
    }
    /// A copy behind the last element; the result is its node.
    virtual Node* addEx(const T& item) {
        Node* node = new Node(item, itsFreeMode);
        linkBefore(node, nullptr);
        return node;
    }
    /// The node is one of this list.
    virtual void moveToTail(Node* node) {
        if (node == itsTail) return;
        unlink(node);
        linkBefore(node, nullptr);
    }
    /// @{
    /// Removes and deletes one end; nothing in an empty list.
    virtual void eraseHead() {
        if (itsHead != nullptr) eraseNode(itsHead);
    }
    virtual void eraseTail() {
        if (itsTail != nullptr) eraseNode(itsTail);
    }
    /// @}
    /// Null in an empty list.
    virtual Node* getHead() { return itsHead; }
    /// For texts a node matches when it is the very object given or when the texts are equal.
    virtual bool contains(const T& item) {
        for (Node* node = itsHead; node != nullptr; node = node->next)
            if (node->data == item) return true;
        return false;
    }

    /// Removes and deletes a node of this list, wherever it stands.
    void eraseNode(Node* node) {
        unlink(node);
        delete node;
    }

protected:
    Node* itsHead = nullptr;      // Null in an empty list.
    Node* itsTail = nullptr;      // Null in an empty list.
    int itsFreeMode;              // Given to each new node.
    int itsCount = 0;             // Elements.
    T itsBlank = blankItem<T>();  // What stands for an element that isn't there.

private:
    void unlink(Node* node) {
        (node->prev == nullptr ? itsHead : node->prev->next) = node->next;
        (node->next == nullptr ? itsTail : node->next->prev) = node->prev;
        node->prev = node->next = nullptr;
        --itsCount;
    }

    // Before null means behind the tail.
    void linkBefore(Node* node, Node* place) {
        node->next = place;
        node->prev = place == nullptr ? itsTail : place->prev;
        (node->prev == nullptr ? itsHead : node->prev->next) = node;
        (place == nullptr ? itsTail : place->prev) = node;
        ++itsCount;
    }
};

}  // namespace Quenvale::Interceptor::SDK::Util
