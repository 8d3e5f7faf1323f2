#pragma once

// The changes a record set over one table writes: the fields as they were when AddNew or Edit
// began, and the UPDATE, INSERT and DELETE statements that carry a change to the table, each
// with its values as parameters (never as SQL text), prepared once per set.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "DatabaseImpl.h"
#include "Odbc.h"
#include "RecordsetColumns.h"
#include "RecordsetRows.h"

namespace KESTREL::store {

class RecordsetWrites {
 public:
  enum class Mode { kNone, kEdit, kAdd };

  RecordsetWrites(RecordsetColumns& columns, RecordsetRows& rows)
      : columns_(columns), rows_(rows) {}

  // The table written and how: the connection, the table's SQL text, the open options.
  void Start(CDatabase::Impl* database, const std::string& table, uint32_t options);
  void ReleaseStatements();

  Mode Pending() const { return mode_; }
  // Keeps the fields as they are and begins an AddNew (fields cleared) or an Edit.
  void Begin(Mode mode);
  // Puts the kept fields back.
  void Cancel();
  void Drop() { mode_ = Mode::kNone; }

  // Writes the pending change. False when there was nothing to write (no field changed, or a
  // new row without a value); throws CDBException on a failure of the database.
  [[nodiscard]] bool Write();
  // Deletes the current row of the table; throws when no row was deleted.
  void DeleteCurrent();

 private:
  [[nodiscard]] bool WriteUpdate();
  [[nodiscard]] bool WriteInsert();
  void RestoreAfterAdd();
  Statement& PreparedStatement(const std::string& text);
  long Run(const std::string& bracketedSql, Parameters& parameters);

  RecordsetColumns& columns_;
  RecordsetRows& rows_;
  CDatabase::Impl* database_ = nullptr;
  std::string table_;
  uint32_t options_ = 0;
  Mode mode_ = Mode::kNone;
  Row saved_;  // the fields when AddNew or Edit began
  std::vector<bool> savedNullFlags_;
  std::vector<std::pair<std::string, std::unique_ptr<Statement>>> prepared_;
};

}  // namespace KESTREL::store
