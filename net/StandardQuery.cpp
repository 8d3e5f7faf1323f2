#include "kestrel/StandardQuery.h"

#include <memory>

#include "CommandSet.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"

namespace command = KESTREL::command;

namespace {

int SetUID(UID& uid, const char* value) {
  uid = value;
  return 1;
}

bool IsPending(uint16_t status) {
  return status == DIMSEStatus::kPending || status == DIMSEStatus::kPendingWarning;
}

// PS3.4 Table C.4-1: A900 (identifier does not match the SOP class) and Cxxx (unable to
// process) are the failures of a query.
bool IsQueryFailure(uint16_t status) {
  return status == DIMSEStatus::kIdentifierDoesNotMatch || (status & 0xF000) == 0xC000;
}

// Deletes the objects of an array the base owns, and empties it.
void DeleteAll(Array<DICOMDataObject*>& objects) {
  for (uint32_t i = 0; i < objects.GetSize(); ++i) delete objects.Get(i);
  objects.RemoveAll();
}

}  // namespace

StandardQuery::~StandardQuery() = default;

int StandardQuery::GetUID(UID& uid) {
  uid = UID();
  return 0;
}

int StandardQuery::uGetUID(UID& uid) { return GetUID(uid); }

int StandardQuery::SearchOn(DICOMDataObject* query, Array<DICOMDataObject*>* matches) { return 0; }

int StandardQuery::CallBack(DICOMCommandObject* response, DICOMDataObject* match) { return 0; }

int StandardQuery::Write(PDU_Service* pdu, DICOMDataObject* identifier) {
  UID uid;
  GetUID(uid);
  if (!pdu || !CFindRQ::Write(pdu, uid, identifier)) return 0;
  for (;;) {
    DICOMCommandObject response;
    auto match = std::make_unique<DICOMDataObject>();
    if (!pdu->Read(&response) || !CFindRSP::Read(&response, pdu, match.get())) return 0;
    uint16_t status = response.GetUInt16(0x0000, command::kStatus);
    if (!IsPending(status)) return IsQueryFailure(status) ? 0 : 1;
    if (command::HasDataSet(&response) && CallBack(&response, match.get())) match.release();
  }
}

int StandardQuery::Read(PDU_Service* pdu, DICOMCommandObject* request) {
  DICOMDataObject identifier;
  if (!pdu || !CFindRQ::Read(request, pdu, &identifier)) return 0;
  Array<DICOMDataObject*> matches;
  if (!SearchOn(&identifier, &matches)) {
    DeleteAll(matches);
    return CFindRSP::Write(pdu, request, DIMSEStatus::kUnableToProcess, nullptr);
  }
  for (uint32_t i = 0; i < matches.GetSize(); ++i) {
    std::unique_ptr<DICOMDataObject> match(matches.Get(i));
    matches.Get(i) = nullptr;
    if (!match) continue;
    if (!CFindRSP::Write(pdu, request, DIMSEStatus::kPending, match.get())) {
      DeleteAll(matches);
      return 0;
    }
  }
  matches.RemoveAll();
  return CFindRSP::Write(pdu, request, DIMSEStatus::kSuccess, nullptr);
}

int PatientRootQuery::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.2.1.1"); }
int StudyRootQuery::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.2.2.1"); }
int PatientStudyOnlyQuery::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.2.3.1"); }
int ModalityWorklistInformationQuery::GetUID(UID& uid) {
  return SetUID(uid, "1.2.840.10008.5.1.4.31");
}
int MitraReportManagementQuery::GetUID(UID& uid) { return SetUID(uid, "1.2.840.113532.3500.8"); }
