#include "kestrel/StandardStorage.h"

#include <cstring>

#include "CommandSet.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PresentationContext.h"

namespace {

constexpr uint16_t kDataGroup = 0x0008;
constexpr uint16_t kSOPClassUID = 0x0016;

// Storage SOP classes, PS3.4 Annex B (some retired since).
struct StorageClass {
  const char* uid;
  const char* what;
};

constexpr StorageClass kStorageClasses[] = {
    {"1.2.840.10008.5.1.4.1.1.1", "CR"},
    {"1.2.840.10008.5.1.4.1.1.1.1", "DX for presentation"},
    {"1.2.840.10008.5.1.4.1.1.1.1.1", "DX for processing"},
    {"1.2.840.10008.5.1.4.1.1.1.2", "MG for presentation"},
    {"1.2.840.10008.5.1.4.1.1.1.2.1", "MG for processing"},
    {"1.2.840.10008.5.1.4.1.1.2", "CT"},
    {"1.2.840.10008.5.1.4.1.1.3", "US multi-frame (retired)"},
    {"1.2.840.10008.5.1.4.1.1.3.1", "US multi-frame"},
    {"1.2.840.10008.5.1.4.1.1.4", "MR"},
    {"1.2.840.10008.5.1.4.1.1.5", "NM (retired)"},
    {"1.2.840.10008.5.1.4.1.1.6", "US (retired)"},
    {"1.2.840.10008.5.1.4.1.1.6.1", "US"},
    {"1.2.840.10008.5.1.4.1.1.7", "secondary capture"},
    {"1.2.840.10008.5.1.4.1.1.8", "standalone overlay (retired)"},
    {"1.2.840.10008.5.1.4.1.1.9", "standalone curve (retired)"},
    {"1.2.840.10008.5.1.4.1.1.10", "standalone modality LUT (retired)"},
    {"1.2.840.10008.5.1.4.1.1.11", "standalone VOI LUT (retired)"},
    {"1.2.840.10008.5.1.4.1.1.12.1", "XA"},
    {"1.2.840.10008.5.1.4.1.1.12.2", "RF"},
    {"1.2.840.10008.5.1.4.1.1.12.3", "XA bi-plane (retired)"},
    {"1.2.840.10008.5.1.4.1.1.20", "NM"},
    {"1.2.840.10008.5.1.4.1.1.128", "PET"},
    {"1.2.840.113619.4.2", "private, outside vendor"},
    {"1.2.840.113619.4.3", "private, outside vendor"},
};

constexpr char kImplicitLittle[] = "1.2.840.10008.1.2";
constexpr char kExplicitLittle[] = "1.2.840.10008.1.2.1";
constexpr char kExplicitBig[] = "1.2.840.10008.1.2.2";
constexpr uint16_t kSOPInstanceUID = 0x0018;

int SetUID(UID& uid, const char* value) {
  uid = value;
  return 1;
}

}  // namespace

bool IsUncompressedTransferSyntax(const UID& syntax) {
  return syntax.IsEmpty() || syntax == UID(kImplicitLittle) || syntax == UID(kExplicitLittle) ||
         syntax == UID(kExplicitBig);
}

std::vector<UID> StorageTransferSyntaxes(const UID& heldSyntax) {
  if (IsUncompressedTransferSyntax(heldSyntax))
    return {UID(kExplicitLittle), UID(kImplicitLittle), UID(kExplicitBig)};
  return {heldSyntax};
}

// Several contexts may carry the class (one per encapsulated syntax, one for uncompressed
// data); the proposed transfer syntaxes tell them apart.
const PresentationContext* FindStorageContext(PDU_Service& pdu, const UID& sopClass,
                                              const UID& heldSyntax) {
  const std::vector<UID> wanted = StorageTransferSyntaxes(heldSyntax);
  for (const PresentationContext& accepted : pdu.GetAcceptedContexts()) {
    if (accepted.AbstractSyntax != sopClass || accepted.TransferSyntaxes.empty()) continue;
    for (const UID& candidate : wanted)
      if (accepted.TransferSyntaxes[0] == candidate) return &accepted;
  }
  return nullptr;
}

bool IsStorageSOPClassUID(const UID& uid) {
  for (const StorageClass& entry : kStorageClasses) {
    if (uid == UID(entry.uid)) return true;
  }
  return false;
}

StandardStorage::~StandardStorage() = default;

int StandardStorage::GetUID(UID& uid) {
  uid = UID();
  return 0;
}

int StandardStorage::uGetUID(UID& uid) { return GetUID(uid); }

uint16_t StandardStorage::StoreOn(DICOMCommandObject* request, DICOMDataObject* dataSet,
                                  const UID& transferSyntax) {
  return DIMSEStatus::kSuccess;
}

int StandardStorage::CheckObject(DICOMDataObject* dataSet) {
  if (!dataSet) return 0;
  UID own;
  GetUID(own);
  if (own.IsEmpty()) return 1;
  UID objectClass;
  objectClass.Set(dataSet->Find(kDataGroup, kSOPClassUID));
  return objectClass == own ? 1 : 0;
}

int StandardStorage::Write(PDU_Service* pdu, DICOMDataObject* dataSet, uint16_t* status) {
  if (!pdu || !dataSet || !CheckObject(dataSet)) return 0;
  UID sopClass, sopInstance, heldSyntax;
  GetUID(sopClass);
  if (sopClass.IsEmpty()) sopClass.Set(dataSet->Find(kDataGroup, kSOPClassUID));
  sopInstance.Set(dataSet->Find(kDataGroup, kSOPInstanceUID));
  heldSyntax.Set(dataSet->Find(0x0002, 0x0010));
  // Fragments under an uncompressed syntax would reach the peer as a stream it cannot parse.
  VR* pixels = dataSet->Find(0x7FE0, 0x0010);
  if (IsUncompressedTransferSyntax(heldSyntax) && pixels && pixels->SequenceItems &&
      pixels->SequenceItems->GetSize())
    return 0;
  const PresentationContext* context = FindStorageContext(*pdu, sopClass, heldSyntax);
  if (!context) return 0;
  uint16_t answer = 0;
  if (!Store(pdu, context->PresentationContextID, sopClass, sopInstance, dataSet,
             CStoreRQ::Options(), &answer))
    return 0;
  if (status) *status = answer;
  return 1;
}

int StandardStorage::Store(PDU_Service* pdu, uint8_t contextID, const UID& sopClass,
                           const UID& sopInstance, DICOMDataObject* dataSet,
                           const CStoreRQ::Options& options, uint16_t* status,
                           std::string* errorComment) {
  uint16_t messageID = 0;
  if (!CStoreRQ::Write(pdu, contextID, sopClass, sopInstance, dataSet, options, &messageID))
    return 0;
  return CStoreRSP::ReadFor(pdu, messageID, status, errorComment);
}

int StandardStorage::Read(PDU_Service* pdu, DICOMCommandObject* request, DICOMDataObject* dataSet) {
  if (!pdu || !dataSet || !CStoreRQ::Read(request, pdu, dataSet)) return 0;
  UID own;
  GetUID(own);
  uint16_t status;
  if (!own.IsEmpty() &&
      KESTREL::command::GetUID(request, KESTREL::command::kAffectedSOPClassUID) != own) {
    status = DIMSEStatus::kSOPClassNotSupported;
  } else {
    const PresentationContext* context =
        pdu->FindAcceptedContext(pdu->GetLastPresentationContextID());
    UID syntax = context ? context->TransferSyntaxes[0] : UID("1.2.840.10008.1.2");
    status = StoreOn(request, dataSet, syntax);
  }
  std::string comment;
  comment.swap(errorComment_);
  return CStoreRSP::Write(pdu, request, status, comment);
}

int UnknownStorage::GetUID(UID& uid) {
  uid = UID();
  return 1;
}

int CRStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.1"); }
int DXStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.1.1"); }
int DXRStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.1.1.1"); }
int MGStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.1.2"); }
int MGRStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.1.2.1"); }
int CTStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.2"); }
int USMultiframeStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.3"); }
int USNMultiframeStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.3.1"); }
int MRStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.4"); }
int NMStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.5"); }
int USStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.6"); }
int USNStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.6.1"); }
int SCStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.7"); }
int XAStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.12.1"); }
int RFStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.12.2"); }
int XABiStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.12.3"); }
int NMNStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.20"); }
int PETStorage::GetUID(UID& uid) { return SetUID(uid, "1.2.840.10008.5.1.4.1.1.128"); }
