#include "RecordsetColumns.h"

#include <algorithm>

#include "SqlDialect.h"

namespace KESTREL::store {
namespace {

constexpr char kRowId[] = "rowid";  // SQLite's own row key, for tables without a primary key

// The SQLite driver hands REAL values over as text of 15 significant digits, which loses the
// last bits of a double; SQLite's own printf with the '!' flag writes enough digits for the
// driver's conversion to give the stored double back exactly.
std::string SelectItem(const Binding& binding, DialectKind dialect) {
  if (binding.type != FieldType::kDouble || dialect != DialectKind::kSQLite) return binding.name;
  return "CASE WHEN " + binding.name + " IS NULL THEN NULL ELSE printf('%!.20e', " + binding.name +
         ") END";
}

}  // namespace

std::string Bracketed(const std::string& name) {
  std::string text = "[";
  for (char c : name) {
    text += c;
    if (c == ']') text += ']';
  }
  return text + "]";
}

std::string KeyReference(const std::string& key) { return key == kRowId ? key : Bracketed(key); }

void RecordsetColumns::Bind(std::vector<Binding> bindings) {
  bindings_ = std::move(bindings);
  nullFlags_.assign(bindings_.size(), true);
  ClearKeys();
}

void RecordsetColumns::LoadFields(const Row& row) {
  for (size_t i = 0; i < bindings_.size(); ++i) {
    SetMember(bindings_[i], row[i]);
    nullFlags_[i] = row[i].null;
  }
}

void RecordsetColumns::ClearFields() {
  const Cell empty;
  for (size_t i = 0; i < bindings_.size(); ++i) {
    SetMember(bindings_[i], empty);
    nullFlags_[i] = true;
  }
}

Row RecordsetColumns::FieldCells() const {
  Row row;
  row.reserve(bindings_.size());
  for (size_t i = 0; i < bindings_.size(); ++i)
    row.push_back(CellOfMember(bindings_[i], nullFlags_[i]));
  return row;
}

void RecordsetColumns::RestoreFields(const Row& saved, const std::vector<bool>& nullFlags) {
  for (size_t i = 0; i < bindings_.size(); ++i) SetMember(bindings_[i], saved[i]);
  nullFlags_ = nullFlags;
}

size_t RecordsetColumns::BindingOf(const void* field) const {
  for (size_t i = 0; i < bindings_.size(); ++i)
    if (bindings_[i].address == field) return i;
  Fail("HY000", "The address is not a bound field of the record set.");
}

bool RecordsetColumns::IsNull(size_t i) const {
  return CellOfMember(bindings_[i], nullFlags_[i]).null;
}

void RecordsetColumns::SetNull(size_t i, bool null) {
  nullFlags_[i] = null;
  if (null) SetMember(bindings_[i], Cell());
}

void RecordsetColumns::ClearKeys() {
  keys_.clear();
  hidden_.clear();
}

bool RecordsetColumns::FindKeys(CDatabase::Impl& database, const CatalogName& table) {
  ClearKeys();
  std::vector<std::string> names = PrimaryKeyOf(database, table);
  if (names.empty() && database.dialect.kind == DialectKind::kSQLite) names.push_back(kRowId);
  for (const std::string& key : names) {
    KeyColumn column{key, bindings_.size() + hidden_.size(), FieldType::kBigInt};
    for (size_t i = 0; i < bindings_.size(); ++i) {
      if (!EqualsIgnoreCase(ColumnPartOf(bindings_[i].name), key)) continue;
      column.cell = i;
      column.type = bindings_[i].type;
      break;
    }
    if (column.cell >= bindings_.size()) hidden_.push_back(key);
    keys_.push_back(column);
  }
  return !keys_.empty();
}

std::string RecordsetColumns::WhereKey(Parameters& parameters, const Row& row) const {
  std::string where;
  for (const KeyColumn& key : keys_) {
    if (!where.empty()) where += " AND ";
    where += KeyReference(key.name) + " = ?";
    parameters.Add(key.type, row[key.cell]);
  }
  return where;
}

bool RecordsetColumns::SameKey(const Row& a, const Row& b) const {
  if (keys_.empty()) return false;
  for (const KeyColumn& key : keys_)
    if (!SameCell(a[key.cell], b[key.cell], key.type)) return false;
  return true;
}

std::string RecordsetColumns::SelectList(DialectKind dialect) const {
  std::string list;
  for (const Binding& binding : bindings_) {
    if (!list.empty()) list += ", ";
    list += SelectItem(binding, dialect);
  }
  for (const std::string& hidden : hidden_) {
    if (!list.empty()) list += ", ";
    list += KeyReference(hidden);
  }
  return list.empty() ? std::string("*") : list;
}

void RecordsetColumns::MapColumns(Statement& statement, bool ownSelect) {
  const size_t cells = bindings_.size() + hidden_.size();
  columnOfCell_.assign(cells, 0);
  if (ownSelect) {
    if (statement.ColumnCount() < static_cast<int>(cells))
      Fail("07009", "The statement returned fewer columns than the record set binds.");
    for (size_t i = 0; i < cells; ++i) columnOfCell_[i] = static_cast<int>(i) + 1;
  } else {
    MapByName(statement);
  }
  hiddenTypes_.clear();
  for (size_t h = 0; h < hidden_.size(); ++h) {
    const int column = columnOfCell_[bindings_.size() + h];
    hiddenTypes_.push_back(statement.ColumnIsInteger(column) ? FieldType::kBigInt
                                                             : FieldType::kText);
  }
  // Some drivers read a row's columns only in increasing order.
  readOrder_.clear();
  for (size_t i = 0; i < cells; ++i) readOrder_.push_back(i);
  std::sort(readOrder_.begin(), readOrder_.end(),
            [this](size_t a, size_t b) { return columnOfCell_[a] < columnOfCell_[b]; });
  for (KeyColumn& key : keys_)
    if (key.cell >= bindings_.size()) key.type = hiddenTypes_[key.cell - bindings_.size()];
}

void RecordsetColumns::MapByName(Statement& statement) {
  const int count = statement.ColumnCount();
  std::vector<std::string> labels(static_cast<size_t>(count) + 1);
  std::vector<std::string> tables(static_cast<size_t>(count) + 1);
  std::vector<bool> taken(static_cast<size_t>(count) + 1, false);
  for (int c = 1; c <= count; ++c) {
    std::string label = statement.ColumnLabel(c);
    const size_t dot = label.rfind('.');
    labels[c] = dot == std::string::npos ? label : label.substr(dot + 1);
    tables[c] = statement.ColumnTable(c);
  }
  for (size_t i = 0; i < bindings_.size(); ++i) {
    std::string qualifier;
    const std::string column = ColumnPartOf(bindings_[i].name, &qualifier);
    int chosen = 0;
    for (int pass = 0; pass < 2 && chosen == 0; ++pass) {
      for (int c = 1; c <= count && chosen == 0; ++c) {
        if (taken[c] || !EqualsIgnoreCase(labels[c], column)) continue;
        if (pass == 0 && !qualifier.empty() && !EqualsIgnoreCase(tables[c], qualifier)) continue;
        chosen = c;
      }
    }
    if (chosen == 0) Fail("42S22", "Column " + bindings_[i].name + " is not in the result.");
    taken[chosen] = true;
    columnOfCell_[i] = chosen;
  }
}

Row RecordsetColumns::ReadRow(Statement& statement) const {
  Row row(columnOfCell_.size());
  for (size_t cell : readOrder_) {
    const bool bound = cell < bindings_.size();
    const FieldType type = bound ? bindings_[cell].type : hiddenTypes_[cell - bindings_.size()];
    statement.Read(columnOfCell_[cell], type, bound ? bindings_[cell].maxBytes : 0, &row[cell]);
  }
  return row;
}

}  // namespace KESTREL::store
