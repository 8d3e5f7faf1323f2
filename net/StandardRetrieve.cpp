#include "kestrel/StandardRetrieve.h"

#include <cstring>
#include <memory>
#include <string>

#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/StandardStorage.h"
#include "CommandSet.h"

namespace command = KESTREL::command;

namespace {

constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";
constexpr uint16_t kMetaGroup = 0x0002;
constexpr uint16_t kTransferSyntaxUID = 0x0010;
constexpr uint16_t kDataGroup = 0x0008;
constexpr uint16_t kSOPClassUID = 0x0016;

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

// The C-STORE sub-operations of one C-MOVE. One sub-association is open at a time, for one SOP
// class and one proposed transfer syntax; an object that needs another is sent over a new one.
// A destination that could not be reached for a kind of object is not tried again for it.
class SubAssociation {
 public:
  SubAssociation(std::string destination, std::string localAE, std::string host, std::string port,
                 uint32_t timeout)
      : destination_(std::move(destination)),
        localAE_(std::move(localAE)),
        host_(std::move(host)),
        port_(std::move(port)),
        timeout_(timeout) {}
  ~SubAssociation() { Release(); }

  // The C-STORE-RSP status, or false when the object could not be sent.
  bool Store(StandardStorage* storage, DICOMDataObject* object, uint16_t& status) {
    UID sopClass;
    storage->GetUID(sopClass);
    if (sopClass.IsEmpty()) sopClass.Set(object->Find(kDataGroup, kSOPClassUID));
    UID syntax = ProposedSyntax(object);
    if (!pdu_ || sopClass != sopClass_ || syntax != syntax_) {
      if (failedClass_ == sopClass && failedSyntax_ == syntax && !sopClass.IsEmpty()) return false;
      if (!Open(sopClass, syntax)) return false;
    }
    if (storage->Write(pdu_.get(), object, &status)) return true;
    pdu_.reset();  // the association broke; the next object opens a new one
    return false;
  }

  void Release() {
    if (pdu_) pdu_->Close();
    pdu_.reset();
  }

 private:
  // Uncompressed objects are re-encoded in whatever the default proposal gives; encapsulated
  // pixel data can only travel in its own transfer syntax.
  static UID ProposedSyntax(DICOMDataObject* object) {
    UID syntax;
    syntax.Set(object->Find(kMetaGroup, kTransferSyntaxUID));
    static const UID kNative[] = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1",
                                  "1.2.840.10008.1.2.2"};
    for (const UID& native : kNative) {
      if (syntax == native) return UID();
    }
    return syntax;
  }

  bool Open(const UID& sopClass, const UID& syntax) {
    Release();
    auto pdu = std::make_unique<PDU_Service>();
    pdu->SetApplicationContext(kApplicationContext);
    pdu->AddAbstractSyntax(sopClass);
    pdu->SetTimeout(timeout_);
    if (!pdu->SetLocalAddress(localAE_) || !pdu->SetRemoteAddress(destination_) ||
        !pdu->Connect(host_.c_str(), port_.c_str(),
                      syntax.IsEmpty() ? nullptr : syntax.GetBuffer())) {
      failedClass_ = sopClass;
      failedSyntax_ = syntax;
      return false;
    }
    pdu_ = std::move(pdu);
    sopClass_ = sopClass;
    syntax_ = syntax;
    return true;
  }

  std::string destination_, localAE_, host_, port_;
  uint32_t timeout_;
  std::unique_ptr<PDU_Service> pdu_;
  UID sopClass_, syntax_;
  UID failedClass_, failedSyntax_;
};

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
  SubAssociation sub(TextOf(destination, sizeof destination), TextOf(localAE, sizeof localAE),
                     TextOf(host, sizeof host), TextOf(port, sizeof port), pdu->GetTimeout());
  const uint32_t total = matches.GetSize();
  counts.Remaining = static_cast<uint16_t>(total > 0xFFFF ? 0xFFFF : total);
  for (uint32_t i = 0; i < total; ++i) {
    std::unique_ptr<DICOMDataObject> match(matches.Get(i));
    matches.Get(i) = nullptr;
    DICOMDataObject* object = nullptr;
    StandardStorage* storage = nullptr;
    int found = match && RetrieveOn(match.get(), &object, &storage);
    std::unique_ptr<DICOMDataObject> toSend(object);
    uint16_t status = 0;
    bool sent = found && toSend && storage && sub.Store(storage, toSend.get(), status);
    if (!sent || IsMoveFailure(status))
      ++counts.Failed;
    else if (IsWarning(status))
      ++counts.Warning;
    else
      ++counts.Completed;
    if (counts.Remaining) --counts.Remaining;
    if (i + 1 < total && !CMoveRSP::Write(pdu, request, DIMSEStatus::kPending, counts)) {
      DeleteAll(matches);
      return 0;
    }
  }
  matches.RemoveAll();
  sub.Release();
  uint16_t final = DIMSEStatus::kSuccess;
  if (counts.Failed && !counts.Completed && !counts.Warning)
    final = DIMSEStatus::kOutOfResourcesSubOperations;
  else if (counts.Failed || counts.Warning)
    final = DIMSEStatus::kSubOperationsWithFailures;
  counts.Remaining = 0;
  return CMoveRSP::Write(pdu, request, final, counts);
}

int PatientRootRetrieve::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.2.1.2"); }
int StudyRootRetrieve::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.2.2.2"); }
int PatientStudyOnlyRetrieve::GetUID(UID& uid) {
  return SetUID(uid, "1.2.840.10008.5.1.4.1.2.3.2");
}
