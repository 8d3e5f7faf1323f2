#pragma once

// What DoFieldExchange collects: each bound column with its type and the member it fills.

#include <string>
#include <vector>

#include "Odbc.h"
#include "kestrel/CRecordset.h"

namespace KESTREL::store {

struct Binding {
  std::string name;  // as the set wrote it: "[PatientID]", "[Study].PatientUID"
  FieldType type;
  void* address;
  size_t maxBytes;  // text only
};

// The member's value as a cell; `nullFlag` is the field's null status.
Cell CellOfMember(const Binding& binding, bool nullFlag);
// Puts a cell's value into the member ("" / 0 / status null for a null cell).
void SetMember(const Binding& binding, const Cell& cell);
// True when the member holds the value a null cell puts there.
[[nodiscard]] bool MemberIsEmpty(const Binding& binding);

}  // namespace KESTREL::store

struct CFieldExchange::Sink {
  std::vector<KESTREL::store::Binding> bindings;
};
