#pragma once

// A record set over a SELECT statement of the query services, whose columns are named a0, a1,
// ... and all read as text.

#include <string>
#include <vector>

#include "kestrel/CRecordset.h"

namespace KESTREL::query_records {

class ColumnRecordset : public CRecordset {
 public:
  // `columns` text columns, "a0" to "a<columns - 1>"; the image database's default connect
  // string when `database` is null or has none. Forward-only: one row is held at a time.
  ColumnRecordset(CDatabase* database, size_t columns);

  std::string GetDefaultConnect() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  // The column's value in the current row; null when the column is NULL.
  const std::string* Value(size_t column) const;
  static std::string Name(size_t column) { return "a" + std::to_string(column); }

 private:
  std::vector<std::string> names_;
  std::vector<std::string> values_;
};

}  // namespace KESTREL::query_records
