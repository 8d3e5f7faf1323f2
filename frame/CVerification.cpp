#include "kestrel/CVerification.h"

#include "kestrel/ConnectFailure.h"
#include "kestrel/PDU_Service.h"

namespace {

constexpr char kConfigFile[] = "pdu.txt";
constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";

void SetStatus(KESTREL::KESTREL_STATUS* status, KESTREL::KESTREL_STATUS value) {
  if (status) *status = value;
}

}  // namespace

CVerification::~CVerification() = default;

int CVerification::GetUID(UID& uid) { return Verification::GetUID(uid); }

int CVerification::Client(const std::string& host, const std::string& port,
                          const std::string& callingAE, const std::string& calledAE,
                          KESTREL::KESTREL_STATUS* status) {
  UID sopClass;
  GetUID(sopClass);
  PDU_Service association(kConfigFile);
  association.SetApplicationContext(kApplicationContext);
  association.AddAbstractSyntax(sopClass);
  const std::string connectError = "Error: Unable to connect to " + host + "\r\n";
  for (const std::string* title : {&callingAE, &calledAE}) {
    if (title->size() <= 16) continue;
    KESTREL::SetLastErrorText(connectError + "The AE title " + *title +
                              " is longer than 16 characters");
    SetStatus(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
    return 0;
  }
  association.SetLocalAddress(callingAE);
  association.SetRemoteAddress(calledAE);

  if (!association.Connect(host.c_str(), port.c_str(), nullptr)) {
    KESTREL::SetLastErrorText(connectError +
                              KESTREL::BuildConnectFailureText(association, host, port));
    SetStatus(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
    return 0;
  }
  if (!Write(&association)) {
    KESTREL::SetLastErrorText("Error: Unable to write DICOM object.\r\n");
    association.Close();
    SetStatus(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
    return 0;
  }
  association.Close();
  SetStatus(status, KESTREL::KESTREL_STATUS_OK);
  return 1;
}
