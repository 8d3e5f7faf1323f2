#include "kestrel/CBasicFilmSession.h"

#include <memory>

#include "PrintExchange.h"
#include "kestrel/CDICOMPrintException.h"
#include "kestrel/ConnectFailure.h"
#include "kestrel/DIMSEN.h"
#include "kestrel/PDU_Service.h"
#include "vxCommon.h"

namespace {

using namespace KESTREL::print;

constexpr char kConfigFile[] = "pdu.txt";
constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";
constexpr int kKind = KESTREL::PRINT_BASIC_FILM_SESSION;

// Basic Film Session Presentation Module, PS3.3 C.13.1.
constexpr uint16_t kSessionGroup = 0x2000;
constexpr uint16_t kNumberOfCopies = 0x0010;
constexpr uint16_t kPrintPriority = 0x0020;
constexpr uint16_t kMediumType = 0x0030;
constexpr uint16_t kFilmDestination = 0x0040;
constexpr uint16_t kFilmSessionLabel = 0x0050;

PDU_Service* ConnectFailed(KESTREL::KESTREL_STATUS* status, const std::string& text) {
  Log(text, 1);
  KESTREL::SetLastErrorText(text);
  if (status) *status = KESTREL::KESTREL_STATUS_CONNECT_FAILED;
  return nullptr;
}

}  // namespace

CBasicFilmSession::CBasicFilmSession() = default;
CBasicFilmSession::~CBasicFilmSession() = default;

int CBasicFilmSession::GetUID(UID& uid) { return BasicFilmSession::GetUID(uid); }

PDU_Service* CBasicFilmSession::CreateAssociation(const std::string& host, const std::string& port,
                                                  const std::string& callingAE,
                                                  const std::string& calledAE,
                                                  KESTREL::KESTREL_STATUS* status) {
  const std::string connectError = "ERROR: Unable to connect to " + host + "\r\n";
  for (const std::string* title : {&callingAE, &calledAE}) {
    if (title->size() > 16)
      return ConnectFailed(
          status, connectError + "The AE title " + *title + " is longer than 16 characters");
  }
  auto association = std::make_unique<PDU_Service>(kConfigFile);
  association->SetApplicationContext(kApplicationContext);
  association->AddAbstractSyntax(PrintSOPClass::kBasicGrayscalePrintManagementMeta);
  association->SetLocalAddress(callingAE);
  association->SetRemoteAddress(calledAE);
  if (!association->Connect(host.c_str(), port.c_str(), nullptr)) {
    return ConnectFailed(status,
                         connectError + KESTREL::BuildConnectFailureText(*association, host, port));
  }
  if (status) *status = KESTREL::KESTREL_STATUS_OK;
  return association.release();
}

void CBasicFilmSession::ReleaseAssociation(PDU_Service* pdu) {
  if (!pdu) return;
  pdu->Close();
  delete pdu;
}

int CBasicFilmSession::Create(PDU_Service* pdu) {
  DICOMDataObject attributes;
  std::string copies = NumberOfCopies > 0 ? std::to_string(NumberOfCopies) : std::string();
  if (!PushText<VR_IS>(&attributes, kSessionGroup, kNumberOfCopies, copies) ||
      !PushText<VR_CS>(&attributes, kSessionGroup, kPrintPriority, PrintPriority) ||
      !PushText<VR_CS>(&attributes, kSessionGroup, kMediumType, MediumType) ||
      !PushText<VR_CS>(&attributes, kSessionGroup, kFilmDestination, FilmDestination) ||
      !PushText<VR_LO>(&attributes, kSessionGroup, kFilmSessionLabel, FilmSessionLabel))
    return ExchangeFailed(kKind, KESTREL::PRINT_N_CREATE, "out of memory");
  UID sopClass;
  GetUID(sopClass);
  UID syntax = PrintSyntax(pdu, sopClass);
  Response response;
  auto send = [&](uint16_t* id) {
    return NCreateRQ::Write(pdu, syntax, sopClass, UID(), &attributes, id);
  };
  if (!Exchange(pdu, kKind, KESTREL::PRINT_N_CREATE, &NCreateRSP::Read, send, response)) return 0;
  UID created;
  if (created.Set(response.command.Find(0x0000, 0x1000)) && !created.IsEmpty()) instance_ = created;
  ThrowOnStatus(response, kKind, KESTREL::PRINT_N_CREATE);
  if (instance_.IsEmpty())
    return ExchangeFailed(kKind, KESTREL::PRINT_N_CREATE, "the printer named no film session");
  return 1;
}

int CBasicFilmSession::Print(PDU_Service* pdu) {
  UID sopClass;
  GetUID(sopClass);
  return PrintInstance(pdu, kKind, sopClass, instance_, "film session");
}

int CBasicFilmSession::Delete(PDU_Service* pdu) {
  UID sopClass;
  GetUID(sopClass);
  return DeleteInstance(pdu, kKind, sopClass, instance_, "film session");
}
