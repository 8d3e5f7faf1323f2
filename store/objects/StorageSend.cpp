// Sending storage objects: C-STORE over an association of their own (Client) or over one shared
// association proposing every SOP class met (CreateAssociation, Send, ReleaseAssociation).

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kestrel/CStorage.h"
#include "kestrel/ConnectFailure.h"
#include "kestrel/DICOMCodec.h"
#include "kestrel/DICOMObject.h"
#include "kestrel/ImageIODModule.h"
#include "kestrel/Notifier.h"
#include "kestrel/PDU_Service.h"
#include "kestrel/PresentationContext.h"
#include "kestrel/StandardStorage.h"
#include "kestrel/VR_XXTYPED.h"
#include "vxCommon.h"

namespace {

constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";
constexpr char kImplicitLittle[] = "1.2.840.10008.1.2";
constexpr size_t kMaxContexts = 128;  // odd context IDs 1 to 255 (PS3.8 9.3.2.2)

UID SyntaxOf(const char* pszTransferSyntaxUID) {
  UID syntax;
  if (pszTransferSyntaxUID) syntax.Set(std::string(pszTransferSyntaxUID));
  return syntax;
}

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

std::string ConnectFailure(const std::string& host, const std::string& port,
                           PDU_Service& association, bool capitals) {
  return ConnectText(host, capitals) + KESTREL::BuildConnectFailureText(association, host, port);
}

const char kWriteFailure[] = "Error: Unable to write DICOM object.\r\n";

// Success (0000) and the Warnings of PS3.4 Table B.2-1 (0001, Bxxx) mean the peer kept it.
bool IsStored(uint16_t status) {
  return status == 0x0000 || status == 0x0001 || (status & 0xF000) == 0xB000;
}

std::string StatusText(uint16_t status, const std::string& comment) {
  char text[96];
  std::snprintf(text, sizeof text, "The peer answered C-STORE with status 0x%04X", status);
  return std::string(text) + (comment.empty() ? "" : ": " + comment) + "\r\n";
}

struct Instance {
  DICOMDataObject* dataSet;  // what is encoded (and emptied)
  UID sopClass;
  UID sopInstance;
};

// One C-STORE on the context the peer accepted for the instance. Sets `text` and gives the
// status code for the caller's report.
KESTREL::KESTREL_STATUS StoreOn(PDU_Service& pdu, const PresentationContext& context,
                                const Instance& instance, std::string& text) {
  uint16_t answer = 0;
  std::string comment;
  if (!StandardStorage::Store(&pdu, context.PresentationContextID, instance.sopClass,
                              instance.sopInstance, instance.dataSet, CStoreRQ::Options(), &answer,
                              &comment)) {
    text = kWriteFailure;
    return KESTREL::KESTREL_STATUS_WRITE_FAILED;
  }
  if (!IsStored(answer)) {
    text = kWriteFailure + StatusText(answer, comment);
    return KESTREL::KESTREL_STATUS_WRITE_FAILED;
  }
  return KESTREL::KESTREL_STATUS_OK;
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
  if (IsUncompressedTransferSyntax(syntax) && pixels && pixels->SequenceItems &&
      pixels->SequenceItems->GetSize()) {
    why = "The pixel data is encapsulated but the transfer syntax given is not\r\n";
    return false;
  }
  return true;
}

PDU_Service* CStorage::CreateAssociation(const std::string& host, const std::string& port,
                                         const std::string& callingAE, const std::string& calledAE,
                                         const std::vector<UID>& sopClasses,
                                         const std::vector<UID>& transferSyntaxes) {
  return CreateAssociation(host, port, callingAE, calledAE, sopClasses, transferSyntaxes, true);
}

PDU_Service* CStorage::CreateAssociation(const std::string& host, const std::string& port,
                                         const std::string& callingAE, const std::string& calledAE,
                                         const std::vector<UID>& sopClasses,
                                         const std::vector<UID>& transferSyntaxes, bool notify) {
  const std::string connectError = ConnectText(host, true);
  auto fail = [&](const std::string& text) -> PDU_Service* {
    KESTREL::SetLastErrorText(text);
    if (notify) KESTREL::Notify(text);
    return nullptr;
  };
  auto association = std::make_unique<PDU_Service>(ConfigFilePath().c_str());
  association->SetApplicationContext(kApplicationContext);
  if (!association->SetLocalAddress(callingAE))
    return fail(connectError + "The AE title " + callingAE + " is longer than 16 characters\r\n");
  if (!association->SetRemoteAddress(calledAE))
    return fail(connectError + "The AE title " + calledAE + " is longer than 16 characters\r\n");

  // One context per SOP class and kind of data: all uncompressed instances of a class share
  // one, each compressed syntax needs its own.
  std::vector<std::pair<UID, UID>> proposed;  // (SOP class, first syntax of the proposal)
  for (size_t i = 0; i < sopClasses.size(); ++i) {
    UID syntax = i < transferSyntaxes.size() ? transferSyntaxes[i] : UID();
    const std::vector<UID> syntaxes = StorageTransferSyntaxes(syntax);
    std::pair<UID, UID> key(sopClasses[i], syntaxes[0]);
    bool known = false;
    for (const auto& earlier : proposed) known = known || earlier == key;
    if (known) continue;
    if (proposed.size() == kMaxContexts)
      return fail(connectError + "More than 128 presentation contexts would be needed\r\n");
    proposed.push_back(key);
    association->AddAbstractSyntax(sopClasses[i], syntaxes);
  }
  if (proposed.empty()) return fail(connectError + "No SOP class to propose\r\n");
  if (!association->Connect(host.c_str(), port.c_str(), nullptr))
    return fail(ConnectFailure(host, port, *association, true));
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
  const PresentationContext* context = FindStorageContext(*pdu, instance.sopClass, syntax);
  if (!context)
    return report(KESTREL::KESTREL_STATUS_CONNECT_FAILED,
                  std::string(kWriteFailure) + "The peer accepted no context for " +
                      instance.sopClass.ToString() + " in " +
                      (syntax.IsEmpty() ? std::string(kImplicitLittle) : syntax.ToString()) +
                      "\r\n");
  std::string text;
  return report(StoreOn(*pdu, *context, instance, text), text);
}

int CStorage::Client(const std::string& host, const std::string& port, const std::string& callingAE,
                     const std::string& calledAE, KESTREL::KESTREL_STATUS* status,
                     const char* pszTransferSyntaxUID) {
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
      return fail(KESTREL::KESTREL_STATUS_CONNECT_FAILED, ConnectText(host, false) +
                                                              "The AE title " + *title +
                                                              " is longer than 16 characters\r\n");
  }

  PDU_Service association(ConfigFilePath().c_str());
  association.SetApplicationContext(kApplicationContext);
  association.SetLocalAddress(callingAE);
  association.SetRemoteAddress(calledAE);
  association.AddAbstractSyntax(instance.sopClass, StorageTransferSyntaxes(syntax));
  if (!association.Connect(host.c_str(), port.c_str(), nullptr))
    return fail(KESTREL::KESTREL_STATUS_CONNECT_FAILED,
                ConnectFailure(host, port, association, false));
  // Connect fails unless a context was accepted, and only one was proposed.
  const PresentationContext* context = FindStorageContext(association, instance.sopClass, syntax);
  std::string text = kWriteFailure;
  KESTREL::KESTREL_STATUS outcome = context ? StoreOn(association, *context, instance, text)
                                            : KESTREL::KESTREL_STATUS_WRITE_FAILED;
  association.Close();
  if (outcome != KESTREL::KESTREL_STATUS_OK) return fail(outcome, text);
  if (status) *status = KESTREL::KESTREL_STATUS_OK;
  return 1;
}
