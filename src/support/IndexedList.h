// A list on the module heap whose entries are numbered from 0 in the order in which they came.
#pragma once

#include <cstdint>

#include "support/ModuleHeap.h"

namespace kivmp4 {

/// Appending, removing the last entry and asking for positions in order each take constant time, because a file may
/// fill a list with half a million entries. Values are borrowed: removing an entry does not touch its value.
/// The owner keeps the list guarded by a lock of its own. Zeroed memory is an empty list.
template <typename T>
class IndexedList {
public:
    uint32_t Count() const { return count; }

    /// @return false when the heap is full; the list is unchanged
    [[nodiscard]] bool Append(T* value) {
        Node* node = ModuleNew<Node>();
        if (!node)
            return false;
        node->value = value;
        node->previous = tail;
        node->position = count++;
        (tail ? tail->next : head) = node;
        tail = node;
        return true;
    }

    /// @param position  below Count()
    T* At(uint32_t position) const {
        const Node* node = lastFound && lastFound->position <= position ? lastFound : head;
        while (node->position != position)
            node = node->next;
        lastFound = node;
        return node->value;
    }

    /// The list must not be empty.
    void RemoveLast() {
        Node* node = tail;
        tail = node->previous;
        (tail ? tail->next : head) = nullptr;
        --count;
        lastFound = nullptr;
        ModuleFree(node);
    }

private:
    struct Node {
        T* value;  // borrowed
        Node* next;
        Node* previous;
        uint32_t position;
    };
    Node* head = nullptr;  // owned, as all nodes
    Node* tail = nullptr;
    mutable const Node* lastFound = nullptr;  // where the last lookup ended: the next one mostly asks for its neighbour
    uint32_t count = 0;
};

}  // namespace kivmp4
