#pragma once

// What a CDatabase holds behind its public face: the ODBC handles, the dialect of the connected
// driver, the primary keys already looked up, and the record sets that hold statements on it.

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Odbc.h"
#include "SqlDialect.h"
#include "kestrel/CDatabase.h"

struct CDatabase::Impl {
  KESTREL::store::EnvHandle environment;
  KESTREL::store::ConnectionHandle connection;
  bool open = false;
  bool inTransaction = false;
  // The transaction was begun with a statement (BEGIN IMMEDIATE) rather than by turning
  // autocommit off, and is ended with one.
  bool statementTransaction = false;
  std::string connect;
  std::string dbmsName;
  KESTREL::store::Dialect dialect;

  // Primary key columns by "schema.table" as the catalog names them; empty when the table has
  // none. Looked up once per connection.
  std::map<std::string, std::vector<std::string>> primaryKeys;

  // Record sets with statements on this connection, each with the function that lets go of
  // them; run before the connection closes, as statements must not outlive it.
  std::map<const void*, std::function<void()>> dependents;

  // Statements prepared once and run again with new parameters (SQLite, where preparing costs
  // more than running a short query), by their text; a few dozen at most.
  std::vector<std::pair<std::string, std::unique_ptr<KESTREL::store::Statement>>> kept;
  KESTREL::store::Statement& KeptStatement(const std::string& sql);

  SQLHDBC handle() const { return connection.get(); }

  // The time-out, in seconds, each statement gets; 0 for none. The SQLite driver takes a
  // statement's time-out as its wait for locks, which must stay the short one the connection
  // set, so SQLite statements get none.
  unsigned long QueryTimeout() const {
    return dialect.kind == KESTREL::store::DialectKind::kSQLite ? 0 : 60;
  }
};

namespace KESTREL::store {

// The primary key columns of a table (the catalog's names), in key order; cached.
const std::vector<std::string>& PrimaryKeyOf(CDatabase::Impl& database, const CatalogName& table);

}  // namespace KESTREL::store
