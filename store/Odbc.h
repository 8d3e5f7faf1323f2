#pragma once

// The ODBC handles of the database layer, each in a move-only owner, and one statement with
// the calls the record sets need. Only the database layer of this folder includes this header;
// nothing above it sees ODBC.

#include <sql.h>
#include <sqlext.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/CDBException.h"
#include "kestrel/CRecordset.h"

namespace KESTREL::store {

// Frees its handle when it goes; never throws.
template <SQLSMALLINT kType>
class OdbcHandle {
 public:
  OdbcHandle() = default;
  ~OdbcHandle() { Reset(); }
  OdbcHandle(OdbcHandle&& other) noexcept
      : handle_(std::exchange(other.handle_, SQL_NULL_HANDLE)) {}
  OdbcHandle& operator=(OdbcHandle&& other) noexcept {
    if (this != &other) {
      Reset();
      handle_ = std::exchange(other.handle_, SQL_NULL_HANDLE);
    }
    return *this;
  }
  OdbcHandle(const OdbcHandle&) = delete;
  OdbcHandle& operator=(const OdbcHandle&) = delete;

  SQLHANDLE get() const { return handle_; }
  SQLHANDLE* out() {
    Reset();
    return &handle_;
  }
  explicit operator bool() const { return handle_ != SQL_NULL_HANDLE; }
  void Reset() {
    if (handle_ != SQL_NULL_HANDLE) SQLFreeHandle(kType, handle_);
    handle_ = SQL_NULL_HANDLE;
  }

 private:
  SQLHANDLE handle_ = SQL_NULL_HANDLE;
};

using EnvHandle = OdbcHandle<SQL_HANDLE_ENV>;
using ConnectionHandle = OdbcHandle<SQL_HANDLE_DBC>;
using StatementHandle = OdbcHandle<SQL_HANDLE_STMT>;

// The diagnostic records of a handle as an exception: the first record's SQLSTATE and native
// error, every record's text on a line of its own. `fallback` is the text when the driver left
// no record.
CDBException DiagnosticsOf(SQLSMALLINT handleType, SQLHANDLE handle, const char* fallback);

// Throws DiagnosticsOf(...) when `result` is an error; SQL_NO_DATA is no error.
void Check(SQLRETURN result, SQLSMALLINT handleType, SQLHANDLE handle, const char* what);

// An exception for a failure the layer finds itself.
[[noreturn]] void Fail(const char* sqlState, const std::string& message);

// The test seam: a function run with the SQL text before every statement is executed, which
// may throw (a CDBException to stand for a driver failure, anything else for the rest). Empty by
// default. Set it only while no other thread uses the layer.
using StatementHook = std::function<void(const std::string& sql)>;
void SetStatementHook(StatementHook hook);

// Field and cell types of the record sets; BigInt and Key are for key columns the set reads
// without binding them.
enum class FieldType { kText, kLong, kInt, kDouble, kDateTime, kBigInt };

// One column value of one row.
struct Cell {
  bool null = true;
  std::string text;
  int64_t integer = 0;
  double real = 0;
  DBDateTime stamp;
};
[[nodiscard]] bool SameCell(const Cell& a, const Cell& b, FieldType type);

// Parameter values for one execution, kept alive until it is done.
class Parameters {
 public:
  void Add(FieldType type, const Cell& value);
  size_t size() const { return values_.size(); }

 private:
  friend class Statement;
  struct Value {
    FieldType type;
    Cell cell;
    SQL_TIMESTAMP_STRUCT stamp{};
    int32_t small = 0;
    SQLLEN indicator = 0;
  };
  std::vector<Value> values_;
};

class Statement {
 public:
  // Allocates a statement on the connection, with a query time-out of `timeoutSeconds` when
  // that is not 0. Throws.
  Statement(SQLHDBC connection, unsigned long timeoutSeconds);

  void ExecDirect(const std::string& sql);
  void Prepare(const std::string& sql);
  // Binds `parameters` (kept by the caller until the call returns) and executes the prepared
  // statement, or `sql` directly without preparing it.
  void Execute(Parameters& parameters);
  void ExecDirect(const std::string& sql, Parameters& parameters);
  // False at the end of the rows.
  [[nodiscard]] bool Fetch();
  // Rows changed by the last INSERT, UPDATE or DELETE (0 when the driver said SQL_NO_DATA).
  long RowCount();
  void CloseCursor();

  int ColumnCount();
  std::string ColumnLabel(int column);
  std::string ColumnTable(int column);
  [[nodiscard]] bool ColumnIsInteger(int column);

  // Reads column `column` of the current row as `type` into `cell`; text is cut at `maxBytes`
  // (0: no limit). A date and time the driver cannot convert reads as status invalid.
  void Read(int column, FieldType type, size_t maxBytes, Cell* cell);

  SQLHSTMT get() const { return handle_.get(); }

 private:
  void Bind(Parameters& parameters);
  [[nodiscard]] bool ReadFixed(SQLUSMALLINT number, SQLSMALLINT cType, void* value);
  void ReadText(SQLUSMALLINT number, size_t maxBytes, Cell* cell);
  void ReadDateTime(SQLUSMALLINT number, Cell* cell);
  static void SetInteger(Cell* cell, int64_t value);
  void RunHook() const;
  void CheckHere(SQLRETURN result, const char* what);

  StatementHandle handle_;
  std::string sql_;
  SQLRETURN lastExecute_ = SQL_SUCCESS;
};

}  // namespace KESTREL::store
