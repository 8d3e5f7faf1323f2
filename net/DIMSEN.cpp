// DIMSE-N command sets, PS3.7 10.3 (N-EVENT-REPORT, N-GET, N-SET, N-ACTION, N-CREATE and
// N-DELETE).
#include "kestrel/DIMSEN.h"

#include <memory>

#include "CommandSet.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"

using namespace KESTREL::command;

namespace {

using CommandPtr = std::unique_ptr<DICOMCommandObject>;

// A request naming its SOP class and instance as affected (N-EVENT-REPORT, N-CREATE) or
// requested (N-GET, N-SET, N-ACTION, N-DELETE).
CommandPtr NewInstanceRequest(uint16_t commandField, bool affected, const UID& sopClass,
                              const UID& sopInstance, uint16_t* messageID) {
  CommandPtr command(NewRequest(
      commandField, affected ? kAffectedSOPClassUID : kRequestedSOPClassUID, sopClass, messageID));
  if (!command) return nullptr;
  uint16_t instanceElement = affected ? kAffectedSOPInstanceUID : kRequestedSOPInstanceUID;
  if (!PushUID(command.get(), instanceElement, sopInstance)) return nullptr;
  return command;
}

// The response's Affected SOP Instance UID: the request's requested instance, else its
// affected one.
bool CopyInstance(DICOMCommandObject* request, DICOMCommandObject* response) {
  return CopyElement(request, kRequestedSOPInstanceUID, response, kAffectedSOPInstanceUID) ||
         CopyElement(request, kAffectedSOPInstanceUID, response, kAffectedSOPInstanceUID);
}

}  // namespace

int NEventReportRQ::Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                          const UID& sopInstance, uint16_t eventTypeID, DICOMDataObject* dataSet,
                          uint16_t* messageID) {
  CommandPtr command = NewInstanceRequest(kCommandField, true, sopClass, sopInstance, messageID);
  if (!command || !PushUS(command.get(), kEventTypeID, eventTypeID)) return 0;
  return SendRequest(pdu, abstractSyntax, command.release(), dataSet);
}

int NEventReportRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NEventReportRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                           DICOMDataObject* dataSet) {
  CommandPtr response(NewResponse(kCommandField, request, status));
  if (!response) return 0;
  (void)CopyElement(request, kEventTypeID, response.get(), kEventTypeID);  // when it has one
  return SendResponse(pdu, request, response.release(), dataSet);
}

int NEventReportRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NGetRQ::Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                  const UID& sopInstance, const std::vector<uint32_t>& attributes,
                  uint16_t* messageID) {
  CommandPtr command = NewInstanceRequest(kCommandField, false, sopClass, sopInstance, messageID);
  if (!command || !PushAT(command.get(), kAttributeIdentifierList, attributes)) return 0;
  return SendRequest(pdu, abstractSyntax, command.release(), nullptr);
}

int NGetRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kNever, pdu, dataSet);
}

int NGetRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   DICOMDataObject* dataSet) {
  CommandPtr response(NewResponse(kCommandField, request, status));
  if (!response) return 0;
  CopyInstance(request, response.get());
  return SendResponse(pdu, request, response.release(), dataSet);
}

int NGetRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NSetRQ::Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                  const UID& sopInstance, DICOMDataObject* dataSet, uint16_t* messageID) {
  CommandPtr command = NewInstanceRequest(kCommandField, false, sopClass, sopInstance, messageID);
  if (!command) return 0;
  return SendRequest(pdu, abstractSyntax, command.release(), dataSet);
}

int NSetRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NSetRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                   DICOMDataObject* dataSet) {
  CommandPtr response(NewResponse(kCommandField, request, status));
  if (!response) return 0;
  CopyInstance(request, response.get());
  return SendResponse(pdu, request, response.release(), dataSet);
}

int NSetRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NActionRQ::Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                     const UID& sopInstance, uint16_t actionTypeID, DICOMDataObject* dataSet,
                     uint16_t* messageID) {
  CommandPtr command = NewInstanceRequest(kCommandField, false, sopClass, sopInstance, messageID);
  if (!command || !PushUS(command.get(), kActionTypeID, actionTypeID)) return 0;
  return SendRequest(pdu, abstractSyntax, command.release(), dataSet);
}

int NActionRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NActionRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                      DICOMDataObject* dataSet) {
  CommandPtr response(NewResponse(kCommandField, request, status));
  if (!response) return 0;
  (void)CopyElement(request, kActionTypeID, response.get(), kActionTypeID);  // when it has one
  return SendResponse(pdu, request, response.release(), dataSet);
}

int NActionRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NCreateRQ::Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                     const UID& sopInstance, DICOMDataObject* dataSet, uint16_t* messageID) {
  // Without an instance the element is left out (PS3.7 10.3.5.1, user option): performers
  // read an element that is there but empty as an empty instance UID and create that.
  CommandPtr command =
      sopInstance.IsEmpty()
          ? CommandPtr(NewRequest(kCommandField, kAffectedSOPClassUID, sopClass, messageID))
          : NewInstanceRequest(kCommandField, true, sopClass, sopInstance, messageID);
  if (!command) return 0;
  return SendRequest(pdu, abstractSyntax, command.release(), dataSet);
}

int NCreateRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NCreateRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                      const UID& sopInstance, DICOMDataObject* dataSet) {
  CommandPtr response(NewResponse(kCommandField, request, status));
  if (!response || !PushUID(response.get(), kAffectedSOPInstanceUID, sopInstance)) return 0;
  return SendResponse(pdu, request, response.release(), dataSet);
}

int NCreateRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int NDeleteRQ::Write(PDU_Service* pdu, const UID& abstractSyntax, const UID& sopClass,
                     const UID& sopInstance, uint16_t* messageID) {
  CommandPtr command = NewInstanceRequest(kCommandField, false, sopClass, sopInstance, messageID);
  if (!command) return 0;
  return SendRequest(pdu, abstractSyntax, command.release(), nullptr);
}

int NDeleteRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kNever, pdu, dataSet);
}

int NDeleteRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status) {
  CommandPtr response(NewResponse(kCommandField, request, status));
  if (!response) return 0;
  CopyInstance(request, response.get());
  return SendResponse(pdu, request, response.release(), nullptr);
}

int NDeleteRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kNever, pdu, dataSet);
}
