#include "CommandSet.h"

#include <cstring>
#include <memory>
#include <new>

#include "Counters.h"
#include "kestrel/PDU_Service.h"

namespace KESTREL {
namespace command {
namespace {

constexpr uint16_t kCommandGroup = 0x0000;
constexpr uint16_t kTypeUS = MakeTypeCode('U', 'S');
constexpr uint16_t kTypeUI = MakeTypeCode('U', 'I');
constexpr uint16_t kTypeAE = MakeTypeCode('A', 'E');
constexpr uint16_t kTypeAT = MakeTypeCode('A', 'T');
constexpr uint16_t kTypeLO = MakeTypeCode('L', 'O');

bool PushBytes(DICOMObject* command, uint16_t element, const void* data, uint32_t length,
               uint16_t typeCode, char pad) {
  uint32_t even = length + (length & 1);
  std::unique_ptr<VR> vr(new (std::nothrow) VR(kCommandGroup, element, even, even != 0));
  if (!vr || (even && !vr->Data)) return false;
  if (length) std::memcpy(vr->Data, data, length);
  if (even != length) static_cast<char*>(vr->Data)[length] = pad;
  vr->TypeCode = typeCode;
  if (!command->Push(vr.get())) return false;
  vr.release();
  return true;
}

}  // namespace

bool PushUS(DICOMObject* command, uint16_t element, uint16_t value) {
  return PushBytes(command, element, &value, 2, kTypeUS, 0);
}

bool PushUID(DICOMObject* command, uint16_t element, const UID& uid) {
  return PushBytes(command, element, uid.GetBuffer(), static_cast<uint32_t>(uid.GetSize()), kTypeUI,
                   '\0');
}

bool PushAE(DICOMObject* command, uint16_t element, const std::string& title) {
  char field[16];
  std::memset(field, ' ', sizeof field);
  std::memcpy(field, title.data(), title.size() < 16 ? title.size() : 16);
  return PushBytes(command, element, field, 16, kTypeAE, ' ');
}

bool PushText(DICOMObject* command, uint16_t element, const std::string& text, size_t limit) {
  const std::string value = text.substr(0, limit);
  return PushBytes(command, element, value.data(), static_cast<uint32_t>(value.size()), kTypeLO,
                   ' ');
}

std::string GetText(DICOMObject* command, uint16_t element) {
  VR* found = command ? command->Find(kCommandGroup, element) : nullptr;
  if (!found || !found->Data) return std::string();
  std::string text(static_cast<const char*>(found->Data), found->Length);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
  return text;
}

bool PushAT(DICOMObject* command, uint16_t element, const std::vector<uint32_t>& tags) {
  std::vector<uint16_t> halves;
  for (uint32_t tag : tags) {
    halves.push_back(static_cast<uint16_t>(tag >> 16));
    halves.push_back(static_cast<uint16_t>(tag));
  }
  return PushBytes(command, element, halves.data(), static_cast<uint32_t>(halves.size() * 2),
                   kTypeAT, 0);
}

bool CopyElement(DICOMObject* from, uint16_t fromElement, DICOMObject* to, uint16_t toElement) {
  VR* source = from ? from->Find(kCommandGroup, fromElement) : nullptr;
  if (!source) return false;
  return PushBytes(to, toElement, source->Data, source->Data ? source->Length : 0, source->TypeCode,
                   0);
}

UID GetUID(DICOMObject* command, uint16_t element) {
  UID uid;
  if (command) uid.Set(command->Find(kCommandGroup, element));
  return uid;
}

bool HasDataSet(DICOMObject* command) {
  VR* type = command->Find(kCommandGroup, kDataSetType);
  return type && command->GetUInt16(kCommandGroup, kDataSetType) != kNoDataSet;
}

DICOMCommandObject* NewRequest(uint16_t commandField, uint16_t sopClassElement, const UID& sopClass,
                               uint16_t* messageID) {
  auto command = std::make_unique<DICOMCommandObject>();
  uint16_t id = DrawMessageID();
  if (messageID) *messageID = id;
  if (!PushUID(command.get(), sopClassElement, sopClass) ||
      !PushUS(command.get(), kCommandField, commandField) || !PushUS(command.get(), kMessageID, id))
    return nullptr;
  return command.release();
}

DICOMCommandObject* NewResponse(uint16_t commandField, DICOMCommandObject* request,
                                uint16_t status) {
  if (!request) return nullptr;
  auto response = std::make_unique<DICOMCommandObject>();
  UID sopClass = GetUID(request, kAffectedSOPClassUID);
  if (sopClass.IsEmpty()) sopClass = GetUID(request, kRequestedSOPClassUID);
  if (!PushUID(response.get(), kAffectedSOPClassUID, sopClass) ||
      !PushUS(response.get(), kCommandField, commandField) ||
      !PushUS(response.get(), kMessageIDBeingRespondedTo,
              request->GetUInt16(kCommandGroup, kMessageID)) ||
      !PushUS(response.get(), kStatus, status))
    return nullptr;
  return response.release();
}

int SendOnContext(PDU_Service* pdu, uint8_t contextID, DICOMCommandObject* command,
                  DICOMDataObject* dataSet) {
  std::unique_ptr<DICOMCommandObject> owned(command);
  if (!pdu || !command) return 0;
  if (!PushUS(command, kDataSetType, dataSet ? kDataSetFollows : kNoDataSet)) return 0;
  if (!pdu->WriteOnContext(command, contextID, true)) return 0;
  return dataSet ? pdu->WriteOnContext(dataSet, contextID, false) : 1;
}

int SendRequest(PDU_Service* pdu, const UID& abstractSyntax, DICOMCommandObject* command,
                DICOMDataObject* dataSet) {
  const PresentationContext* context = pdu ? pdu->FindAcceptedContext(abstractSyntax) : nullptr;
  if (!context) {
    delete command;
    return 0;
  }
  return SendOnContext(pdu, context->PresentationContextID, command, dataSet);
}

int SendResponse(PDU_Service* pdu, DICOMCommandObject* request, DICOMCommandObject* response,
                 DICOMDataObject* dataSet) {
  const PresentationContext* context =
      pdu ? pdu->FindAcceptedContext(pdu->GetLastPresentationContextID()) : nullptr;
  if (!context && pdu) {
    UID sopClass = GetUID(request, kAffectedSOPClassUID);
    if (sopClass.IsEmpty()) sopClass = GetUID(request, kRequestedSOPClassUID);
    context = pdu->FindAcceptedContext(sopClass);
  }
  if (!context) {
    delete response;
    return 0;
  }
  return SendOnContext(pdu, context->PresentationContextID, response, dataSet);
}

int CheckAndRead(DICOMCommandObject* command, uint16_t commandField, DataSetRule rule,
                 PDU_Service* pdu, DICOMDataObject* dataSet) {
  if (!command || !command->Find(kCommandGroup, kCommandField) ||
      command->GetUInt16(kCommandGroup, kCommandField) != commandField)
    return 0;
  if (rule == DataSetRule::kNever) return 1;
  bool follows = HasDataSet(command);
  if (rule == DataSetRule::kRequired && !follows) return 0;
  if (!follows || !pdu || !dataSet) return 1;
  return pdu->Read(dataSet);
}

}  // namespace command
}  // namespace KESTREL
