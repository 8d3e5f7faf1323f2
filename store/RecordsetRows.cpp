#include "RecordsetRows.h"

#include <string>
#include <utility>

#include "kestrel/CRecordset.h"

namespace KESTREL::store {

void RecordsetRows::ReadAll(Statement& statement) {
  Clear();
  while (statement.Fetch()) rows_.push_back(columns_.ReadRow(statement));
  statement.CloseCursor();
  deleted_.assign(rows_.size(), false);
  rowsRead_ = Size();
  position_ = 0;
  bof_ = eof_ = rows_.empty();
  if (rows_.empty())
    columns_.ClearFields();
  else
    columns_.LoadFields(rows_[0]);
}

void RecordsetRows::StartCursor(std::unique_ptr<Statement> statement) {
  Clear();
  cursor_ = std::move(statement);
  position_ = -1;
  bof_ = eof_ = false;
  if (!StepCursor()) bof_ = true;
}

void RecordsetRows::ReleaseCursor() {
  if (cursor_) cursor_->CloseCursor();
  cursor_.reset();
}

void RecordsetRows::Clear() {
  ReleaseCursor();
  rows_.clear();
  deleted_.clear();
  rowsRead_ = 0;
  bof_ = eof_ = true;
  gone_ = false;
}

bool RecordsetRows::OnRow() const {
  return !gone_ && !bof_ && !eof_ && position_ >= 0 && position_ < Size();
}

bool RecordsetRows::CurrentDeleted() const { return gone_ || (OnRow() && deleted_[position_]); }

long RecordsetRows::Count(bool forwardOnly) const {
  if (forwardOnly) return rowsRead_;
  long count = 0;
  for (bool d : deleted_) count += d ? 0 : 1;
  return count;
}

// Forward-only: reads the next row as the only one kept. False (and EOF) at the end.
bool RecordsetRows::StepCursor() {
  if (!cursor_ || !cursor_->Fetch()) {
    ReleaseCursor();
    rows_.clear();
    deleted_.clear();
    position_ = 0;
    eof_ = true;
    columns_.ClearFields();
    return false;
  }
  rows_.assign(1, columns_.ReadRow(*cursor_));
  deleted_.assign(1, false);
  position_ = 0;
  ++rowsRead_;
  columns_.LoadFields(rows_[0]);
  return true;
}

// The next row in `step` direction (+1 or -1) from `from` that is not deleted; -1 or Size()
// when there is none.
long RecordsetRows::NextLive(long from, int step) const {
  long i = from + step;
  while (i >= 0 && i < Size() && deleted_[i]) i += step;
  return i;
}

void RecordsetRows::StandOn(long index) {
  gone_ = false;
  if (index < 0) {
    position_ = -1;
    bof_ = true;
    columns_.ClearFields();
  } else if (index >= Size()) {
    position_ = Size();
    eof_ = true;
    columns_.ClearFields();
  } else {
    position_ = index;
    bof_ = eof_ = false;
    columns_.LoadFields(rows_[index]);
  }
}

bool RecordsetRows::HasLiveRows() const { return NextLive(-1, 1) < Size(); }

void RecordsetRows::MoveForwardOnly(long count, unsigned short fetchType) {
  const bool forward =
      fetchType == CRecordset::fetchNext || (fetchType == CRecordset::fetchRelative && count == 1);
  if (!forward) Fail("HY106", "The record set is forward-only: it only moves to the next row.");
  if (eof_) Fail("24000", "The record set is already past its last row.");
  bof_ = false;
  (void)StepCursor();  // false at the end, which EOF tells
}

void RecordsetRows::MoveSteps(long count) {
  const int step = count > 0 ? 1 : -1;
  for (long n = count > 0 ? count : -count; n > 0; --n) {
    if (step > 0 && eof_) Fail("24000", "The record set is already past its last row.");
    if (step < 0 && bof_) Fail("24000", "The record set is already before its first row.");
    long from = position_;
    if (gone_ || bof_)
      from = -1;
    else if (eof_)
      from = Size();
    StandOn(NextLive(from, step));
    if (bof_ || eof_) {
      // Leaving the far end of an empty set reaches both ends at once.
      if (!HasLiveRows()) bof_ = eof_ = true;
      return;
    }
  }
}

void RecordsetRows::MoveToEnd(bool first) {
  const long to = first ? NextLive(-1, 1) : NextLive(Size(), -1);
  if (to < 0 || to >= Size()) {
    StandOn(Size());
    bof_ = eof_ = true;
    return;
  }
  StandOn(to);
}

void RecordsetRows::MoveAbsolute(long count) {
  if (count == 0) {
    StandOn(-1);
    return;
  }
  long index = count > 0 ? -1 : Size();
  const int step = count > 0 ? 1 : -1;
  for (long n = count > 0 ? count : -count; n > 0; --n) {
    index = NextLive(index, step);
    if (index < 0 || index >= Size()) break;
  }
  StandOn(index);
  if (!HasLiveRows()) bof_ = eof_ = true;
}

void RecordsetRows::Move(long count, unsigned short fetchType) {
  switch (fetchType) {
    case CRecordset::fetchNext:
      return MoveSteps(1);
    case CRecordset::fetchPrior:
      return MoveSteps(-1);
    case CRecordset::fetchFirst:
    case CRecordset::fetchLast:
      return MoveToEnd(fetchType == CRecordset::fetchFirst);
    case CRecordset::fetchRelative:
      if (count != 0) return MoveSteps(count);
      if (OnRow()) columns_.LoadFields(rows_[position_]);
      return;
    case CRecordset::fetchAbsolute:
      return MoveAbsolute(count);
    default:
      Fail("HY106", "Unknown fetch type " + std::to_string(fetchType) + ".");
  }
}

bool RecordsetRows::CurrentRow(Row& row) const {
  if (gone_ || position_ < 0 || position_ >= Size()) return false;
  row = rows_[position_];
  return true;
}

void RecordsetRows::StandOnSameKey(const Row& row, bool hadRow) {
  for (size_t r = 0; hadRow && r < rows_.size(); ++r) {
    if (!columns_.SameKey(rows_[r], row)) continue;
    StandOn(static_cast<long>(r));
    return;
  }
  // The row is gone (or there was none): stand where it was, before the first row, as on a
  // deleted row, so that nothing else is taken for it.
  position_ = -1;
  bof_ = eof_ = false;
  gone_ = true;
  columns_.ClearFields();
}

}  // namespace KESTREL::store
