#pragma once

// Which attribute of a patient-root or study-root C-FIND answer comes from which column of the
// image database, at each query level.

#include <cstdint>

#include "QueryLayouts.h"

namespace KESTREL::image_attributes {

// The four tables, in the order of the levels they hold.
enum Table { kPatient = 0, kStudy = 1, kSeries = 2, kImage = 3, kTables = 4 };

enum class Kind {
  kSingle,  // one value in its column
  kMulti,   // a "\"-separated list in its column: a key matches when any value does
  kCount,   // a count of the rows below, made by the query
};

struct Attribute {
  uint16_t group;
  uint16_t element;
  const char* vr;
  KESTREL::query_layouts::Level
      home;  // the level the attribute belongs to (PS3.4 C.6.1.1, C.6.2.1)
  Kind kind;
  // The column holding it in each table (bracketed, table-qualified), or null. For kCount,
  // the subquery, at the index of the table it counts for.
  const char* columns[kTables];
};

// The attribute with that tag, or null when the database does not hold it.
const Attribute* FindAttribute(uint16_t group, uint16_t element);

// The table that holds the rows of a level.
inline Table TableOf(KESTREL::query_layouts::Level level) {
  return static_cast<Table>(static_cast<int>(level) - 1);
}

// The table whose column answers `attribute` for a query at `level`: the deepest table from
// the level's up to the attribute's own level that has a column for it; kTables when the
// attribute is below the level (it cannot be asked for there) or no table has it.
Table SourceTable(const Attribute& attribute, KESTREL::query_layouts::Level level);

// The join conditions of the tables (bracketed), for a query whose FROM holds those of `used`.
const char* JoinCondition(Table upper, Table lower);

}  // namespace KESTREL::image_attributes
