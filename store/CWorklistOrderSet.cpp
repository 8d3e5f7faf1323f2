#include "kestrel/CWorklistOrderSet.h"

CWorklistOrderSet::CWorklistOrderSet(CDatabase* pDatabase) : CRecordset(pDatabase) {
  SetDefaultType(snapshot);
}

// The RIS's own data source; the blank before PWD is how the RIS set-up writes it.
std::string CWorklistOrderSet::GetDefaultConnect() { return "ODBC;DSN=RISInterface;UID=sa; PWD=;"; }

std::string CWorklistOrderSet::GetDefaultSQL() { return "[dbo].[OrderTable],[dbo].[PatientTable]"; }

void CWorklistOrderSet::DoFieldExchange(CFieldExchange* pFX) {
  pFX->DateTime("[DateTimeTrans]", DateTimeTrans);
  pFX->Text("[dbo].[OrderTable].[PatientID]", OrderTablePatientID);
  pFX->Text("[dbo].[PatientTable].[PatientID]", PatientTablePatientID);
  pFX->DateTime("[DOB]", DOB);
  pFX->Text("[EnteredBy]", EnteredBy);
  pFX->Text("[FillerOrderNumber]", FillerOrderNumber);
  pFX->Text("[FirstName]", FirstName);
  pFX->Text("[LastName]", LastName);
  pFX->Text("[Modality]", Modality);
  pFX->Text("[OrderControl]", OrderControl);
  pFX->Text("[OrderControlCodeReason]", OrderControlCodeReason);
  pFX->Text("[OrderingMD]", OrderingMD);
  pFX->Text("[OrderStatus]", OrderStatus);
  pFX->Text("[OrderTableID]", OrderTableID);
  pFX->Text("[PatientTableID]", PatientTableID);
  pFX->Text("[PlacerOrderNumber]", PlacerOrderNumber);
  pFX->Text("[PlacingLocation]", PlacingLocation);
  pFX->Text("[Priority]", Priority);
  pFX->Text("[Radiologist]", Radiologist);
  pFX->Text("[Sex]", Sex);
  pFX->DateTime("[StartDateTime]", StartDateTime);
  pFX->DateTime("[StudyDateTime]", StudyDateTime);
  pFX->Text("[StudyDescription]", StudyDescription);
  pFX->Text("[StudyLocation]", StudyLocation);
  pFX->Text("[Technologist]", Technologist);
  pFX->Text("[VisitID]", VisitID);
  pFX->DateTime("[RequestedDateTime]", RequestedDateTime);
  pFX->Text("[FillerField1]", FillerField1);
  pFX->Text("[Site]", Site);
}
