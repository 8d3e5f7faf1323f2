#pragma once

// The record set that every set of the image database derives from: the plain record set with
// its failures turned into results and texts, and with writes that outlast a busy database.

#include <cstdint>
#include <string>

#include "kestrel/CRecordset.h"
#include "kestrel/Export.h"

class KESTREL_API CBasicRecordset : public CRecordset {
 public:
  explicit CBasicRecordset(CDatabase* pDatabase = nullptr);
  ~CBasicRecordset() override;

  // Opens the set as a dynaset whatever `nOpenType` says; SQL and options are passed on.
  // Returns FALSE on failure, with ErrorText set and the last-error text
  // "KESTREL.dll : CBasicRecordSet::Open():  " followed by the driver's message.
  int Open(unsigned nOpenType = kUseDefaultType, const char* lpszSQL = nullptr,
           uint32_t dwOptions = none) override;
  void Close() override;

  // Pass through to the plain record set. A failure leaves ErrorText and the last-error text
  // ("KESTREL.dll : CBasicRecordSet::Move():  %s", "...::AddNew():  %s", "...::Edit():  %s").
  void Move(long rows, unsigned short fetchType = fetchRelative) override;
  void AddNew() override;
  void Edit() override;

  // Writes the pending AddNew or Edit, trying up to 100 times with a random pause of 11 to
  // 111 ms after each failure (a row locked by another writer, for instance). TRUE when the
  // write went through or there was nothing to write; FALSE after 100 failures, with the last
  // driver message in ErrorText.
  int Update() override;

  // Deletes the current row with the same 100 tries. Between tries the set is read again
  // (unless it was opened with executeDirect) and put back on the same row; when that read
  // fails, "Requery failed!  Giving up...." is logged and the delete gives up. A row that has
  // gone meanwhile counts as deleted. A failure leaves ErrorText set.
  void Delete() override;

  // The message of the last database failure caught by one of the operations above, cut to
  // ErrorTextCapacity characters.
  std::string ErrorText;
  int32_t ErrorTextCapacity = 256;

 private:
  void KeepError(const CDBException& e);
  void ReportDatabaseError(const char* operationMessage, const CDBException& e);
};
