#pragma once

// The columns of an open record set: its bound fields and their null status, the key columns
// it reads beside them, and which result column fills which cell of a row.

#include <string>
#include <vector>

#include "Binding.h"
#include "DatabaseImpl.h"
#include "Odbc.h"

namespace KESTREL::store {

// A row as read: one cell per bound field, then one per key column read without a binding.
using Row = std::vector<Cell>;

// A key column of an updatable set: where its value is among the row's cells.
struct KeyColumn {
  std::string name;  // as the catalog names it
  size_t cell;
  FieldType type;
};

// "[name]" with a closing bracket inside written twice, for the dialect translation.
std::string Bracketed(const std::string& name);
// How SQL names a key column: SQLite's own row key as it is, any other bracketed.
std::string KeyReference(const std::string& key);

class RecordsetColumns {
 public:
  void Bind(std::vector<Binding> bindings);
  size_t Count() const { return bindings_.size(); }
  const Binding& At(size_t i) const { return bindings_[i]; }

  // The fields, from a row, cleared to null, as cells, and back from a saved copy.
  void LoadFields(const Row& row);
  void ClearFields();
  Row FieldCells() const;
  const std::vector<bool>& NullFlags() const { return nullFlags_; }
  void RestoreFields(const Row& saved, const std::vector<bool>& nullFlags);
  // The field bound at `field`; throws when it is none.
  size_t BindingOf(const void* field) const;
  [[nodiscard]] bool IsNull(size_t i) const;
  void SetNull(size_t i, bool null);

  // The key columns of `table` (SQLite's rowid for a table without a key), each a bound field
  // or a column read beside them. False when the table has no key.
  [[nodiscard]] bool FindKeys(CDatabase::Impl& database, const CatalogName& table);
  void ClearKeys();
  const std::vector<KeyColumn>& Keys() const { return keys_; }
  // "key = ? AND ..." with the key values of `row` added to `parameters`.
  std::string WhereKey(Parameters& parameters, const Row& row) const;
  [[nodiscard]] bool SameKey(const Row& a, const Row& b) const;

  // The select list of a set over one table, in binding order and then the hidden keys.
  std::string SelectList(DialectKind dialect) const;
  // Which result column fills which cell: the select list's own order when the set built it,
  // else by name (the last part of the bound name, without case), preferring a column of the
  // qualifying table. Throws when a bound column is not in the result.
  void MapColumns(Statement& statement, bool ownSelect);
  Row ReadRow(Statement& statement) const;

 private:
  void MapByName(Statement& statement);

  std::vector<Binding> bindings_;
  std::vector<bool> nullFlags_;  // one per binding
  std::vector<KeyColumn> keys_;
  std::vector<std::string> hidden_;  // key columns read without a binding
  std::vector<FieldType> hiddenTypes_;
  std::vector<int> columnOfCell_;  // result column of each cell
  std::vector<size_t> readOrder_;  // cells in the order of their columns
};

}  // namespace KESTREL::store
