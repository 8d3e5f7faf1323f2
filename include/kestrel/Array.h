#pragma once

#include <cstdint>
#include <new>
#include <utility>
#include <vector>

// The two containers everything in the data model rests on: a doubly linked list with index
// access through a cursor, and a binary min-heap of pointers kept in such a list.
//
// Beside the links the list keeps a table of its nodes, so that reaching an index costs the
// same however far it is from the cursor: the heap jumps between parent and child, and a
// walk along the links would make a group of n elements cost O(n^2) to fill and drain, which
// a hostile file can exploit. The cursor fields are kept exactly as the walk would leave them.

template <class T>
struct ArrayNode {
  T Data;
  ArrayNode* Prev;
  ArrayNode* Next;
};

template <class T>
class Array {
 public:
  ArrayNode<T>* Head = nullptr;
  ArrayNode<T>* Tail = nullptr;
  ArrayNode<T>* Cursor = nullptr;  // the node last reached by index
  uint32_t CursorIndex = 0;
  uint32_t Count = 0;
  // When 1 the destructor frees every node; the values themselves are never destroyed here.
  int32_t ClearOnDelete = 1;

  Array() = default;
  Array(const Array&) = delete;
  Array& operator=(const Array&) = delete;
  virtual ~Array() {
    if (ClearOnDelete) RemoveAll();
  }

  // Appends at the tail and returns the value.
  T& Add(const T& value) {
    auto* node = new ArrayNode<T>{value, Tail, nullptr};
    nodes_.push_back(node);
    if (Tail)
      Tail->Next = node;
    else
      Head = node;
    Tail = node;
    ++Count;
    return node->Data;
  }

  // The value at `index`, or a reference to a value-initialised T (a null pointer for the
  // pointer lists) when `index` is out of range.
  T& Get(uint32_t index) {
    ArrayNode<T>* node = NodeAt(index);
    return node ? node->Data : NullValue();
  }
  T& operator[](uint32_t index) { return Get(index); }

  // Unlinks and frees the node; the value is not destroyed.
  bool RemoveAt(uint32_t index) {
    ArrayNode<T>* node = NodeAt(index);
    if (!node) return false;
    if (node->Prev)
      node->Prev->Next = node->Next;
    else
      Head = node->Next;
    if (node->Next)
      node->Next->Prev = node->Prev;
    else
      Tail = node->Prev;
    // The removed node was made the cursor by NodeAt; the one before it takes its place.
    Cursor = node->Prev;
    CursorIndex = index ? index - 1 : 0;
    nodes_.erase(nodes_.begin() + index);
    delete node;
    --Count;
    return true;
  }

  uint32_t GetSize() const { return Count; }

  void RemoveAll() {
    while (Head) {
      ArrayNode<T>* next = Head->Next;
      delete Head;
      Head = next;
    }
    Tail = Cursor = nullptr;
    Count = CursorIndex = 0;
    nodes_.clear();
  }

 protected:
  // The cursor rule: out of range gives null; otherwise the node at `index` becomes the cursor.
  ArrayNode<T>* NodeAt(uint32_t index) {
    if (index >= Count) return nullptr;
    Cursor = nodes_[index];
    CursorIndex = index;
    return Cursor;
  }

 private:
  static T& NullValue() {
    static thread_local T value{};
    value = T{};
    return value;
  }

  std::vector<ArrayNode<T>*> nodes_;
};

// A binary min-heap over the list: children of i are 2i+1 and 2i+2, the parent (i-1)/2. T is a
// pointer type; the pointed-to objects are compared with < and >.
template <class T>
class PQueueOfPtr : public Array<T> {
 public:
  T Popped{};  // the value last removed; Pop returns a reference to it

  void Push(const T& value) {
    this->Add(value);
    uint32_t i = this->Count - 1;
    while (i != 0) {
      uint32_t parent = (i - 1) / 2;
      T& up = this->Get(parent);
      T& here = this->Get(i);
      if (!(*up > *here)) break;
      std::swap(up, here);
      i = parent;
    }
  }

  // When empty nothing happens and the slot keeps its old value.
  T& Pop() {
    if (this->Count == 0) return Popped;
    Popped = this->Get(0);
    if (this->Count == 1) {
      this->RemoveAt(0);
      return Popped;
    }
    T moving = this->Get(this->Count - 1);
    this->RemoveAt(this->Count - 1);
    this->Get(0) = moving;
    uint32_t i = 0;
    for (;;) {
      uint32_t left = 2 * i + 1;
      if (left >= this->Count) break;
      uint32_t child = left;
      uint32_t right = left + 1;
      if (right<this->Count&&* this->Get(left)> * this->Get(right)) child = right;
      T& childValue = this->Get(child);
      if (!(*moving > *childValue)) break;
      T& here = this->Get(i);
      std::swap(here, childValue);
      i = child;
    }
    return Popped;
  }
};
