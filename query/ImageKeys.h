#pragma once

// The keys of a patient-root or study-root C-FIND identifier, the SQL that narrows the image
// database's rows to a superset of their matches, and the exact matching of one row.

#include <cstdint>
#include <string>
#include <vector>

#include "ImageAttributes.h"
#include "QueryLayouts.h"

class DICOMDataObject;

namespace KESTREL::image_keys {

struct Key {
  uint16_t group = 0;
  uint16_t element = 0;
  uint16_t typeCode = 0;  // as it came
  std::string value;      // in UTF-8, without padding
  bool sequence = false;
  const KESTREL::image_attributes::Attribute* attribute = nullptr;  // null: the database has it not
  KESTREL::image_attributes::Table source =
      KESTREL::image_attributes::kTables;  // kTables: answered empty
  int column = -1;                         // its column in the statement's select list
};

struct Request {
  KESTREL::query_layouts::Level level = KESTREL::query_layouts::Level::kNone;
  bool askedCharacterSet = false;
  std::vector<Key> keys;  // in the order of the identifier, without level and character set
};

// Takes the keys out of `identifier` (which is emptied), their values converted to UTF-8 from
// its Specific Character Set.
Request ReadRequest(DICOMDataObject* identifier);

struct Statement {
  std::string sql;     // SELECT ... FROM ...
  std::string filter;  // the joins and the narrowing conditions
  size_t columns = 0;
};

// Decides each key's source table and column and builds the statement. `postgres` chooses
// ILIKE for person names (PostgreSQL's LIKE is case-sensitive, SQLite's is not for ASCII).
Statement BuildStatement(Request& request, bool postgres);

// Whether a row's value (null for NULL) matches the key: PS3.4 C.2.2.2 single value, list
// of UIDs, wild card and range matching; a value list matches when any of its values does.
// Keys without a value and keys the database cannot answer match every row.
bool KeyMatches(const Key& key, const std::string* value);

// The text of a row's value as answered: valid UTF-8 (a value written before the index held
// UTF-8 is read as ISO 8859-1).
std::string AnswerText(const std::string& value);

}  // namespace KESTREL::image_keys
