#pragma once

// The worklist orders of the RIS database: the orders joined with their patients. The worklist
// service gives the join condition and the selection as the filter, for example
// "[dbo].[OrderTable].[PatientID] = [dbo].[PatientTable].[PatientID] AND [Modality] = 'CT'".
// A plain record set: its failures are thrown as CDBException to the service that uses it.

#include <string>

#include "kestrel/CRecordset.h"
#include "kestrel/Export.h"

// SQL "[dbo].[OrderTable],[dbo].[PatientTable]"; opens as a snapshot by default; always
// connects with "ODBC;DSN=RISInterface;UID=sa; PWD=;". Read-only.
class KESTREL_API CWorklistOrderSet : public CRecordset {
 public:
  explicit CWorklistOrderSet(CDatabase* pDatabase = nullptr);
  std::string GetDefaultConnect() override;
  std::string GetDefaultSQL() override;
  void DoFieldExchange(CFieldExchange* pFX) override;

  DBDateTime DateTimeTrans;
  std::string OrderTablePatientID;    // [dbo].[OrderTable].[PatientID]
  std::string PatientTablePatientID;  // [dbo].[PatientTable].[PatientID]
  DBDateTime DOB;
  std::string EnteredBy;
  std::string FillerOrderNumber;
  std::string FirstName;
  std::string LastName;
  std::string Modality;  // as the RIS writes it
  std::string OrderControl;
  std::string OrderControlCodeReason;
  std::string OrderingMD;
  std::string OrderStatus;
  std::string OrderTableID;
  std::string PatientTableID;
  std::string PlacerOrderNumber;
  std::string PlacingLocation;
  std::string Priority;
  std::string Radiologist;
  std::string Sex;
  DBDateTime StartDateTime;
  DBDateTime StudyDateTime;
  std::string StudyDescription;
  std::string StudyLocation;
  std::string Technologist;
  std::string VisitID;
  DBDateTime RequestedDateTime;
  std::string FillerField1;
  std::string Site;
};
