#pragma once

// One connection to a database through the ODBC driver manager (unixODBC).

#include <memory>
#include <string>

#include "kestrel/CDBException.h"
#include "kestrel/Export.h"

class KESTREL_API CDatabase {
 public:
  CDatabase();
  // Closes the connection if it is open; never throws.
  virtual ~CDatabase();
  CDatabase(const CDatabase&) = delete;
  CDatabase& operator=(const CDatabase&) = delete;

  // Connects with an ODBC connect string, with or without a leading "ODBC;":
  // "ODBC;DSN=DICOMServer;UID=admin" and "DRIVER=SQLite3;Database=/x/index.db" both work.
  // The driver is never allowed to prompt. A connection that is already open is closed first.
  // Throws CDBException with the driver's SQLSTATE and text when the connection fails (a
  // missing DSN, a server that is down, a wrong password); the login waits at most 15 s.
  //
  // Once connected, waits for locks held by other connections are kept short (SQLite: 100 ms
  // unless the connect string gives "Timeout=", PostgreSQL: lock_timeout 100 ms), so that the
  // record sets' retries, not the driver, decide how long a writer waits.
  virtual void Open(const std::string& connect);
  virtual void Close();
  bool IsOpen() const;

  // The connect string exactly as given to Open, or "" when the connection is not open.
  std::string GetConnect() const;

  // The product behind the connection as the driver names it ("SQLite", "PostgreSQL"); "" when
  // not open.
  std::string GetDBMSName() const;

  // `sql` with its bracketed identifiers ([Study].PatientUID, [AE Title], [dbo].[OrderTable])
  // written in the connected driver's identifier quoting; text inside string literals is left
  // alone. Record sets apply this to every statement they run. Throws CDBException when the
  // connection is not open.
  std::string TranslateSQL(const std::string& sql) const;

  // Runs one statement that returns no rows, after TranslateSQL. Throws CDBException.
  void ExecuteSQL(const std::string& sql);

  // Explicit transactions; without them every statement commits by itself. Throw CDBException.
  void BeginTrans();
  void CommitTrans();
  void Rollback();
  // A transaction that holds the database's write lock from its first moment, so that what it
  // reads stays true until it commits: two such transactions never run at once, on this
  // connection's database, from any process. SQLite: BEGIN IMMEDIATE. PostgreSQL: a transaction
  // holding the library's advisory lock (pg_advisory_xact_lock). Other drivers: BeginTrans.
  // Waiting for the lock is as short as any other lock wait (see Open): a busy database throws
  // CDBException and the caller tries again. End it with CommitTrans or Rollback.
  void BeginWriteTrans();

  struct Impl;  // the ODBC handles; defined in the store's sources only

 private:
  friend class CRecordset;
  std::unique_ptr<Impl> impl_;
};
