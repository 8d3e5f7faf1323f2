#include "kestrel/CRecordset.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "Binding.h"
#include "DatabaseImpl.h"
#include "Odbc.h"
#include "SqlDialect.h"

using kestrel_store::Binding;
using kestrel_store::Cell;
using kestrel_store::Fail;
using kestrel_store::FieldType;
using kestrel_store::Parameters;
using kestrel_store::Statement;

namespace {

using Row = std::vector<Cell>;

constexpr char kRowId[] = "rowid";  // SQLite's own row key, for tables without a primary key
constexpr size_t kPreparedLimit = 16;

// "[name]" with a closing bracket inside written twice, for the dialect translation.
std::string Bracketed(const std::string& name) {
  std::string text = "[";
  for (char c : name) {
    text += c;
    if (c == ']') text += ']';
  }
  return text + "]";
}

std::string KeyReference(const std::string& key) { return key == kRowId ? key : Bracketed(key); }

// A key column of an updatable set: where its value is among the row's cells.
struct KeyColumn {
  std::string name;  // as the catalog names it
  size_t cell;
  FieldType type;
};

[[noreturn]] void NotOpen() { Fail("HY010", "The record set is not open."); }

}  // namespace

struct CRecordset::State {
  CDatabase* given = nullptr;
  std::unique_ptr<CDatabase> own;
  CDatabase* database = nullptr;  // the connection in use while open
  CDatabase::Impl* db = nullptr;  // its handles

  unsigned defaultType = dynaset;
  unsigned openType = dynaset;
  uint32_t options = none;
  bool open = false;

  std::vector<Binding> bindings;
  std::vector<bool> nullFlags;  // one per binding

  std::string source;  // the SQL or table text the set was opened with
  bool statementSource = false;
  std::string sql;  // the last statement, translated
  bool canUpdate = false;
  bool canAppend = false;
  std::vector<KeyColumn> keys;
  std::vector<std::string> hiddenColumns;  // key columns read without a binding
  std::vector<FieldType> hiddenTypes;
  std::vector<int> columnOfCell;  // result column of each cell
  std::vector<size_t> readOrder;  // cells in the order of their columns

  std::vector<Row> rows;
  std::vector<bool> deleted;
  long position = 0;
  bool bof = true;
  bool eof = true;
  bool gone = false;  // standing where a row was that is no longer there
  long rowsRead = 0;
  std::unique_ptr<Statement> cursor;  // forward-only sets read as they move

  enum class Mode { kNone, kEdit, kAdd } mode = Mode::kNone;
  Row saved;  // the fields when AddNew or Edit began
  std::vector<bool> savedNullFlags;

  std::vector<std::pair<std::string, std::unique_ptr<Statement>>> prepared;

  // --- fields ---

  void LoadFields(const Row& row) {
    for (size_t i = 0; i < bindings.size(); ++i) {
      kestrel_store::SetMember(bindings[i], row[i]);
      nullFlags[i] = row[i].null;
    }
  }
  void ClearFields() {
    const Cell empty;
    for (size_t i = 0; i < bindings.size(); ++i) {
      kestrel_store::SetMember(bindings[i], empty);
      nullFlags[i] = true;
    }
  }
  Row FieldCells() const {
    Row row;
    row.reserve(bindings.size());
    for (size_t i = 0; i < bindings.size(); ++i) {
      row.push_back(kestrel_store::CellOfMember(bindings[i], nullFlags[i]));
    }
    return row;
  }
  size_t BindingOf(const void* field) const {
    for (size_t i = 0; i < bindings.size(); ++i) {
      if (bindings[i].address == field) return i;
    }
    Fail("HY000", "The address is not a bound field of the record set.");
  }

  // --- opening ---

  void FindKeys() {
    canUpdate = false;
    canAppend = false;
    keys.clear();
    hiddenColumns.clear();
    const bool writable = !statementSource && kestrel_store::IsSingleTableName(source) &&
                          openType != forwardOnly && !(options & readOnly);
    if (!writable) return;
    canAppend = true;

    const kestrel_store::CatalogName table = kestrel_store::CatalogNameOf(source, db->dialect);
    std::vector<std::string> keyNames = kestrel_store::PrimaryKeyOf(*db, table);
    if (keyNames.empty() && db->dialect.kind == kestrel_store::DialectKind::kSQLite) {
      keyNames.push_back(kRowId);
    }
    if (keyNames.empty()) return;
    for (const std::string& key : keyNames) {
      KeyColumn column{key, 0, FieldType::kBigInt};
      bool bound = false;
      for (size_t i = 0; i < bindings.size() && !bound; ++i) {
        if (kestrel_store::EqualsIgnoreCase(kestrel_store::ColumnPartOf(bindings[i].name), key)) {
          column.cell = i;
          column.type = bindings[i].type;
          bound = true;
        }
      }
      if (!bound) {
        column.cell = bindings.size() + hiddenColumns.size();
        hiddenColumns.push_back(key);
      }
      keys.push_back(column);
    }
    canUpdate = !(options & appendOnly);
  }

  // The SQLite driver hands REAL values over as text of 15 significant digits, which loses the
  // last bits of a double; SQLite's own printf with the '!' flag writes enough digits for the
  // driver's conversion to give the stored double back exactly.
  std::string SelectItem(const Binding& binding) const {
    if (binding.type != FieldType::kDouble ||
        db->dialect.kind != kestrel_store::DialectKind::kSQLite) {
      return binding.name;
    }
    return "CASE WHEN " + binding.name + " IS NULL THEN NULL ELSE printf('%!.20e', " +
           binding.name + ") END";
  }

  std::string BuildSql(const std::string& filter, const std::string& sort) const {
    std::string text;
    if (statementSource) {
      text = source;
    } else {
      std::string list;
      for (const Binding& binding : bindings) {
        if (!list.empty()) list += ", ";
        list += SelectItem(binding);
      }
      for (const std::string& hidden : hiddenColumns) {
        if (!list.empty()) list += ", ";
        list += KeyReference(hidden);
      }
      text = "SELECT " + (list.empty() ? std::string("*") : list) + " FROM " + source;
    }
    if (!filter.empty()) text += " WHERE " + filter;
    if (!sort.empty()) text += " ORDER BY " + sort;
    return text;
  }

  // Which result column fills which cell: the select list's own order when the set built it,
  // else by name (the last part of the bound name, without case), preferring a column of the
  // qualifying table.
  void MapColumns(Statement& statement) {
    const int count = statement.ColumnCount();
    const size_t cells = bindings.size() + hiddenColumns.size();
    columnOfCell.assign(cells, 0);
    if (!statementSource) {
      if (count < static_cast<int>(cells)) {
        Fail("07009", "The statement returned fewer columns than the record set binds.");
      }
      for (size_t i = 0; i < cells; ++i) columnOfCell[i] = static_cast<int>(i) + 1;
    } else {
      std::vector<std::string> labels(static_cast<size_t>(count) + 1);
      std::vector<std::string> tables(static_cast<size_t>(count) + 1);
      std::vector<bool> taken(static_cast<size_t>(count) + 1, false);
      for (int c = 1; c <= count; ++c) {
        std::string label = statement.ColumnLabel(c);
        const size_t dot = label.rfind('.');
        if (dot != std::string::npos) label = label.substr(dot + 1);
        labels[c] = label;
        tables[c] = statement.ColumnTable(c);
      }
      for (size_t i = 0; i < bindings.size(); ++i) {
        std::string qualifier;
        const std::string column = kestrel_store::ColumnPartOf(bindings[i].name, &qualifier);
        int chosen = 0;
        for (int pass = 0; pass < 2 && chosen == 0; ++pass) {
          for (int c = 1; c <= count && chosen == 0; ++c) {
            if (taken[c] || !kestrel_store::EqualsIgnoreCase(labels[c], column)) continue;
            if (pass == 0 && !qualifier.empty() &&
                !kestrel_store::EqualsIgnoreCase(tables[c], qualifier)) {
              continue;
            }
            chosen = c;
          }
        }
        if (chosen == 0) Fail("42S22", "Column " + bindings[i].name + " is not in the result.");
        taken[chosen] = true;
        columnOfCell[i] = chosen;
      }
    }
    hiddenTypes.clear();
    for (size_t h = 0; h < hiddenColumns.size(); ++h) {
      const int column = columnOfCell[bindings.size() + h];
      hiddenTypes.push_back(statement.ColumnIsInteger(column) ? FieldType::kBigInt
                                                              : FieldType::kText);
    }
    // Some drivers read a row's columns only in increasing order.
    readOrder.clear();
    for (size_t i = 0; i < cells; ++i) readOrder.push_back(i);
    std::sort(readOrder.begin(), readOrder.end(),
              [this](size_t a, size_t b) { return columnOfCell[a] < columnOfCell[b]; });
    for (KeyColumn& key : keys) {
      if (key.cell >= bindings.size()) key.type = hiddenTypes[key.cell - bindings.size()];
    }
  }

  Row ReadRow(Statement& statement) const {
    Row row(columnOfCell.size());
    for (size_t cell : readOrder) {
      const bool bound = cell < bindings.size();
      const FieldType type = bound ? bindings[cell].type : hiddenTypes[cell - bindings.size()];
      statement.Read(columnOfCell[cell], type, bound ? bindings[cell].maxBytes : 0, &row[cell]);
    }
    return row;
  }

  void Execute(const std::string& filter, const std::string& sort) {
    ReleaseCursor();
    mode = Mode::kNone;
    gone = false;
    rows.clear();
    deleted.clear();
    rowsRead = 0;
    if (openType != forwardOnly && ExecutePrepared(filter, sort)) return;
    sql = kestrel_store::TranslateSql(BuildSql(filter, sort), db->dialect);
    auto statement = std::make_unique<Statement>(db->handle(), db->QueryTimeout());
    statement->ExecDirect(sql);
    MapColumns(*statement);
    if (openType == forwardOnly) {
      cursor = std::move(statement);
      position = -1;
      bof = false;
      eof = false;
      if (!StepCursor()) bof = true;
      return;
    }
    ReadAll(*statement);
  }

  // On SQLite, a filter's literals become parameters of a statement the connection keeps
  // prepared: the same look-up with other values is not parsed again. False when the filter
  // has no literals (or the database is another), and the caller runs the statement as it is.
  bool ExecutePrepared(const std::string& filter, const std::string& sort) {
    if (db->dialect.kind != kestrel_store::DialectKind::kSQLite) return false;
    std::vector<std::string> values;
    const std::string parameterized = kestrel_store::ParameterizeLiterals(filter, &values);
    if (values.empty()) return false;
    sql = kestrel_store::TranslateSql(BuildSql(parameterized, sort), db->dialect);
    Statement& statement = db->KeptStatement(sql);
    Parameters parameters;
    for (std::string& value : values) {
      Cell cell;
      cell.null = false;
      cell.text = std::move(value);
      parameters.Add(FieldType::kText, cell);
    }
    statement.Execute(parameters);
    MapColumns(statement);
    ReadAll(statement);
    return true;
  }

  void ReadAll(Statement& statement) {
    while (statement.Fetch()) rows.push_back(ReadRow(statement));
    statement.CloseCursor();
    deleted.assign(rows.size(), false);
    rowsRead = static_cast<long>(rows.size());
    if (rows.empty()) {
      position = 0;
      bof = eof = true;
      ClearFields();
    } else {
      position = 0;
      bof = eof = false;
      LoadFields(rows[0]);
    }
  }

  // Forward-only: reads the next row as the only one kept. False (and EOF) at the end.
  bool StepCursor() {
    if (!cursor || !cursor->Fetch()) {
      ReleaseCursor();
      rows.clear();
      deleted.clear();
      position = 0;
      eof = true;
      ClearFields();
      return false;
    }
    rows.assign(1, ReadRow(*cursor));
    deleted.assign(1, false);
    position = 0;
    ++rowsRead;
    LoadFields(rows[0]);
    return true;
  }

  void ReleaseCursor() {
    if (cursor) cursor->CloseCursor();
    cursor.reset();
  }

  // Lets go of every statement on the connection (before it closes, or when the set closes).
  void ReleaseStatements() {
    ReleaseCursor();
    prepared.clear();
  }

  // --- moving ---

  // The next row in `step` direction (+1 or -1) from `from` that is not deleted; -1 or size
  // when there is none.
  long NextLive(long from, int step) const {
    long i = from + step;
    while (i >= 0 && i < static_cast<long>(rows.size()) && deleted[i]) i += step;
    return i;
  }

  void StandOn(long index) {
    gone = false;
    if (index < 0) {
      position = -1;
      bof = true;
      ClearFields();
    } else if (index >= static_cast<long>(rows.size())) {
      position = static_cast<long>(rows.size());
      eof = true;
      ClearFields();
    } else {
      position = index;
      bof = eof = false;
      LoadFields(rows[index]);
    }
  }

  bool HasLiveRows() const { return NextLive(-1, 1) < static_cast<long>(rows.size()); }

  void MoveForwardOnly(long count, unsigned short fetchType) {
    const bool forward = (fetchType == fetchNext) || (fetchType == fetchRelative && count == 1);
    if (!forward) Fail("HY106", "The record set is forward-only: it only moves to the next row.");
    if (eof) Fail("24000", "The record set is already past its last row.");
    bof = false;
    StepCursor();
  }

  void MoveSteps(long count) {
    const int step = count > 0 ? 1 : -1;
    for (long n = count > 0 ? count : -count; n > 0; --n) {
      if (step > 0 && eof) Fail("24000", "The record set is already past its last row.");
      if (step < 0 && bof) Fail("24000", "The record set is already before its first row.");
      long from = position;
      if (gone)
        from = -1;
      else if (bof)
        from = -1;
      else if (eof)
        from = static_cast<long>(rows.size());
      const long to = NextLive(from, step);
      StandOn(to);
      if (bof || eof) {
        // Leaving the far end of an empty set reaches both ends at once.
        if (!HasLiveRows()) bof = eof = true;
        return;
      }
    }
  }

  void Move(long count, unsigned short fetchType) {
    switch (fetchType) {
      case fetchNext:
        MoveSteps(1);
        return;
      case fetchPrior:
        MoveSteps(-1);
        return;
      case fetchFirst:
      case fetchLast: {
        const long to = fetchType == fetchFirst ? NextLive(-1, 1)
                                                : NextLive(static_cast<long>(rows.size()), -1);
        if (to < 0 || to >= static_cast<long>(rows.size())) {
          StandOn(static_cast<long>(rows.size()));
          bof = eof = true;
          return;
        }
        StandOn(to);
        return;
      }
      case fetchRelative:
        if (count == 0) {
          if (OnRow()) LoadFields(rows[position]);
          return;
        }
        MoveSteps(count);
        return;
      case fetchAbsolute: {
        if (count == 0) {
          StandOn(-1);
          return;
        }
        long index = count > 0 ? -1 : static_cast<long>(rows.size());
        const int step = count > 0 ? 1 : -1;
        for (long n = count > 0 ? count : -count; n > 0; --n) {
          index = NextLive(index, step);
          if (index < 0 || index >= static_cast<long>(rows.size())) break;
        }
        StandOn(index);
        if (!HasLiveRows()) bof = eof = true;
        return;
      }
      default:
        Fail("HY106", "Unknown fetch type " + std::to_string(fetchType) + ".");
    }
  }

  bool OnRow() const {
    return !gone && !bof && !eof && position >= 0 && position < static_cast<long>(rows.size());
  }

  // --- writing ---

  Statement& PreparedStatement(const std::string& text) {
    // On SQLite the connection keeps the statements, for the next set that writes the same way.
    if (db->dialect.kind == kestrel_store::DialectKind::kSQLite && !(options & executeDirect))
      return db->KeptStatement(text);
    for (auto& entry : prepared) {
      if (entry.first == text) return *entry.second;
    }
    if (prepared.size() >= kPreparedLimit) prepared.clear();
    auto statement = std::make_unique<Statement>(db->handle(), db->QueryTimeout());
    if (!(options & executeDirect)) statement->Prepare(text);
    prepared.emplace_back(text, std::move(statement));
    return *prepared.back().second;
  }

  long Run(const std::string& bracketedSql, Parameters& parameters) {
    const std::string text = kestrel_store::TranslateSql(bracketedSql, db->dialect);
    Statement& statement = PreparedStatement(text);
    if (options & executeDirect) {
      statement.ExecDirect(text, parameters);
    } else {
      statement.Execute(parameters);
    }
    const long count = statement.RowCount();
    statement.CloseCursor();
    return count;
  }

  std::string WhereKey(Parameters& parameters, const Row& row) const {
    std::string where;
    for (const KeyColumn& key : keys) {
      if (!where.empty()) where += " AND ";
      where += KeyReference(key.name) + " = ?";
      parameters.Add(key.type, row[key.cell]);
    }
    return where;
  }

  bool WriteUpdate() {
    const Row current = FieldCells();
    Parameters parameters;
    std::string assignments;
    std::vector<size_t> changed;
    for (size_t i = 0; i < bindings.size(); ++i) {
      if (kestrel_store::SameCell(current[i], saved[i], bindings[i].type)) continue;
      if (!assignments.empty()) assignments += ", ";
      assignments += Bracketed(kestrel_store::ColumnPartOf(bindings[i].name)) + " = ?";
      parameters.Add(bindings[i].type, current[i]);
      changed.push_back(i);
    }
    if (changed.empty()) {
      mode = Mode::kNone;
      return false;
    }
    Row& row = rows[position];
    const std::string text =
        "UPDATE " + source + " SET " + assignments + " WHERE " + WhereKey(parameters, row);
    if (Run(text, parameters) == 0) {
      Fail("HY000", "No row was updated: the row has been changed or deleted by another user.");
    }
    mode = Mode::kNone;
    for (size_t i : changed) row[i] = current[i];
    LoadFields(row);
    return true;
  }

  bool WriteInsert() {
    const Row current = FieldCells();
    Parameters parameters;
    std::string columns;
    std::string marks;
    for (size_t i = 0; i < bindings.size(); ++i) {
      if (current[i].null) continue;
      if (!columns.empty()) {
        columns += ", ";
        marks += ", ";
      }
      columns += Bracketed(kestrel_store::ColumnPartOf(bindings[i].name));
      marks += "?";
      parameters.Add(bindings[i].type, current[i]);
    }
    if (parameters.size() == 0) {
      RestoreAfterAdd();
      return false;
    }
    Run("INSERT INTO " + source + " (" + columns + ") VALUES (" + marks + ")", parameters);
    RestoreAfterAdd();
    return true;
  }

  void RestoreAfterAdd() {
    mode = Mode::kNone;
    if (OnRow()) {
      LoadFields(rows[position]);
    } else {
      for (size_t i = 0; i < bindings.size(); ++i) kestrel_store::SetMember(bindings[i], saved[i]);
      nullFlags = savedNullFlags;
    }
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
bool CRecordset::IsEOF() const { return state_->eof; }
bool CRecordset::IsBOF() const { return state_->bof; }
unsigned CRecordset::GetOpenType() const { return state_->openType; }
int CRecordset::GetFieldCount() const { return static_cast<int>(state_->bindings.size()); }
std::string CRecordset::GetSQL() const { return state_->sql; }
CDatabase* CRecordset::GetDatabase() const {
  return state_->database ? state_->database : state_->given;
}
bool CRecordset::CanUpdate() const { return state_->open && state_->canUpdate; }
bool CRecordset::CanAppend() const { return state_->open && state_->canAppend; }
bool CRecordset::CanScroll() const { return state_->open && state_->openType != forwardOnly; }
bool CRecordset::IsWritePending() const { return state_->mode != State::Mode::kNone; }

bool CRecordset::IsDeleted() const {
  const State& s = *state_;
  if (s.gone) return true;
  return s.OnRow() && s.deleted[s.position];
}

long CRecordset::GetRecordCount() const {
  const State& s = *state_;
  if (s.openType == forwardOnly) return s.rowsRead;
  long count = 0;
  for (bool d : s.deleted) count += d ? 0 : 1;
  return count;
}

int CRecordset::Open(unsigned nOpenType, const char* lpszSQL, uint32_t dwOptions) {
  Close();
  State& s = *state_;
  s.openType = nOpenType == kUseDefaultType ? s.defaultType : nOpenType;
  s.options = dwOptions;

  // The connection: the given one when it is open, else opened with the default connect string.
  if (s.given && s.given->IsOpen()) {
    s.database = s.given;
  } else if (s.given) {
    s.given->Open(GetDefaultConnect());
    s.database = s.given;
  } else {
    auto own = std::make_unique<CDatabase>();
    own->Open(GetDefaultConnect());
    s.own = std::move(own);
    s.database = s.own.get();
  }
  s.db = s.database->impl_.get();

  try {
    CFieldExchange::Sink sink;
    CFieldExchange exchange(&sink);
    DoFieldExchange(&exchange);
    s.bindings = std::move(sink.bindings);
    s.nullFlags.assign(s.bindings.size(), true);
    s.source = (lpszSQL && *lpszSQL) ? std::string(lpszSQL) : GetDefaultSQL();
    s.statementSource = kestrel_store::IsSelectStatement(s.source);
    s.FindKeys();
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
  s.mode = State::Mode::kNone;
  s.rows.clear();
  s.deleted.clear();
  s.bof = s.eof = true;
  s.gone = false;
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
  const bool hadRow = s.position >= 0 && s.position < static_cast<long>(s.rows.size()) && !s.gone;
  Row keyRow;
  if (hadRow) keyRow = s.rows[s.position];
  s.Execute(Filter, Sort);
  for (size_t r = 0; hadRow && r < s.rows.size(); ++r) {
    bool same = !s.keys.empty();
    for (const KeyColumn& key : s.keys) {
      same = same && kestrel_store::SameCell(s.rows[r][key.cell], keyRow[key.cell], key.type);
    }
    if (same) {
      s.StandOn(static_cast<long>(r));
      return;
    }
  }
  // The row is gone (or there was none): stand where it was, before the first row, as on a
  // deleted row, so that nothing else is taken for it.
  s.position = -1;
  s.bof = s.eof = false;
  s.gone = true;
  s.ClearFields();
}

void CRecordset::Move(long rows, unsigned short fetchType) {
  State& s = *state_;
  if (!s.open) NotOpen();
  s.mode = State::Mode::kNone;
  if (s.openType == forwardOnly) {
    s.MoveForwardOnly(rows, fetchType);
    return;
  }
  s.Move(rows, fetchType);
}

void CRecordset::AddNew() {
  State& s = *state_;
  if (!s.open) NotOpen();
  if (!s.canAppend) Fail("HY000", "The record set is read-only: rows cannot be added.");
  if (s.mode == State::Mode::kEdit) CancelUpdate();
  s.saved = s.FieldCells();
  s.savedNullFlags = s.nullFlags;
  s.ClearFields();
  s.mode = State::Mode::kAdd;
}

void CRecordset::Edit() {
  State& s = *state_;
  if (!s.open) NotOpen();
  if (!s.canUpdate) Fail("HY000", "The record set is read-only: rows cannot be changed.");
  if (!s.OnRow() || s.deleted[s.position]) Fail("24000", "There is no current row to change.");
  if (s.mode == State::Mode::kAdd) CancelUpdate();
  s.saved = s.FieldCells();
  s.savedNullFlags = s.nullFlags;
  s.mode = State::Mode::kEdit;
}

int CRecordset::Update() {
  State& s = *state_;
  if (!s.open) NotOpen();
  switch (s.mode) {
    case State::Mode::kAdd:
      return s.WriteInsert() ? 1 : 0;
    case State::Mode::kEdit:
      return s.WriteUpdate() ? 1 : 0;
    case State::Mode::kNone:
      break;
  }
  Fail("HY010", "Update without AddNew or Edit.");
}

void CRecordset::Delete() {
  State& s = *state_;
  if (!s.open) NotOpen();
  if (!s.canUpdate) Fail("HY000", "The record set is read-only: rows cannot be deleted.");
  if (!s.OnRow() || s.deleted[s.position]) Fail("24000", "There is no current row to delete.");
  s.mode = State::Mode::kNone;
  Parameters parameters;
  const std::string where = s.WhereKey(parameters, s.rows[s.position]);
  if (s.Run("DELETE FROM " + s.source + " WHERE " + where, parameters) == 0) {
    Fail("HY000", "No row was deleted: the row has been deleted by another user.");
  }
  s.deleted[s.position] = true;
  s.ClearFields();
}

void CRecordset::CancelUpdate() {
  State& s = *state_;
  if (s.mode == State::Mode::kNone) return;
  s.mode = State::Mode::kNone;
  for (size_t i = 0; i < s.bindings.size(); ++i)
    kestrel_store::SetMember(s.bindings[i], s.saved[i]);
  s.nullFlags = s.savedNullFlags;
}

bool CRecordset::IsFieldNull(const void* pField) const {
  const State& s = *state_;
  const size_t i = s.BindingOf(pField);
  return kestrel_store::CellOfMember(s.bindings[i], s.nullFlags[i]).null;
}

void CRecordset::SetFieldNull(void* pField, bool bNull) {
  State& s = *state_;
  const size_t i = s.BindingOf(pField);
  s.nullFlags[i] = bNull;
  if (bNull) kestrel_store::SetMember(s.bindings[i], Cell());
}
