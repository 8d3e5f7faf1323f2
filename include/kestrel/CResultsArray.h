#pragma once

// Query results: a row (`CResult`) is an ordered list of optional strings at fixed positions,
// and a result list (`CResultsArray`) is the caller's ordered list of rows. Every query of the
// library (a C-FIND to a remote node, a worklist or report query, the study query of a media
// directory) hands its matches back this way; each query documents its row layout.
//
// Ownership, which is deliberately not symmetric:
// - A row owns its strings: `CResult::DeleteAll` and the row's destructor delete them.
// - A list does not own its rows through its destructor: the owner calls
//   `CResultsArray::DeleteAll` (which deletes every row and its strings) before destroying the
//   list. A list destroyed without it leaves its rows alive, still the caller's to delete. A
//   query object never deletes the caller's list or its rows.
// - Copy and Append copy pointers, not what they point at: after them two arrays hold the
//   same strings or rows, and only one of them may delete those.

#include <string>
#include <vector>

#include "kestrel/Export.h"

// The growable array of pointers both classes are: indexes are ints from 0; slots added by
// growth hold null. Reading out of range gives null; writing out of range (other than through
// SetAtGrow and InsertAt, which grow the array) does nothing.
template <class T>
class GrowableArray {
 public:
  GrowableArray() = default;
  GrowableArray(const GrowableArray&) = delete;
  GrowableArray& operator=(const GrowableArray&) = delete;
  virtual ~GrowableArray() = default;

  int GetSize() const { return static_cast<int>(items_.size()); }
  int GetCount() const { return GetSize(); }
  int GetUpperBound() const { return GetSize() - 1; }
  bool IsEmpty() const { return items_.empty(); }

  // New slots hold null; slots cut off are dropped without deleting what they point at.
  void SetSize(int size) { items_.resize(size > 0 ? static_cast<size_t>(size) : 0, nullptr); }

  T GetAt(int index) const { return InRange(index) ? items_[index] : nullptr; }
  T operator[](int index) const { return GetAt(index); }
  // A reference to the slot; out of range, a reference to a null slot of no array.
  T& ElementAt(int index) {
    if (InRange(index)) return items_[index];
    static thread_local T none;
    none = nullptr;
    return none;
  }
  T& operator[](int index) { return ElementAt(index); }

  void SetAt(int index, T value) {
    if (InRange(index)) items_[index] = value;
  }
  void SetAtGrow(int index, T value) {
    if (index < 0) return;
    if (index >= GetSize()) SetSize(index + 1);
    items_[index] = value;
  }
  // Appends; returns the new slot's index.
  int Add(T value) {
    items_.push_back(value);
    return GetSize() - 1;
  }
  // Inserts `count` copies of `value` before `index`; an index past the end grows the array.
  void InsertAt(int index, T value, int count = 1) {
    if (index < 0 || count <= 0) return;
    if (index > GetSize()) SetSize(index);
    items_.insert(items_.begin() + index, static_cast<size_t>(count), value);
  }
  // Removes up to `count` slots from `index`; what they point at is not deleted.
  void RemoveAt(int index, int count = 1) {
    if (!InRange(index) || count <= 0) return;
    int end = index + count < GetSize() ? index + count : GetSize();
    items_.erase(items_.begin() + index, items_.begin() + end);
  }
  void RemoveAll() { items_.clear(); }
  // Makes this array hold the same pointers as `source`.
  void Copy(const GrowableArray& source) {
    if (&source != this) items_ = source.items_;
  }
  // Appends the pointers of `source`; returns the index of the first one appended.
  int Append(const GrowableArray& source) {
    int first = GetSize();
    std::vector<T> copy = source.items_;
    items_.insert(items_.end(), copy.begin(), copy.end());
    return first;
  }
  T* GetData() { return items_.empty() ? nullptr : items_.data(); }

 private:
  bool InRange(int index) const { return index >= 0 && index < GetSize(); }

  std::vector<T> items_;
};

// One row: slot i holds the i-th field of the row's layout, or null when the answer did not
// carry that attribute. Strings are made with `new std::string` and owned by the row.
class KESTREL_API CResult : public GrowableArray<std::string*> {
 public:
  CResult();
  // DeleteAll.
  ~CResult() override;
  // Deletes every string the row holds (null slots are skipped) and sets the size to 0.
  void DeleteAll();
};

// The rows of a query, in the order the answers arrived. Rows are made with `new CResult`.
class KESTREL_API CResultsArray : public GrowableArray<CResult*> {
 public:
  CResultsArray();
  // Frees the list's own storage only; the rows stay alive (see the top of this file).
  ~CResultsArray() override;
  // Calls DeleteAll on every row, deletes every row and sets the size to 0.
  void DeleteAll();
};
