#pragma once

// The plain record set: a cursor over the rows of one table, a join or a SELECT statement, whose
// columns are bound by name to member fields of a derived class. Operations that fail throw
// CDBException; CBasicRecordset wraps the common
// ones so that nothing is thrown to its callers.

#include <cstdint>
#include <memory>
#include <string>

#include "kestrel/CDBException.h"
#include "kestrel/CDatabase.h"
#include "kestrel/Export.h"

// A date and time column value with its status. A null column reads as status `null`; a value
// the driver cannot turn into a date and time reads as status `invalid`. Only `valid` values are
// written; the other two are written as NULL.
struct KESTREL_API DBDateTime {
  enum Status { valid = 0, invalid = 1, null = 2 };

  DBDateTime() = default;
  // `valid` when every field is in its range (month 1-12, day 1 to the month's length, hour
  // 0-23, minute 0-59, second 0-59, fraction below 1e9), `invalid` otherwise.
  DBDateTime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0,
             uint32_t fraction = 0);

  bool operator==(const DBDateTime& other) const;
  bool operator!=(const DBDateTime& other) const { return !(*this == other); }

  int Year = 0;
  int Month = 0;
  int Day = 0;
  int Hour = 0;
  int Minute = 0;
  int Second = 0;
  uint32_t Fraction = 0;  // nanoseconds
  Status status = null;
};

// Handed to DoFieldExchange: each call binds one column, by the name given (brackets and a
// table qualifier as written in the set's SQL: "[PatientID]", "[Study].PatientUID"), to a member
// field. The order of the calls is the order of the set's select list. A column that is NULL
// reads as "" / 0 / status null with its null status set (see CRecordset::IsFieldNull).
class KESTREL_API CFieldExchange {
 public:
  // A string column, read up to `maxLength` bytes (the rest of a longer value is not read) and
  // written as VARCHAR.
  void Text(const char* column, std::string& value, int maxLength = 255);
  void Long(const char* column, int32_t& value);  // 32-bit signed integer
  void Int(const char* column, int& value);       // plain integer: counts and flags
  void Double(const char* column, double& value);
  void DateTime(const char* column, DBDateTime& value);

  struct Sink;  // what the calls are collected into; defined in the store's sources

 private:
  friend class CRecordset;
  explicit CFieldExchange(Sink* sink) : sink_(sink) {}
  Sink* sink_;
};

class KESTREL_API CRecordset {
 public:
  // Open types. A dynaset and a snapshot read their rows when they open and move freely over
  // them; a forward-only set reads one row at a time and only moves forward. Sets over one
  // table with a primary key can be changed, except forward-only ones and read-only opens;
  // sets over joins or SELECT statements are read-only.
  enum OpenType : unsigned { dynaset = 0, snapshot = 1, dynamic = 2, forwardOnly = 3 };
  static constexpr unsigned kUseDefaultType = 0xFFFFFFFFu;  // the type set by the constructor

  // Open options (bits).
  enum OpenOptions : uint32_t {
    none = 0,
    appendOnly = 0x1,       // AddNew only: no Edit or Delete
    readOnly = 0x4,         // no changes at all
    executeDirect = 0x2000  // run the statement directly, without preparing it
  };

  // Moves, with the numbers of ODBC's SQL_FETCH_* codes.
  enum FetchType : unsigned short {
    fetchNext = 1,
    fetchFirst = 2,
    fetchLast = 3,
    fetchPrior = 4,
    fetchAbsolute = 5,
    fetchRelative = 6
  };

  // `pDatabase` is not deleted by the set; it is the connection the set works on when it is
  // open. Without one, or when it is not open at Open, the set opens a connection with
  // GetDefaultConnect (its own one, or `pDatabase` itself).
  explicit CRecordset(CDatabase* pDatabase = nullptr);
  virtual ~CRecordset();
  CRecordset(const CRecordset&) = delete;
  CRecordset& operator=(const CRecordset&) = delete;

  // Runs `lpszSQL`, or GetDefaultSQL when it is null or empty, and moves to the first row.
  // SQL that begins with SELECT is run as it is, followed by " WHERE " Filter and " ORDER BY "
  // Sort when they are set; any other text names the table (or the comma-separated tables of
  // a join) and the set selects its bound columns from it. Returns TRUE; throws CDBException.
  virtual int Open(unsigned nOpenType = kUseDefaultType, const char* lpszSQL = nullptr,
                   uint32_t dwOptions = none);
  virtual void Close();
  bool IsOpen() const;

  // Runs the set's SQL again, with the current Filter and Sort, and moves to the first row.
  // Returns TRUE; throws CDBException.
  virtual int Requery();

  // Position. After Open or Requery on no rows both are true.
  bool IsEOF() const;
  bool IsBOF() const;
  // True while the set stands on a row that it deleted.
  bool IsDeleted() const;

  // Moves `rows` rows in the way of `fetchType` (relative moves count rows, absolute ones
  // number them from 1, negative from the end) and loads the row into the bound fields. Rows
  // the set deleted are skipped. Moving past the last row sets EOF, before the first sets BOF;
  // moving further throws. A pending AddNew or Edit is dropped.
  virtual void Move(long rows, unsigned short fetchType = fetchRelative);
  void MoveNext() { Move(1, fetchNext); }
  void MovePrev() { Move(1, fetchPrior); }
  void MoveFirst() { Move(1, fetchFirst); }
  void MoveLast() { Move(1, fetchLast); }

  // Starts a new row: every bound field becomes null ("" / 0 / status null). Fields given a
  // value before Update are written; the others are left to the table's defaults.
  virtual void AddNew();
  // Starts changing the current row; only the fields changed before Update are written.
  virtual void Edit();
  // Writes the pending AddNew or Edit. Returns TRUE when a row was written, FALSE when no field
  // had changed (nothing is written). After an AddNew the set stands again on the row it stood
  // on before; the new row is part of the set from the next Requery. Throws CDBException, also
  // when no row matched the current row's key any more.
  virtual int Update();
  // Deletes the current row; the set stays on it (IsDeleted) until it moves.
  virtual void Delete();
  // Drops a pending AddNew or Edit and puts the fields back as they were.
  void CancelUpdate();

  bool CanUpdate() const;  // Edit and Delete are allowed
  bool CanAppend() const;  // AddNew is allowed
  bool CanScroll() const;  // moves other than forward are allowed

  // Null status of a bound field, by its address. SetFieldNull(p, true) also clears the value;
  // a field given a value after that is no longer null. Throw CDBException for an address that
  // is not a bound field.
  bool IsFieldNull(const void* pField) const;
  void SetFieldNull(void* pField, bool bNull = true);

  unsigned GetOpenType() const;    // the type the set is open with (or will open with)
  int GetFieldCount() const;       // bound columns, known once the set is open
  long GetRecordCount() const;     // rows read so far, less the ones deleted
  std::string GetSQL() const;      // the last statement run, as sent to the driver
  CDatabase* GetDatabase() const;  // the connection in use, or the one given

  // WHERE clause without the word WHERE, and ORDER BY list without the words, both with
  // bracketed identifiers; used by the next Open or Requery.
  std::string Filter;
  std::string Sort;

  virtual std::string GetDefaultConnect();
  virtual std::string GetDefaultSQL();
  virtual void DoFieldExchange(CFieldExchange* pFX);

 protected:
  // The open type Open uses for kUseDefaultType; dynaset unless a constructor says otherwise.
  void SetDefaultType(unsigned openType);
  // The connect string of the connection the set was constructed with when that is not
  // empty, `fallback` otherwise.
  std::string SharedOrDefaultConnect(const char* fallback) const;
  // The options of the last Open.
  uint32_t GetOpenOptions() const;
  // True while an AddNew or Edit waits for Update.
  bool IsWritePending() const;
  // Requery, then stand on the row the set stood on before when it is still there (by its
  // key); when it is gone, or the set stood on no row, the set stands on a deleted place
  // (IsDeleted) before the first row instead. Throws CDBException.
  void RequeryKeepingRow();

 private:
  struct State;
  std::unique_ptr<State> state_;
};
