#include "kestrel/CDatabase.h"

#include <algorithm>
#include <utility>

#include "DatabaseImpl.h"

namespace {

using KESTREL::store::Check;
using KESTREL::store::DialectKind;
using KESTREL::store::EqualsIgnoreCase;
using KESTREL::store::Trim;

constexpr SQLULEN kLoginTimeoutSeconds = 15;
constexpr char kSQLiteLockWait[] = "Timeout=100;";                // milliseconds
constexpr char kPostgreSQLLockWait[] = "SET lock_timeout = 100";  // milliseconds
// The advisory lock every writing transaction of the library holds on PostgreSQL: one number
// for the whole database ("KESTREL" in ASCII), so that index writers take turns.
constexpr char kPostgreSQLWriteLock[] = "SELECT pg_advisory_xact_lock(23713617613966412)";

// The form "ODBC;DSN=..." carries a prefix that the driver manager does not know.
std::string WithoutOdbcPrefix(const std::string& connect) {
  const std::string trimmed = Trim(connect);
  if (trimmed.size() >= 5 && EqualsIgnoreCase(trimmed.substr(0, 5), "ODBC;")) {
    return trimmed.substr(5);
  }
  return trimmed;
}

// True when the connect string sets `key` (keys compare without case and surrounding blanks).
bool NamesKey(const std::string& connect, const char* key) {
  size_t start = 0;
  while (start <= connect.size()) {
    size_t end = connect.find(';', start);
    if (end == std::string::npos) end = connect.size();
    const std::string pair = connect.substr(start, end - start);
    const size_t equals = pair.find('=');
    if (equals != std::string::npos && EqualsIgnoreCase(Trim(pair.substr(0, equals)), key)) {
      return true;
    }
    start = end + 1;
  }
  return false;
}

std::string InfoString(SQLHDBC connection, SQLUSMALLINT info) {
  SQLCHAR value[256] = {0};
  SQLSMALLINT length = 0;
  if (!SQL_SUCCEEDED(SQLGetInfo(connection, info, value, sizeof value, &length))) return "";
  return reinterpret_cast<const char*>(value);
}

void RequireOpen(const CDatabase::Impl& impl) {
  if (!impl.open) KESTREL::store::Fail("08003", "The database connection is not open.");
}

}  // namespace

CDatabase::CDatabase() : impl_(std::make_unique<Impl>()) {}

CDatabase::~CDatabase() {
  try {
    Close();
  } catch (...) {
    // Closing gives up quietly: there is no one left to tell.
  }
}

namespace {

// Connects the allocated handle with `text`; on failure frees the handles and throws.
void Connect(CDatabase::Impl& d, const std::string& text) {
  SQLCHAR completed[1024];
  SQLSMALLINT completedLength = 0;
  const SQLRETURN result = SQLDriverConnect(
      d.connection.get(), nullptr, reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.c_str())),
      SQL_NTS, completed, sizeof completed, &completedLength, SQL_DRIVER_NOPROMPT);
  if (SQL_SUCCEEDED(result)) return;
  CDBException failure =
      KESTREL::store::DiagnosticsOf(SQL_HANDLE_DBC, d.connection.get(), "SQLDriverConnect");
  d.open = false;
  d.connection.Reset();
  d.environment.Reset();
  throw failure;
}

}  // namespace

void CDatabase::Open(const std::string& connect) {
  Close();
  Impl& d = *impl_;
  Check(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, d.environment.out()), SQL_HANDLE_ENV,
        SQL_NULL_HANDLE, "SQLAllocHandle");
  SQLSetEnvAttr(d.environment.get(), SQL_ATTR_ODBC_VERSION,
                reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  Check(SQLAllocHandle(SQL_HANDLE_DBC, d.environment.get(), d.connection.out()), SQL_HANDLE_ENV,
        d.environment.get(), "SQLAllocHandle");
  SQLSetConnectAttr(d.connection.get(), SQL_ATTR_LOGIN_TIMEOUT,
                    reinterpret_cast<SQLPOINTER>(kLoginTimeoutSeconds), 0);

  const std::string text = WithoutOdbcPrefix(connect);
  Connect(d, text);
  d.open = true;
  d.connect = connect;
  d.dbmsName = InfoString(d.connection.get(), SQL_DBMS_NAME);
  d.dialect = KESTREL::store::DialectFor(d.dbmsName,
                                         InfoString(d.connection.get(), SQL_IDENTIFIER_QUOTE_CHAR));

  // Short lock waits: a writer that meets a lock fails soon and the record sets' random
  // back-off decides when it tries again. The SQLite driver waits as long as its "Timeout"
  // (100 s unless the DSN says otherwise) and heeds nothing but that key of the connect
  // string, so a connection without one is made again with it.
  try {
    if (d.dialect.kind == DialectKind::kSQLite && !NamesKey(text, "Timeout")) {
      SQLDisconnect(d.connection.get());
      const bool endsWithSeparator = text.empty() || text.back() == ';';
      Connect(d, text + (endsWithSeparator ? "" : ";") + kSQLiteLockWait);
    } else if (d.dialect.kind == DialectKind::kPostgreSQL) {
      ExecuteSQL(kPostgreSQLLockWait);
    }
  } catch (...) {
    if (d.open) Close();
    d.connect.clear();
    d.dbmsName.clear();
    d.dialect = KESTREL::store::Dialect();
    throw;
  }
}

void CDatabase::Close() {
  Impl& d = *impl_;
  if (!d.open) return;
  // Statements first: they must not outlive their connection.
  d.kept.clear();
  auto dependents = std::move(d.dependents);
  d.dependents.clear();
  for (auto& entry : dependents) entry.second();
  if (d.inTransaction && d.statementTransaction) {
    try {
      KESTREL::store::Statement(d.handle(), 0).ExecDirect("ROLLBACK");
    } catch (const CDBException&) {
      // Disconnecting ends the transaction all the same.
    }
  } else if (d.inTransaction) {
    SQLEndTran(SQL_HANDLE_DBC, d.connection.get(), SQL_ROLLBACK);
  }
  d.inTransaction = false;
  d.statementTransaction = false;
  SQLDisconnect(d.connection.get());
  d.connection.Reset();
  d.environment.Reset();
  d.open = false;
  d.connect.clear();
  d.dbmsName.clear();
  d.dialect = KESTREL::store::Dialect();
  d.primaryKeys.clear();
}

bool CDatabase::IsOpen() const { return impl_->open; }

std::string CDatabase::GetConnect() const { return impl_->open ? impl_->connect : std::string(); }

std::string CDatabase::GetDBMSName() const { return impl_->dbmsName; }

std::string CDatabase::TranslateSQL(const std::string& sql) const {
  RequireOpen(*impl_);
  return KESTREL::store::TranslateSql(sql, impl_->dialect);
}

void CDatabase::ExecuteSQL(const std::string& sql) {
  RequireOpen(*impl_);
  KESTREL::store::Statement statement(impl_->handle(), impl_->QueryTimeout());
  statement.ExecDirect(TranslateSQL(sql));
}

void CDatabase::BeginTrans() {
  RequireOpen(*impl_);
  if (impl_->inTransaction) KESTREL::store::Fail("25000", "A transaction is already open.");
  Check(SQLSetConnectAttr(impl_->handle(), SQL_ATTR_AUTOCOMMIT,
                          reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0),
        SQL_HANDLE_DBC, impl_->handle(), "SQLSetConnectAttr");
  impl_->inTransaction = true;
}

void CDatabase::BeginWriteTrans() {
  Impl& d = *impl_;
  RequireOpen(d);
  if (d.inTransaction) KESTREL::store::Fail("25000", "A transaction is already open.");
  switch (d.dialect.kind) {
    case DialectKind::kSQLite:
      // The driver begins its own transactions as deferred ones, which take the write lock
      // only at the first write and then fail for good when another writer came first. The
      // statement is run with autocommit on, so the driver leaves it to SQLite.
      ExecuteSQL("BEGIN IMMEDIATE");
      d.inTransaction = true;
      d.statementTransaction = true;
      return;
    case DialectKind::kPostgreSQL:
      BeginTrans();
      try {
        ExecuteSQL(kPostgreSQLWriteLock);
      } catch (...) {
        Rollback();
        throw;
      }
      return;
    case DialectKind::kOther:
      BeginTrans();
      return;
  }
}

namespace {

void EndTransaction(CDatabase::Impl& d, SQLSMALLINT completion) {
  RequireOpen(d);
  if (!d.inTransaction) KESTREL::store::Fail("25000", "No transaction is open.");
  if (d.statementTransaction) {
    // A failed COMMIT leaves the transaction open, for a Rollback to end; a ROLLBACK ends it
    // even when it fails (SQLite may have rolled back by itself after an I/O error).
    if (completion == SQL_ROLLBACK) d.inTransaction = d.statementTransaction = false;
    KESTREL::store::Statement(d.handle(), 0)
        .ExecDirect(completion == SQL_COMMIT ? "COMMIT" : "ROLLBACK");
    d.inTransaction = d.statementTransaction = false;
    return;
  }
  const SQLRETURN result = SQLEndTran(SQL_HANDLE_DBC, d.handle(), completion);
  d.inTransaction = false;
  SQLSetConnectAttr(d.handle(), SQL_ATTR_AUTOCOMMIT,
                    reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), 0);
  Check(result, SQL_HANDLE_DBC, d.handle(), "SQLEndTran");
}

}  // namespace

void CDatabase::CommitTrans() { EndTransaction(*impl_, SQL_COMMIT); }

void CDatabase::Rollback() { EndTransaction(*impl_, SQL_ROLLBACK); }

KESTREL::store::Statement& CDatabase::Impl::KeptStatement(const std::string& sql) {
  constexpr size_t kLimit = 32;
  for (auto& entry : kept) {
    if (entry.first == sql) return *entry.second;
  }
  if (kept.size() >= kLimit) kept.erase(kept.begin());
  auto statement = std::make_unique<KESTREL::store::Statement>(handle(), QueryTimeout());
  statement->Prepare(sql);
  kept.emplace_back(sql, std::move(statement));
  return *kept.back().second;
}

namespace KESTREL::store {

const std::vector<std::string>& PrimaryKeyOf(CDatabase::Impl& database, const CatalogName& table) {
  const std::string cacheKey = table.schema + "." + table.table;
  auto found = database.primaryKeys.find(cacheKey);
  if (found != database.primaryKeys.end()) return found->second;

  Statement statement(database.handle(), database.QueryTimeout());
  std::string schema = table.schema;
  std::string name = table.table;
  Check(SQLPrimaryKeys(statement.get(), nullptr, 0,
                       schema.empty() ? nullptr : reinterpret_cast<SQLCHAR*>(&schema[0]),
                       schema.empty() ? 0 : SQL_NTS, reinterpret_cast<SQLCHAR*>(&name[0]), SQL_NTS),
        SQL_HANDLE_STMT, statement.get(), "SQLPrimaryKeys");
  std::vector<std::pair<int64_t, std::string>> columns;
  while (statement.Fetch()) {
    Cell column;
    Cell sequence;
    statement.Read(4, FieldType::kText, 0, &column);      // COLUMN_NAME
    statement.Read(5, FieldType::kBigInt, 0, &sequence);  // KEY_SEQ
    if (!column.null) columns.emplace_back(sequence.integer, column.text);
  }
  std::sort(columns.begin(), columns.end());
  std::vector<std::string> keys;
  for (auto& column : columns) keys.push_back(std::move(column.second));
  return database.primaryKeys.emplace(cacheKey, std::move(keys)).first->second;
}

}  // namespace KESTREL::store
