// Sending storage objects: C-STORE over an association of their own (Client) or over one shared
// association proposing every SOP class met (CreateAssociation, Send, ReleaseAssociation).

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "common/vxCommon.h"
#include "kestrel/CStorage.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/Notifier.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PresentationContext.h"
#include "kestrel/VR_XXTYPED.h"
#include "net/CommandSet.h"

namespace {

namespace cmd = KESTREL::command;

constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";
constexpr char kImplicitLittle[] = "1.2.840.10008.1.2";
constexpr char kExplicitLittle[] = "1.2.840.10008.1.2.1";
constexpr char kExplicitBig[] = "1.2.840.10008.1.2.2";
constexpr uint16_t kCStoreRQ = 0x0001;
constexpr uint16_t kCStoreRSP = 0x8001;
constexpr size_t kMaxContexts = 128;  // odd context IDs 1 to 255 (PS3.8 9.3.2.2)

// Native syntaxes are all encoded by the codec from the same held values, so one context
// carries every native instance of a SOP class; an encapsulated syntax needs its own.
bool IsNative(const UID& syntax) {
  return syntax.IsEmpty() || syntax == UID(kImplicitLittle) || syntax == UID(kExplicitLittle) ||
         syntax == UID(kExplicitBig);
}

UID SyntaxOf(const char* pszTransferSyntaxUID) {
  UID syntax;
  if (pszTransferSyntaxUID) syntax.Set(std::string(pszTransferSyntaxUID));
  return syntax;
}

// The transfer syntaxes one context proposes for instances held in `syntax`.
std::vector<UID> ProposalFor(const UID& syntax) {
  if (IsNative(syntax)) return {UID(kExplicitLittle), UID(kImplicitLittle)};
  return {syntax};
}

// The association of the storage paths: each abstract syntax added goes with the transfer
// syntaxes queued beside it, in the order added.
class StorageAssociation : public PDU_Service {
 public:
  explicit StorageAssociation(const std::string& configFile) : PDU_Service(configFile.c_str()) {}

  void Propose(const UID& sopClass, const UID& syntax) {
    AddAbstractSyntax(sopClass);
    proposals_.push_back(ProposalFor(syntax));
  }

  bool AddDefaultTransferSyntaxes(PresentationContext& context) override {
    if (next_ >= proposals_.size()) return PDU_Service::AddDefaultTransferSyntaxes(context);
    for (const UID& syntax : proposals_[next_]) context.AddTransferSyntax(syntax);
    ++next_;
    return true;
  }

 private:
  std::vector<std::vector<UID>> proposals_;
  size_t next_ = 0;
};

std::string ConfigFilePath() {
  // Settings name directories without a trailing separator. Without the setting the file is
  // looked for where the other clients look, in the current directory, not at the root.
  std::string directory = GetRegLocalMachineStr("Install Dir", 1);
  return directory.empty() ? std::string("pdu.txt") : directory + "/pdu.txt";
}

// The storage client speaks as every other wrapper's client; the shared association of
// CreateAssociation reports in capitals, as its message box did.
std::string ConnectText(const std::string& host, bool capitals) {
  return std::string(capitals ? "ERROR" : "Error") + ": Unable to connect to " + host + "\r\n";
}

std::string ConnectFailure(const std::string& host, PDU_Service& association, bool capitals) {
  return ConnectText(host, capitals) +
         KESTREL::BuildRejectionText(association.GetRejectResult(), association.GetRejectSource(),
                                     association.GetRejectReason());
}

const char kWriteFailure[] = "Error: Unable to write DICOM object.\r\n";

// Success (0000) and the Warnings of PS3.4 Table B.2-1 (0001, Bxxx) mean the peer kept it.
bool IsStored(uint16_t status) {
  return status == 0x0000 || status == 0x0001 || (status & 0xF000) == 0xB000;
}

std::string StatusText(uint16_t status) {
  char text[96];
  std::snprintf(text, sizeof text, "The peer answered C-STORE with status 0x%04X\r\n", status);
  return text;
}

// The accepted context that carries `sopClass` for instances held in `syntax`.
const PresentationContext* ContextFor(PDU_Service& pdu, const UID& sopClass, const UID& syntax) {
  const std::vector<UID> wanted = ProposalFor(syntax);
  const std::vector<PresentationContext>& proposed = pdu.GetProposedContexts();
  for (const PresentationContext& accepted : pdu.GetAcceptedContexts()) {
    if (accepted.TransferSyntaxes.empty()) continue;
    for (const PresentationContext& offer : proposed) {
      if (offer.PresentationContextID != accepted.PresentationContextID) continue;
      if (offer.AbstractSyntax != sopClass) break;
      for (const UID& candidate : wanted)
        if (accepted.TransferSyntaxes[0] == candidate) return &accepted;
      break;
    }
  }
  return nullptr;
}

struct Instance {
  DICOMDataObject* dataSet;  // what is encoded (and emptied)
  UID sopClass;
  UID sopInstance;
};

// One C-STORE request and its response. 1 when a response arrived (its status in `status`).
int StoreOnContext(PDU_Service& pdu, uint8_t contextID, const Instance& instance,
                   uint16_t& status) {
  uint16_t messageID = 0;
  std::unique_ptr<DICOMCommandObject> request(
      cmd::NewRequest(kCStoreRQ, cmd::kAffectedSOPClassUID, instance.sopClass, &messageID));
  if (!request || !cmd::PushUS(request.get(), cmd::kPriority, cmd::kPriorityMedium) ||
      !cmd::PushUID(request.get(), cmd::kAffectedSOPInstanceUID, instance.sopInstance) ||
      !cmd::PushUS(request.get(), cmd::kDataSetType, cmd::kDataSetFollows))
    return 0;
  if (!pdu.WriteOnContext(request.get(), contextID, true)) return 0;
  if (!pdu.WriteOnContext(instance.dataSet, contextID, false)) return 0;
  DICOMCommandObject response;
  if (!pdu.Read(&response)) return 0;
  if (response.GetUInt16(0x0000, cmd::kCommandField) != kCStoreRSP ||
      response.GetUInt16(0x0000, cmd::kMessageIDBeingRespondedTo) != messageID ||
      !response.Find(0x0000, cmd::kStatus))
    return 0;
  status = response.GetUInt16(0x0000, cmd::kStatus);
  return 1;
}

}  // namespace

// The instance to send: `pDDO`'s or the object's own, with the UIDs the request names. The
// SOP class is the one the instance names (a "for processing" image held by the class "for
// presentation" still goes as what it is), the class's own when the instance names none.
// False, with the reason in `why`, when the instance cannot be sent in `syntax`.
static bool DescribeInstance(CStorage& storage, DICOMDataObject* pDDO, const UID& syntax,
                             Instance& instance, std::string& why) {
  if (pDDO) {
    instance.dataSet = pDDO;
    instance.sopClass.Set(pDDO->Find(0x0008, 0x0016));
    instance.sopInstance.Set(pDDO->Find(0x0008, 0x0018));
  } else {
    ImageIODModule* iod = storage.GetIOD();
    instance.dataSet = storage.Get();
    instance.sopClass.Set(iod->GetAttribute(0x0008, 0x0016));
    if (instance.sopClass.IsEmpty()) storage.GetUID(instance.sopClass);
    instance.sopInstance.Set(iod->GetAttribute(0x0008, 0x0018));
  }
  if (instance.sopClass.IsEmpty() || instance.sopInstance.IsEmpty()) {
    why = "The object has no SOP Class UID or no SOP Instance UID\r\n";
    return false;
  }
  // Fragments under a native syntax would reach the peer as a stream it cannot parse.
  VR* pixels = pDDO ? pDDO->Find(0x7FE0, 0x0010) : storage.GetIOD()->GetAttribute(0x7FE0, 0x0010);
  if (IsNative(syntax) && pixels && pixels->SequenceItems && pixels->SequenceItems->GetSize()) {
    why = "The pixel data is encapsulated but the transfer syntax given is not\r\n";
    return false;
  }
  return true;
}

PDU_Service* CStorage::CreateAssociation(const std::string& host, const std::string& port,
                                         const std::string& callingAE,
                                         const std::string& calledAE,
                                         const std::vector<UID>& sopClasses,
                                         const std::vector<UID>& transferSyntaxes) {
  const std::string connectError = ConnectText(host, true);
  auto fail = [&](const std::string& text) -> PDU_Service* {
    KESTREL::SetLastErrorText(text);
    KESTREL::Notify(text);
    return nullptr;
  };
  auto association = std::make_unique<StorageAssociation>(ConfigFilePath());
  association->SetApplicationContext(kApplicationContext);
  if (!association->SetLocalAddress(callingAE))
    return fail(connectError + "The AE title " + callingAE + " is longer than 16 characters\r\n");
  if (!association->SetRemoteAddress(calledAE))
    return fail(connectError + "The AE title " + calledAE + " is longer than 16 characters\r\n");

  std::vector<std::pair<UID, UID>> proposed;  // (SOP class, first syntax of the proposal)
  for (size_t i = 0; i < sopClasses.size(); ++i) {
    UID syntax = i < transferSyntaxes.size() ? transferSyntaxes[i] : UID();
    std::pair<UID, UID> key(sopClasses[i], ProposalFor(syntax)[0]);
    bool known = false;
    for (const auto& earlier : proposed) known = known || earlier == key;
    if (known) continue;
    if (proposed.size() == kMaxContexts)
      return fail(connectError + "More than 128 presentation contexts would be needed\r\n");
    proposed.push_back(key);
    association->Propose(sopClasses[i], syntax);
  }
  if (proposed.empty()) return fail(connectError + "No SOP class to propose\r\n");
  if (!association->Connect(host.c_str(), port.c_str(), nullptr))
    return fail(ConnectFailure(host, *association, true));
  return association.release();
}

void CStorage::ReleaseAssociation(PDU_Service* pdu) {
  if (!pdu) return;
  pdu->Close();
  delete pdu;
}

int CStorage::Send(PDU_Service* pdu, DICOMDataObject* pDDO, const char* pszTransferSyntaxUID,
                   KESTREL::KESTREL_STATUS* status) {
  auto report = [status](KESTREL::KESTREL_STATUS value, const std::string& text) {
    if (status) *status = value;
    if (value != KESTREL::KESTREL_STATUS_OK) KESTREL::SetLastErrorText(text);
    return value == KESTREL::KESTREL_STATUS_OK ? 1 : 0;
  };
  const UID syntax = SyntaxOf(pszTransferSyntaxUID);
  Instance instance{};
  std::string why;
  if (!pdu) why = "There is no association\r\n";
  if (!pdu || !DescribeInstance(*this, pDDO, syntax, instance, why))
    return report(KESTREL::KESTREL_STATUS_WRITE_FAILED, kWriteFailure + why);
  const PresentationContext* context = ContextFor(*pdu, instance.sopClass, syntax);
  if (!context)
    return report(KESTREL::KESTREL_STATUS_CONNECT_FAILED,
                  std::string(kWriteFailure) + "The peer accepted no context for " +
                      instance.sopClass.ToString() + " in " +
                      (syntax.IsEmpty() ? std::string(kImplicitLittle) : syntax.ToString()) +
                      "\r\n");
  uint16_t answer = 0;
  if (!StoreOnContext(*pdu, context->PresentationContextID, instance, answer))
    return report(KESTREL::KESTREL_STATUS_WRITE_FAILED, kWriteFailure);
  if (!IsStored(answer))
    return report(KESTREL::KESTREL_STATUS_WRITE_FAILED, kWriteFailure + StatusText(answer));
  return report(KESTREL::KESTREL_STATUS_OK, std::string());
}

int CStorage::Client(const std::string& host, const std::string& port,
                     const std::string& callingAE, const std::string& calledAE,
                     KESTREL::KESTREL_STATUS* status, const char* pszTransferSyntaxUID) {
  return Client(nullptr, host, port, callingAE, calledAE, status, pszTransferSyntaxUID);
}

int CStorage::Client(DICOMDataObject* pDDO, const std::string& host, const std::string& port,
                     const std::string& callingAE, const std::string& calledAE,
                     KESTREL::KESTREL_STATUS* status, const char* pszTransferSyntaxUID) {
  auto fail = [status](KESTREL::KESTREL_STATUS value, const std::string& text) {
    KESTREL::SetLastErrorText(text);
    if (status) *status = value;
    return 0;
  };
  const UID syntax = SyntaxOf(pszTransferSyntaxUID);
  Instance instance{};
  std::string why;
  // An instance that cannot go is known before any connection is tried.
  if (!DescribeInstance(*this, pDDO, syntax, instance, why))
    return fail(KESTREL::KESTREL_STATUS_WRITE_FAILED, kWriteFailure + why);
  for (const std::string* title : {&callingAE, &calledAE}) {
    if (title->size() > 16)
      return fail(KESTREL::KESTREL_STATUS_CONNECT_FAILED,
                  ConnectText(host, false) + "The AE title " + *title +
                      " is longer than 16 characters\r\n");
  }

  StorageAssociation association(ConfigFilePath());
  association.SetApplicationContext(kApplicationContext);
  association.SetLocalAddress(callingAE);
  association.SetRemoteAddress(calledAE);
  association.Propose(instance.sopClass, syntax);
  if (!association.Connect(host.c_str(), port.c_str(), nullptr))
    return fail(KESTREL::KESTREL_STATUS_CONNECT_FAILED, ConnectFailure(host, association, false));
  // Connect fails unless a context was accepted, and only one was proposed.
  const PresentationContext* context = ContextFor(association, instance.sopClass, syntax);
  uint16_t answer = 0;
  const bool answered =
      context && StoreOnContext(association, context->PresentationContextID, instance, answer);
  association.Close();
  if (!answered) return fail(KESTREL::KESTREL_STATUS_WRITE_FAILED, kWriteFailure);
  if (!IsStored(answer))
    return fail(KESTREL::KESTREL_STATUS_WRITE_FAILED, kWriteFailure + StatusText(answer));
  if (status) *status = KESTREL::KESTREL_STATUS_OK;
  return 1;
}
