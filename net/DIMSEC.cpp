// DIMSE-C command sets, PS3.7 9.3 (requests and responses of C-ECHO, C-STORE, C-FIND and
// C-MOVE).
#include "kestrel/DIMSEC.h"

#include <memory>
#include <string>

#include "CommandSet.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"

using namespace KESTREL::command;

namespace {

constexpr uint16_t kDataGroup = 0x0008;
constexpr uint16_t kSOPInstanceUID = 0x0018;
constexpr uint16_t kResponseBit = 0x8000;
constexpr size_t kErrorCommentLength = 64;  // LO, PS3.7 Table C.4-1

// A request command set with Priority medium, the element C-STORE, C-FIND and C-MOVE carry.
DICOMCommandObject* NewPrioritizedRequest(uint16_t commandField, const UID& sopClass,
                                          uint16_t* messageID) {
  std::unique_ptr<DICOMCommandObject> command(
      NewRequest(commandField, kAffectedSOPClassUID, sopClass, messageID));
  if (!command || !PushUS(command.get(), kPriority, kPriorityMedium)) return nullptr;
  return command.release();
}

}  // namespace

int CEchoRQ::Write(PDU_Service* pdu, const UID& sopClass, uint16_t* messageID) {
  return SendRequest(pdu, sopClass,
                     NewRequest(kCommandField, kAffectedSOPClassUID, sopClass, messageID), nullptr);
}

int CEchoRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kNever, pdu, dataSet);
}

int CEchoRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status) {
  return SendResponse(pdu, request, NewResponse(kCommandField, request, status), nullptr);
}

int CEchoRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kNever, pdu, dataSet);
}

int CStoreRQ::Write(PDU_Service* pdu, const UID& sopClass, DICOMDataObject* dataSet,
                    uint16_t* messageID) {
  if (!dataSet) return 0;
  UID instance;
  if (!instance.Set(dataSet->Find(kDataGroup, kSOPInstanceUID)) || instance.IsEmpty()) return 0;
  std::unique_ptr<DICOMCommandObject> command(
      NewPrioritizedRequest(kCommandField, sopClass, messageID));
  if (!command || !PushUID(command.get(), kAffectedSOPInstanceUID, instance)) return 0;
  return SendRequest(pdu, sopClass, command.release(), dataSet);
}

int CStoreRQ::Write(PDU_Service* pdu, uint8_t contextID, const UID& sopClass,
                    const UID& sopInstance, DICOMDataObject* dataSet, const Options& options,
                    uint16_t* messageID) {
  if (!pdu || !dataSet || sopClass.IsEmpty() || sopInstance.IsEmpty() ||
      !pdu->FindAcceptedContext(contextID))
    return 0;
  std::unique_ptr<DICOMCommandObject> command(
      NewRequest(kCommandField, kAffectedSOPClassUID, sopClass, messageID));
  if (!command || !PushUS(command.get(), kPriority, options.Priority) ||
      !PushUID(command.get(), kAffectedSOPInstanceUID, sopInstance))
    return 0;
  if (!options.MoveOriginatorAETitle.empty() &&
      (!PushAE(command.get(), kMoveOriginatorAETitle, options.MoveOriginatorAETitle) ||
       !PushUS(command.get(), kMoveOriginatorMessageID, options.MoveOriginatorMessageID)))
    return 0;
  return SendOnContext(pdu, contextID, command.release(), dataSet);
}

int CStoreRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kRequired, pdu, dataSet);
}

int CStoreRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                     const std::string& errorComment) {
  std::unique_ptr<DICOMCommandObject> response(NewResponse(kCommandField, request, status));
  if (!response) return 0;
  // Present only when the request carried one.
  (void)CopyElement(request, kAffectedSOPInstanceUID, response.get(), kAffectedSOPInstanceUID);
  if (!errorComment.empty() &&
      !PushText(response.get(), kErrorComment, errorComment, kErrorCommentLength))
    return 0;
  return SendResponse(pdu, request, response.release(), nullptr);
}

int CStoreRSP::ReadFor(PDU_Service* pdu, uint16_t messageID, uint16_t* status,
                       std::string* errorComment) {
  DICOMCommandObject response;
  if (!pdu || !pdu->Read(&response) || !Read(&response) ||
      response.GetUInt16(0x0000, kMessageIDBeingRespondedTo) != messageID ||
      !response.Find(0x0000, kStatus))
    return 0;
  if (status) *status = response.GetUInt16(0x0000, kStatus);
  if (errorComment) *errorComment = GetText(&response, kErrorComment);
  return 1;
}

int WriteStatusResponse(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                        const std::string& errorComment) {
  if (!request || !request->Find(0x0000, kCommandField)) return 0;
  const uint16_t field = request->GetUInt16(0x0000, kCommandField);
  if (field & kResponseBit) return 0;
  std::unique_ptr<DICOMCommandObject> response(
      NewResponse(static_cast<uint16_t>(field | kResponseBit), request, status));
  if (!response) return 0;
  // Present only when the request carried one.
  (void)CopyElement(request, kAffectedSOPInstanceUID, response.get(), kAffectedSOPInstanceUID);
  if (!errorComment.empty() &&
      !PushText(response.get(), kErrorComment, errorComment, kErrorCommentLength))
    return 0;
  return SendResponse(pdu, request, response.release(), nullptr);
}

int CStoreRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kNever, pdu, dataSet);
}

int CFindRQ::Write(PDU_Service* pdu, const UID& sopClass, DICOMDataObject* identifier,
                   uint16_t* messageID) {
  if (!identifier) return 0;
  return SendRequest(pdu, sopClass, NewPrioritizedRequest(kCommandField, sopClass, messageID),
                     identifier);
}

int CFindRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kRequired, pdu, dataSet);
}

int CFindRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                    DICOMDataObject* match) {
  return SendResponse(pdu, request, NewResponse(kCommandField, request, status), match);
}

int CFindRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}

int CMoveRQ::Write(PDU_Service* pdu, const UID& sopClass, const std::string& moveDestination,
                   DICOMDataObject* identifier, uint16_t* messageID) {
  if (!identifier) return 0;
  std::unique_ptr<DICOMCommandObject> command(
      NewPrioritizedRequest(kCommandField, sopClass, messageID));
  if (!command || !PushAE(command.get(), kMoveDestination, moveDestination)) return 0;
  return SendRequest(pdu, sopClass, command.release(), identifier);
}

int CMoveRQ::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kRequired, pdu, dataSet);
}

int CMoveRSP::Write(PDU_Service* pdu, DICOMCommandObject* request, uint16_t status,
                    const Counts& counts, DICOMDataObject* identifier) {
  std::unique_ptr<DICOMCommandObject> response(NewResponse(kCommandField, request, status));
  if (!response || !PushUS(response.get(), kRemainingSubOperations, counts.Remaining) ||
      !PushUS(response.get(), kCompletedSubOperations, counts.Completed) ||
      !PushUS(response.get(), kFailedSubOperations, counts.Failed) ||
      !PushUS(response.get(), kWarningSubOperations, counts.Warning))
    return 0;
  return SendResponse(pdu, request, response.release(), identifier);
}

int CMoveRSP::Read(DICOMCommandObject* command, PDU_Service* pdu, DICOMDataObject* dataSet) {
  return CheckAndRead(command, kCommandField, DataSetRule::kOptional, pdu, dataSet);
}
