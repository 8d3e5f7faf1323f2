#include "FindClient.h"

#include "kestrel/ConnectFailure.h"
#include "kestrel/StandardQuery.h"

namespace KESTREL::query_client {

namespace {

constexpr char kApplicationContext[] = "1.2.840.10008.3.1.1.1";

void SetStatus(KESTREL::KESTREL_STATUS* status, KESTREL::KESTREL_STATUS value) {
  if (status) *status = value;
}

}  // namespace

bool FindAssociation::Open(StandardQuery& query, const std::string& host, const std::string& port,
                           const std::string& callingAE, const std::string& calledAE,
                           KESTREL::KESTREL_STATUS* status) {
  UID sopClass;
  query.GetUID(sopClass);
  association_.SetApplicationContext(kApplicationContext);
  association_.AddAbstractSyntax(sopClass);
  const std::string connectError =
      std::string(capitals_ ? "ERROR" : "Error") + ": Unable to connect to " + host + "\r\n";
  for (const std::string* title : {&callingAE, &calledAE}) {
    if (title->size() <= 16) continue;
    KESTREL::SetLastErrorText(connectError + "The AE title " + *title +
                              " is longer than 16 characters");
    SetStatus(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
    return false;
  }
  association_.SetLocalAddress(callingAE);
  association_.SetRemoteAddress(calledAE);
  if (!association_.Connect(host.c_str(), port.c_str(), nullptr)) {
    KESTREL::SetLastErrorText(connectError +
                              KESTREL::BuildConnectFailureText(association_, host, port));
    SetStatus(status, KESTREL::KESTREL_STATUS_CONNECT_FAILED);
    return false;
  }
  return true;
}

bool FindAssociation::Find(StandardQuery& query, DICOMDataObject* identifier,
                           KESTREL::KESTREL_STATUS* status) {
  if (query.Write(&association_, identifier)) return true;
  KESTREL::SetLastErrorText(capitals_ ? "ERROR: Unable to write DICOM object.\r\n"
                                      : "Error: Unable to write DICOM object.\r\n");
  association_.Close();
  SetStatus(status, KESTREL::KESTREL_STATUS_WRITE_FAILED);
  return false;
}

void FindAssociation::Close(KESTREL::KESTREL_STATUS* status) {
  association_.Close();
  SetStatus(status, KESTREL::KESTREL_STATUS_OK);
}

}  // namespace KESTREL::query_client
