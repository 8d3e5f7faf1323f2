#include "kestrel/StandardRetrieve.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CommandSet.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PresentationContext.h"
#include "kestrel/StandardStorage.h"

namespace command = KESTREL::command;

namespace {

constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";
constexpr uint16_t kMetaGroup = 0x0002;
constexpr uint16_t kTransferSyntaxUID = 0x0010;
constexpr uint16_t kDataGroup = 0x0008;
constexpr uint16_t kSOPClassUID = 0x0016;
constexpr uint16_t kSOPInstanceUID = 0x0018;
constexpr uint16_t kFailedSOPInstanceUIDList = 0x0058;
constexpr uint16_t kCancelCommand = 0x0FFF;

int SetUID(UID& uid, const char* value) {
  uid = value;
  return 1;
}

// PS3.4 Table C.4-2: warnings are Bxxx, failures Axxx and Cxxx.
bool IsMoveFailure(uint16_t status) {
  return (status & 0xF000) == 0xA000 || (status & 0xF000) == 0xC000;
}

bool IsWarning(uint16_t status) { return (status & 0xF000) == 0xB000; }

void DeleteAll(Array<DICOMDataObject*>& objects) {
  for (uint32_t i = 0; i < objects.GetSize(); ++i) delete objects.Get(i);
  objects.RemoveAll();
}

void CopyText(unsigned char* to, size_t size, const std::string& text) {
  std::memset(to, 0, size);
  std::memcpy(to, text.data(), text.size() < size - 1 ? text.size() : size - 1);
}

std::string TextOf(unsigned char* bytes, size_t size) {
  bytes[size - 1] = 0;
  return std::string(reinterpret_cast<const char*>(bytes));
}

// The C-STORE sub-operations of one C-MOVE (PS3.4 C.4.2.3.1), each a C-STORE through
// StandardStorage::Store naming the move originator. They share one association with the
// destination, proposing for every SOP class the matches name (PlanFor) the transfer syntaxes
// its stored instances can go in (StorageTransferSyntaxes), so that each instance goes in the
// syntax it is held in or one the destination accepts. An instance of a class or syntax not
// foreseen opens the association again with it added. A destination that could not be
// reached is not tried again.
class SubOperations {
 public:
  struct Destination {
    std::string aeTitle, localAE, host, port;
    uint32_t timeout = 0;
  };

  SubOperations(Destination destination, CStoreRQ::Options options)
      : destination_(std::move(destination)), options_(std::move(options)) {}
  ~SubOperations() { Release(); }

  // Foresees instances of `sopClass` held in `heldSyntax`; false when no more contexts fit.
  bool PlanFor(const UID& sopClass, const UID& heldSyntax) {
    if (sopClass.IsEmpty()) return true;
    const std::vector<UID> syntaxes = StorageTransferSyntaxes(heldSyntax);
    for (const Proposal& planned : plan_)
      if (planned.sopClass == sopClass && planned.syntaxes[0] == syntaxes[0]) return true;
    if (plan_.size() == kMaxContexts) return false;
    plan_.push_back({sopClass, syntaxes});
    return true;
  }

  // The C-STORE-RSP status, or false when the object could not be sent.
  bool Store(StandardStorage* storage, DICOMDataObject* object, uint16_t& status) {
    UID sopClass, sopInstance, held;
    storage->GetUID(sopClass);
    if (sopClass.IsEmpty()) sopClass.Set(object->Find(kDataGroup, kSOPClassUID));
    sopInstance.Set(object->Find(kDataGroup, kSOPInstanceUID));
    held.Set(object->Find(kMetaGroup, kTransferSyntaxUID));
    if (sopClass.IsEmpty() || sopInstance.IsEmpty() || !CanTravel(object, held)) return false;
    if (!Foreseen(sopClass, held)) {
      if (!PlanFor(sopClass, held)) {
        plan_.clear();
        PlanFor(sopClass, held);
      }
      Release();
    }
    if (!pdu_ && (unreachable_ || !Open())) return false;
    const PresentationContext* context = FindStorageContext(*pdu_, sopClass, held);
    if (!context) return false;  // the destination refused this class in these syntaxes
    if (StandardStorage::Store(pdu_.get(), context->PresentationContextID, sopClass, sopInstance,
                               object, options_, &status))
      return true;
    pdu_->Abort();  // the association broke; the next object opens a new one
    pdu_.reset();
    return false;
  }

  void Release() {
    if (pdu_) pdu_->Close();
    pdu_.reset();
  }

 private:
  static constexpr size_t kMaxContexts = 128;  // odd context IDs 1 to 255 (PS3.8 9.3.2.2)

  struct Proposal {
    UID sopClass;
    std::vector<UID> syntaxes;
  };

  // Encapsulated pixel data held under an uncompressed syntax would reach the peer as a
  // stream it cannot parse.
  static bool CanTravel(DICOMDataObject* object, const UID& held) {
    VR* pixels = object->Find(0x7FE0, 0x0010);
    return !IsUncompressedTransferSyntax(held) || !pixels || !pixels->SequenceItems ||
           !pixels->SequenceItems->GetSize();
  }

  bool Foreseen(const UID& sopClass, const UID& held) const {
    const UID first = StorageTransferSyntaxes(held)[0];
    for (const Proposal& planned : plan_)
      if (planned.sopClass == sopClass && planned.syntaxes[0] == first) return true;
    return false;
  }

  bool Open() {
    auto pdu = std::make_unique<PDU_Service>();
    pdu->SetApplicationContext(kApplicationContext);
    for (const Proposal& planned : plan_)
      pdu->AddAbstractSyntax(planned.sopClass, planned.syntaxes);
    pdu->SetTimeout(destination_.timeout);
    if (!pdu->SetLocalAddress(destination_.localAE) ||
        !pdu->SetRemoteAddress(destination_.aeTitle) ||
        !pdu->Connect(destination_.host.c_str(), destination_.port.c_str(), nullptr)) {
      unreachable_ = true;
      return false;
    }
    pdu_ = std::move(pdu);
    return true;
  }

  Destination destination_;
  CStoreRQ::Options options_;
  std::vector<Proposal> plan_;
  std::unique_ptr<PDU_Service> pdu_;
  bool unreachable_ = false;
};

// The Failed SOP Instance UID List (0008,0058) of a final response (PS3.4 C.4.2.1.4.4); as many
// UIDs as a value of a 16-bit length holds.
std::unique_ptr<DICOMDataObject> FailedList(const std::vector<std::string>& failed) {
  if (failed.empty()) return nullptr;
  std::string list;
  for (const std::string& uid : failed) {
    if (list.size() + uid.size() + 2 > 0xFFFE) break;
    list += (list.empty() ? "" : "\\") + uid;
  }
  if (list.size() & 1) list += '\0';
  auto identifier = std::make_unique<DICOMDataObject>();
  auto element = std::make_unique<VR>(kDataGroup, kFailedSOPInstanceUIDList,
                                      static_cast<uint32_t>(list.size()), true);
  if (!element->Data) return nullptr;
  std::memcpy(element->Data, list.data(), list.size());
  element->TypeCode = MakeTypeCode('U', 'I');
  if (!identifier->Push(element.get())) return nullptr;
  element.release();
  return identifier;
}

// Whether the peer has asked to cancel `request` (PS3.7 9.3.4.3); `broken` when it sent
// anything else, after which the move cannot go on.
bool CancelAsked(PDU_Service* pdu, DICOMCommandObject* request, bool& broken) {
  while (pdu->HasInput()) {
    DICOMCommandObject command;
    if (!pdu->Read(&command) ||
        command.GetUInt16(0x0000, command::kCommandField) != kCancelCommand) {
      broken = true;
      return false;
    }
    if (command.GetUInt16(0x0000, command::kMessageIDBeingRespondedTo) ==
        request->GetUInt16(0x0000, command::kMessageID))
      return true;
  }
  return false;
}

std::string InstanceOf(DICOMDataObject* match, DICOMDataObject* object) {
  UID uid;
  if (object) uid.Set(object->Find(kDataGroup, kSOPInstanceUID));
  if (uid.IsEmpty() && match) uid.Set(match->Find(kDataGroup, kSOPInstanceUID));
  return uid.ToString();
}

}  // namespace

StandardRetrieve::~StandardRetrieve() = default;

int StandardRetrieve::GetUID(UID& uid) {
  uid = UID();
  return 0;
}

int StandardRetrieve::uGetUID(UID& uid) { return GetUID(uid); }

int StandardRetrieve::SearchOn(DICOMDataObject* identifier, Array<DICOMDataObject*>* matches) {
  return 0;
}

int StandardRetrieve::RetrieveOn(DICOMDataObject* match, DICOMDataObject** objectToSend,
                                 StandardStorage** storageClass) {
  return 0;
}

int StandardRetrieve::QualifyOn(unsigned char* moveDestinationAE, unsigned char* localAE,
                                unsigned char* host, unsigned char* port) {
  return 0;
}

int StandardRetrieve::CallBack(DICOMCommandObject* response, DICOMDataObject* identifier) {
  return 0;
}

int StandardRetrieve::Write(PDU_Service* pdu, DICOMDataObject* identifier,
                            const char* moveDestination) {
  UID uid;
  GetUID(uid);
  if (!pdu || !moveDestination || !CMoveRQ::Write(pdu, uid, moveDestination, identifier)) return 0;
  for (;;) {
    DICOMCommandObject response;
    auto carried = std::make_unique<DICOMDataObject>();
    if (!pdu->Read(&response) || !CMoveRSP::Read(&response, pdu, carried.get())) return 0;
    uint16_t status = response.GetUInt16(0x0000, command::kStatus);
    DICOMDataObject* given = command::HasDataSet(&response) ? carried.get() : nullptr;
    if (CallBack(&response, given) && given) carried.release();
    if (status != DIMSEStatus::kPending) return IsMoveFailure(status) ? 0 : 1;
  }
}

int StandardRetrieve::Read(PDU_Service* pdu, DICOMCommandObject* request) {
  DICOMDataObject identifier;
  if (!pdu || !CMoveRQ::Read(request, pdu, &identifier)) return 0;
  CMoveRSP::Counts counts;

  unsigned char destination[kAETitleBytes], localAE[kAETitleBytes];
  unsigned char host[kHostBytes] = {}, port[kPortBytes] = {};
  std::string wanted;
  if (VR* element = request->Find(0x0000, command::kMoveDestination)) {
    if (element->Data) wanted.assign(static_cast<const char*>(element->Data), element->Length);
  }
  while (!wanted.empty() && (wanted.back() == ' ' || wanted.back() == '\0')) wanted.pop_back();
  while (!wanted.empty() && wanted.front() == ' ') wanted.erase(0, 1);
  CopyText(destination, sizeof destination, wanted);
  CopyText(localAE, sizeof localAE, pdu->GetCalledAETitle());
  if (!QualifyOn(destination, localAE, host, port))
    return CMoveRSP::Write(pdu, request, DIMSEStatus::kMoveDestinationUnknown, counts);

  Array<DICOMDataObject*> matches;
  if (!SearchOn(&identifier, &matches)) {
    DeleteAll(matches);
    return CMoveRSP::Write(pdu, request, DIMSEStatus::kUnableToProcess, counts);
  }
  CStoreRQ::Options origin;
  origin.MoveOriginatorAETitle = pdu->GetCallingAETitle();
  origin.MoveOriginatorMessageID = request->GetUInt16(0x0000, command::kMessageID);
  SubOperations sub({TextOf(destination, sizeof destination), TextOf(localAE, sizeof localAE),
                     TextOf(host, sizeof host), TextOf(port, sizeof port), pdu->GetTimeout()},
                    origin);
  const uint32_t total = matches.GetSize();
  for (uint32_t i = 0; i < total; ++i) {
    UID sopClass, held;
    if (!matches.Get(i)) continue;
    sopClass.Set(matches.Get(i)->Find(kDataGroup, kSOPClassUID));
    held.Set(matches.Get(i)->Find(kMetaGroup, kTransferSyntaxUID));
    if (!sub.PlanFor(sopClass, held)) break;
  }
  counts.Remaining = static_cast<uint16_t>(total > 0xFFFF ? 0xFFFF : total);
  std::vector<std::string> failed;
  uint16_t final = 0;
  for (uint32_t i = 0; i < total && !final; ++i) {
    std::unique_ptr<DICOMDataObject> match(matches.Get(i));
    matches.Get(i) = nullptr;
    DICOMDataObject* object = nullptr;
    StandardStorage* storage = nullptr;
    int found = match && RetrieveOn(match.get(), &object, &storage);
    std::unique_ptr<DICOMDataObject> toSend(object);
    const std::string instance = InstanceOf(match.get(), toSend.get());
    uint16_t status = 0;
    bool sent = found && toSend && storage && sub.Store(storage, toSend.get(), status);
    if (!sent || IsMoveFailure(status)) {
      ++counts.Failed;
      if (!instance.empty()) failed.push_back(instance);
    } else if (IsWarning(status)) {
      ++counts.Warning;
    } else {
      ++counts.Completed;
    }
    if (counts.Remaining) --counts.Remaining;
    bool broken = false;
    if (i + 1 < total && CancelAsked(pdu, request, broken)) final = DIMSEStatus::kCancel;
    if (broken || (i + 1 < total && !final &&
                   !CMoveRSP::Write(pdu, request, DIMSEStatus::kPending, counts))) {
      DeleteAll(matches);
      return 0;
    }
  }
  DeleteAll(matches);
  sub.Release();
  if (!final) {
    counts.Remaining = 0;
    final = DIMSEStatus::kSuccess;
    if (counts.Failed && !counts.Completed && !counts.Warning)
      final = DIMSEStatus::kOutOfResourcesSubOperations;
    else if (counts.Failed || counts.Warning)
      final = DIMSEStatus::kSubOperationsWithFailures;
  }
  std::unique_ptr<DICOMDataObject> list = FailedList(failed);
  return CMoveRSP::Write(pdu, request, final, counts, list.get());
}

int PatientRootRetrieve::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.2.1.2"); }
int StudyRootRetrieve::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.2.2.2"); }
int PatientStudyOnlyRetrieve::GetUID(UID& uid) {
  return SetUID(uid, "1.2.840.10008.5.1.4.1.2.3.2");
}
