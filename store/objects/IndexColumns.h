#pragma once

// Copying attribute values into the columns of a record set that has an AddNew or Edit pending.

#include <cstdint>
#include <string>

#include "IndexText.h"
#include "kestrel/ImageIODModule.h"

namespace KESTREL::storage {

// A text column and the attribute whose keyword it bears.
template <class Set>
struct Column {
  std::string Set::*field;
  uint16_t group, element;
};

enum class Fill {
  kPresent,    // every value present is written; absent attributes leave their column alone
  kEmptyOnly,  // values go only into columns that are null or empty
  kRewrite,    // every column takes the value, or null when the attribute has none
};

// Puts `value` into `field` as `fill` says; true when the field changed.
template <class Set>
bool Assign(Set& set, std::string& field, const std::string& value, Fill fill) {
  const bool isNull = set.IsFieldNull(&field);
  if (value.empty()) {
    if (fill != Fill::kRewrite || isNull) return false;
    set.SetFieldNull(&field, true);
    return true;
  }
  if (fill == Fill::kEmptyOnly && !isNull && !field.empty()) return false;
  if (!isNull && field == value) return false;
  field = value;
  return true;
}

// Copies each column's attribute of `iod` (trimmed, made to fit by `fit`); true when a field
// changed.
template <class Set>
bool FillColumns(Set& set, const Column<Set>* columns, size_t count, ImageIODModule* iod, Fill fill,
                 std::string (*fit)(const std::string&) = CutToColumn) {
  bool changed = false;
  for (const Column<Set>* c = columns; c != columns + count; ++c)
    changed |= Assign(set, set.*(c->field), fit(AttributeText(iod, c->group, c->element)), fill);
  return changed;
}

template <class Set, size_t N>
bool FillColumns(Set& set, const Column<Set> (&columns)[N], ImageIODModule* iod, Fill fill,
                 std::string (*fit)(const std::string&) = CutToColumn) {
  return FillColumns(set, columns, N, iod, fill, fit);
}

}  // namespace KESTREL::storage
