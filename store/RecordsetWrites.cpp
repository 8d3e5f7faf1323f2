#include "RecordsetWrites.h"

#include "SqlDialect.h"
#include "kestrel/CRecordset.h"

namespace KESTREL::store {
namespace {

constexpr size_t kPreparedLimit = 16;

}  // namespace

void RecordsetWrites::Start(CDatabase::Impl* database, const std::string& table, uint32_t options) {
  database_ = database;
  table_ = table;
  options_ = options;
  mode_ = Mode::kNone;
}

void RecordsetWrites::ReleaseStatements() { prepared_.clear(); }

void RecordsetWrites::Begin(Mode mode) {
  saved_ = columns_.FieldCells();
  savedNullFlags_ = columns_.NullFlags();
  if (mode == Mode::kAdd) columns_.ClearFields();
  mode_ = mode;
}

void RecordsetWrites::Cancel() {
  if (mode_ == Mode::kNone) return;
  mode_ = Mode::kNone;
  columns_.RestoreFields(saved_, savedNullFlags_);
}

bool RecordsetWrites::Write() {
  switch (mode_) {
    case Mode::kAdd:
      return WriteInsert();
    case Mode::kEdit:
      return WriteUpdate();
    case Mode::kNone:
      break;
  }
  Fail("HY010", "Update without AddNew or Edit.");
}

bool RecordsetWrites::WriteUpdate() {
  const Row current = columns_.FieldCells();
  Parameters parameters;
  std::string assignments;
  std::vector<size_t> changed;
  for (size_t i = 0; i < columns_.Count(); ++i) {
    const Binding& binding = columns_.At(i);
    if (SameCell(current[i], saved_[i], binding.type)) continue;
    if (!assignments.empty()) assignments += ", ";
    assignments += Bracketed(ColumnPartOf(binding.name)) + " = ?";
    parameters.Add(binding.type, current[i]);
    changed.push_back(i);
  }
  if (changed.empty()) {
    mode_ = Mode::kNone;
    return false;
  }
  Row& row = rows_.Current();
  const std::string where = columns_.WhereKey(parameters, row);
  if (Run("UPDATE " + table_ + " SET " + assignments + " WHERE " + where, parameters) == 0)
    Fail("HY000", "No row was updated: the row has been changed or deleted by another user.");
  mode_ = Mode::kNone;
  for (size_t i : changed) row[i] = current[i];
  columns_.LoadFields(row);
  return true;
}

bool RecordsetWrites::WriteInsert() {
  const Row current = columns_.FieldCells();
  Parameters parameters;
  std::string names, marks;
  for (size_t i = 0; i < columns_.Count(); ++i) {
    if (current[i].null) continue;
    if (!names.empty()) {
      names += ", ";
      marks += ", ";
    }
    names += Bracketed(ColumnPartOf(columns_.At(i).name));
    marks += "?";
    parameters.Add(columns_.At(i).type, current[i]);
  }
  const bool any = parameters.size() != 0;
  if (any) Run("INSERT INTO " + table_ + " (" + names + ") VALUES (" + marks + ")", parameters);
  RestoreAfterAdd();
  return any;
}

// After an AddNew the set stands where it stood before: on its row, or with the fields it had.
void RecordsetWrites::RestoreAfterAdd() {
  mode_ = Mode::kNone;
  if (rows_.OnRow())
    columns_.LoadFields(rows_.Current());
  else
    columns_.RestoreFields(saved_, savedNullFlags_);
}

void RecordsetWrites::DeleteCurrent() {
  mode_ = Mode::kNone;
  Parameters parameters;
  const std::string where = columns_.WhereKey(parameters, rows_.Current());
  if (Run("DELETE FROM " + table_ + " WHERE " + where, parameters) == 0)
    Fail("HY000", "No row was deleted: the row has been deleted by another user.");
  rows_.MarkCurrentDeleted();
  columns_.ClearFields();
}

Statement& RecordsetWrites::PreparedStatement(const std::string& text) {
  const bool direct = (options_ & CRecordset::executeDirect) != 0;
  // On SQLite the connection keeps the statements, for the next set that writes the same way.
  if (database_->dialect.kind == DialectKind::kSQLite && !direct)
    return database_->KeptStatement(text);
  for (auto& entry : prepared_)
    if (entry.first == text) return *entry.second;
  if (prepared_.size() >= kPreparedLimit) prepared_.clear();
  auto statement = std::make_unique<Statement>(database_->handle(), database_->QueryTimeout());
  if (!direct) statement->Prepare(text);
  prepared_.emplace_back(text, std::move(statement));
  return *prepared_.back().second;
}

long RecordsetWrites::Run(const std::string& bracketedSql, Parameters& parameters) {
  const std::string text = TranslateSql(bracketedSql, database_->dialect);
  Statement& statement = PreparedStatement(text);
  if (options_ & CRecordset::executeDirect)
    statement.ExecDirect(text, parameters);
  else
    statement.Execute(parameters);
  const long count = statement.RowCount();
  statement.CloseCursor();
  return count;
}

}  // namespace KESTREL::store
