#pragma once

// The rows of an open record set and where it stands among them. Scrollable sets read every
// row when they open and move freely over them; a forward-only set reads one row per move and
// keeps only that one. A deleted row stays in place, marked, and moves pass over it.

#include <memory>
#include <vector>

#include "Odbc.h"
#include "RecordsetColumns.h"

namespace KESTREL::store {

class RecordsetRows {
 public:
  explicit RecordsetRows(RecordsetColumns& columns) : columns_(columns) {}

  // Reads every row of `statement` and stands on the first.
  void ReadAll(Statement& statement);
  // Keeps `statement` as the cursor of a forward-only set and stands on its first row.
  void StartCursor(std::unique_ptr<Statement> statement);
  void ReleaseCursor();
  void Clear();

  [[nodiscard]] bool IsBOF() const { return bof_; }
  [[nodiscard]] bool IsEOF() const { return eof_; }
  // Standing on a row that is there: not before the first, past the last, or where a row went.
  [[nodiscard]] bool OnRow() const;
  [[nodiscard]] bool CurrentDeleted() const;
  Row& Current() { return rows_[position_]; }
  void MarkCurrentDeleted() { deleted_[position_] = true; }
  // Rows read (forward-only) or rows not deleted (scrollable).
  long Count(bool forwardOnly) const;

  // Moves as CRecordset::Move does (fetch types of CRecordset); throws where it cannot.
  void Move(long count, unsigned short fetchType);
  void MoveForwardOnly(long count, unsigned short fetchType);
  // Stands on the row of `all` with the same key as `row`, or where it was when there is none.
  void StandOnSameKey(const Row& row, bool hadRow);
  // The key row of the current row, when there is one.
  [[nodiscard]] bool CurrentRow(Row& row) const;

 private:
  long NextLive(long from, int step) const;
  void StandOn(long index);
  [[nodiscard]] bool HasLiveRows() const;
  void MoveSteps(long count);
  void MoveToEnd(bool first);
  void MoveAbsolute(long count);
  [[nodiscard]] bool StepCursor();
  long Size() const { return static_cast<long>(rows_.size()); }

  RecordsetColumns& columns_;
  std::vector<Row> rows_;
  std::vector<bool> deleted_;
  long position_ = 0;
  bool bof_ = true;
  bool eof_ = true;
  bool gone_ = false;  // standing where a row was that is no longer there
  long rowsRead_ = 0;
  std::unique_ptr<Statement> cursor_;  // forward-only sets read as they move
};

}  // namespace KESTREL::store
