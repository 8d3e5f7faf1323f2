#include "kestrel/CRecordset.h"

#include <memory>
#include <utility>
#include <vector>

#include "Binding.h"
#include "DatabaseImpl.h"
#include "Odbc.h"
#include "RecordsetColumns.h"
#include "RecordsetRows.h"
#include "RecordsetWrites.h"
#include "SqlDialect.h"

using KESTREL::store::Fail;
using KESTREL::store::Parameters;
using KESTREL::store::Row;
using KESTREL::store::Statement;
using Mode = KESTREL::store::RecordsetWrites::Mode;

namespace {

[[noreturn]] void NotOpen() { Fail("HY010", "The record set is not open."); }

}  // namespace

// What a set holds beside its fields: the connection, what it was opened on, and its columns,
// rows and pending change (RecordsetColumns, RecordsetRows, RecordsetWrites).
struct CRecordset::State {
  CDatabase* given = nullptr;
  std::unique_ptr<CDatabase> own;
  CDatabase* database = nullptr;  // the connection in use while open
  CDatabase::Impl* db = nullptr;  // its handles

  unsigned defaultType = dynaset;
  unsigned openType = dynaset;
  uint32_t options = none;
  bool open = false;
  std::string source;  // the SQL or table text the set was opened with
  bool statementSource = false;
  std::string sql;  // the last statement, translated
  bool canUpdate = false;
  bool canAppend = false;

  KESTREL::store::RecordsetColumns columns;
  KESTREL::store::RecordsetRows rows{columns};
  KESTREL::store::RecordsetWrites writes{columns, rows};

  // A set over one table can add rows unless read-only or forward-only, and change and delete
  // them when the table has a key.
  void FindKeys() {
    canUpdate = canAppend = false;
    columns.ClearKeys();
    const bool writable = !statementSource && KESTREL::store::IsSingleTableName(source) &&
                          openType != forwardOnly && !(options & readOnly);
    if (!writable) return;
    canAppend = true;
    const bool keyed = columns.FindKeys(*db, KESTREL::store::CatalogNameOf(source, db->dialect));
    canUpdate = keyed && !(options & appendOnly);
  }

  std::string BuildSql(const std::string& filter, const std::string& sort) const {
    std::string text = statementSource
                           ? source
                           : "SELECT " + columns.SelectList(db->dialect.kind) + " FROM " + source;
    if (!filter.empty()) text += " WHERE " + filter;
    if (!sort.empty()) text += " ORDER BY " + sort;
    return text;
  }

  void Execute(const std::string& filter, const std::string& sort) {
    writes.Drop();
    rows.Clear();
    if (openType != forwardOnly && ExecutePrepared(filter, sort)) return;
    sql = KESTREL::store::TranslateSql(BuildSql(filter, sort), db->dialect);
    auto statement = std::make_unique<Statement>(db->handle(), db->QueryTimeout());
    statement->ExecDirect(sql);
    columns.MapColumns(*statement, !statementSource);
    if (openType == forwardOnly)
      rows.StartCursor(std::move(statement));
    else
      rows.ReadAll(*statement);
  }

  // On SQLite, a filter's literals become parameters of a statement the connection keeps
  // prepared: the same look-up with other values is not parsed again. False when the filter
  // has no literals (or the database is another), and the caller runs the statement as it is.
  bool ExecutePrepared(const std::string& filter, const std::string& sort) {
    if (db->dialect.kind != KESTREL::store::DialectKind::kSQLite) return false;
    std::vector<std::string> values;
    const std::string parameterized = KESTREL::store::ParameterizeLiterals(filter, &values);
    if (values.empty()) return false;
    sql = KESTREL::store::TranslateSql(BuildSql(parameterized, sort), db->dialect);
    Statement& statement = db->KeptStatement(sql);
    Parameters parameters;
    for (std::string& value : values) {
      KESTREL::store::Cell cell;
      cell.null = false;
      cell.text = std::move(value);
      parameters.Add(KESTREL::store::FieldType::kText, cell);
    }
    statement.Execute(parameters);
    columns.MapColumns(statement, !statementSource);
    rows.ReadAll(statement);
    return true;
  }

  // Lets go of every statement on the connection (before it closes, or when the set closes).
  void ReleaseStatements() {
    rows.ReleaseCursor();
    writes.ReleaseStatements();
  }

  void OpenConnection(CRecordset& set) {
    // The connection: the given one when it is open, else opened with the default connect
    // string.
    if (given && given->IsOpen()) {
      database = given;
    } else if (given) {
      given->Open(set.GetDefaultConnect());
      database = given;
    } else {
      own = std::make_unique<CDatabase>();
      own->Open(set.GetDefaultConnect());
      database = own.get();
    }
    db = database->impl_.get();
  }
};

CRecordset::CRecordset(CDatabase* pDatabase) : state_(std::make_unique<State>()) {
  state_->given = pDatabase;
}

CRecordset::~CRecordset() {
  try {
    Close();
  } catch (...) {
    // Nothing to tell at this point.
  }
}

std::string CRecordset::GetDefaultConnect() { return SharedOrDefaultConnect(""); }
std::string CRecordset::GetDefaultSQL() { return std::string(); }
void CRecordset::DoFieldExchange(CFieldExchange*) {}

void CRecordset::SetDefaultType(unsigned openType) {
  state_->defaultType = openType;
  if (!state_->open) state_->openType = openType;
}

std::string CRecordset::SharedOrDefaultConnect(const char* fallback) const {
  const std::string shared = state_->given ? state_->given->GetConnect() : std::string();
  return shared.empty() ? std::string(fallback) : shared;
}

uint32_t CRecordset::GetOpenOptions() const { return state_->options; }
bool CRecordset::IsOpen() const { return state_->open; }
bool CRecordset::IsEOF() const { return state_->rows.IsEOF(); }
bool CRecordset::IsBOF() const { return state_->rows.IsBOF(); }
unsigned CRecordset::GetOpenType() const { return state_->openType; }
int CRecordset::GetFieldCount() const { return static_cast<int>(state_->columns.Count()); }
std::string CRecordset::GetSQL() const { return state_->sql; }
CDatabase* CRecordset::GetDatabase() const {
  return state_->database ? state_->database : state_->given;
}
bool CRecordset::CanUpdate() const { return state_->open && state_->canUpdate; }
bool CRecordset::CanAppend() const { return state_->open && state_->canAppend; }
bool CRecordset::CanScroll() const { return state_->open && state_->openType != forwardOnly; }
bool CRecordset::IsWritePending() const { return state_->writes.Pending() != Mode::kNone; }
bool CRecordset::IsDeleted() const { return state_->rows.CurrentDeleted(); }

long CRecordset::GetRecordCount() const {
  return state_->rows.Count(state_->openType == forwardOnly);
}

int CRecordset::Open(unsigned nOpenType, const char* lpszSQL, uint32_t dwOptions) {
  Close();
  State& s = *state_;
  s.openType = nOpenType == kUseDefaultType ? s.defaultType : nOpenType;
  s.options = dwOptions;
  s.OpenConnection(*this);
  try {
    CFieldExchange::Sink sink;
    CFieldExchange exchange(&sink);
    DoFieldExchange(&exchange);
    s.columns.Bind(std::move(sink.bindings));
    s.source = (lpszSQL && *lpszSQL) ? std::string(lpszSQL) : GetDefaultSQL();
    s.statementSource = KESTREL::store::IsSelectStatement(s.source);
    s.FindKeys();
    s.writes.Start(s.db, s.source, s.options);
    State* state = state_.get();
    // The shared connection closing under the set closes the set.
    s.db->dependents[this] = [state]() {
      state->ReleaseStatements();
      state->open = false;
      state->db = nullptr;
      state->database = nullptr;
    };
    s.open = true;
    s.Execute(Filter, Sort);
  } catch (...) {
    Close();
    throw;
  }
  return 1;
}

void CRecordset::Close() {
  State& s = *state_;
  s.ReleaseStatements();
  if (s.db) s.db->dependents.erase(this);
  s.open = false;
  s.writes.Drop();
  s.rows.Clear();
  s.db = nullptr;
  s.database = nullptr;
  s.own.reset();
}

int CRecordset::Requery() {
  if (!state_->open) NotOpen();
  state_->Execute(Filter, Sort);
  return 1;
}

void CRecordset::RequeryKeepingRow() {
  State& s = *state_;
  if (!s.open) NotOpen();
  Row keyRow;
  const bool hadRow = s.rows.CurrentRow(keyRow);
  s.Execute(Filter, Sort);
  s.rows.StandOnSameKey(keyRow, hadRow);
}

void CRecordset::Move(long rows, unsigned short fetchType) {
  State& s = *state_;
  if (!s.open) NotOpen();
  s.writes.Drop();
  if (s.openType == forwardOnly)
    s.rows.MoveForwardOnly(rows, fetchType);
  else
    s.rows.Move(rows, fetchType);
}

void CRecordset::AddNew() {
  State& s = *state_;
  if (!s.open) NotOpen();
  if (!s.canAppend) Fail("HY000", "The record set is read-only: rows cannot be added.");
  if (s.writes.Pending() == Mode::kEdit) CancelUpdate();
  s.writes.Begin(Mode::kAdd);
}

void CRecordset::Edit() {
  State& s = *state_;
  if (!s.open) NotOpen();
  if (!s.canUpdate) Fail("HY000", "The record set is read-only: rows cannot be changed.");
  if (!s.rows.OnRow() || s.rows.CurrentDeleted())
    Fail("24000", "There is no current row to change.");
  if (s.writes.Pending() == Mode::kAdd) CancelUpdate();
  s.writes.Begin(Mode::kEdit);
}

int CRecordset::Update() {
  if (!state_->open) NotOpen();
  return state_->writes.Write() ? 1 : 0;
}

void CRecordset::Delete() {
  State& s = *state_;
  if (!s.open) NotOpen();
  if (!s.canUpdate) Fail("HY000", "The record set is read-only: rows cannot be deleted.");
  if (!s.rows.OnRow() || s.rows.CurrentDeleted())
    Fail("24000", "There is no current row to delete.");
  s.writes.DeleteCurrent();
}

void CRecordset::CancelUpdate() { state_->writes.Cancel(); }

bool CRecordset::IsFieldNull(const void* pField) const {
  const KESTREL::store::RecordsetColumns& columns = state_->columns;
  return columns.IsNull(columns.BindingOf(pField));
}

void CRecordset::SetFieldNull(void* pField, bool bNull) {
  KESTREL::store::RecordsetColumns& columns = state_->columns;
  columns.SetNull(columns.BindingOf(pField), bNull);
}
