#include "Odbc.h"

#include <mutex>

namespace KESTREL::store {
namespace {

std::mutex hookMutex;
StatementHook statementHook;

bool IsIntegerType(SQLSMALLINT type) {
  return type == SQL_INTEGER || type == SQL_SMALLINT || type == SQL_TINYINT || type == SQL_BIGINT ||
         type == SQL_BIT;
}

void ToTimestamp(const DBDateTime& value, SQL_TIMESTAMP_STRUCT* stamp) {
  stamp->year = static_cast<SQLSMALLINT>(value.Year);
  stamp->month = static_cast<SQLUSMALLINT>(value.Month);
  stamp->day = static_cast<SQLUSMALLINT>(value.Day);
  stamp->hour = static_cast<SQLUSMALLINT>(value.Hour);
  stamp->minute = static_cast<SQLUSMALLINT>(value.Minute);
  stamp->second = static_cast<SQLUSMALLINT>(value.Second);
  stamp->fraction = value.Fraction;
}

}  // namespace

CDBException DiagnosticsOf(SQLSMALLINT handleType, SQLHANDLE handle, const char* fallback) {
  std::string state;
  std::string message;
  SQLINTEGER firstNative = 0;
  for (SQLSMALLINT record = 1;; ++record) {
    SQLCHAR sqlState[6] = {0};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    std::vector<SQLCHAR> text(1024);
    SQLRETURN result = SQLGetDiagRec(handleType, handle, record, sqlState, &native, text.data(),
                                     static_cast<SQLSMALLINT>(text.size()), &length);
    if (result == SQL_SUCCESS_WITH_INFO && length >= static_cast<SQLSMALLINT>(text.size())) {
      text.resize(static_cast<size_t>(length) + 1);
      result = SQLGetDiagRec(handleType, handle, record, sqlState, &native, text.data(),
                             static_cast<SQLSMALLINT>(text.size()), &length);
    }
    if (!SQL_SUCCEEDED(result)) break;
    if (record == 1) {
      state = reinterpret_cast<const char*>(sqlState);
      firstNative = native;
    }
    std::string line(reinterpret_cast<const char*>(text.data()));
    // Some drivers end their texts with a line end of their own.
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    if (!message.empty()) message += '\n';
    message += line;
  }
  if (state.empty()) state = "HY000";
  if (message.empty()) message = fallback;
  return CDBException(state, message, static_cast<int>(firstNative));
}

void Check(SQLRETURN result, SQLSMALLINT handleType, SQLHANDLE handle, const char* what) {
  if (SQL_SUCCEEDED(result) || result == SQL_NO_DATA) return;
  if (result == SQL_INVALID_HANDLE) Fail("HY000", std::string(what) + ": invalid handle");
  throw DiagnosticsOf(handleType, handle, what);
}

void Fail(const char* sqlState, const std::string& message) {
  throw CDBException(sqlState, message);
}

void SetStatementHook(StatementHook hook) {
  std::lock_guard<std::mutex> lock(hookMutex);
  statementHook = std::move(hook);
}

bool SameCell(const Cell& a, const Cell& b, FieldType type) {
  if (a.null || b.null) return a.null == b.null;
  switch (type) {
    case FieldType::kText:
      return a.text == b.text;
    case FieldType::kLong:
    case FieldType::kInt:
    case FieldType::kBigInt:
      return a.integer == b.integer;
    case FieldType::kDouble:
      return a.real == b.real;
    case FieldType::kDateTime:
      return a.stamp == b.stamp;
  }
  return false;
}

void Parameters::Add(FieldType type, const Cell& value) {
  Value v;
  v.type = type;
  v.cell = value;
  // A date and time that is not valid has no value to write.
  if (type == FieldType::kDateTime && value.stamp.status != DBDateTime::valid) v.cell.null = true;
  values_.push_back(std::move(v));
}

Statement::Statement(SQLHDBC connection, unsigned long timeoutSeconds) {
  Check(SQLAllocHandle(SQL_HANDLE_STMT, connection, handle_.out()), SQL_HANDLE_DBC, connection,
        "SQLAllocHandle");
  // Not every driver keeps a time-out; where one does, no statement waits without bound.
  if (timeoutSeconds != 0) {
    SQLSetStmtAttr(handle_.get(), SQL_ATTR_QUERY_TIMEOUT,
                   reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(timeoutSeconds)), 0);
  }
}

void Statement::RunHook() const {
  StatementHook hook;
  {
    std::lock_guard<std::mutex> lock(hookMutex);
    hook = statementHook;
  }
  if (hook) hook(sql_);
}

void Statement::CheckHere(SQLRETURN result, const char* what) {
  Check(result, SQL_HANDLE_STMT, handle_.get(), what);
}

void Statement::ExecDirect(const std::string& sql) {
  sql_ = sql;
  RunHook();
  lastExecute_ = SQLExecDirect(handle_.get(),
                               reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql.c_str())), SQL_NTS);
  CheckHere(lastExecute_, "SQLExecDirect");
}

void Statement::Prepare(const std::string& sql) {
  sql_ = sql;
  CheckHere(SQLPrepare(handle_.get(), reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql.c_str())),
                       SQL_NTS),
            "SQLPrepare");
}

void Statement::Execute(Parameters& parameters) {
  Bind(parameters);
  RunHook();
  lastExecute_ = SQLExecute(handle_.get());
  CheckHere(lastExecute_, "SQLExecute");
}

void Statement::ExecDirect(const std::string& sql, Parameters& parameters) {
  sql_ = sql;
  Bind(parameters);
  RunHook();
  lastExecute_ = SQLExecDirect(handle_.get(),
                               reinterpret_cast<SQLCHAR*>(const_cast<char*>(sql.c_str())), SQL_NTS);
  CheckHere(lastExecute_, "SQLExecDirect");
}

void Statement::Bind(Parameters& parameters) {
  SQLFreeStmt(handle_.get(), SQL_CLOSE);
  SQLFreeStmt(handle_.get(), SQL_RESET_PARAMS);
  SQLUSMALLINT number = 0;
  for (Parameters::Value& v : parameters.values_) {
    ++number;
    SQLSMALLINT cType = SQL_C_CHAR;
    SQLSMALLINT sqlType = SQL_VARCHAR;
    SQLULEN columnSize = 0;
    SQLSMALLINT digits = 0;
    SQLPOINTER data = nullptr;
    SQLLEN bufferLength = 0;
    switch (v.type) {
      case FieldType::kText:
        data = const_cast<char*>(v.cell.text.data());
        bufferLength = static_cast<SQLLEN>(v.cell.text.size());
        columnSize = v.cell.text.size() > 255 ? v.cell.text.size() : 255;
        v.indicator = bufferLength;
        break;
      case FieldType::kLong:
      case FieldType::kInt:
        cType = SQL_C_SLONG;
        sqlType = SQL_INTEGER;
        v.small = static_cast<int32_t>(v.cell.integer);
        data = &v.small;
        break;
      case FieldType::kBigInt:
        cType = SQL_C_SBIGINT;
        sqlType = SQL_BIGINT;
        data = &v.cell.integer;
        break;
      case FieldType::kDouble:
        cType = SQL_C_DOUBLE;
        sqlType = SQL_DOUBLE;
        data = &v.cell.real;
        break;
      case FieldType::kDateTime:
        cType = SQL_C_TYPE_TIMESTAMP;
        sqlType = SQL_TYPE_TIMESTAMP;
        columnSize = 29;
        digits = 9;
        ToTimestamp(v.cell.stamp, &v.stamp);
        data = &v.stamp;
        break;
    }
    if (v.cell.null) v.indicator = SQL_NULL_DATA;
    CheckHere(SQLBindParameter(handle_.get(), number, SQL_PARAM_INPUT, cType, sqlType, columnSize,
                               digits, data, bufferLength, &v.indicator),
              "SQLBindParameter");
  }
}

bool Statement::Fetch() {
  const SQLRETURN result = SQLFetch(handle_.get());
  if (result == SQL_NO_DATA) return false;
  CheckHere(result, "SQLFetch");
  return true;
}

long Statement::RowCount() {
  if (lastExecute_ == SQL_NO_DATA) return 0;
  SQLLEN count = 0;
  CheckHere(SQLRowCount(handle_.get(), &count), "SQLRowCount");
  return static_cast<long>(count);
}

void Statement::CloseCursor() { SQLFreeStmt(handle_.get(), SQL_CLOSE); }

int Statement::ColumnCount() {
  SQLSMALLINT count = 0;
  CheckHere(SQLNumResultCols(handle_.get(), &count), "SQLNumResultCols");
  return count;
}

std::string Statement::ColumnLabel(int column) {
  SQLCHAR name[512] = {0};
  SQLSMALLINT length = 0;
  CheckHere(SQLColAttribute(handle_.get(), static_cast<SQLUSMALLINT>(column), SQL_DESC_LABEL, name,
                            sizeof name, &length, nullptr),
            "SQLColAttribute");
  return reinterpret_cast<const char*>(name);
}

std::string Statement::ColumnTable(int column) {
  SQLCHAR name[512] = {0};
  SQLSMALLINT length = 0;
  // Not every driver knows the table of every column; no table is no error.
  if (!SQL_SUCCEEDED(SQLColAttribute(handle_.get(), static_cast<SQLUSMALLINT>(column),
                                     SQL_DESC_TABLE_NAME, name, sizeof name, &length, nullptr))) {
    return std::string();
  }
  return reinterpret_cast<const char*>(name);
}

bool Statement::ColumnIsInteger(int column) {
  SQLLEN type = 0;
  CheckHere(SQLColAttribute(handle_.get(), static_cast<SQLUSMALLINT>(column), SQL_DESC_CONCISE_TYPE,
                            nullptr, 0, nullptr, &type),
            "SQLColAttribute");
  return IsIntegerType(static_cast<SQLSMALLINT>(type));
}

void Statement::Read(int column, FieldType type, size_t maxBytes, Cell* cell) {
  const SQLUSMALLINT number = static_cast<SQLUSMALLINT>(column);
  *cell = Cell();
  switch (type) {
    case FieldType::kText:
      return ReadText(number, maxBytes, cell);
    case FieldType::kLong:
    case FieldType::kInt: {
      SQLINTEGER value = 0;
      if (ReadFixed(number, SQL_C_SLONG, &value)) SetInteger(cell, value);
      return;
    }
    case FieldType::kBigInt: {
      SQLBIGINT value = 0;
      if (ReadFixed(number, SQL_C_SBIGINT, &value)) SetInteger(cell, value);
      return;
    }
    case FieldType::kDouble: {
      SQLDOUBLE value = 0;
      if (!ReadFixed(number, SQL_C_DOUBLE, &value)) return;
      cell->real = value;
      cell->null = false;
      return;
    }
    case FieldType::kDateTime:
      return ReadDateTime(number, cell);
  }
}

void Statement::SetInteger(Cell* cell, int64_t value) {
  cell->integer = value;
  cell->null = false;
}

// A value of fixed size; false when it is null.
bool Statement::ReadFixed(SQLUSMALLINT number, SQLSMALLINT cType, void* value) {
  SQLLEN indicator = 0;
  CheckHere(SQLGetData(handle_.get(), number, cType, value, 0, &indicator), "SQLGetData");
  return indicator != SQL_NULL_DATA;
}

// Long values come in pieces; each piece but the last fills the buffer and ends in NUL. Text
// is read up to `maxBytes` (0: all of it).
void Statement::ReadText(SQLUSMALLINT number, size_t maxBytes, Cell* cell) {
  char buffer[1024];
  std::string text;
  for (;;) {
    SQLLEN indicator = 0;
    const SQLRETURN result =
        SQLGetData(handle_.get(), number, SQL_C_CHAR, buffer, sizeof buffer, &indicator);
    if (result == SQL_NO_DATA) break;
    CheckHere(result, "SQLGetData");
    if (indicator == SQL_NULL_DATA) return;
    const bool piece =
        result == SQL_SUCCESS_WITH_INFO &&
        (indicator == SQL_NO_TOTAL || indicator >= static_cast<SQLLEN>(sizeof buffer));
    if (!piece) {
      text.append(buffer, static_cast<size_t>(indicator));
      break;
    }
    text.append(buffer, sizeof buffer - 1);
    if (maxBytes != 0 && text.size() >= maxBytes) break;
  }
  if (maxBytes != 0 && text.size() > maxBytes) text.resize(maxBytes);
  cell->text = std::move(text);
  cell->null = false;
}

void Statement::ReadDateTime(SQLUSMALLINT number, Cell* cell) {
  SQL_TIMESTAMP_STRUCT value{};
  SQLLEN indicator = 0;
  const SQLRETURN result =
      SQLGetData(handle_.get(), number, SQL_C_TYPE_TIMESTAMP, &value, 0, &indicator);
  cell->null = false;
  if (!SQL_SUCCEEDED(result)) {
    // A value that is no date and time (class 22 or 07: conversion failures) is kept as an
    // invalid one; anything else is a failure of the read itself.
    CDBException e = DiagnosticsOf(SQL_HANDLE_STMT, handle_.get(), "SQLGetData");
    const std::string& state = e.GetSQLState();
    if (state.compare(0, 2, "22") != 0 && state.compare(0, 2, "07") != 0) throw e;
    cell->stamp.status = DBDateTime::invalid;
    return;
  }
  if (indicator == SQL_NULL_DATA) {
    cell->null = true;
    return;
  }
  cell->stamp = DBDateTime(value.year, value.month, value.day, value.hour, value.minute,
                           value.second, value.fraction);
}

}  // namespace KESTREL::store
