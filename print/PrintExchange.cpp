#include "PrintExchange.h"

#include <cstdio>

#include "kestrel/CDICOMPrintException.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DIMSEN.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PrintServiceClasses.h"
#include "kestrel/Status.h"
#include "vxCommon.h"

namespace KESTREL {
namespace print {
namespace {

// Command elements read here, PS3.7 Table E.1-1.
constexpr uint16_t kCommandGroup = 0x0000;
constexpr uint16_t kAffectedSOPClassUID = 0x0002;
constexpr uint16_t kCommandField = 0x0100;
constexpr uint16_t kMessageIDBeingRespondedTo = 0x0120;
constexpr uint16_t kStatus = 0x0900;
constexpr uint16_t kAffectedSOPInstanceUID = 0x1000;
constexpr uint16_t kEventTypeID = 0x1002;
// Printer Status Info, PS3.3 C.13.9: what a printer event says is wrong.
constexpr uint16_t kPrinterGroup = 0x2110;
constexpr uint16_t kPrinterStatusInfo = 0x0020;
constexpr uint16_t kReferencedSOPClassUID = 0x1150;
constexpr uint16_t kReferencedSOPInstanceUID = 0x1155;

// Action Type ID of "print" (PS3.4 H.4.1 and H.4.2, N-ACTION).
constexpr uint16_t kPrintAction = 1;

// A printer that keeps sending events instead of the response is given up on after this many.
constexpr int kMaxEventsPerResponse = 256;

// PS3.4 H.4.6 (printer) and H.4.5 (print job): the printer reports its own state
// changes and its jobs' progress as N-EVENT-REPORTs, which may come at any time. They are
// logged and acknowledged; nothing else depends on them.
bool AnswerEventReport(PDU_Service* pdu, DICOMCommandObject* request) {
  DICOMDataObject eventData;
  if (!NEventReportRQ::Read(request, pdu, &eventData)) return false;
  int eventType = request->GetUInt16(kCommandGroup, kEventTypeID);
  std::string text = "KESTREL.dll : N-EVENT-REPORT : event type " + std::to_string(eventType) +
                     " from " + TextOf(request, kCommandGroup, kAffectedSOPClassUID) + " " +
                     TextOf(request, kCommandGroup, kAffectedSOPInstanceUID);
  std::string info = TextOf(&eventData, kPrinterGroup, kPrinterStatusInfo);
  if (!info.empty()) text += " : " + info;
  Log(text, 3);
  return NEventReportRSP::Write(pdu, request, 0x0000) != 0;
}

}  // namespace

UID AcceptedSyntax(PDU_Service* pdu, std::initializer_list<const char*> candidates) {
  if (!pdu) return UID();
  for (const char* candidate : candidates) {
    if (pdu->FindAcceptedContext(UID(candidate))) return UID(candidate);
  }
  return UID();
}

UID PrintSyntax(PDU_Service* pdu, const UID& sopClass) {
  return AcceptedSyntax(pdu,
                        {PrintSOPClass::kBasicGrayscalePrintManagementMeta, sopClass.GetBuffer()});
}

int Exchange(PDU_Service* pdu, int objectKind, int operation, ResponseCheck check,
             const std::function<int(uint16_t* messageID)>& send, Response& response) {
  if (!pdu || !pdu->IsAssociated()) return ExchangeFailed(objectKind, operation, "no association");
  uint16_t messageID = 0;
  if (!send(&messageID))
    return ExchangeFailed(objectKind, operation,
                          "the request could not be sent (is a print management context "
                          "accepted?)");
  std::string detail;
  if (!ReadResponse(pdu, check, messageID, response, detail))
    return ExchangeFailed(objectKind, operation, detail);
  return 1;
}

int PrintInstance(PDU_Service* pdu, int objectKind, const UID& sopClass, const UID& instance,
                  const char* what) {
  if (instance.IsEmpty())
    return ExchangeFailed(objectKind, PRINT_N_ACTION,
                          std::string("the ") + what + " was not created");
  UID syntax = PrintSyntax(pdu, sopClass);
  Response response;
  auto send = [&](uint16_t* id) {
    return NActionRQ::Write(pdu, syntax, sopClass, instance, kPrintAction, nullptr, id);
  };
  if (!Exchange(pdu, objectKind, PRINT_N_ACTION, &NActionRSP::Read, send, response)) return 0;
  ThrowOnStatus(response, objectKind, PRINT_N_ACTION);
  return 1;
}

int DeleteInstance(PDU_Service* pdu, int objectKind, const UID& sopClass, UID& instance,
                   const char* what) {
  if (instance.IsEmpty())
    return ExchangeFailed(objectKind, PRINT_N_DELETE,
                          std::string("the ") + what + " was not created");
  UID syntax = PrintSyntax(pdu, sopClass);
  Response response;
  auto send = [&](uint16_t* id) { return NDeleteRQ::Write(pdu, syntax, sopClass, instance, id); };
  if (!Exchange(pdu, objectKind, PRINT_N_DELETE, &NDeleteRSP::Read, send, response)) return 0;
  instance = UID();
  ThrowOnStatus(response, objectKind, PRINT_N_DELETE);
  return 1;
}

bool ReadResponse(PDU_Service* pdu, ResponseCheck check, uint16_t messageID, Response& response,
                  std::string& detail) {
  for (int events = 0; events <= kMaxEventsPerResponse; ++events) {
    response.command.Clear();
    if (!pdu->Read(&response.command)) {
      detail = "no response (the association was closed or timed out)";
      return false;
    }
    if (response.command.GetUInt16(kCommandGroup, kCommandField) != NEventReportRQ::kCommandField)
      break;
    if (!AnswerEventReport(pdu, &response.command)) {
      detail = "an N-EVENT-REPORT could not be answered";
      return false;
    }
  }
  if (!check(&response.command, pdu, &response.dataSet)) {
    detail = "the printer's answer is not the response expected";
    return false;
  }
  if (response.command.GetUInt16(kCommandGroup, kMessageIDBeingRespondedTo) != messageID) {
    detail = "the response answers another request";
    return false;
  }
  if (!response.command.Find(kCommandGroup, kStatus)) {
    detail = "the response carries no status";
    return false;
  }
  response.status = response.command.GetUInt16(kCommandGroup, kStatus);
  return true;
}

void ThrowOnStatus(Response& response, int objectKind, int operation) {
  if (response.status == 0x0000) return;
  CDICOMPrintException exception(&response.command);
  std::string sentence;
  exception.GetStatusInterpretation(objectKind, operation, sentence);
  Log("KESTREL.dll : " + exception.RequestName + " : " + InterpretDimseStatus(response.status) +
          " : " + sentence,
      2);
  throw exception;
}

int ExchangeFailed(int objectKind, int operation, const std::string& detail) {
  std::string request = std::string(CDICOMPrintException::ObjectKindName(objectKind)) + ":" +
                        CDICOMPrintException::OperationName(operation);
  SetLastErrorText("ERROR: Unable to write DICOM object.\r\n" + request + ": " + detail);
  Log("KESTREL.dll : " + request + " : " + detail, 1);
  return 0;
}

bool PushValue(DICOMObject* object, std::unique_ptr<VR_XXTYPED> element, const std::string& text) {
  if (!element->SetValue(text.data(), static_cast<uint32_t>(text.size()))) return false;
  if (!object->Push(element.get())) return false;
  element.release();
  return true;
}

bool PushUS(DICOMObject* object, uint16_t group, uint16_t element, uint16_t value) {
  auto typed = std::make_unique<VR_US>(group, element);
  if (!typed->Set(&value) || !object->Push(typed.get())) return false;
  typed.release();
  return true;
}

bool PushSequence(DICOMObject* object, uint16_t group, uint16_t element,
                  std::unique_ptr<DICOMDataObject>& item) {
  auto sequence = std::make_unique<VR_SQ>(group, element);
  if (!object->Push(sequence.get())) return false;
  sequence.release();
  if (!object->PushItem(item.get())) return false;
  item.release();
  return true;
}

bool PushReference(DICOMObject* object, uint16_t group, uint16_t element, const UID& sopClass,
                   const UID& sopInstance) {
  auto item = std::make_unique<DICOMDataObject>();
  return PushText<VR_UI>(item.get(), 0x0008, kReferencedSOPClassUID, sopClass.ToString()) &&
         PushText<VR_UI>(item.get(), 0x0008, kReferencedSOPInstanceUID, sopInstance.ToString()) &&
         PushSequence(object, group, element, item);
}

std::vector<UID> ReferencedInstances(DICOMObject* dataSet, uint16_t group, uint16_t element) {
  std::vector<UID> instances;
  VR* sequence = dataSet->Find(group, element);
  if (!sequence) return instances;
  // An implicit answer read without a dictionary holds the sequence as its items' bytes.
  DICOMCodec codec;
  if (!sequence->SequenceItems && sequence->Data && !codec.ExpandSequenceValue(sequence))
    return instances;
  for (uint32_t i = 0; sequence->SequenceItems && i < sequence->SequenceItems->GetSize(); ++i) {
    UID instance;
    instance.Set(sequence->SequenceItems->Get(i)->Find(0x0008, kReferencedSOPInstanceUID));
    instances.push_back(instance);
  }
  return instances;
}

std::string TextOf(DICOMObject* object, uint16_t group, uint16_t element) {
  VR* vr = object->Find(group, element);
  if (!vr || !vr->Data || vr->Length == 0) return std::string();
  std::string text(static_cast<const char*>(vr->Data), vr->Length);
  while (!text.empty() && (text.back() == '\0' || text.back() == ' ')) text.pop_back();
  return text;
}

}  // namespace print
}  // namespace KESTREL
